/** Frames that show where they belong: real footage, each picture marked with its recording and number. */
#ifndef IFS_TESTS_VM_FOOTAGE_FRAMES_H
#define IFS_TESTS_VM_FOOTAGE_FRAMES_H

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "ifs.h"

struct Footage_frame {
    _ifs_frame_type_ type;
    uint64_t pts_us;
    std::string bytes;
};

using Frames = std::vector<Footage_frame>;

/** Frames of a file: each its type (4 bytes), time in us (8), length (4), little-endian, and its bytes. */
Frames Load_frames(const std::string& path);

/** Footage without end: the frames of a file again and again, at the times that follow. */
class Footage
{
public:
    explicit Footage(const std::string& path) : m_frames(Load_frames(path)) {}

    /** Frame of a recording, counted from 0; the same arguments give the same frame. */
    Footage_frame Frame(time_t start, _ifs_stream_type_ stream, size_t number) const;

private:
    Frames m_frames;
};

tm Utc_time(time_t seconds);

#endif
