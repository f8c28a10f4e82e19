#include "recfile/rec_file.h"

#include "tests/support.h"

namespace
{

/** The container as a script: what it was asked and what it shall answer. */
struct Container {
    std::string calls;
    int result = 0; ///< of every call; 0 makes an open succeed
    int info_result = 0;
    int read_kind = KT_MP4_VIDEO_KEY;
    unsigned read_pts = 0;
    kt_mfile_info_t info{};

    int Note(const char* call, std::initializer_list<long long> values = {})
    {
        calls += call + (" " + Numbers(values)) + "\n";
        return result;
    }
};

Container g_container;

} // namespace

extern "C" {

void* kt_mp4_open(char*, int width, int height, int frame_rate, int profile, int rate_index, int channels,
                  int mode, int have_audio, int reserved1, int reserved2)
{
    const int result = g_container.Note("open", {width, height, frame_rate, profile, rate_index, channels,
                                                 mode, have_audio, reserved1, reserved2});
    return result == 0 ? &g_container : nullptr;
}

int kt_mp4_write(void*, int kind, char*, int len1, char*, int len2, unsigned timestamp)
{
    return g_container.Note("write", {kind, len1, len2, timestamp});
}

int kt_mp4_read(void*, int* kind, char*, int capacity, unsigned* timestamp)
{
    *kind = g_container.read_kind;
    *timestamp = g_container.read_pts;
    return g_container.Note("read", {capacity});
}

int kt_mp4_seek_read(void*, unsigned offset)
{
    return g_container.Note("seek", {offset});
}

int kt_mp4_getinfo(void*, kt_mfile_info_t* info)
{
    *info = g_container.info;
    return g_container.info_result;
}

int kt_mp4_flush(void*)
{
    return g_container.Note("flush");
}

int kt_mp4_close(void*)
{
    return g_container.Note("close");
}
}

class RecFile : public testing::Test
{
protected:
    void SetUp() override
    {
        g_container = Container();
        Ifsi_set_debug_level(IFS_DEBUG_ERROR);
        m_info.info_mask = REC_INFO_CREATE;
        m_info.rec.start_tm = Utc(2019, 10, 12, 17, 17, 23);
        m_info.rec.width = 1280;
        m_info.rec.height = 720;
        m_info.rec.frame_rate = 25;
        m_info.rec.have_audio = 1;
        m_info.rec.audio_profile = 2;
        m_info.rec.audio_sample_rate_index = SAMPLE_RATE_INDEX_8000;
        m_info.rec.audio_channel_conf = 1;
    }
    void TearDown() override { Ifsi_set_debug_level(0xFFFFFFFF); }

    int Write(int type, unsigned long long pts)
    {
        char byte = 0;
        return m_file.Irf_write(&byte, 1, nullptr, 0, static_cast<_ifs_frame_type_>(type), pts);
    }
    int Read(int size, int* time)
    {
        char buf[100];
        int offset, length, frame_offset, frame_len;
        _ifs_frame_type_ type;
        return m_file.Irf_read(buf, size, &offset, &length, &frame_offset, &frame_len, &type, time);
    }
    void Probe() { m_file.Irf_open("/nowhere", "Rec_20191012_171723_061_M.mp4", IRF_OPEN_PROBE); }

    CIpcRecFile m_file;
    _rec_file_info_ m_info{};
};

TEST_F(RecFile, AsksTheContainerForWhatTheHostWants)
{
    m_file.Irf_create("/nowhere", &m_info);
    EXPECT_EQ(Write(IFS_FRAME_I, 5000000), 0);
    EXPECT_EQ(Write(IFS_FRAME_P, 4294967296999ULL), 0); // 2^32 ms and 999 us
    EXPECT_EQ(Write(IFS_FRAME_AUDIO, 65999999), 0);
    m_file.Irf_flush();
    m_file.Irf_close();
    EXPECT_EQ(g_container.calls, "open 1280 720 25 2 11 1 2 1 320 0\n"
                                 "write 0 1 0 5000\nwrite 1 1 0 0\nwrite 2 1 0 65999\nflush \nclose \n");
    g_container.calls = "";
    Probe();
    EXPECT_EQ(m_file.Irf_tseek(1570900642), 0);
    EXPECT_EQ(m_file.Irf_tseek(1570900643 + 90), 0);
    EXPECT_EQ(m_file.Irf_tseek(1570900643 + 4294968), 0); // wraps at 2^32 ms
    int time = 0;
    EXPECT_EQ(Read(47, &time), 0);
    EXPECT_EQ(Read(39, &time), 0);
    EXPECT_EQ(g_container.calls,
              "open 0 0 0 0 0 0 4 0 320 0\nseek 0\nseek 90000\nseek 704\nread 8\nread 0\n");
}

