// Clocks that do not simply run on.
#include <random>
#include <tuple>

#include <unistd.h>

#include "tests/container/camera.h"

using namespace camera;
using Timestamps = Folder;

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
        EXPECT_EQ(decode(file), std::to_string(only_video(frames).size()));
        EXPECT_NEAR(std::stod(probe(file, "format=duration")) * 1000, newest, 1);
    }
    return newest;
}

} // namespace

TEST_F(Timestamps, ClockThatWrapsPausesOrIsSetBackCostsNoFrame)
{
    const std::tuple<size_t, unsigned, int, int> clocks[] = {
        {0, 0u - 1500, 4040, 0},   {120, 3600000, 3604040, 0}, {120, 0u - 20, 4040, 60},
        {121, 0u - 300, 4040, 60}, {122, 0u - 5000, 4040, 60}, {123, 0u - 2000000000, 4040, 60},
    };
    for (const auto& [from, by, duration, tolerance] : clocks) {
        unlink(file().c_str());
        EXPECT_NEAR(recorded_duration(file(), shifted(shoot(), from, by)), duration, tolerance) << by;
    }
}

TEST_F(Timestamps, TracksStayInStepWhenTheClockIsSetBackInAGapOfOneOfThem)
{
    record(file(), without_audio(shifted(shoot(), 120, 0u - 5000), 5000, 0u - 2500));
    const std::string durations = probe(file(), "stream=duration");
    EXPECT_NEAR(std::stod(durations.substr(durations.find('\n'))), 4.04, 0.06) << durations;
}

TEST_F(Timestamps, ErraticClockIsRestoredExactly)
{
    Frames frames = shoot();
    std::mt19937 random(20240229);
    for (Frame& frame : frames)
        frame.timestamp = static_cast<unsigned>(random());
    record(file(), frames);
    EXPECT_EQ(read_back(file()), frames);
    EXPECT_GE(Mp4(file(), KT_MP4_READ).info().duration, 0);
}

TEST_F(Timestamps, AudioThatBeginsLaterStaysInStep)
{
    recorded_duration(file(), without_audio(shoot(), 0, 1500));
    EXPECT_EQ(probe(file(), "stream=start_time -select_streams a"), "1.509000\n");
}

TEST_F(Timestamps, BFramesAreShownInTheirOrder)
{
    EXPECT_EQ(recorded_duration(file(), shoot_b_frames(false)), 4000);
    std::string expected;
    for (int i = 0; i < 100; ++i)
        expected += std::to_string(40 * i) + "\n";
    EXPECT_EQ(probe(file(), "frame=pts -of default=nk=1:nw=1"), expected);
}

TEST_F(Timestamps, SeekFindsTheFirstFrameInTheOrderOfWritingWhateverTheClock)
{
    Frames uneven = shoot();
    for (size_t i = 0; i < uneven.size(); ++i)
        uneven[i].timestamp += i * i % 11;
    for (const Frames& frames : {uneven, shoot_b_frames(true), shifted(shoot_b_frames(false), 60, 2000)}) {
        unlink(file().c_str());
        record(file(), frames);
        Mp4 player(file(), KT_MP4_READ);
        expect_seeks(player, frames);
    }
}
