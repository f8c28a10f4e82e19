#include "recfile/rec_file.h"

#include <cstring>
#include <vector>

#include "tests/support.h"

namespace
{

/** The container as a script: what it was asked and what it shall answer. */
struct Container {
    std::vector<std::string> calls;
    bool opens = true;
    int write_result = 0;
    int read_result = 0;
    int read_kind = KT_MP4_VIDEO_KEY;
    unsigned read_pts = 0;
    int seek_result = 0;
    int info_result = 0;
    kt_mfile_info_t info{};

    template <typename... Values>
    void Note(const std::string& call, Values... values)
    {
        std::string text = call;
        for (const long long value : {static_cast<long long>(values)...}) {
            text += " " + std::to_string(value);
        }
        calls.push_back(text);
    }
};

Container g_container;

} // namespace

extern "C" {

void* kt_mp4_open(char*, int width, int height, int frame_rate, int profile, int rate_index, int channels,
                  int mode, int have_audio, int reserved1, int reserved2)
{
    g_container.Note("open", width, height, frame_rate, profile, rate_index, channels, mode, have_audio,
                     reserved1, reserved2);
    return g_container.opens ? &g_container : nullptr;
}

int kt_mp4_write(void*, int kind, char*, int len1, char*, int len2, unsigned timestamp)
{
    g_container.Note("write", kind, len1, len2, timestamp);
    return g_container.write_result;
}

int kt_mp4_read(void*, int* kind, char*, int capacity, unsigned* timestamp)
{
    g_container.Note("read", capacity);
    *kind = g_container.read_kind;
    *timestamp = g_container.read_pts;
    return g_container.read_result;
}

int kt_mp4_seek_read(void*, unsigned offset)
{
    g_container.Note("seek", offset);
    return g_container.seek_result;
}

int kt_mp4_getinfo(void*, kt_mfile_info_t* info)
{
    *info = g_container.info;
    return g_container.info_result;
}

int kt_mp4_flush(void*)
{
    g_container.Note("flush", 0);
    return 0;
}

int kt_mp4_close(void*)
{
    g_container.Note("close", 0);
    return 0;
}
}

class RecFile : public testing::Test
{
protected:
    void SetUp() override
    {
        g_container = Container();
        Ifsi_set_debug_level(IFS_DEBUG_ERROR);
        info.info_mask = REC_INFO_CREATE;
        info.rec.start_tm = Utc(2019, 10, 12, 17, 17, 23);
        info.rec.width = 1280;
        info.rec.height = 720;
        info.rec.frame_rate = 25;
        info.rec.have_audio = 1;
        info.rec.audio_profile = 2;
        info.rec.audio_sample_rate_index = SAMPLE_RATE_INDEX_8000;
        info.rec.audio_channel_conf = 1;
    }
    void TearDown() override { Ifsi_set_debug_level(0xFFFFFFFF); }

    int Write(int type, unsigned long long pts)
    {
        char byte = 0;
        return file.Irf_write(&byte, 1, nullptr, 0, static_cast<_ifs_frame_type_>(type), pts);
    }
    int Read(int size)
    {
        std::vector<char> buf(100);
        int offset, length, frame_offset, frame_len;
        return file.Irf_read(buf.data(), size, &offset, &length, &frame_offset, &frame_len, &type, &time);
    }

    CIpcRecFile file;
    _rec_file_info_ info{};
    _ifs_frame_type_ type = IFS_FRAME_P;
    int time = 0;
    static constexpr int k_start = 1570900643;
};

TEST_F(RecFile, PassesTheDescriptionToTheContainerOnCreateOnly)
{
    EXPECT_EQ(file.Irf_create("/nowhere", &info), 0);
    EXPECT_EQ(file.Irf_close(), 0);
    EXPECT_EQ(file.Irf_open("/nowhere", "Rec_20191012_171723_061_M.mp4", IRF_OPEN_PROBE), 0);
    EXPECT_EQ(file.Irf_close(), 0);
    EXPECT_EQ(g_container.calls, (std::vector<std::string>{"open 1280 720 25 2 11 1 2 1 320 0", "close 0",
                                                           "open 0 0 0 0 0 0 4 0 320 0", "close 0"}));
}

