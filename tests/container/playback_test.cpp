// What players and the library itself make of a recording.
#include <unistd.h>

#include "tests/container/camera.h"

using namespace camera;
using Playback = Folder;

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

TEST_F(Playback, ClosedFileIsAPlainMp4ForAnyPlayer)
{
    const std::string entries =
        "stream=codec_name,width,height,sample_rate,channels -show_entries format=duration";
    record(file(), shoot());
    record(file("video.mp4"), only_video(shoot()), false);
    EXPECT_EQ(probe(file(), entries), "h264,320,240\naac,44100,1\n4.040000\n");
    EXPECT_EQ(probe(file("video.mp4"), entries), "h264,320,240\n4.000000\n");
    EXPECT_EQ(decode(file()) + decode(file("video.mp4")), "100100");
}

TEST_F(Playback, DescriptionIsThatOfTheRecording)
{
    const std::string name = "Rec_20240101_000000_001_M.mp4";
    Frames frames = shoot();
    for (Frame& frame : frames)
        frame.timestamp += 5000;
    record(file(name), frames);
    for (int mode : {KT_MP4_READ, KT_MP4_PROBE}) {
        kt_mfile_info_t info = Mp4(file(name), mode).info();
        EXPECT_EQ(info.name, name);
        EXPECT_EQ((std::vector<int>{info.width, info.height, info.frame_rate, info.firstpts, info.duration,
                                    info.have_audio != 0, info.audio_profile, info.audio_sample_rate_index,
                                    info.audio_channel_conf}),
                  (std::vector<int>{320, 240, 25, 5000, 4040, 1, 2, SAMPLE_RATE_INDEX_44100, 1}));
    }
}

TEST_F(Playback, AudioComesBackAsItWasWritten)
{
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

    for (const Frames& frames : {adts, mixed, raw}) {
        unlink(file().c_str());
        record(file(), frames);
        EXPECT_EQ(read_back(file()), frames);
    }
    EXPECT_EQ(decode(file()), "100") << "raw";
}

TEST_F(Playback, FrameThatDoesNotFitCanBeReadAgain)
{
    const Frame first = shoot()[0];
    record(file(), shoot());
    Mp4 player(file(), KT_MP4_READ);
    Frame frame{77, "", 77};
    for (size_t capacity : {size_t{0}, first.bytes.size() - 1}) {
        EXPECT_EQ(error_of(player.read(frame, capacity)), EMSGSIZE);
        EXPECT_EQ(frame, (Frame{77, "", 77}));
    }
    EXPECT_EQ(player.read(frame, first.bytes.size()), static_cast<int>(first.bytes.size()));
    EXPECT_EQ(frame, first);
}

TEST_F(Playback, FileBeingWrittenShowsWhatWasFlushed)
{
    const Frames frames = shoot();
    const Frames flushed(frames.begin(), frames.begin() + 40);
    Mp4 recording(file(), KT_MP4_CREATE);
    recording.write(flushed);
    recording.flush();
    recording.write(frames[40]);

    Mp4 player(file(), KT_MP4_READ);
    EXPECT_EQ(player.read_all(), flushed);
    recording.write(Frames(frames.begin() + 41, frames.end()));
    recording.flush();
    EXPECT_EQ(player.read_all(), Frames(frames.begin() + 40, frames.end()));
    EXPECT_EQ(player.info().duration, 4040);
    EXPECT_EQ(recording.close(), 0);
    EXPECT_EQ(read_back(file()), frames);
}

TEST_F(Playback, Mp4OfAnotherWriterPlays)
{
    const Frames frames = without_adts(shoot());
    record(file(), frames);
    const std::string path = file("other.mp4");
    std::string remux = "ffmpeg -v error -y -i " + file() + " -c copy -bsf:v filter_units=remove_types=7-9 ";
    for (const char* layout : {"", "-movflags +faststart "}) {
        remux += layout;
        ASSERT_EQ(run(remux + path), "");
        Mp4 other(path, KT_MP4_READ);
        const kt_mfile_info_t info = other.info();
        EXPECT_EQ((std::vector<int>{info.width, info.frame_rate, info.audio_sample_rate_index}),
                  (std::vector<int>{320, 25, SAMPLE_RATE_INDEX_44100}));
        EXPECT_NEAR(info.duration, 4040, 10);
        const Frames got = other.read_all();
        ASSERT_EQ(got.size(), frames.size());
        EXPECT_EQ(nal_units(got[0].bytes)[0], nal_units(frames[0].bytes)[1]); // SPS in front of the key frame
        EXPECT_EQ(audio_bytes(got), audio_bytes(frames));
        expect_seeks(other, got);
    }
}
