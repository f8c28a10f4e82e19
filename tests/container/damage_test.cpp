// Files that were cut short or damaged.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include <pthread.h>
#include <sys/resource.h>

#include "tests/container/camera.h"
#include "tests/container/faults.h"

using namespace camera;

namespace
{

/** A finished recording of 2 s, and the same one as a power cut leaves it. */
struct Recorded {
    Frames frames = shoot({2, "160x120"});
    std::string finished;
    std::string interrupted;

    explicit Recorded(const Folder& folder)
    {
        Mp4 recording(folder.file(), KT_MP4_CREATE);
        for (const Frame& frame : frames) {
            recording.write(frame);
            if (frame.timestamp % 500 == 0)
                recording.flush();
        }
        recording.flush();
        interrupted = load(folder.file());
        recording.close();
        finished = load(folder.file());
    }
};

std::string be32(size_t value)
{
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>(value >> shift);
    return bytes;
}

/** Read all there is, errors passed over. */
Frames read_damaged(const std::string& path)
{
    Mp4 file(path, KT_MP4_READ);
    Frame frame{};
    Frames frames;
    for (int errors = 0, length = 1; file && length != 0 && errors < 2000;) {
        length = file.read(frame);
        if (length > 0)
            frames.push_back(frame);
        errors += length < 0;
    }
    return frames;
}

/** Flip bits of the sample sizes. @return frames that one costs at most, frames that nobody wrote */
std::pair<size_t, size_t> flip_sizes(const std::string& path, const Frames& frames)
{
    const std::string bytes = load(path);
    const auto missing = [](const Frames& of, const Frames& in) {
        const auto is_missing = [&](const Frame& f) {
            return std::find(in.begin(), in.end(), f) == in.end();
        };
        return static_cast<size_t>(std::count_if(of.begin(), of.end(), is_missing));
    };
    std::pair<size_t, size_t> worst;
    size_t samples = only_video(frames).size();
    for (size_t at = bytes.rfind("moov"); (at = bytes.find("stsz", at + 1)) != std::string::npos;) {
        for (size_t bit = 0; bit < samples * 32; bit += 13) {
            std::string damaged = bytes;
            damaged[at + 16 + bit / 8] ^= static_cast<char>(1 << bit % 8);
            save(path, damaged);
            const Frames got = read_damaged(path);
            worst.first = std::max(worst.first, missing(frames, got));
            worst.second += missing(got, frames);
        }
        samples = frames.size() - samples;
    }
    save(path, bytes);
    return worst;
}

} // namespace

TEST(Damage, CutAtAnyPlaceKeepsAllWholeFragments)
{
    Folder folder;
    const Recorded recorded(folder);
    std::string path = folder.file("cut.mp4");
    for (const std::string& whole : {recorded.finished, recorded.interrupted}) {
        size_t newest = 0;
        for (size_t boundary : box_boundaries(whole)) {
            for (size_t cut : {boundary - 1, boundary, boundary + 1, boundary + 7, boundary + 100}) {
                save(path, whole.substr(0, cut));
                Frames got = read_back(path);
                ASSERT_TRUE(is_prefix(got, recorded.frames)) << cut;
                ASSERT_EQ(read_back(path), got) << cut;
                if (cut == boundary) {
                    ASSERT_GE(got.size(), newest) << cut;
                    newest = got.size();
                }
            }
        }
        EXPECT_EQ(newest, recorded.frames.size());
    }
}

TEST(Damage, AFirstFragmentThatIsTornGivesItsWholeFrames)
{
    Folder folder;
    const Frames frames = shoot({1});
    Mp4 recording(folder.file(), KT_MP4_CREATE);
    recording.write(frames);
    recording.flush();
    const std::string path = folder.file("torn.mp4");
    const std::string whole = load(folder.file());
    save(path, whole.substr(0, whole.size() / 2));
    const Frames got = read_back(path);
    ASSERT_FALSE(got.empty());
    EXPECT_TRUE(is_prefix(only_video(got), only_video(frames)));
    EXPECT_EQ(decode(path), std::to_string(only_video(got).size()));
}

