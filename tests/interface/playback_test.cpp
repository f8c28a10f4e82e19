#include <cstring>

#include "tests/interface/card_test.h"

class Playback : public CardTest
{
protected:
    /** Open by time. @return start of what was opened as "hh:mm:ss", or what the library said */
    std::string Open_at(tm t, int stream)
    {
        int fd = -1;
        const std::string said = Messages([&] { fd = Play(t, stream); });
        if (fd < 0) {
            return said;
        }
        _ifs_rec_file_ rec;
        EXPECT_EQ(Ifsi_stat(fd, &rec), 0);
        Ifsi_close(fd, nullptr);
        return Text(rec.start_tm).substr(11);
    }
    int Open(std::string name) { return Ifsi_open_v3(name.data()); }
};

TEST_F(Playback, GivesBackTheFramesWithHeadersAndTimes)
{
    const int fd = Open("/any/dir/" + Record(At(17, 17, 23), 5));
    ASSERT_GT(fd, 0);
    char buf[4096];
    int payload_offset, payload_len, frame_offset, frame_len, time;
    _ifs_frame_type_ type;
    EXPECT_EQ(Ifsi_read(fd, buf, sizeof buf, &payload_offset, &payload_len, &frame_offset, &frame_len, &type,
                        &time),
              176);
    EXPECT_EQ(std::string(buf + payload_offset, static_cast<size_t>(payload_len)), Video_frame(true));
    EXPECT_EQ(type, IFS_FRAME_I);
    EXPECT_EQ(time, 1570900643);
    EXPECT_EQ(std::string(buf, 8), "00dcH264");

    // The frame header, 8 bytes into the buffer, comes to its start.
    Frame frame = Read(fd);
    EXPECT_EQ(Numbers({frame.length, frame.type, frame.time}), "136 1 1570900644");
    EXPECT_EQ(frame.bytes.substr(0, 8), "01dcH264");
    EXPECT_EQ(frame.bytes.substr(24, 105), Video_frame(false));

    EXPECT_EQ(Ifsi_tseek(fd, 1570900643 + 4), 0);
    EXPECT_EQ(Read(fd).time, 1570900647);
    EXPECT_EQ(Read(fd).length, 0);
    EXPECT_EQ(Ifsi_tseek(fd, 0), 0);
    EXPECT_EQ(Said(-1, [&] { return Read(fd, 38).length; }), "Buffer is too small(38)\n");
    Ifsi_close(fd, nullptr);
}

TEST_F(Playback, ReadsThePlainBytesBesideTheFrames)
{
    const std::string name = Record(At(10, 0));
    _ifs_rec_file_ rec = Search(IFS_STREAM_MAIN).at(0);
    Ifsi_set_debug_level(IFS_DEBUG_TRACE);
    int fd = -1;
    const std::string said = Messages([&] { fd = Ifsi_open(&rec); });
    EXPECT_EQ(said, "start:2019-10-12 10:00:00, end:2019-10-12 10:00:10, stream_type:main, ret_val:" +
                        std::to_string(fd) + "\n");
    const std::string file = File(name);
    std::string bytes(file.size() + 10, '\0');
    EXPECT_EQ(Ifsi_read_standard(fd, bytes.data(), static_cast<int>(bytes.size())),
              static_cast<int>(file.size()));
    bytes.resize(file.size());
    EXPECT_EQ(bytes, file);
    EXPECT_EQ(Ifsi_seek(fd, -8, SEEK_END), static_cast<int>(file.size()) - 8);
    EXPECT_EQ(Ifsi_read_standard(fd, bytes.data(), 100), 8);
    EXPECT_EQ(Ifsi_read_standard(fd, bytes.data(), 100), 0);
    if (sizeof(long) > 4) {
        EXPECT_EQ(Ifsi_seek(fd, static_cast<long>(0x100000004LL), SEEK_SET), 4); // 32-bit offsets everywhere
    }
    Ifsi_close(fd, nullptr);
}

TEST_F(Playback, OfTheMainStreamNeedsTheExactStart)
{
    Record(At(10, 0), 50);
    int fd = -1;
    EXPECT_EQ(Messages([&] { fd = Play(At(10, 0)); }), // whatever the mask
              "Ifs_open Find Ok(main, 2019-10-12 10:00:00)(2019-10-12 10:00:00)(2019-10-12 10:00:50)\n");
    Ifsi_close(fd, nullptr);
    EXPECT_EQ(Open_at(At(10, 0, 15), IFS_STREAM_MAIN),
              "Find record file Failed(main, 2019-10-12 10:00:15)\n");
    EXPECT_EQ(Open_at(At(10, 0), IFS_STREAM_SUB), "Find record file Failed(sub, 2019-10-12 10:00:00)\n");
}

TEST_F(Playback, OfTheSubStreamTakesTheNearest)
{
    Record_until(At(10, 0), At(10, 30), IFS_STREAM_SUB);
    Record_until(At(11, 0), At(11, 20), IFS_STREAM_SUB);
    Record_until(At(11, 5), At(11, 40), IFS_STREAM_SUB); // both cover 11:10, this one ends later
    Record_until(At(23, 50), At(0, 10, 0, 13), IFS_STREAM_SUB);
    EXPECT_EQ(Open_at(At(10, 15), IFS_STREAM_SUB), "10:00:00");
    EXPECT_EQ(Open_at(At(10, 30), IFS_STREAM_SUB), "10:00:00");
    EXPECT_EQ(Open_at(At(9, 0), IFS_STREAM_SUB), "10:00:00");
    EXPECT_EQ(Open_at(At(10, 40), IFS_STREAM_SUB), "11:00:00");
    EXPECT_EQ(Open_at(At(11, 10), IFS_STREAM_SUB), "11:05:00");
    EXPECT_EQ(Open_at(At(11, 20), IFS_STREAM_SUB), "11:05:00");
    EXPECT_EQ(Open_at(At(0, 5, 0, 13), IFS_STREAM_SUB),
              "Find record file Failed(sub, 2019-10-13 00:05:00)\n");
}