TEST_F(RecFile, SaysWhatCannotBeDone)
{
    const std::string name = "Rec_20191012_171723_000_M.mp4";
    int time = 0;
    char byte;
    EXPECT_EQ(Said(-1, [&] { return Write(IFS_FRAME_I, 0); }), "You must create file first\n");
    for (const unsigned needed : {REC_INFO_PICTURE_SIZE, REC_INFO_FRAME_RATE, REC_INFO_AUDIO}) {
        m_info.info_mask = REC_INFO_CREATE & ~needed;
        EXPECT_EQ(Said(-1, [&] { return m_file.Irf_create("/nowhere", &m_info); }),
                  "You must give the resolution or frame rate\n");
    }
    m_info.info_mask = REC_INFO_CREATE;
    g_container.result = -28;
    EXPECT_EQ(Said(-1, [&] { return m_file.Irf_create("/nowhere", &m_info); }),
              "kt_mp4_open(create) Failed(fn:/nowhere/" + name + ", w:1280, h:720, fr:25)\n");
    g_container.result = 0;
    m_file.Irf_create("/nowhere", &m_info);
    for (const int type : {2, 4, -1}) {
        EXPECT_EQ(Said(-1, [&] { return Write(type, 0); }),
                  "Invalid frame type(" + name + ")(" + std::to_string(type) + ")\n");
    }
    g_container.result = -28;
    EXPECT_EQ(Said(-1, [&] { return Write(IFS_FRAME_I, 0); }), "kt_mp4_write Failed(-28)(" + name + ")\n");
    EXPECT_EQ(Said(-1, [&] { return Read(39, &time); }), "It's not readable file(" + name + ")\n");
    EXPECT_EQ(Said(-1, [&] { return Read(38, &time); }), "Buffer is too small(38)\n");
    EXPECT_EQ(Said(-1, [&] { return m_file.Irf_read(&byte, 1); }), "You must open the file first(-1)\n");
    EXPECT_EQ(Said(-1, [&] { return m_file.Irf_seek(0, SEEK_SET); }), "You must open the file first(-1)\n");
}

TEST_F(RecFile, DescribesWhatTheContainerHolds)
{
    Probe();
    g_container.info.frame_rate = 281; // low 8 bits
    g_container.info.width = 640;
    m_info.info_mask = REC_INFO_NAME_AND_END | REC_INFO_CONTAINER | 0x200;
    EXPECT_EQ(Said(-1, [&] { return m_file.Irf_get_rec_info(&m_info); }),
              "Get information Failed(0x00000200)\n");
    EXPECT_EQ(m_info.rec.frame_rate, 25);
    EXPECT_EQ(m_info.rec.width, 640);
    EXPECT_EQ(Text(m_info.rec.end_tm), "2019-10-12 17:17:23");
    m_info.info_mask = REC_INFO_FILE_SIZE;
    EXPECT_EQ(Said(-1, [&] { return m_file.Irf_get_rec_info(&m_info); }),
              "stat Failed(/nowhere/Rec_20191012_171723_061_M.mp4)\n"
              "Ifsod_get_file_size Failed(Rec_20191012_171723_061_M.mp4)\n");
    g_container.info_result = -1; // the first frame that is read stands for the first of all
    g_container.result = 8;
    g_container.read_kind = KT_MP4_AUDIO;
    g_container.read_pts = 7000;
    int time = 0;
    EXPECT_EQ(Said(16, [&] { return Read(47, &time); }),
              "kt_mp4_getinfo Failed(Rec_20191012_171723_061_M.mp4)\n");
    g_container.read_pts = 67000;
    Read(47, &time);
    EXPECT_EQ(time, 1570900643 + 60);
}