TEST(Damage, BytesThatDidNotReachTheCardAreNoFrames)
{
    Folder folder;
    const Recorded recorded(folder);
    const std::string path = folder.file("zeros.mp4");
    constexpr size_t zeros = 500;
    std::string bytes = recorded.interrupted;
    const size_t last_but_one = bytes.rfind("mdat", bytes.rfind("moof"));
    bytes.replace(last_but_one + 4, zeros, zeros, '\0');
    save(path, bytes);
    const Frames got = read_back(path);
    EXPECT_GT(got.size(), recorded.frames.size() / 3);
    EXPECT_TRUE(is_prefix(got, recorded.frames));
    EXPECT_EQ(decode(path), std::to_string(only_video(got).size()));
}

TEST(Damage, AnEndThatCannotBeReadIsPassedOverAndNotTouched)
{
    Folder folder;
    const Recorded recorded(folder);
    const std::string path = folder.file("unreadable.mp4");
    save(path, recorded.interrupted);
    faults::fail_reads_past(static_cast<int64_t>(recorded.interrupted.size() * 3 / 4));
    const Frames got = read_back(path);
    faults::fail_reads_past(-1);
    EXPECT_GT(got.size(), recorded.frames.size() / 3);
    EXPECT_TRUE(is_prefix(got, recorded.frames));
    EXPECT_EQ(load(path), recorded.interrupted);
}

TEST(Damage, RandomDamageNeverCrashesHangsOrTakesMemory)
{
    Folder folder;
    const Recorded recorded(folder);
    std::string path = folder.file("damaged.mp4");
    std::mt19937 random(20240229);
    for (int round = 0; round < 1000; ++round) {
        std::string bytes = round % 2 ? recorded.finished : recorded.interrupted;
        std::vector<size_t> boundaries = box_boundaries(bytes);
        for (int damages = 1 + round % 4; damages > 0; --damages) {
            // Mostly near the beginning of a box, where sizes, types and counts lie.
            size_t at = boundaries[random() % boundaries.size()] + random() % 24;
            at = round % 5 == 0 ? random() : at;
            static const char values[] = {0, 1, '\x7f', '\x80', '\xff'};
            bytes[at % bytes.size()] = round % 3 ? values[random() % 5] : static_cast<char>(random());
        }
        save(path, bytes);
        EXPECT_LE(read_damaged(path).size(), recorded.frames.size());
    }
    struct rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LT(usage.ru_maxrss, 64 * 1024); // KiB
#endif
}

TEST(Damage, FragmentThatSpeaksOfSamplesBeyondItsOwnIsNotTaken)
{
    Folder folder;
    std::string path = folder.file();
    Frames frames = shoot({2, "160x120"});
    for (Frame& frame : frames)
        frame.timestamp -= frame.timestamp < 1000 ? 0 : 500; // a clock set back is told by a second anchor
    Mp4 recording(path, KT_MP4_CREATE);
    recording.write(frames);
    recording.flush();
    std::string bytes = load(path);
    recording.close();

    size_t first_anchor = bytes.find("uuid", bytes.find("moof")) + 4 + 16 + 4;
    ASSERT_EQ(bytes.substr(first_anchor - 4, 8), std::string("\0\0\0\1\0\0\0\0", 8)) << "one, for sample 0";
    bytes[first_anchor] = 1;
    save(path, bytes);
    read_back(path);
    EXPECT_EQ(load(path).size(), bytes.size()) << "it was finished with tables that no reader takes";
}

TEST(Damage, AWrongSampleSizeCostsNoFrameOfARecordingAndAChunkOfAnotherFile)
{
    Folder folder;
    const Recorded recorded(folder);
    const std::string other = folder.file("other.mp4");
    ASSERT_EQ(run("ffmpeg -v error -i " + folder.file() + " -c copy " + other), "");
    EXPECT_EQ(flip_sizes(folder.file(), recorded.frames), std::make_pair(size_t{0}, size_t{0}));
    EXPECT_LE(flip_sizes(other, read_back(other)).first, 3u);

    // Without the fragments nobody knows which size is wrong.
    std::string bytes = recorded.finished;
    for (size_t at = 0; (at = bytes.find("moof", at)) != std::string::npos;)
        bytes[at] = 'x';
    save(folder.file(), bytes);
    EXPECT_EQ(flip_sizes(folder.file(), recorded.frames).second, 0u);
}

