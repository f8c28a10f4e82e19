#include "tools/frame_reader.h"

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "kt_mp4.h"
#include "tools/container_error.h"
#include "tools/failure.h"
#include "tools/recordings.h"

namespace
{

constexpr int max_frame_bytes = 8 << 20;

[[noreturn]] void fail(const _ifs_rec_file_& recording, int error)
{
    throw Failure(ExitCode::failed, "the recording " + file_name(recording) +
                                        " cannot be read: " + container_error_text(error));
}

[[noreturn]] void fail(const _ifs_rec_file_& recording)
{
    throw Failure(ExitCode::failed, "the recording " + file_name(recording) +
                                        " cannot be read; it is damaged or gone, leave it out");
}

/** A recording kept open by the library; while it is, it is not deleted to make room. */
class OpenRecording
{
public:
    explicit OpenRecording(const _ifs_rec_file_& recording) : m_recording(recording)
    {
        m_fd = Ifsi_open(&m_recording);
        if (m_fd < 0)
            fail(recording);
    }
    ~OpenRecording() { Ifsi_close(m_fd, nullptr); }
    OpenRecording(const OpenRecording&) = delete;
    OpenRecording& operator=(const OpenRecording&) = delete;

    int fd() const { return m_fd; }
    const _ifs_rec_file_& recording() const { return m_recording; }

private:
    _ifs_rec_file_ m_recording;
    int m_fd;
};

/**
 * Timestamps of a recording as times. A host that counts them from the start's whole second keeps the
 * fraction of the first frame; where they count from anything else, the first frame was taken at the start.
 */
class Timeline
{
public:
    Timeline(int64_t start_s, uint32_t first_timestamp_ms)
        : m_first_ms(start_s * 1000 + (first_timestamp_ms < 1000 ? first_timestamp_ms : 0)),
          m_first_timestamp_ms(first_timestamp_ms)
    {
    }

    /** The difference is signed: pictures are written in decoding order and may step back. */
    int64_t time_ms(uint32_t timestamp_ms) const
    {
        return m_first_ms + static_cast<int32_t>(timestamp_ms - m_first_timestamp_ms);
    }
    int64_t first_ms() const { return m_first_ms; }

private:
    int64_t m_first_ms;
    uint32_t m_first_timestamp_ms;
};

class LibraryReader : public FrameReader
{
public:
    explicit LibraryReader(const _ifs_rec_file_& recording)
        : m_open(recording), m_start_s(start_seconds(recording)), m_buffer(max_frame_bytes),
          m_timeline(m_start_s, first_timestamp_ms())
    {
    }

    bool next(Frame* frame) override
    {
        uint32_t timestamp_ms = 0;
        int time_s = 0;
        if (!read(frame, &timestamp_ms, &time_s))
            return false;
        if (frame->type == IFS_FRAME_AUDIO) {
            frame->time_ms =
                std::max(m_video_time_ms, static_cast<int64_t>(static_cast<uint32_t>(time_s)) * 1000);
        } else {
            frame->time_ms = m_timeline.time_ms(timestamp_ms);
            m_video_time_ms = frame->time_ms;
        }
        return true;
    }

    void seek(int64_t time_s) override
    {
        m_video_time_ms = 0;
        if (Ifsi_tseek(m_open.fd(), static_cast<unsigned>(std::max<int64_t>(time_s, 0))) != 0)
            fail(m_open.recording());
    }

private:
    /** @param timestamp_ms  of a video frame, from its frame header */
    bool read(Frame* frame, uint32_t* timestamp_ms, int* time_s)
    {
        int payload_offset = 0;
        int payload_len = 0;
        int frame_offset = 0;
        int frame_len = 0;
        int result =
            Ifsi_read(m_open.fd(), m_buffer.data(), static_cast<int>(m_buffer.size()), &payload_offset,
                      &payload_len, &frame_offset, &frame_len, &frame->type, time_s);
        if (result < 0)
            fail(m_open.recording());
        if (result == 0)
            return false;
        const auto* bytes = reinterpret_cast<const uint8_t*>(m_buffer.data());
        frame->data = bytes + payload_offset;
        frame->size = static_cast<size_t>(payload_len);
        if (frame->type != IFS_FRAME_AUDIO)
            *timestamp_ms = header_timestamp_ms(bytes + frame_offset);
        return true;
    }

    /** The header holds microseconds, start time included, in 8 bytes from offset 16. */
    uint32_t header_timestamp_ms(const uint8_t* header) const
    {
        uint64_t time_us = 0;
        for (int byte = 7; byte >= 0; --byte)
            time_us = time_us << 8 | header[16 + byte];
        return static_cast<uint32_t>(time_us / 1000 - static_cast<uint64_t>(m_start_s) * 1000);
    }

