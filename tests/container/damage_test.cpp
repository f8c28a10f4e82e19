// Files that were cut short or damaged.
#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <random>

#include <malloc.h>
#include <unistd.h>

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

std::string words(const std::vector<size_t>& values)
{
    std::string bytes;
    for (size_t value : values) {
        for (int shift = 24; shift >= 0; shift -= 8)
            bytes += static_cast<char>(value >> shift);
    }
    return bytes;
}

/** A box that ends so many bytes behind its content. */
std::string box(const std::string& type, const std::string& content, size_t more = 0)
{
    return words({8 + content.size() + more}) + type + content;
}

/** A moov of another writer with one audio track, and behind it so many bytes of its last table: zeros. */
void save_audio(const std::string& path, const std::string& tables, size_t more)
{
    const std::string esds("\0\0\0\0\3\x19\0\0\0\4\x11\x40\x15\0\0\0\0\0\0\0\0\0\0\0\5\2\x15\x88", 28);
    const std::string mp4a = box("mp4a", std::string(28, 0) + box("esds", esds));
    const std::string stbl = box("stbl", box("stsd", words({0, 1}) + mp4a) + tables, more);
    const std::string mdhd = box("mdhd", words({0, 0, 0, 1000, 0}));
    const std::string mdia = box("mdia", mdhd + box("minf", stbl, more), more);
    const std::string moov = box("moov", box("trak", mdia, more), more);
    save(path, moov);
    EXPECT_EQ(truncate(path.c_str(), static_cast<off_t>(moov.size() + more)), 0);
}

/** Read all there is, errors passed over. */
Frames read_damaged(const std::string& path)
{
    Mp4 file(path, KT_MP4_READ);
    Frame frame{};
    Frames frames;
    for (int errors = 0, length = 1; file && length != 0 && errors < 2000;) {
        length = file.read(frame);
        EXPECT_TRUE(length >= 0 || errno == EBADMSG) << errno;
        if (length > 0)
            frames.push_back(frame);
        errors += length < 0;
    }
    return frames;
}

/** Flip bits of the sample sizes; only these frames may come. @return the most frames that one costs */
size_t most_lost(const std::string& path, const Frames& frames)
{
    const std::string bytes = load(path);
    size_t most = 0;
    for (size_t table = bytes.rfind("moov"); (table = bytes.find("stsz", table + 1)) != std::string::npos;) {
        const size_t end = bytes.find("stco", table) - 4;
        for (size_t bit = (table + 16) * 8; bit < end * 8; bit += 37) {
            std::string damaged = bytes;
            damaged[bit / 8] ^= static_cast<char>(1 << bit % 8);
            save(path, damaged);
            const Frames all = read_damaged(path);
            const Frames got = frames == only_video(frames) ? only_video(all) : all;
            for (const Frame& frame : got)
                EXPECT_NE(std::find(frames.begin(), frames.end(), frame), frames.end()) << bit;
            most = std::max(most, frames.size() - got.size());
        }
    }
    return most;
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
    std::string torn = load(folder.file());
    torn.resize(torn.size() / 2);
    save(path, torn);
    const Frames got = read_back(path);
    ASSERT_FALSE(got.empty());
    EXPECT_TRUE(is_prefix(only_video(got), only_video(frames)));
    EXPECT_EQ(decode(path), std::to_string(only_video(got).size()));
    torn.replace(torn.find("mdat") - 4 - 9, 9, 9, '\xff'); // the order now speaks of audio only
    save(path, torn);
    EXPECT_EQ(read_back(path), got);
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

    bytes = recorded.interrupted + std::string(1 << 18, '\0');
    bytes[bytes.rfind("moof") - 3] = 2; // larger than any fragment by its damaged size only
    save(path, bytes);
    EXPECT_GE(read_back(path).size(), got.size());
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

TEST(Damage, RandomDamageNeverCrashesOrHangs)
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
    Recorded recorded(folder);
    const std::string other = folder.file("other.mp4");
    ASSERT_EQ(run("ffmpeg -v error -i " + folder.file() + " -c copy " + other), "");
    EXPECT_EQ(most_lost(folder.file(), recorded.frames), 0u);
    EXPECT_LE(most_lost(other, only_video(read_back(other))), 1u);
    // Without the fragments nobody knows which size is wrong.
    for (size_t at = 0; (at = recorded.finished.find("moof", at)) != std::string::npos;)
        recorded.finished[at] = 'x';
    save(folder.file(), recorded.finished);
    EXPECT_GT(most_lost(folder.file(), recorded.frames), 0u);
}