TEST(Damage, ASecondTableOfSizesReplacesTheFirst)
{
    Folder folder;
    const Frames frames = only_video(shoot({1, "160x120"}));
    record(folder.file(), frames);
    std::string bytes = load(folder.file());
    const size_t moov = bytes.rfind("mvhd");
    const size_t keys = bytes.find("stss", moov);
    const size_t chunk_counts = bytes.find("stsc", moov);
    const size_t end = bytes.find("uuid", chunk_counts) - 4;
    // One key frame, the first: 4096 samples of 1 byte, as the last box of the track.
    const std::string same_size("\0\0\0\x14stsz\0\0\0\0\0\0\0\1\0\0\x10\0", 20);
    ASSERT_EQ(chunk_counts - keys, same_size.size());
    bytes.insert(end, same_size);
    bytes.erase(keys - 4, same_size.size());
    bytes.replace(bytes.find("stsc", moov) + 16, 4, std::string("\0\0\x10\0", 4)); // samples of a chunk
    save(folder.file(), bytes);
    EXPECT_EQ(read_damaged(folder.file()), Frames());
}

TEST(Damage, TimesThatDoNotBeginAtZeroKeepTheirTimestampsWhenTheRecordingIsFinished)
{
    Folder folder;
    const Recorded recorded(folder);
    std::string bytes = recorded.interrupted;
    for (size_t at = 0; (at = bytes.find("tfdt", at + 1)) != std::string::npos;)
        bytes[at + 13] = 1; // 65,536 ms
    save(folder.file("late.mp4"), bytes);
    Frames expected = recorded.frames;
    for (Frame& frame : expected)
        frame.timestamp += 65536;
    for (int open = 0; open < 2; ++open) {
        EXPECT_EQ(Mp4(folder.file("late.mp4"), KT_MP4_PROBE).info().duration,
                  Mp4(folder.file(), KT_MP4_PROBE).info().duration);
        EXPECT_EQ(read_back(folder.file("late.mp4")), expected);
    }
}

TEST(Damage, SamplesInFrontOfTheFragmentsAreNone)
{
    Folder folder;
    const Recorded recorded(folder);
    std::string bytes = recorded.interrupted;
    bytes.replace(bytes.find("stsz") + 8, 8, std::string("\0\0\0\1\0\0\0\x63", 8)); // 99 of 1 byte
    save(folder.file("cut.mp4"), bytes);
    EXPECT_EQ(read_back(folder.file("cut.mp4")), recorded.frames);
    EXPECT_EQ(read_back(folder.file("cut.mp4")), recorded.frames) << "as it was finished";
}

TEST(Damage, BoxesWithinBoxesOverflowNoStack)
{
    Folder folder;
    std::string path = folder.file();
    constexpr size_t depth = 1000000;
    std::string bytes = be32(16 + 8 * depth) + "moov" + be32(8 + 8 * depth) + "trak";
    for (size_t i = depth; i > 0; --i)
        bytes += be32(8 * i) + "mdia";
    save(path, bytes);
    pthread_attr_t small;
    pthread_attr_init(&small);
    ASSERT_EQ(pthread_attr_setstacksize(&small, 128 * 1024), 0);
    const auto open_it = [](void* name) {
        return kt_mp4_open(static_cast<char*>(name), 0, 0, 0, 0, 0, 0, KT_MP4_PROBE, 0, 320, 0);
    };
    pthread_t thread;
    void* opened = &path;
    ASSERT_EQ(pthread_create(&thread, &small, open_it, &path[0]), 0);
    pthread_join(thread, &opened);
    EXPECT_EQ(opened, nullptr);
}

TEST(Damage, WhatIsNoMp4IsNotOpened)
{
    Folder folder;
    save(folder.file("text.mp4"), "This is no film.");
    EXPECT_FALSE(Mp4(folder.file("text.mp4"), KT_MP4_READ));
    EXPECT_FALSE(Mp4(folder.file("missing.mp4"), KT_MP4_READ));
    EXPECT_FALSE(Mp4(folder.file(""), KT_MP4_READ));
    EXPECT_LT(kt_mp4_close(nullptr), 0);
    EXPECT_LT(kt_mp4_getinfo(nullptr, nullptr), 0);
}
