// What players and the library itself make of a recording.
#include <gtest/gtest.h>

#include "tests/container/camera.h"

using namespace camera;

namespace
{

std::vector<std::string> audio_bytes(const Frames& frames)
{
    std::vector<std::string> bytes;
    for (const Frame& frame : frames) {
        if (frame.kind == KT_MP4_AUDIO)
            bytes.push_back(frame.bytes);
    }
    return bytes;
}

} // namespace

TEST(Playback, ClosedFileIsAPlainMp4ForAnyPlayer)
{
    Folder folder;
    record(folder.file(), shoot());
    record(folder.file("video.mp4"), only_video(shoot()));
    EXPECT_EQ(probe(folder.file()), "h264,320,240\naac,44100,1\n4.040000\n");
    EXPECT_EQ(probe(folder.file("video.mp4")), "h264,320,240\n4.000000\n");
    EXPECT_EQ(decode(folder.file()) + decode(folder.file("video.mp4")), "100100");
}

TEST(Playback, DescriptionIsThatOfTheRecording)
{
    Folder folder;
    Frames frames = shoot();
    for (Frame& frame : frames)
        frame.timestamp += 5000;
    record(folder.file("Rec_20240101_000000_001_M.mp4"), frames);

    for (int mode : {KT_MP4_READ, KT_MP4_PROBE}) {
        kt_mfile_info_t info = Mp4(folder.file("Rec_20240101_000000_001_M.mp4"), mode).info();
        EXPECT_STREQ(info.name, "Rec_20240101_000000_001_M.mp4");
        EXPECT_EQ((std::vector<int>{info.width, info.height, info.frame_rate, info.firstpts, info.duration}),
                  (std::vector<int>{320, 240, 25, 5000, 4040}));
        EXPECT_EQ((std::vector<int>{info.have_audio != 0, info.audio_profile, info.audio_sample_rate_index,
                                    info.audio_channel_conf}),
                  (std::vector<int>{1, 2, SAMPLE_RATE_INDEX_44100, 1}));
    }
}

TEST(Playback, AudioComesBackAsItWasWritten)
{
    Folder folder;
    const Frames adts = shoot();
    const Frames raw = without_adts(adts);
    Frames mixed = adts;
    for (size_t i = 0; i < mixed.size(); ++i) {
        if (mixed[i].kind != KT_MP4_AUDIO)
            continue;
        if (i % 3 == 0)
            mixed[i].bytes[6] = static_cast<char>(i << 2); // buffer fullness
        if (i % 3 == 1)
            mixed[i] = raw[i];
    }
    Frame checked = raw.back(); // with a checksum: 9 bytes of header; its length takes all bits of its field
    checked.bytes = std::string("\xff\xf0\x50\x41\x78\x3f\xfc\x12\x34", 9) + std::string(3000, 'x');
    mixed.push_back(checked);

    for (const Frames& frames : {adts, raw, mixed}) {
        unlink(folder.file().c_str());
        record(folder.file(), frames);
        EXPECT_TRUE(read_back(folder.file()) == frames);
    }
    record(folder.file("raw.mp4"), raw);
    EXPECT_EQ(decode(folder.file("raw.mp4")), "100");
}

TEST(Playback, FrameThatDoesNotFitCanBeReadAgain)
{
    Folder folder;
    const Frames frames = shoot();
    record(folder.file(), frames);
    std::string path = folder.file();
    void* file = kt_mp4_open(&path[0], 0, 0, 0, 0, 0, 0, KT_MP4_READ, 0, 320, 0);
    std::string buf(frames[0].bytes.size(), 0);
    int kind = 77;
    unsigned timestamp = 77;

    EXPECT_EQ(error_of(kt_mp4_read(file, &kind, nullptr, 0, &timestamp)), EMSGSIZE);
    EXPECT_EQ(error_of(kt_mp4_read(file, &kind, &buf[0], static_cast<int>(buf.size()) - 1, &timestamp)),
              EMSGSIZE);
    EXPECT_EQ(kind, 77);
    EXPECT_EQ(kt_mp4_read(file, &kind, &buf[0], static_cast<int>(buf.size()), &timestamp),
              static_cast<int>(buf.size()));
    EXPECT_EQ(buf, frames[0].bytes);
    kt_mp4_close(file);
}

TEST(Playback, FileBeingWrittenShowsWhatWasFlushed)
{
    Folder folder;
    const Frames frames = shoot();
    Mp4 recording(folder.file(), KT_MP4_CREATE);
    recording.write(Frames(frames.begin(), frames.begin() + 40));
    recording.flush();
    recording.write(frames[40]);

    Mp4 player(folder.file(), KT_MP4_READ);
    EXPECT_EQ(player.read_all(), Frames(frames.begin(), frames.begin() + 40));
    recording.write(Frames(frames.begin() + 41, frames.end()));
    recording.flush();
    EXPECT_EQ(player.read_all(), Frames(frames.begin() + 40, frames.end()));
    EXPECT_EQ(player.info().duration, 4040);
    EXPECT_EQ(recording.close(), 0);
    EXPECT_EQ(read_back(folder.file()), frames);
}

TEST(Playback, Mp4OfAnotherWriterPlays)
{
    Folder folder;
    const Frames frames = shoot();
    record(folder.file(), frames);
    const std::string path = folder.file("other.mp4");
    std::string remux =
        "ffmpeg -v error -y -i " + folder.file() + " -c copy -bsf:v filter_units=remove_types=7-9 ";
    for (const char* layout : {"", "-movflags +faststart "}) {
        remux += layout;
        ASSERT_EQ(run(remux + path), "");
        Mp4 other(path, KT_MP4_READ);
        ASSERT_TRUE(other);
        kt_mfile_info_t info = other.info();
        EXPECT_EQ(info.width, 320);
        EXPECT_EQ(info.frame_rate, 25);
        EXPECT_NEAR(info.duration, 4040, 10);
        EXPECT_EQ(info.audio_sample_rate_index, SAMPLE_RATE_INDEX_44100);
        Frames got = other.read_all();
        ASSERT_EQ(got.size(), frames.size());
        EXPECT_EQ(nal_units(got[0].bytes)[0], nal_units(frames[0].bytes)[1]); // SPS in front of the key frame
        EXPECT_EQ(audio_bytes(got), audio_bytes(without_adts(frames)));
        for (unsigned offset = 0; offset < 4100; offset += 97) {
            auto is_behind = [=](const Frame& f) { return f.timestamp >= offset; };
            auto expected = std::find_if(got.begin(), got.end(), is_behind);
            ASSERT_EQ(other.seek(offset), 0);
            ASSERT_EQ(other.read_all(), Frames(expected, got.end()));
        }
    }
}
