// What is accepted, and what a full card or a power cut leaves.
#include <numeric>
#include <utility>

#include <unistd.h>

#include "tests/container/camera.h"
#include "tests/container/faults.h"

using namespace camera;
using Recording = Folder;

TEST_F(Recording, NothingIsWrittenBeforeTheFirstKeyFrameWithItsParameterSets)
{
    const Frames frames = shoot();
    Mp4 recording(file(), KT_MP4_CREATE);
    const Frame bare{KT_MP4_VIDEO_KEY, start_code + nal_units(frames[0].bytes).back(), 0};

    EXPECT_EQ(recording.write({frames[3], frames[1]}), 0);
    errno = 0;
    EXPECT_EQ(recording.write(bare), 0);
    EXPECT_EQ(errno, ENODATA);
    EXPECT_EQ(recording.flush(), 0);
    EXPECT_EQ(load(file()), "");
    EXPECT_EQ(recording.info().duration, 0);
    EXPECT_EQ(recording.write(frames), 0);
    EXPECT_EQ(recording.close(), 0);
    EXPECT_EQ(read_back(file()), frames);

    EXPECT_EQ(Mp4(file("empty.mp4"), KT_MP4_CREATE).close(), 0);
    EXPECT_EQ(load(file("empty.mp4")), "");
    Mp4 empty(file("empty.mp4"), KT_MP4_READ);
    ASSERT_TRUE(empty);
    EXPECT_EQ(empty.info().duration, 0);
    EXPECT_EQ(empty.read_all(), Frames());
}

TEST_F(Recording, WhatIsNoH264OrAacIsRefused)
{
    const Frames frames = shoot();
    Mp4 recording(file(), KT_MP4_CREATE);
    recording.write(frames);
    EXPECT_EQ(error_of(recording.write({3, frames[0].bytes, 0})), EINVAL);
    EXPECT_EQ(error_of(recording.write({KT_MP4_VIDEO_KEY, "", 0})), EINVAL);
    EXPECT_EQ(error_of(recording.write({KT_MP4_VIDEO_OTHER, "no start code", 0})), EILSEQ);
    EXPECT_EQ(error_of(recording.write({KT_MP4_VIDEO_OTHER, start_code, 0})), EILSEQ);
    EXPECT_EQ(error_of(recording.write({KT_MP4_VIDEO_KEY, start_code + "\x40\x01 of H.265", 0})), EILSEQ);
    EXPECT_EQ(error_of(recording.write({KT_MP4_AUDIO, frames[1].bytes + "x", 0})), EILSEQ);
    Frame frame = frames[0];
    EXPECT_EQ(error_of(recording.read(frame)), EBADF);
    EXPECT_EQ(error_of(Mp4(file(), KT_MP4_CREATE) ? 0 : -1), EEXIST);
    EXPECT_EQ(error_of(Mp4(file("silent.mp4"), KT_MP4_CREATE, false).write(frames[1])), EINVAL);
    recording.close();
    EXPECT_EQ(read_back(file()), frames);
}

TEST_F(Recording, FramesOfAnySizeInAnyTwoPieces)
{
    Frames frames = shoot({1});
    frames.push_back({KT_MP4_VIDEO_OTHER, start_code + "\x41\xe0" + std::string(2 << 20, 'x'), 1100});
    frames.push_back({KT_MP4_VIDEO_OTHER, start_code + "\x41", 1140});
    frames.push_back({KT_MP4_AUDIO, "\x21", 1150});
    Frames mixed_codes = frames;
    for (Frame& frame : mixed_codes) {
        if (frame.kind != KT_MP4_AUDIO)
            frame.bytes.erase(0, 1);
    }
    const std::string filler = "\x0c" + std::string(20000, '\xff'); // more than parameter sets may take
    mixed_codes[0].bytes += std::string("\0\0\0\0\1", 5) + filler;
    frames[0].bytes += start_code + filler;

    Mp4 recording(file(), KT_MP4_CREATE);
    for (const Frame& frame : mixed_codes)
        EXPECT_EQ(recording.write(frame, &frame - mixed_codes.data()), 0);
    recording.close();
    EXPECT_EQ(read_back(file()), frames);
}

TEST_F(Recording, ParameterSetsThatChangeAreDecoded)
{
    Frames frames = shoot({2, "320x240", "bframes=0", false});
    for (Frame frame : shoot({2, "160x120", "bframes=0", false})) {
        frame.timestamp += 2000;
        frames.push_back(frame);
    }
    record(file(), frames, false);
    EXPECT_EQ(read_back(file()), frames);
    EXPECT_EQ(decode(file()), "100");
}

TEST_F(Recording, EachFragmentIsOneWriteAndAPowerCutCostsAtMostFiveSeconds)
{
    const Frames frames = shoot({20});
    Mp4 recording(file(), KT_MP4_CREATE);
    faults.calls.clear();
    recording.write(frames);

    int writes = 0;
    int writes_since_sync = 0;
    const std::vector<uint64_t> first_calls = std::exchange(faults.calls, {});
    EXPECT_EQ(first_calls.at(0), 0u) << "the name is durable before there are frames behind it";
    for (uint64_t size : first_calls) {
        writes += size > 0;
        writes_since_sync = size == 0 ? 0 : writes_since_sync + 1;
        EXPECT_LE(writes_since_sync, 6); // four of 1 s, and what syncs cut off before and behind
    }
    EXPECT_EQ(writes, 19 + 4); // one a second, and the rest at each sync
    recording.flush();
    EXPECT_EQ(std::exchange(faults.calls, {}).size(), 2u);
    recording.flush();
    EXPECT_TRUE(std::exchange(faults.calls, {}).empty());

    // The moov is durable before 16 bytes make it count.
    recording.close();
    EXPECT_EQ(faults.calls, (std::vector<uint64_t>{faults.calls.at(0), 0, 16, 0}));
}