    uint32_t first_timestamp_ms()
    {
        Frame frame = {};
        uint32_t timestamp_ms = 0;
        int time_s = 0;
        read(&frame, &timestamp_ms, &time_s);
        seek(0);
        return timestamp_ms;
    }

    OpenRecording m_open;
    int64_t m_start_s;
    std::vector<char> m_buffer;
    int64_t m_video_time_ms = 0;
    Timeline m_timeline;
};

struct CloseContainer {
    void operator()(void* handle) const { kt_mp4_close(handle); }
};

class ContainerReader : public FrameReader
{
public:
    explicit ContainerReader(const _ifs_rec_file_& recording)
        : m_open(recording), m_container(open_container(recording)),
          m_timeline(start_seconds(recording), first_timestamp_ms()), m_buffer(max_frame_bytes)
    {
    }

    bool next(Frame* frame) override
    {
        int kind = 0;
        unsigned timestamp_ms = 0;
        int size = kt_mp4_read(m_container.get(), &kind, m_buffer.data(), static_cast<int>(m_buffer.size()),
                               &timestamp_ms);
        if (size < 0)
            fail(m_open.recording(), errno);
        if (size == 0)
            return false;
        frame->type = kind == KT_MP4_VIDEO_KEY     ? IFS_FRAME_I
                      : kind == KT_MP4_VIDEO_OTHER ? IFS_FRAME_P
                                                   : IFS_FRAME_AUDIO;
        frame->time_ms = m_timeline.time_ms(timestamp_ms);
        frame->data = reinterpret_cast<const uint8_t*>(m_buffer.data());
        frame->size = static_cast<size_t>(size);
        return true;
    }

    void seek(int64_t time_s) override
    {
        int64_t offset_ms = std::max<int64_t>(time_s * 1000 - m_timeline.first_ms(), 0);
        if (kt_mp4_seek_read(m_container.get(), static_cast<unsigned>(offset_ms)) < 0)
            fail(m_open.recording(), errno);
    }

private:
    static void* open_container(const _ifs_rec_file_& recording)
    {
        std::string path = file_path(recording);
        void* container = kt_mp4_open(path.data(), 0, 0, 0, 0, 0, 0, KT_MP4_READ, 0, 320, 0);
        if (!container)
            fail(recording, errno);
        return container;
    }

    uint32_t first_timestamp_ms()
    {
        kt_mfile_info_t info = {};
        if (kt_mp4_getinfo(m_container.get(), &info) != 0)
            fail(m_open.recording(), errno);
        return static_cast<uint32_t>(info.firstpts);
    }

    OpenRecording m_open;
    std::unique_ptr<void, CloseContainer> m_container;
    Timeline m_timeline;
    std::vector<char> m_buffer;
};

/** Read on up to a time. @return time of the last key frame up to there, or -1 */
int64_t last_key_frame_time(FrameReader& reader, int64_t time_ms)
{
    int64_t found_ms = -1;
    Frame frame = {};
    while (reader.next(&frame)) {
        if (frame.type == IFS_FRAME_AUDIO)
            continue;
        if (frame.time_ms > time_ms)
            break;
        if (frame.type == IFS_FRAME_I)
            found_ms = frame.time_ms;
    }
    return found_ms;
}

} // namespace

std::unique_ptr<FrameReader> open_for_play(const _ifs_rec_file_& recording)
{
    return std::make_unique<LibraryReader>(recording);
}

std::unique_ptr<FrameReader> open_for_copy(const _ifs_rec_file_& recording)
{
    return std::make_unique<ContainerReader>(recording);
}

bool read_key_frame_after(FrameReader& reader, int64_t time_ms, Frame* frame)
{
    while (reader.next(frame)) {
        if (frame->type == IFS_FRAME_I && frame->time_ms >= time_ms)
            return true;
    }
    return false;
}

bool read_key_frame_before(FrameReader& reader, int64_t start_s, int64_t time_ms, Frame* frame)
{
    for (int64_t back_s = 1;; back_s *= 2) {
        int64_t from_s = time_ms / 1000 - back_s;
        reader.seek(from_s);
        int64_t key_ms = last_key_frame_time(reader, time_ms);
        if (key_ms < 0 && from_s >= start_s)
            continue;
        reader.seek(from_s);
        return read_key_frame_after(reader, key_ms, frame);
    }
}
