// Files that were cut short or damaged.
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

/** A finished recording of 2 s in file(), and the same one as a power cut leaves it. */
class Damage : public Folder
{
protected:
    Damage()
    {
        Mp4 recording(file(), KT_MP4_CREATE);
        for (const Frame& frame : m_frames) {
            recording.write(frame);
            if (frame.timestamp % 500 == 0)
                recording.flush();
        }
        recording.flush();
        m_interrupted = load(file());
        recording.close();
        m_finished = load(file());
    }
    /** What comes back of a file of these bytes, which opening it may finish. */
    Frames play(const std::string& bytes)
    {
        save(m_damaged, bytes);
        return read_back(m_damaged);
    }

    Frames m_frames = shoot({2, "160x120"});
    std::string m_finished;
    std::string m_interrupted;
    const std::string m_damaged = file("damaged.mp4");
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

TEST_F(Damage, CutAtAnyPlaceKeepsAllWholeFragments)
{
    for (const std::string& whole : {m_finished, m_interrupted}) {
        size_t newest = 0;
        for (size_t boundary : box_boundaries(whole)) {
            for (size_t cut : {boundary - 1, boundary, boundary + 1, boundary + 7, boundary + 100}) {
                const Frames got = play(whole.substr(0, cut));
                ASSERT_TRUE(is_part(got, m_frames)) << cut;
                ASSERT_EQ(read_back(m_damaged), got) << cut;
                if (cut == boundary) {
                    ASSERT_GE(got.size(), newest) << cut;
                    newest = got.size();
                }
            }
        }
        EXPECT_EQ(newest, m_frames.size());
    }
}

TEST_F(Damage, AFirstFragmentThatIsTornGivesItsWholeFrames)
{
    const Frames frames = shoot({1});
    Mp4 recording(file("first.mp4"), KT_MP4_CREATE);
    recording.write(frames);
    recording.flush();
    std::string torn = without_checks(load(file("first.mp4")));
    torn.resize(torn.size() / 2);
    const Frames got = play(torn);
    ASSERT_FALSE(got.empty());
    EXPECT_TRUE(is_part(only_video(got), only_video(frames)));
    EXPECT_EQ(decode(m_damaged), std::to_string(only_video(got).size()));
    torn.replace(torn.find("uuid", torn.find("uuid", torn.find("moof")) + 4) - 4 - 9, 9, 9,
                 '\xff'); // the order now speaks of audio only
    EXPECT_EQ(play(torn), got);
}

TEST_F(Damage, BytesThatDidNotReachTheCardAreNoFrames)
{
    constexpr size_t zeros = 500;
    std::string bytes = without_checks(m_interrupted);
    const size_t last_but_one = bytes.rfind("mdat", bytes.rfind("moof"));
    bytes.replace(last_but_one + 4, zeros, zeros, '\0');
    const Frames got = play(bytes);
    EXPECT_GT(got.size(), m_frames.size() / 3);
    EXPECT_TRUE(is_part(got, m_frames));
    EXPECT_EQ(decode(m_damaged), std::to_string(only_video(got).size()));

    bytes = without_checks(m_interrupted) + std::string(1 << 18, '\0');
    bytes[bytes.rfind("moof") - 3] = 2; // larger than any fragment by its damaged size only
    EXPECT_GE(play(bytes).size(), got.size());
}

TEST_F(Damage, AnEndThatCannotBeReadIsPassedOverAndNotTouched)
{
    faults.readable_bytes = static_cast<int64_t>(m_interrupted.size() * 3 / 4);
    const Frames got = play(m_interrupted);
    faults.readable_bytes = INT64_MAX;
    EXPECT_GT(got.size(), m_frames.size() / 3);
    EXPECT_TRUE(is_part(got, m_frames));
    EXPECT_EQ(load(m_damaged), m_interrupted);
}

TEST_F(Damage, RandomDamageNeverCrashesOrHangs)
{
    std::mt19937 random(20240229);
    for (int round = 0; round < 1000; ++round) {
        std::string bytes = round % 2 ? m_finished : m_interrupted;
        std::vector<size_t> boundaries = box_boundaries(bytes);
        for (int damages = 1 + round % 4; damages > 0; --damages) {
            // Mostly near the beginning of a box, where sizes, types and counts lie.
            size_t at = boundaries[random() % boundaries.size()] + random() % 24;
            at = round % 5 == 0 ? random() : at;
            bytes[at % bytes.size()] =
                round % 3 ? "\0\1\x7f\x80\xff"[random() % 5] : static_cast<char>(random());
        }
        save(m_damaged, bytes);
        EXPECT_LE(read_damaged(m_damaged).size(), m_frames.size());
    }
}

TEST_F(Damage, FragmentThatSpeaksOfSamplesBeyondItsOwnIsNotTaken)
{
    for (Frame& frame : m_frames)
        frame.timestamp -= frame.timestamp < 1000 ? 0 : 500; // a clock set back is told by a second anchor
    Mp4 recording(file("back.mp4"), KT_MP4_CREATE);
    recording.write(m_frames);
    recording.flush();
    std::string bytes = without_checks(load(file("back.mp4")));
    size_t first_anchor = bytes.find("uuid", bytes.find("moof")) + 4 + 16 + 4;
    ASSERT_EQ(bytes.substr(first_anchor - 4, 8), std::string("\0\0\0\1\0\0\0\0", 8)) << "one, for sample 0";
    bytes[first_anchor] = 1;
    play(bytes);
    EXPECT_EQ(load(m_damaged).size(), bytes.size()) << "it was finished with tables that no reader takes";
}

TEST_F(Damage, AWrongSampleSizeCostsNoFrameOfARecordingAndAChunkOfAnotherFile)
{
    const std::string other = file("other.mp4");
    ASSERT_EQ(run("ffmpeg -v error -i " + file() + " -c copy " + other), "");
    EXPECT_EQ(most_lost(file(), m_frames), 0u);
    EXPECT_LE(most_lost(other, only_video(read_back(other))), 1u);
    // Without the fragments nobody knows which size is wrong.
    for (size_t at = 0; (at = m_finished.find("moof", at)) != std::string::npos;)
        m_finished[at] = 'x';
    save(file(), m_finished);
    EXPECT_GT(most_lost(file(), m_frames), 0u);
}

TEST_F(Damage, ASecondTableOfSizesReplacesTheFirstAndIsSoughtInQuickly)
{
    constexpr size_t samples = 2000000000;
    save_audio(file(),
               box("stsz", words({0, 0, 1, 5})) + box("stts", words({0, 1, samples, 1})) +
                   box("stsc", words({0, 1, 1, samples, 1})) + box("stco", words({0, 1, 0})) +
                   box("stsz", words({0, 1, samples})),
               0);
    ASSERT_EQ(truncate(file().c_str(), samples), 0);
    Mp4 player(file(), KT_MP4_READ);
    const std::clock_t begin = std::clock();
    EXPECT_EQ(player.seek(samples - 2), 0);
    EXPECT_LT(std::clock() - begin, CLOCKS_PER_SEC);
    EXPECT_EQ(player.read_all().size(), 2u);
}

TEST_F(Damage, TimesThatDoNotBeginAtZeroKeepTheirTimestampsWhenTheRecordingIsFinished)
{
    m_interrupted = without_checks(m_interrupted);
    for (size_t at = 0; (at = m_interrupted.find("tfdt", at + 1)) != std::string::npos;)
        m_interrupted[at + 13] = 1; // 65,536 ms
    for (Frame& frame : m_frames)
        frame.timestamp += 65536;
    EXPECT_EQ(play(m_interrupted), m_frames);
    EXPECT_EQ(read_back(m_damaged), m_frames) << "as it was finished";
    EXPECT_EQ(Mp4(m_damaged, KT_MP4_PROBE).info().duration, Mp4(file(), KT_MP4_PROBE).info().duration);
}

TEST_F(Damage, NoByteOfTheHeadButItsVersionCostsTheRecording)
{
    const std::string& whole = m_interrupted;
    const size_t version = whole.find("uuid") + 4 + 16 + 3;
    const std::string sets = whole.substr(whole.find("avcC"), 24);
    for (size_t at = 0; at < whole.find("moof") - 4; ++at) {
        std::string bytes = whole;
        bytes[at] = static_cast<char>(bytes[at] ^ (at % 2 ? 0xff : 1 << at % 8));
        EXPECT_EQ(play(bytes) == m_frames, at != version) << at << ": another version is not this one";
        const std::string finished = load(m_damaged);
        EXPECT_EQ(finished.find(sets, whole.size()) == std::string::npos, at == version) << at;
        EXPECT_TRUE(Mp4(m_damaged, KT_MP4_PROBE)) << at << ": a mount deletes it";
        EXPECT_EQ(load(m_damaged).size(), finished.size()) << at << ": it is finished again and again";
    }
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

namespace
{

size_t heap_in_use = 0;
size_t heap_most = 0;

/** @return memory that it takes to open a file, or to refuse it with this error, bytes */
size_t memory_to_open(const std::string& path, int mode, int error = 0)
{
    const size_t before = heap_most = heap_in_use;
    EXPECT_EQ(error_of(Mp4(path, mode) ? 0 : -1), error);
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

TEST_F(Damage, ALookAtAnyFileTakesAMebibyteAndWhatIsTooLargeIsNotPlayed)
{
    Mp4 recording(file("long.mp4"), KT_MP4_CREATE);
    recording.write(shoot({1}));
    for (unsigned i = 0; i < 200000; ++i)
        recording.write({KT_MP4_AUDIO, "\x21", 1000 + 20 * i + i % 3});
    recording.flush();
    const std::string interrupted = load(file("long.mp4"));
    recording.close();
    const size_t most = memory_to_open(file("long.mp4"), KT_MP4_PROBE) + (1 << 20);

    const std::string shorter = interrupted.substr(0, interrupted.size() * 21 / 100);
    std::string wide =
        without_checks(shorter); // parameter sets of 4 MiB in its head, and none in its pictures
    wide.insert(wide.find("avcC") + 4, 4 << 20, '\0');
    wide[wide.find("avcC") - 3] = wide[wide.find("moov") - 3] = 4 << 4;
    wide[wide.find('\x67', wide.find("mdat"))] = '\x61';
    for (const std::string& bytes : {interrupted, shorter, wide}) {
        save(m_damaged, bytes);
        EXPECT_LE(memory_to_open(m_damaged, KT_MP4_PROBE), most);
        EXPECT_EQ(load(m_damaged).size() > bytes.size(), bytes == shorter)
            << "to finish the others takes more";
    }
    constexpr size_t offsets = 16 << 20;
    save_audio(m_damaged,
               box("stsc", words({0, 1, 1, 1, 1})) + box("stsz", words({0, 1, offsets})) +
                   box("stco", words({0, offsets}), 4 * offsets),
               4 * offsets);
    EXPECT_LE(memory_to_open(m_damaged, KT_MP4_PROBE), most);
    EXPECT_LE(memory_to_open(m_damaged, KT_MP4_READ, ENOTSUP), most);
}

#endif

TEST_F(Damage, WhatIsNoMp4IsNotOpened)
{
    save(file("text.mp4"), "This is no film.");
    EXPECT_EQ(error_of(Mp4(file("text.mp4"), KT_MP4_READ) ? 0 : -1), EBADMSG);
    EXPECT_EQ(error_of(Mp4(file("missing.mp4"), KT_MP4_READ) ? 0 : -1), ENOENT);
    EXPECT_EQ(error_of(Mp4(file(""), KT_MP4_READ) ? 0 : -1), EBADMSG);
    EXPECT_EQ(error_of(kt_mp4_close(nullptr)), EBADF);
    EXPECT_EQ(error_of(kt_mp4_getinfo(nullptr, nullptr)), EINVAL);
}
