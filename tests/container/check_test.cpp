// Fragments that prove themselves: what damage costs, and recordings that carry no checksums.
#include <algorithm>
#include <numeric>

#include <unistd.h>

#include "tests/container/camera.h"

using namespace camera;

namespace
{

constexpr size_t piece_bytes = 65536;

size_t size_of(const Frames& frames)
{
    return std::accumulate(frames.begin(), frames.end(), size_t{0},
                           [](size_t sum, const Frame& frame) { return sum + frame.bytes.size(); });
}

/** Three seconds in file(), none of which was synced when the power went: fragments of a megabyte at most. */
class Checks : public Folder
{
protected:
    Checks()
    {
        for (Frame& frame : m_frames)
            m_largest = std::max(m_largest, frame.bytes.size());
        Mp4 recording(file(), KT_MP4_CREATE);
        recording.write(m_frames);
        m_interrupted = load(file());
        recording.close();
        m_written = play(m_interrupted);
    }
    Frames play(const std::string& bytes)
    {
        save(file(), bytes);
        return read_back(file());
    }

    Frames m_frames = shoot({3, "640x480"});
    size_t m_largest = 0;
    std::string m_interrupted;
    Frames m_written;
};

} // namespace

TEST_F(Checks, DamageCostsThePiecesItLiesInAndNeverPlays)
{
    ASSERT_GT(m_written.size(), m_frames.size() / 2);
    const size_t heads_end = m_interrupted.find("mdat", m_interrupted.find("moof"));
    size_t heads = 0;
    for (size_t at = m_interrupted.find("moof") - 4; at < m_interrupted.size();
         at += at < heads_end ? 23 : 19997) {
        std::string damaged = m_interrupted;
        damaged[at] = static_cast<char>(~damaged[at]);
        const Frames got = play(damaged);
        ASSERT_TRUE(is_part(got, m_written)) << at;
        ASSERT_EQ(read_back(file()), got) << at << ": as it was finished";
        const size_t lost = size_of(m_written) - size_of(got);
        heads += lost > piece_bytes + 2 * m_largest;
        ASSERT_LT(lost, m_interrupted.size() / 2) << at << ": more than a fragment";
    }
    EXPECT_LT(heads, heads_end / 23) << "damage in a payload costs its fragment";

    // From one damaged piece on to the next, in several fragments.
    std::string damaged = m_interrupted;
    for (size_t at = piece_bytes * 3 / 2; at < damaged.size(); at += 4 * piece_bytes)
        damaged.replace(at, 100, 100, '\0');
    const Frames got = play(damaged);
    EXPECT_TRUE(is_part(got, m_written));
    EXPECT_GT(got.size(), m_written.size() / 4);
    EXPECT_EQ(read_back(file()), got);
    Mp4 player(file(), KT_MP4_READ);
    EXPECT_EQ(player.seek(0), 0);
    EXPECT_EQ(player.read_all(), got);
}

TEST_F(Checks, OfATornFragmentItsSoundPiecesStay)
{
    m_interrupted.resize(3 * piece_bytes);
    const Frames got = play(m_interrupted);
    EXPECT_GT(size_of(got), 2 * piece_bytes - 2 * m_largest);
    EXPECT_TRUE(is_part(got, m_frames));
    EXPECT_EQ(decode(file()), std::to_string(only_video(got).size()));
}

TEST_F(Checks, FragmentsOfAnotherRecordingInTheSameClustersAreNotTaken)
{
    Mp4 recording(file("Old.mp4"), KT_MP4_CREATE);
    recording.write(m_frames);
    const std::string other = load(file("Old.mp4"));
    ASSERT_EQ(other.size(), m_interrupted.size());
    const size_t second = m_interrupted.find("moof", m_interrupted.find("moof") + 4) - 4;
    const Frames first = play(m_interrupted.substr(0, second));
    EXPECT_EQ(play(m_interrupted.substr(0, second) + other.substr(second)), first);
}

TEST_F(Checks, WhatWasDurableIsNotRead)
{
    Mp4 recording(file("durable.mp4"), KT_MP4_CREATE);
    for (const Frame& frame : m_frames) {
        recording.write(frame);
        if (frame.timestamp == 2000)
            recording.flush();
    }
    recording.flush();
    std::string bytes = load(file("durable.mp4"));
    const Frames whole = play(bytes);
    const size_t slice = bytes.find("mdat", bytes.find("moof")) + piece_bytes + 5;
    bytes[slice] = static_cast<char>(~bytes[slice]);
    EXPECT_GE(play(bytes).size(), whole.size() - 1) << "rot in there is for a check of the whole card";
}

TEST_F(Checks, ParameterSetsAreFoundBehindAFragmentThatIsLost)
{
    for (Frame& frame : m_frames) {
        if (frame.kind != KT_MP4_VIDEO_KEY || frame.timestamp == 0)
            continue;
        std::string bare;
        for (const std::string& nal : nal_units(frame.bytes)) {
            if ((nal[0] & 31) != 7 && (nal[0] & 31) != 8)
                bare += start_code + nal;
        }
        frame.bytes = bare;
    }
    unlink(file().c_str());
    Mp4 recording(file(), KT_MP4_CREATE);
    recording.write(m_frames);
    recording.flush();
    std::string bytes = load(file());
    recording.close();
    const size_t begin = bytes.find("moov");
    const size_t end = bytes.find("mdat", bytes.find("moof")) + 2 * piece_bytes;
    bytes.replace(begin, end - begin, end - begin, '\xff');
    const Frames got = play(bytes);
    EXPECT_FALSE(got.empty());
    EXPECT_TRUE(is_part(got, m_frames));
    const Frames all = only_video(got);
    const auto key = std::find_if(all.begin(), all.end(),
                                  [](const Frame& frame) { return frame.kind == KT_MP4_VIDEO_KEY; });
    ASSERT_NE(key, all.end());
    EXPECT_EQ(decode(file()), std::to_string(all.size()));
}

TEST_F(Folder, RecordingsThatCarryNoChecksumsPlayAndAreFinished)
{
    const std::string older = OLDER_RECORDINGS;
    save(file("finished.mp4"), load(older + "finished.mp4"));
    save(file("interrupted.mp4"), load(older + "interrupted.mp4"));
    const Frames frames = read_back(file("finished.mp4"));
    EXPECT_EQ(frames.size(), 138u);
    EXPECT_EQ(load(file("finished.mp4")), load(older + "finished.mp4"));
    EXPECT_EQ(read_back(file("interrupted.mp4")), frames);
    EXPECT_GT(load(file("interrupted.mp4")).size(), load(older + "finished.mp4").size())
        << "it is not finished";
    EXPECT_EQ(read_back(file("interrupted.mp4")), frames);
    EXPECT_EQ(decode(file("interrupted.mp4")), "50");
}