TEST(Damage, ASecondTableOfSizesReplacesTheFirstAndIsSoughtInQuickly)
{
    Folder folder;
    constexpr size_t samples = 2000000000;
    save_audio(folder.file(),
               box("stsz", words({0, 0, 1, 5})) + box("stts", words({0, 1, samples, 1})) +
                   box("stsc", words({0, 1, 1, samples, 1})) + box("stco", words({0, 1, 0})) +
                   box("stsz", words({0, 1, samples})),
               0);
    ASSERT_EQ(truncate(folder.file().c_str(), samples), 0);
    Mp4 file(folder.file(), KT_MP4_READ);
    const std::clock_t begin = std::clock();
    EXPECT_EQ(file.seek(samples - 2), 0);
    EXPECT_LT(std::clock() - begin, CLOCKS_PER_SEC);
    EXPECT_EQ(file.read_all().size(), 2u);
}

TEST(Damage, TimesThatDoNotBeginAtZeroKeepTheirTimestampsWhenTheRecordingIsFinished)
{
    Folder folder;
    Recorded recorded(folder);
    for (size_t at = 0; (at = recorded.interrupted.find("tfdt", at + 1)) != std::string::npos;)
        recorded.interrupted[at + 13] = 1; // 65,536 ms
    for (Frame& frame : recorded.frames)
        frame.timestamp += 65536;
    const std::string late = folder.file("late.mp4");
    save(late, recorded.interrupted);
    EXPECT_EQ(read_back(late), recorded.frames);
    EXPECT_EQ(read_back(late), recorded.frames) << "as it was finished";
    EXPECT_EQ(Mp4(late, KT_MP4_PROBE).info().duration, Mp4(folder.file(), KT_MP4_PROBE).info().duration);
}