TEST_F(RecFile, RefusesToCreateWithoutADescription)
{
    for (const unsigned needed : {REC_INFO_PICTURE_SIZE, REC_INFO_FRAME_RATE, REC_INFO_AUDIO}) {
        info.info_mask = REC_INFO_CREATE & ~needed;
        EXPECT_EQ(Messages([&] { EXPECT_EQ(file.Irf_create("/nowhere", &info), -1); }),
                  "You must give the resolution or frame rate\n");
    }
    EXPECT_TRUE(g_container.calls.empty());
    info.info_mask = REC_INFO_CREATE;
    g_container.opens = false;
    EXPECT_EQ(
        Messages([&] { EXPECT_EQ(file.Irf_create("/nowhere", &info), -1); }),
        "kt_mp4_open(create) Failed(fn:/nowhere/Rec_20191012_171723_000_M.mp4, w:1280, h:720, fr:25)\n");
    EXPECT_EQ(Messages([&] { file.Irf_open("/nowhere", "Rec_x.mp4", IRF_OPEN_READ); }),
              "SIrf_get_rec_info Failed(Rec_x.mp4)\n");
}

TEST_F(RecFile, WritesKnownFrameTypesAndKeepsTheirTime)
{
    file.Irf_create("/nowhere", &info);
    EXPECT_EQ(Write(IFS_FRAME_I, 5000000), 0);
    EXPECT_EQ(Write(IFS_FRAME_P, 4294967296999ULL), 0); // 2^32 ms and 999 us
    EXPECT_EQ(Write(IFS_FRAME_AUDIO, 65999999), 0);
    for (const int type : {2, 4, -1}) {
        EXPECT_EQ(Messages([&] { EXPECT_EQ(Write(type, 0), -1); }),
                  "Invalid frame type(Rec_20191012_171723_000_M.mp4)(" + std::to_string(type) + ")\n");
    }
    EXPECT_EQ(g_container.calls,
              (std::vector<std::string>{"open 1280 720 25 2 11 1 2 1 320 0", "write 0 1 0 5000",
                                        "write 1 1 0 0", "write 2 1 0 65999"}));
    g_container.info.duration = 61000;
    info.info_mask = REC_INFO_END_TIME;
    Ifsi_set_debug_level(0);
    EXPECT_EQ(
        Messages([&] { file.Irf_get_rec_info(&info); }),
        "recording file(Rec_20191012_171723_000_M.mp4) end time(2019-10-12 17:18:24)(first pts:5000 ms, "
        "duration:60 seconds)(mp4 duration:61000)\n");
}

TEST_F(RecFile, SaysWhyAFrameWasNotWritten)
{
    EXPECT_EQ(Messages([&] { EXPECT_EQ(Write(IFS_FRAME_I, 0), -1); }), "You must create file first\n");
    file.Irf_create("/nowhere", &info);
    g_container.write_result = -28;
    EXPECT_EQ(Messages([&] { EXPECT_EQ(Write(IFS_FRAME_I, 0), -1); }),
              "kt_mp4_write Failed(-28)(Rec_20191012_171723_000_M.mp4)\n");
    EXPECT_EQ(Messages([&] { EXPECT_EQ(Read(39), -1); }),
              "It's not readable file(Rec_20191012_171723_000_M.mp4)\n");
}

TEST_F(RecFile, ReadsFramesWithTimesFromTheStart)
{
    file.Irf_open("/nowhere", "Rec_20191012_171723_061_M.mp4", IRF_OPEN_PROBE);
    EXPECT_EQ(Messages([&] { EXPECT_EQ(Read(38), -1); }), "Buffer is too small(38)\n");
    g_container.info.firstpts = 1000;
    g_container.read_result = 8;
    g_container.read_pts = 61000;
    EXPECT_EQ(Read(47), 40);
    EXPECT_EQ(time, k_start + 60);
    EXPECT_EQ(type, IFS_FRAME_I);
    g_container.read_kind = KT_MP4_AUDIO;
    EXPECT_EQ(Read(39), 16);
    EXPECT_EQ(type, IFS_FRAME_AUDIO);
    g_container.read_result = 0;
    EXPECT_EQ(Read(47), 0);
    EXPECT_EQ(g_container.calls,
              (std::vector<std::string>{"open 0 0 0 0 0 0 4 0 320 0", "read 8", "read 0", "read 8"}));
}