TEST_F(Playback, FindsRecordingsThatAreStillBeingWritten)
{
    Record_until(At(10, 0), At(10, 0, 20), IFS_STREAM_SUB);
    Record_until(At(12, 0), At(12, 0, 20), IFS_STREAM_SUB);
    const int running = Create(At(10, 0, 10), IFS_STREAM_SUB);
    Write_seconds(running, 30);                                    // 10:00:10 to 10:00:39
    EXPECT_EQ(Open_at(At(10, 0, 10), IFS_STREAM_SUB), "10:00:10"); // starts there
    EXPECT_EQ(Open_at(At(10, 0, 15), IFS_STREAM_SUB), "10:00:00"); // the catalogue's covering one first
    EXPECT_EQ(Open_at(At(10, 0, 20), IFS_STREAM_SUB), "10:00:10"); // covering before ending
    EXPECT_EQ(Open_at(At(10, 0, 39), IFS_STREAM_SUB), "10:00:10"); // ending before following
    EXPECT_EQ(Open_at(At(10, 5), IFS_STREAM_SUB), "12:00:00");
    EXPECT_EQ(Open_at(At(9, 0), IFS_STREAM_SUB), "10:00:00"); // following: the catalogue's first

    Ifsi_set_debug_level(IFS_DEBUG_DETAIL);
    EXPECT_TRUE(Holds(Open_at(At(13, 0), IFS_STREAM_SUB), "list_find_bitmap:0x00000000, 5, 1\n"));
    Ifsi_set_debug_level(IFS_DEBUG_ERROR);
    Ifsi_close(running, nullptr);
}

TEST_F(Playback, RefusesWhatIsNoRecordingAndKeepsNoHandle)
{
    Ifsi_set_debug_level(IFS_DEBUG_ERROR | IFS_DEBUG_TRACE);
    EXPECT_EQ(Said(-1, [&] { return Open("/x/Rec_1.mp4"); }),
              "SIrf_get_rec_info Failed(Rec_1.mp4)\nIrf_open Failed\nfile_name:/x/Rec_1.mp4, ret_val:-1\n");
    Ifsi_set_debug_level(IFS_DEBUG_ERROR);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(Open("Rec_20191012_100000_061_M.mp4"), -1);
    }
    Put_file("Rec_20191012_110000_061_M.mp4", "no container");
    EXPECT_EQ(Open("Rec_20191012_110000_061_M.mp4"), -1);
    char buf[64];
    _ifs_rec_file_ rec;
    const std::string refused = "It's not playing file(7)\n";
    EXPECT_EQ(Said(-1, [&] { return Ifsi_read_standard(7, buf, 1); }), refused);
    EXPECT_EQ(Said(-1, [] { return Ifsi_seek(7, 0, SEEK_SET); }), refused);
    EXPECT_EQ(Said(-1, [] { return Ifsi_tseek(7, 0); }), refused);
    EXPECT_EQ(Said(-1, [&] { return Ifsi_stat(7, &rec); }), "Invalid fd\n");
}

TEST_F(Playback, TellsFileNamesOfFinishedAndRunningRecordings)
{
    Record(At(10, 0));
    const int running = Create(At(11, 0), IFS_STREAM_SUB);
    char path[129];
    path[128] = '!';
    tm t = At(11, 0);
    EXPECT_EQ(Ifsi_get_file_name_v2(&t, IFS_STREAM_SUB, path), 0);
    EXPECT_EQ(path, m_files + "/Rec_20191012_110000_061_S.mp4");
    EXPECT_EQ(Said(-1, [&] { return Ifsi_get_file_name_v2(&t, IFS_STREAM_MAIN, path); }),
              "Find file Failed\n");
    _ifs_rec_file_ rec = Search(IFS_STREAM_MAIN).at(0);
    EXPECT_EQ(Ifsi_get_file_name(&rec, path), 0);
    EXPECT_EQ(path, m_files + "/Rec_20191012_100000_061_M.mp4");
    EXPECT_EQ(path[128], '!');
    Ifsi_close(running, nullptr);
}

TEST_F(Playback, ReadsARecordingWhileItIsWritten)
{
    const int running = Create(At(10, 0));
    EXPECT_EQ(Open_at(At(10, 0), IFS_STREAM_MAIN), "10:00:00"); // nothing is flushed yet
    Write_seconds(running, 20);
    const int fd = Play(At(10, 0));
    int frames = 0;
    while (Read(fd).length > 0) {
        ++frames;
    }
    EXPECT_GE(frames, 15);
    _ifs_rec_file_ rec;
    EXPECT_TRUE(Holds(Said(0, [&] { return Ifsi_stat(running, &rec); }), "end time(2019-10-12 10:00:19)"));
    EXPECT_EQ(Read(running).length, -1);
    Ifsi_close(fd, nullptr);
    Ifsi_close(running, nullptr);
}