TEST_F(Recording, CopyTakenWhileRecordingIsFinishedAndPlays)
{
    const Frames with_audio = shoot();
    const std::string torn_path = file("torn.mp4");
    for (const Frames& frames : {with_audio, only_video(with_audio)}) {
        unlink(file().c_str());
        Mp4 recording(file(), KT_MP4_CREATE, frames == with_audio);
        Frames flushed(frames.begin(), frames.begin() + 60);
        recording.write(flushed);
        recording.flush();
        save(file("flushed.mp4"), load(file()));
        recording.write(Frames(frames.begin() + 60, frames.end()));
        std::string torn = load(file());
        torn.resize(torn.size() - 10);
        save(torn_path, torn);

        EXPECT_EQ(decode(file("flushed.mp4")), std::to_string(only_video(flushed).size()));
        ASSERT_TRUE(Mp4(torn_path, KT_MP4_PROBE));
        std::string finished = load(torn_path);
        EXPECT_GT(finished.size(), torn.size());
        Frames got = read_back(torn_path);
        EXPECT_GE(got.size(), flushed.size());
        EXPECT_TRUE(is_part(got, frames));
        EXPECT_EQ(decode(torn_path), std::to_string(only_video(got).size()));
        EXPECT_EQ(probe(torn_path, "stream=codec_name,width,height -select_streams v"), "h264,320,240\n");
        EXPECT_EQ(load(torn_path), finished); // once is enough
    }
}

TEST_F(Recording, FileBeingRecordedIsNotFinishedByAnother)
{
    Mp4 recording(file(), KT_MP4_CREATE);
    recording.write(shoot());
    recording.flush();
    std::string before = load(file());
    EXPECT_TRUE(Mp4(file(), KT_MP4_PROBE));
    EXPECT_EQ(load(file()), before);
}

TEST_F(Recording, NoFailureWhileClosingLosesAFrame)
{
    const Frames frames = shoot();
    for (int nth : {1, 2, 3}) {
        unlink(file().c_str());
        Mp4 recording(file(), KT_MP4_CREATE);
        recording.write(frames);
        recording.flush();
        faults.failing_write = nth;
        EXPECT_EQ(error_of(recording.close()), nth == 3 ? 0 : ENOSPC);
        EXPECT_EQ(read_back(file()), frames); // it cannot be finished here either
        faults.failing_write = 0;
        EXPECT_EQ(read_back(file()), frames);
        EXPECT_EQ(decode(file()), "100");
    }
}

TEST_F(Recording, FullCardLeavesAWholeFileThatGoesOnLater)
{
    const Frames frames = shoot();
    Mp4 recording(file(), KT_MP4_CREATE);
    Frames accepted;
    for (const Frame& frame : frames) {
        faults.failing_write = frame.timestamp >= 1900 && frame.timestamp < 3100 ? 1 : 0;
        const int error = error_of(recording.write(frame));
        EXPECT_TRUE(error == 0 || error == ENOSPC) << error;
        if (error == 0)
            accepted.push_back(frame);
    }
    faults.failing_write = 0;
    EXPECT_LT(accepted.size(), frames.size());
    EXPECT_EQ(accepted.back(), frames.back());
    EXPECT_EQ(recording.close(), 0);
    EXPECT_EQ(read_back(file()), accepted);
}

TEST_F(Recording, FileEndsBeforeTwoGibibytesOrTooLargeTablesAndIsClosed)
{
    for (int small_frames : {20000, 1200000}) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        if (small_frames > 20000)
            break; // takes long there
#endif
        unlink(file().c_str());
        Mp4 recording(file(), KT_MP4_CREATE);
        recording.write(shoot({1}));
        recording.flush();
        faults.discarding = true;
        faults.calls.clear();
        // Small frames at odd times whose headers change are all tables. Large raw ones are not parsed.
        Frame frame{KT_MP4_AUDIO, "\xff\xf1\x50\x40\x01\x1f\xfc!", 1000};
        for (size_t size : {8, 1 << 20, 1 << 16, 1 << 12}) {
            if (size > 8)
                frame.bytes.assign(size, 'x');
            for (int accepted = 0; accepted < small_frames && recording.write(frame) == 0; ++accepted)
                frame.timestamp += (frame.bytes[2] ^= 2) & 2 ? 35 : 0u - 5;
        }
        EXPECT_EQ(error_of(recording.write(frame)), EFBIG);
        EXPECT_EQ(error_of(recording.close()), 0);
        faults.discarding = false;
        const std::vector<uint64_t> calls = std::exchange(faults.calls, {});
        const uint64_t total = std::accumulate(calls.begin(), calls.end(), uint64_t{0});
        const uint64_t most = small_frames == 20000 ? 0x7fffffff : 65 << 20;
        EXPECT_LT(total, most);
        EXPECT_GT(total, most - (most >> 6));
    }
}
