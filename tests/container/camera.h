/** A camera for tests: real encoded frames, and what the container makes of them. */
#ifndef TESTS_CONTAINER_CAMERA_H
#define TESTS_CONTAINER_CAMERA_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include "include/kt_mp4.h"

namespace camera
{

const std::string start_code("\0\0\0\1", 4);

struct Frame {
    int kind;
    std::string bytes;
    unsigned timestamp; /**< ms */
    auto fields() const { return std::tie(kind, bytes, timestamp); }
    bool operator==(const Frame& other) const { return fields() == other.fields(); }
};
using Frames = std::vector<Frame>;

struct Scene {
    int seconds = 4;
    std::string size = "320x240";
    std::string x264 = "bframes=0";
    bool audio = true; /**< AAC, 44100 Hz, mono, ADTS */
};

/** H.264 (25 frames/s, a key frame each second, 4-byte start codes) and audio, in the order of time. */
Frames shoot(const Scene& scene = {});

Frames without_adts(Frames frames);
/** Leave out the audio from one time on and before another. */
Frames without_audio(const Frames& frames, unsigned begin, unsigned end);
Frames only_video(const Frames& frames);
/** Whether frames are some of others, in their order. */
bool is_part(const Frames& part, const Frames& whole);
/** NAL units of an Annex B frame, without their start codes. */
std::vector<std::string> nal_units(const std::string& frame);

/** A folder that goes with its test. */
class Folder : public testing::Test
{
protected:
    Folder() { EXPECT_NE(mkdtemp(m_path.data()), nullptr); }
    ~Folder() override { std::filesystem::remove_all(m_path); }
    std::string file(const std::string& name = "Rec.mp4") const { return m_path + "/" + name; }

private:
    std::string m_path = "/tmp/kt_mp4_XXXXXX";
};

/** A handle; closed at the end of its scope. */
class Mp4
{
public:
    Mp4(const std::string& path, int mode, bool audio = true);
    ~Mp4() { close(); }
    Mp4(const Mp4&) = delete;
    Mp4& operator=(const Mp4&) = delete;

    explicit operator bool() const { return m_handle != nullptr; }
    int write(const Frame& frame, size_t first_piece = std::string::npos);
    /** @return frames that were refused */
    int write(const Frames& frames);
    int read(Frame& frame, size_t capacity = 4 << 20);
    Frames read_all();
    kt_mfile_info_t info() const;
    int seek(unsigned offset) { return kt_mp4_seek_read(m_handle, offset); }
    int flush() { return kt_mp4_flush(m_handle); }
    int close();

private:
    void* m_handle;
};

/** Seek to times a few ms apart; each time all frames come from the first one on that is not earlier. */
void expect_seeks(Mp4& player, const Frames& frames);
/** What a call reported: its errno, 0 when it did not fail. */
int error_of(int result);

/** Write a whole recording. */
void record(const std::string& path, const Frames& frames, bool audio = true);
/** @return no frames, too, when the file cannot be opened */
Frames read_back(const std::string& path);

std::string load(const std::string& path);
void save(const std::string& path, const std::string& bytes);
/** The bytes of a recording with its boxes "check" made ones that nobody knows. */
std::string without_checks(std::string bytes);
/** Offsets of the boxes of a file, at all depths that hold boxes, and its end. */
std::vector<size_t> box_boundaries(const std::string& bytes);

/** Run a command. @return what it printed, its messages included */
std::string run(const std::string& command);
/** What ffprobe prints of these entries, "section=key,key", as lines of values with commas between. */
std::string probe(const std::string& path, const std::string& entries);
/** Decode all with ffmpeg. @return "N" video frames, with its messages in front */
std::string decode(const std::string& path);

} // namespace camera

#endif
