#include "recfile/rec_file.h"

#include "tests/interface/card_test.h"

class RecFile : public CardTest
{
protected:
    void SetUp() override
    {
        CardTest::SetUp();
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
    void TearDown() override
    {
        m_file.Irf_close();
        CardTest::TearDown();
    }

    int Create() { return m_file.Irf_create(m_files.c_str(), &m_info); }
    int Write(int type, unsigned long long pts)
    {
        std::string frame = type == IFS_FRAME_AUDIO ? "sound" : Video_frame(type == IFS_FRAME_I);
        return m_file.Irf_write(frame.data(), static_cast<int>(frame.size()), nullptr, 0,
                                static_cast<_ifs_frame_type_>(type), pts);
    }
    /** @return time of the next frame from the start, or the failing result */
    int Read(int size)
    {
        char buf[1000];
        int offset, length, frame_offset, frame_len, time;
        _ifs_frame_type_ type;
        const int result =
            m_file.Irf_read(buf, size, &offset, &length, &frame_offset, &frame_len, &type, &time);
        return result > 0 ? time - k_start : result;
    }

    static constexpr int k_start = 1570900643;
    const std::string m_name = "Rec_20191012_171723_000_M.mp4";
    CIpcRecFile m_file;
    _rec_file_info_ m_info{};
};

TEST_F(RecFile, ConvertsTimesAndSizesForTheContainer)
{
    Create();
    EXPECT_EQ(Write(IFS_FRAME_I, 4294967296999ULL), 0); // 2^32 ms and 999 us
    EXPECT_EQ(Write(IFS_FRAME_P, 1000000), 0);
    EXPECT_EQ(Write(IFS_FRAME_AUDIO, 90999999), 0);
    m_file.Irf_flush();
    EXPECT_GT(File(m_name).size(), 0u);
    m_file.Irf_close();

    const auto p_frame_bytes = static_cast<int>(Video_frame(false).size());
    m_file.Irf_open(m_files.c_str(), m_name.c_str(), IRF_OPEN_READ);
    for (const auto& [seek_s, time_s] : {std::pair(90, 90), {4294968, 1}, {-1, 0}}) { // 704 ms behind 2^32
        EXPECT_EQ(m_file.Irf_tseek(static_cast<unsigned>(k_start + seek_s)), 0);
        EXPECT_EQ(Read(1000), time_s);
    }
    EXPECT_EQ(Said(-1, [&] { return Read(39 + p_frame_bytes - 1); }),
              "kt_mp4_read Failed(" + m_name + ", -1)\n");
    EXPECT_EQ(Read(39 + p_frame_bytes), 1);
    m_file.Irf_close();

    _rec_file_info_ found{};
    found.info_mask = REC_INFO_CONTAINER | REC_INFO_NAME_AND_END | 0x200;
    m_file.Irf_open(m_files.c_str(), m_name.c_str(), IRF_OPEN_PROBE);
    EXPECT_EQ(Said(-1, [&] { return m_file.Irf_get_rec_info(&found); }),
              "Get information Failed(0x00000200)\n");
    const _ifs_rec_file_& rec = found.rec;
    EXPECT_EQ(Text(rec.end_tm), "2019-10-12 17:18:54");
    EXPECT_EQ(Numbers({rec.width, rec.height, rec.frame_rate, rec.have_audio, rec.audio_profile,
                       rec.audio_sample_rate_index, rec.audio_channel_conf}),
              "1280 720 25 1 2 11 1");
    remove((m_files + "/" + m_name).c_str());
    found.info_mask = REC_INFO_FILE_SIZE;
    EXPECT_EQ(Said(-1, [&] { return m_file.Irf_get_rec_info(&found); }),
              "stat Failed(" + m_files + "/" + m_name + ")\nIfsod_get_file_size Failed(" + m_name + ")\n");
}

TEST_F(RecFile, SaysWhatCannotBeDone)
{
    char byte;
    EXPECT_EQ(Said(-1, [&] { return Write(IFS_FRAME_I, 0); }), "You must create file first\n");
    for (const unsigned needed : {REC_INFO_PICTURE_SIZE, REC_INFO_FRAME_RATE, REC_INFO_AUDIO}) {
        m_info.info_mask = REC_INFO_CREATE & ~needed;
        EXPECT_EQ(Said(-1, [&] { return Create(); }), "You must give the resolution or frame rate\n");
    }
    m_info.info_mask = REC_INFO_CREATE;
    EXPECT_EQ(Said(-1, [&] { return m_file.Irf_create("/nowhere", &m_info); }),
              "kt_mp4_open(create) Failed(fn:/nowhere/" + m_name + ", w:1280, h:720, fr:25)\n");
    Create();
    for (const int type : {2, 4, -1}) {
        EXPECT_EQ(Said(-1, [&] { return Write(type, 0); }),
                  "Invalid frame type(" + m_name + ")(" + std::to_string(type) + ")\n");
    }
    EXPECT_EQ(Said(-1, [&] { return m_file.Irf_write(&byte, 1, nullptr, 0, IFS_FRAME_I, 0); }),
              "kt_mp4_write Failed(-1)(" + m_name + ")\n");
    EXPECT_EQ(Said(-1, [&] { return Read(39); }), "It's not readable file(" + m_name + ")\n");
    EXPECT_EQ(Said(-1, [&] { return Read(38); }), "Buffer is too small(38)\n");
    EXPECT_EQ(Said(-1, [&] { return m_file.Irf_read(&byte, 1); }), "You must open the file first(-1)\n");
    EXPECT_EQ(Said(-1, [&] { return m_file.Irf_seek(0, SEEK_SET); }), "You must open the file first(-1)\n");
}
