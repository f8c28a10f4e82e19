// Clocks that do not simply run on.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/container/camera.h"

using namespace camera;

namespace
{

/** Move all timestamps from a frame on. */
Frames shifted(Frames frames, size_t from, unsigned by)
{
    for (size_t i = from; i < frames.size(); ++i)
        frames[i].timestamp += by;
    return frames;
}

/** 25 pictures I b b P b b P ... come as I P b b P b b ... */
Frames shoot_b_frames(bool audio)
{
    Frames frames = shoot({4, "320x240", "bframes=2:b-adapt=0:scenecut=0:b-pyramid=none", audio});
    unsigned i = 0;
    for (Frame& frame : frames) {
        if (frame.kind == KT_MP4_AUDIO)
            continue;
        frame.timestamp = 40 * (i % 25 == 0 ? i : i % 25 % 3 == 1 ? i + 2 : i - 1);
        ++i;
    }
    return frames;
}

/** Record, and check what holds for every clock. @return duration, ms */
int recorded_duration(const std::string& path, const Frames& frames)
{
    Mp4 recording(path, KT_MP4_CREATE);
    int newest = 0;
    for (const Frame& frame : frames) {
        EXPECT_EQ(recording.write(frame), 0);
        EXPECT_GE(recording.info().duration, newest);
        newest = recording.info().duration;
    }
    recording.flush();
    save(path + ".cut.mp4", load(path));
    EXPECT_EQ(recording.close(), 0);
    for (const std::string& file : {path, path + ".cut.mp4"}) {
        EXPECT_EQ(read_back(file), frames);
        EXPECT_EQ(Mp4(file, KT_MP4_PROBE).info().duration, newest);
        EXPECT_EQ(Mp4(file, KT_MP4_READ).info().firstpts, static_cast<int>(frames[0].timestamp));
        EXPECT_EQ(run("ffmpeg -v error -i " + file + " -f null -"), "");
        EXPECT_NEAR(std::stod(run("ffprobe -v error -of csv=p=0 -show_entries format=duration " + file)) *
                        1000,
                    newest, 1);
    }
    return newest;
}

} // namespace

TEST(Timestamps, ClockThatWrapsPausesOrIsSetBackCostsNoFrame)
{
    const struct {
        size_t from;
        unsigned by;
        int duration, tolerance;
    } clocks[] = {
        {0, 0u - 1500, 4040, 0},   {120, 3600000, 3604040, 0}, {120, 0u - 20, 4040, 60},
        {121, 0u - 300, 4040, 60}, {122, 0u - 5000, 4040, 60}, {123, 0u - 2000000000, 4040, 60},
    };
    for (const auto& clock : clocks) {
        Folder folder;
        EXPECT_NEAR(recorded_duration(folder.file(), shifted(shoot(), clock.from, clock.by)), clock.duration,
                    clock.tolerance);
    }
}

TEST(Timestamps, TracksStayInStepWhenTheClockIsSetBackInAGapOfOneOfThem)
{
    Folder folder;
    Frames frames;
    for (const Frame& frame : shifted(shoot(), 120, 0u - 5000)) {
        if (frame.kind != KT_MP4_AUDIO || frame.timestamp < 5000 || frame.timestamp > 4294967296u - 2500)
            frames.push_back(frame);
    }
    record(folder.file(), frames);
    std::string durations =
        run("ffprobe -v error -of csv=p=0 -show_entries stream=duration " + folder.file());
    EXPECT_NEAR(std::stod(durations.substr(durations.find('\n'))), 4.04, 0.06) << durations;
}

TEST(Timestamps, ErraticClockIsRestoredExactly)
{
    Folder folder;
    Frames frames = shoot();
    unsigned noise = 1;
    for (Frame& frame : frames) {
        noise = noise * 1664525 + 1013904223;
        frame.timestamp = noise;
    }
    record(folder.file(), frames);
    EXPECT_EQ(read_back(folder.file()), frames);
    EXPECT_GE(Mp4(folder.file(), KT_MP4_READ).info().duration, 0);
}

TEST(Timestamps, AudioThatBeginsLaterStaysInStep)
{
    Folder folder;
    Frames frames;
    for (const Frame& frame : shoot()) {
        if (frame.kind != KT_MP4_AUDIO || frame.timestamp >= 1500)
            frames.push_back(frame);
    }
    recorded_duration(folder.file(), frames);
    EXPECT_EQ(run("ffprobe -v error -select_streams a -of csv=p=0 -show_entries stream=start_time " +
                  folder.file()),
              "1.509000\n");
}

TEST(Timestamps, BFramesAreShownInTheirOrder)
{
    Folder folder;
    const Frames frames = shoot_b_frames(false);
    EXPECT_EQ(recorded_duration(folder.file(), frames), 4000);
    std::string shown =
        run("ffprobe -v error -show_entries frame=pts -of default=nk=1:nw=1 " + folder.file());
    std::string expected;
    for (int i = 0; i < 100; ++i)
        expected += std::to_string(40 * i) + "\n";
    EXPECT_EQ(shown, expected);
}

TEST(Timestamps, SeekFindsTheFirstFrameInTheOrderOfWritingWhateverTheClock)
{
    Frames uneven = shoot();
    for (size_t i = 0; i < uneven.size(); ++i)
        uneven[i].timestamp += i * i % 11;
    for (const Frames& frames : {uneven, shoot_b_frames(true), shifted(shoot_b_frames(false), 60, 2000)}) {
        Folder folder;
        record(folder.file(), frames);
        Mp4 file(folder.file(), KT_MP4_READ);
        for (unsigned offset = 0; offset < 6200; offset += 7) {
            auto expected = std::find_if(frames.begin(), frames.end(),
                                         [&](const Frame& f) { return f.timestamp >= offset; });
            Frame frame{};
            ASSERT_EQ(file.seek(offset), 0);
            ASSERT_EQ(file.read(frame) > 0, expected != frames.end()) << offset;
            if (expected != frames.end()) {
                ASSERT_EQ(frame, *expected) << offset;
            }
        }
    }
}
