#include "bench/media.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "kt_mp4.h"

namespace bench
{
namespace
{

using Bytes = std::vector<char>;

Bytes Read_file(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    Require(file.is_open(), "cannot read an input file");
    return Bytes(std::istreambuf_iterator<char>(file), {});
}

/** Offsets of the 4-byte start codes of the access unit delimiters. */
std::vector<size_t> Access_units(const Bytes& stream)
{
    const std::string delimiter("\0\0\0\1\x09", 5);
    std::vector<size_t> offsets;
    auto at = stream.begin();
    while ((at = std::search(at, stream.end(), delimiter.begin(), delimiter.end())) != stream.end()) {
        offsets.push_back(static_cast<size_t>(at - stream.begin()));
        at += static_cast<std::ptrdiff_t>(delimiter.size());
    }
    return offsets;
}

bool Is_key_frame(const char* begin, const char* end)
{
    const std::string sequence_parameters("\0\0\0\1\x67", 5);
    return std::search(begin, end, sequence_parameters.begin(), sequence_parameters.end()) != end;
}

std::vector<Frame> Split_video(Bytes& stream)
{
    const std::vector<size_t> offsets = Access_units(stream);
    Require(!offsets.empty(), "no access unit delimiter in the video");
    std::vector<Frame> frames;
    for (size_t i = 0; i < offsets.size(); i++) {
        char* begin = stream.data() + offsets[i];
        char* end = stream.data() + (i + 1 < offsets.size() ? offsets[i + 1] : stream.size());
        frames.push_back({Is_key_frame(begin, end) ? IFS_FRAME_I : IFS_FRAME_P, begin,
                          static_cast<int>(end - begin), i * SECOND_US / FRAME_RATE});
    }
    return frames;
}

std::vector<Frame> Split_audio(Bytes& stream)
{
    constexpr size_t HEADER_BYTES = 7;
    constexpr uint64_t FRAME_US = 1024 * SECOND_US / 16000;
    std::vector<Frame> frames;
    for (size_t at = 0; at + HEADER_BYTES <= stream.size();) {
        const auto* header = reinterpret_cast<const unsigned char*>(&stream[at]);
        const size_t length = (header[3] & 3u) << 11 | header[4] << 3 | header[5] >> 5;
        Require(length >= HEADER_BYTES && length <= stream.size() - at, "the audio is not ADTS");
        frames.push_back({IFS_FRAME_AUDIO, &stream[at], static_cast<int>(length), frames.size() * FRAME_US});
        at += length;
    }
    return frames;
}

} // namespace

void Require(bool condition, const char* what)
{
    if (!condition) {
        throw std::runtime_error(what);
    }
}

Media Load_media(const std::string& folder, const std::string& name)
{
    Media media{Read_file(folder + "/" + name + ".h264"), Read_file(folder + "/" + name + ".aac"), {}};
    const std::vector<Frame> video = Split_video(media.video);
    const std::vector<Frame> audio = Split_audio(media.audio);
    const auto earlier = [](const Frame& a, const Frame& b) { return a.pts_us < b.pts_us; };
    std::merge(video.begin(), video.end(), audio.begin(), audio.end(), std::back_inserter(media.frames),
               earlier);
    return media;
}

int Create_recording(time_t start)
{
    tm start_tm;
    const int fd = Ifsi_create(gmtime_r(&start, &start_tm), 0, 0, 1920, 1080, FRAME_RATE, 2,
                               SAMPLE_RATE_INDEX_16000, 1, 1, IFS_STREAM_MAIN);
    Require(fd > 0, "cannot create a recording");
    return fd;
}

int Open_recording(time_t start)
{
    tm start_tm;
    const int fd = Ifsi_open_v2(gmtime_r(&start, &start_tm), IFS_STREAM_MAIN);
    Require(fd > 0, "cannot open a recording");
    return fd;
}

int Read_frame(int fd)
{
    static std::array<char, 1 << 20> buffer;
    int payload_offset, payload_len, frame_offset, frame_len, time;
    _ifs_frame_type_ type;
    const int length = Ifsi_read(fd, buffer.data(), static_cast<int>(buffer.size()), &payload_offset,
                                 &payload_len, &frame_offset, &frame_len, &type, &time);
    Require(length >= 0, "cannot read a frame");
    return length;
}

Written Write_frames(int fd, const Media& media, uint64_t end_us, uint64_t begin_us)
{
    Written written{};
    for (uint64_t lap_us = begin_us / media.Duration_us() * media.Duration_us();;
         lap_us += media.Duration_us()) {
        for (const Frame& frame : media.frames) {
            const uint64_t pts_us = lap_us + frame.pts_us;
            if (pts_us >= end_us) {
                return written;
            }
            if (pts_us < begin_us) {
                continue;
            }
            Require(Ifsi_write(fd, frame.data, frame.length, nullptr, 0, frame.type, pts_us) == 0,
                    "cannot write a frame");
            written.frames += 1;
            written.bytes += static_cast<uint64_t>(frame.length);
        }
    }
}

void* Record_into_container(const std::string& path, const Media& media, uint64_t length_us)
{
    constexpr int KINDS[] = {KT_MP4_VIDEO_KEY, KT_MP4_VIDEO_OTHER, -1, KT_MP4_AUDIO};
    void* file = kt_mp4_open(std::string(path).data(), 1920, 1080, FRAME_RATE, 2, SAMPLE_RATE_INDEX_16000, 1,
                             KT_MP4_CREATE, 1, 320, 0);
    Require(file != nullptr, "cannot create a file");
    for (uint64_t lap_us = 0; lap_us < length_us; lap_us += media.Duration_us()) {
        for (const Frame& frame : media.frames) {
            const uint64_t pts_us = lap_us + frame.pts_us;
            Require(pts_us >= length_us ||
                        kt_mp4_write(file, KINDS[frame.type], frame.data, frame.length, nullptr, 0,
                                     static_cast<unsigned>(pts_us / 1000)) == 0,
                    "cannot write a frame");
        }
    }
    return file;
}

void End_in_container(void* file)
{
    kt_mp4_flush(file);
    kt_mp4_close(file);
}

} // namespace bench
