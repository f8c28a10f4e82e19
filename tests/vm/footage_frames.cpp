#include "tests/vm/footage_frames.h"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>

namespace
{

constexpr size_t k_delimiter_bytes = 6; // what the marking NAL unit goes behind
constexpr uint64_t k_frame_us = 40000;

/** A NAL unit of user data that players pass over. */
std::string Marking(time_t start, _ifs_stream_type_ stream, size_t number)
{
    char text[64];
    const int length = snprintf(text, sizeof text, "this frame is: %10lld %d %06zu",
                                static_cast<long long>(start), static_cast<int>(stream), number);
    return std::string("\0\0\0\1\x06\x05", 6) + static_cast<char>(length) + text + '\x80';
}

} // namespace

Frames Load_frames(const std::string& path)
{
    Frames frames;
    std::ifstream file(path, std::ios::binary);
    const std::string all((std::istreambuf_iterator<char>(file)), {});
    constexpr size_t head_bytes = 16;
    for (size_t at = 0; at + head_bytes <= all.size();) {
        int32_t type = 0;
        uint64_t pts_us = 0;
        uint32_t length = 0;
        memcpy(&type, &all[at], sizeof type);
        memcpy(&pts_us, &all[at + 4], sizeof pts_us);
        memcpy(&length, &all[at + 12], sizeof length);
        frames.push_back({static_cast<_ifs_frame_type_>(type), pts_us, all.substr(at + head_bytes, length)});
        at += head_bytes + length;
    }
    return frames;
}

Footage_frame Footage::Frame(time_t start, _ifs_stream_type_ stream, size_t number) const
{
    Footage_frame frame = m_frames[number % m_frames.size()];
    frame.pts_us += number / m_frames.size() * (m_frames.back().pts_us + k_frame_us);
    if (frame.type != IFS_FRAME_AUDIO) {
        frame.bytes.insert(k_delimiter_bytes, Marking(start, stream, number));
    }
    return frame;
}

tm Utc_time(time_t seconds)
{
    tm broken_down{};
    gmtime_r(&seconds, &broken_down);
    return broken_down;
}
