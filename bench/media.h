/** Encoded frames to measure with: real video and sound, split as a camera delivers them. */
#ifndef BENCH_MEDIA_H
#define BENCH_MEDIA_H

#include <cstdint>
#include <string>
#include <vector>

#include "ifs.h"

namespace bench
{

constexpr uint64_t FRAME_RATE = 25;
constexpr uint64_t SECOND_US = 1000000;

struct Frame {
    _ifs_frame_type_ type;
    char* data;
    int length;
    uint64_t pts_us;
};

/** Frames of both streams in the order of their times, and the bytes that they point into. */
struct Media {
    std::vector<char> video;
    std::vector<char> audio;
    std::vector<Frame> frames;

    uint64_t Duration_us() const { return frames.back().pts_us + SECOND_US / FRAME_RATE; }
};

/** Throw std::runtime_error unless a condition holds. */
void Require(bool condition, const char* what);

/**
 * Load FOLDER/NAME.h264 (Annex B with access unit delimiters, 25 frames per second) and FOLDER/NAME.aac
 * (ADTS, 16 kHz).
 */
Media Load_media(const std::string& folder, const std::string& name);

/** Begin a recording of the main stream. @return its handle */
int Create_recording(time_t start);

/** Open the recording of the main stream that starts at a time. @return its handle */
int Open_recording(time_t start);

/** Read the next frame of a playback. @return its bytes, 0 at the end */
int Read_frame(int fd);

struct Written {
    uint64_t frames;
    uint64_t bytes;
};

/** Write the frames, again and again, whose times lie between two times of the recording. */
Written Write_frames(int fd, const Media& media, uint64_t end_us, uint64_t begin_us = 0);

/** Write the frames of a recording into a file of the container's, without the library. @return its handle */
void* Record_into_container(const std::string& path, const Media& media, uint64_t length_us);

/** What the library has the container do for a close: make all durable, then finish the file. */
void End_in_container(void* file);

} // namespace bench

#endif