TEST(Damage, NoByteOfTheHeadButItsVersionCostsTheRecording)
{
    Folder folder;
    const std::string path = folder.file("head.mp4");
    const Recorded recorded(folder);
    const std::string& whole = recorded.interrupted;
    const size_t head = whole.find("moof") - 4;
    const size_t version = whole.find("uuid") + 4 + 16 + 3;
    const std::string sets = whole.substr(whole.find("avcC"), 24);
    size_t lost = 0;
    for (size_t at = 0; at < head; ++at) {
        std::string bytes = whole;
        bytes[at] = static_cast<char>(bytes[at] ^ (at % 2 ? 0xff : 1 << at % 8));
        save(path, bytes);
        lost += read_back(path) != recorded.frames;
        const std::string finished = load(path);
        EXPECT_EQ(finished.find(sets, whole.size()) == std::string::npos, at == version) << at;
        EXPECT_TRUE(Mp4(path, KT_MP4_PROBE)) << at << ": a mount deletes it";
        EXPECT_EQ(load(path).size(), finished.size()) << at << ": it is finished again and again";
    }
    printf("head: %zu of %zu single-byte changes cost the recording\n", lost, head);
    EXPECT_EQ(lost, 1u) << "a reader must not take another version for its own";
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

namespace
{

size_t heap_in_use = 0;
size_t heap_most = 0;

/** @return memory that it takes to open a file, bytes */
size_t memory_to_open(std::string path, int mode, bool opens)
{
    const size_t before = heap_most = heap_in_use;
    void* file = kt_mp4_open(&path[0], 0, 0, 0, 0, 0, 0, mode, 0, 320, 0);
    EXPECT_EQ(file != nullptr, opens);
    kt_mp4_close(file);
    return heap_most - before;
}

} // namespace

void* operator new(size_t size)
{
    void* memory = malloc(size);
    heap_in_use += malloc_usable_size(memory);
    heap_most = std::max(heap_most, heap_in_use);
    return memory;
}

void operator delete(void* memory) noexcept
{
    heap_in_use -= malloc_usable_size(memory);
    free(memory);
}

void operator delete(void* memory, size_t) noexcept
{
    operator delete(memory);
}

TEST(Damage, ALookAtAnyFileTakesAMebibyteAndWhatIsTooLargeIsNotPlayed)
{
    Folder folder;
    Mp4 recording(folder.file(), KT_MP4_CREATE);
    recording.write(shoot({1}));
    for (unsigned i = 0; i < 200000; ++i)
        recording.write({KT_MP4_AUDIO, "\x21", 1000 + 20 * i + i % 3});
    recording.flush();
    const std::string interrupted = load(folder.file());
    recording.close();
    const size_t most = memory_to_open(folder.file(), KT_MP4_PROBE, true) + (1 << 20);

    save(folder.file("cut.mp4"), interrupted);
    EXPECT_LE(memory_to_open(folder.file("cut.mp4"), KT_MP4_PROBE, true), most);
    EXPECT_EQ(load(folder.file("cut.mp4")), interrupted) << "to finish it takes more";
    const std::string shorter = interrupted.substr(0, interrupted.size() * 21 / 100);
    save(folder.file("cut.mp4"), shorter);
    EXPECT_LE(memory_to_open(folder.file("cut.mp4"), KT_MP4_PROBE, true), most);
    EXPECT_GT(load(folder.file("cut.mp4")).size(), shorter.size()) << "it is not finished";
    std::string wide = shorter; // parameter sets of 4 MiB in its head, and none in its pictures
    wide.insert(wide.find("avcC") + 4, 4 << 20, '\0');
    wide[wide.find("avcC") - 3] = wide[wide.find("moov") - 3] = 4 << 4;
    wide[wide.find('\x67', wide.find("mdat"))] = '\x61';
    save(folder.file("wide.mp4"), wide);
    EXPECT_LE(memory_to_open(folder.file("wide.mp4"), KT_MP4_PROBE, true), most);
    constexpr size_t offsets = 16 << 20;
    save_audio(folder.file("offsets.mp4"),
               box("stsc", words({0, 1, 1, 1, 1})) + box("stsz", words({0, 1, offsets})) +
                   box("stco", words({0, offsets}), 4 * offsets),
               4 * offsets);
    EXPECT_LE(memory_to_open(folder.file("offsets.mp4"), KT_MP4_PROBE, true), most);
    EXPECT_LE(memory_to_open(folder.file("offsets.mp4"), KT_MP4_READ, false), most);
    EXPECT_EQ(error_of(Mp4(folder.file("offsets.mp4"), KT_MP4_READ) ? 0 : -1), ENOTSUP);
}

#endif

TEST(Damage, WhatIsNoMp4IsNotOpened)
{
    Folder folder;
    save(folder.file("text.mp4"), "This is no film.");
    EXPECT_EQ(error_of(Mp4(folder.file("text.mp4"), KT_MP4_READ) ? 0 : -1), EBADMSG);
    EXPECT_EQ(error_of(Mp4(folder.file("missing.mp4"), KT_MP4_READ) ? 0 : -1), ENOENT);
    EXPECT_EQ(error_of(Mp4(folder.file(""), KT_MP4_READ) ? 0 : -1), EBADMSG);
    EXPECT_EQ(error_of(kt_mp4_close(nullptr)), EBADF);
    EXPECT_EQ(error_of(kt_mp4_getinfo(nullptr, nullptr)), EINVAL);
}
