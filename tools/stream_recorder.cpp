#include "tools/stream_recorder.h"

#include <algorithm>
#include <thread>
#include <unistd.h>

#include "tools/failure.h"
#include "tools/interrupt.h"
#include "tools/recordings.h"
#include "tools/time_text.h"

namespace
{

/** Codes of the usual picture sizes, for the file name; 0 stands for any other. */
unsigned char resolution_code(int width, int height)
{
    static constexpr int sizes[][2] = {{176, 144},   {320, 240},   {352, 288},   {640, 360},
                                       {640, 480},   {704, 576},   {1280, 720},  {1920, 1080},
                                       {2304, 1296}, {2560, 1440}, {2592, 1944}, {3840, 2160}};
    unsigned char code = 1;
    for (const auto& size : sizes) {
        if (size[0] == width && size[1] == height)
            return code;
        ++code;
    }
    return 0;
}

Failure exists_failure(const _ifs_rec_file_& recording)
{
    return {ExitCode::refused, "the card holds a " + stream_name(recording.stream_type) +
                                   " recording that starts at " + time_text(start_seconds(recording)) +
                                   "; choose another --start"};
}

bool exists(const _ifs_rec_file_& recording)
{
    return access(file_path(recording).c_str(), F_OK) == 0;
}

Failure full_failure()
{
    return {
        ExitCode::card_full,
        "the card is full (a recording needs " + std::to_string(IFS_CREATE_FREE_MIB) +
            " MiB free to start and " + std::to_string(IFS_WRITE_FREE_MIB) +
            " MiB to go on); use a larger card, erase this one with 'format', or record with --realtime so "
            "that the oldest recordings give way in time"};
}

} // namespace

StreamRecorder::StreamRecorder(_ifs_stream_type_ stream, MediaInput& input, RecordingSession& session)
    : m_stream(stream), m_input(input), m_session(session)
{
}

StreamRecorder::~StreamRecorder()
{
    close(nullptr);
}

void StreamRecorder::check_start() const
{
    _ifs_rec_file_ first = entry(m_session.start_ms / 1000);
    if (exists(first))
        throw exists_failure(first);
}

void StreamRecorder::run(Progress* progress)
{
    try {
        record_frames(progress);
    } catch (...) {
        close(nullptr);
        throw;
    }
    close(nullptr);
}

void StreamRecorder::record_frames(Progress* progress)
{
    MediaFrame frame = {};
    while (!m_session.stop && m_input.next(&frame)) {
        if (m_session.in_real_time)
            wait_for_time(frame.time_us);
        int64_t time_us = m_session.start_ms * 1000 + frame.time_us;
        if (frame.type == IFS_FRAME_I && time_us >= m_cut_us)
            begin_recording(time_us);
        write(frame, time_us);
        if (progress)
            progress->update(frame.time_us / 1000);
    }
    if (m_fd < 0 && !m_session.stop && !interrupted())
        throw Failure(ExitCode::bad_media,
                      "the " + stream_name(m_stream) +
                          " input holds no key frame with its parameter sets; encode it again");
}

void StreamRecorder::wait_for_time(int64_t time_us) const
{
    auto due = m_session.begin + std::chrono::microseconds(time_us);
    while (std::chrono::steady_clock::now() < due && !m_session.stop && !interrupted()) {
        auto wake = std::chrono::steady_clock::now() + std::chrono::milliseconds(100);
        std::this_thread::sleep_until(std::min(wake, due));
    }
}

void StreamRecorder::begin_recording(int64_t time_us)
{
    const MediaFormat& format = m_input.format();
    int64_t start_s = time_us / 1000000;
    _ifs_rec_file_ recording = entry(start_s);
    close(&recording.start_tm);
    m_fd = Ifsi_create(&recording.start_tm, recording.video_system, recording.video_res, format.width,
                       format.height, format.frame_rate, format.audio_profile, format.audio_sample_rate_index,
                       format.audio_channel_conf, format.have_audio ? 1 : 0, m_stream);
    if (m_fd < 0 && exists(recording))
        throw exists_failure(recording);
    if (m_fd < 0 && Ifsi_is_full() == 1)
        throw full_failure();
    if (m_fd < 0)
        throw Failure(ExitCode::failed, "a recording cannot be created; run again with -v to see why");
    m_starts_s.push_back(start_s);
    m_next_audio_us = 0;
    m_cut_us = time_us + m_session.segment_ms * 1000;
}

void StreamRecorder::write(const MediaFrame& frame, int64_t time_us)
{
    // Sound and pictures from before a cut may come behind its key frame; sound still needs times that grow.
    int64_t timestamp_us = std::max<int64_t>(time_us - m_starts_s.back() * 1000000, 0);
    if (frame.type == IFS_FRAME_AUDIO) {
        timestamp_us = std::max(timestamp_us, m_next_audio_us);
        m_next_audio_us = timestamp_us + 1000;
    }
    char* data = reinterpret_cast<char*>(const_cast<uint8_t*>(frame.data));
    if (Ifsi_write(m_fd, data, static_cast<int>(frame.size), nullptr, 0, frame.type,
                   static_cast<unsigned long long>(timestamp_us)) == 0)
        return;
    if (Ifsi_is_full() == 1)
        throw full_failure();
    throw Failure(ExitCode::failed, "a frame cannot be written; run again with -v to see why");
}

void StreamRecorder::close(struct tm* end)
{
    if (m_fd >= 0)
        Ifsi_close(m_fd, end);
    m_fd = -1;
}

_ifs_rec_file_ StreamRecorder::entry(int64_t start_s) const
{
    _ifs_rec_file_ recording = {};
    recording.start_tm = utc_tm(start_s);
    recording.stream_type = m_stream;
    recording.video_res = resolution_code(m_input.format().width, m_input.format().height);
    return recording;
}

std::vector<_ifs_rec_file_> StreamRecorder::recordings() const
{
    std::vector<_ifs_rec_file_> made;
    for (int64_t start_s : m_starts_s) {
        for (const _ifs_rec_file_& found : find_recordings(m_stream, start_s, start_s)) {
            if (start_seconds(found) == start_s)
                made.push_back(found);
        }
    }
    return made;
}