TEST_F(RecFile, TakesTheFirstFrameReadWhereTheContainerCannotTell)
{
    file.Irf_open("/nowhere", "Rec_20191012_171723_061_M.mp4", IRF_OPEN_PROBE);
    g_container.info_result = -1;
    g_container.read_result = 8;
    g_container.read_pts = 7000;
    EXPECT_EQ(Messages([&] { Read(47); }), "kt_mp4_getinfo Failed(Rec_20191012_171723_061_M.mp4)\n");
    EXPECT_EQ(time, k_start);
}

TEST_F(RecFile, SeeksInMillisecondsFromTheStart)
{
    file.Irf_open("/nowhere", "Rec_20191012_171723_061_M.mp4", IRF_OPEN_PROBE);
    EXPECT_EQ(file.Irf_tseek(k_start - 1), 0);
    EXPECT_EQ(file.Irf_tseek(k_start + 90), 0);
    EXPECT_EQ(file.Irf_tseek(k_start + 4294968), 0); // wraps at 2^32 ms
    EXPECT_EQ(g_container.calls,
              (std::vector<std::string>{"open 0 0 0 0 0 0 4 0 320 0", "seek 0", "seek 90000", "seek 704"}));
    Ifsi_set_debug_level(IFS_DEBUG_DETAIL | IFS_DEBUG_TRACE);
    EXPECT_EQ(Messages([&] { file.Irf_tseek(k_start + 90); }),
              "file name:Rec_20191012_171723_061_M.mp4, seek time:1570900733\n"
              "tseek(local:1570900733, utc:1570900733, offset:90)(start:2019-10-12 17:17:23)"
              "(end:1900-01-00 00:00:00)(seek to(utc):2019-10-12 17:18:53)\n");
}

TEST_F(RecFile, PlainBytesNeedAFileOpenedToRead)
{
    file.Irf_open("/nowhere", "Rec_20191012_171723_061_M.mp4", IRF_OPEN_PROBE);
    char byte;
    EXPECT_EQ(Messages([&] {
                  EXPECT_EQ(file.Irf_read(&byte, 1), -1);
                  EXPECT_EQ(file.Irf_seek(0, SEEK_SET), -1);
              }),
              "You must open the file first(-1)\nYou must open the file first(-1)\n");
}

TEST_F(RecFile, DescribesAndNamesWhatItCannotServe)
{
    file.Irf_open("/nowhere", "Rec_20191012_171723_061_M.mp4", IRF_OPEN_PROBE);
    g_container.info.frame_rate = 281; // low 8 bits
    g_container.info.width = 640;
    _rec_file_info_ asked{};
    asked.info_mask = REC_INFO_NAME_AND_END | REC_INFO_CONTAINER | 0x200;
    EXPECT_EQ(Messages([&] { EXPECT_EQ(file.Irf_get_rec_info(&asked), -1); }),
              "Get information Failed(0x00000200)\n");
    EXPECT_EQ(asked.rec.frame_rate, 25);
    EXPECT_EQ(asked.rec.width, 640);
    EXPECT_EQ(Text(asked.rec.end_tm), "2019-10-12 17:17:23");
    asked.info_mask = REC_INFO_FILE_SIZE;
    EXPECT_EQ(Messages([&] { EXPECT_EQ(file.Irf_get_rec_info(&asked), -1); }),
              "stat Failed(/nowhere/Rec_20191012_171723_061_M.mp4)\n"
              "Ifsod_get_file_size Failed(Rec_20191012_171723_061_M.mp4)\n");
}

TEST_F(RecFile, ADurationUnderASecondNormalisesTheEnd)
{
    info.rec.start_tm = Utc(2019, 10, 12, 23, 59, 60);
    file.Irf_open("/nowhere", "Rec_20191012_235960_061_M.mp4", IRF_OPEN_PROBE);
    _rec_file_info_ asked{};
    asked.info_mask = REC_INFO_END_TIME;
    file.Irf_get_rec_info(&asked);
    EXPECT_EQ(Text(asked.rec.end_tm), "2019-10-12 23:59:60");
    g_container.info.duration = 1;
    file.Irf_get_rec_info(&asked);
    EXPECT_EQ(Text(asked.rec.end_tm), "2019-10-13 00:00:00");
}
