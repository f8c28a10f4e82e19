#include <climits>

#include "tests/interface/card_test.h"

using Recording = CardTest;

TEST_F(Recording, EntersCatalogueAndIndexWhenItIsClosed)
{
    Ifsi_set_debug_level(IFS_DEBUG_TRACE);
    int fd = -1;
    const std::string created = Messages([&] { fd = Create(At(17, 17, 23)); });
    EXPECT_EQ(created, "start:2019-10-12 17:17:23, stream_type:main, video_system:1, video_res:6(320 * 240), "
                       "frame_rate:25\n"
                       "start:2019-10-12 17:17:23, stream_type:main, ret_val:" +
                           std::to_string(fd) + "\n");
    Ifsi_set_debug_level(0);
    Write_seconds(fd, 10);
    EXPECT_EQ(Counts(), "0 0");
    EXPECT_FALSE(Exists("system_index_main"));
    EXPECT_EQ(Said(0, [&] { return Ifsi_close(fd, nullptr); }),
              "recording file(Rec_20191012_171723_061_M.mp4) end time(2019-10-12 17:17:32)(first pts:0 ms, "
              "duration:9 seconds)(mp4 duration:9040)\n"
              "Close recording file(file name:Rec_20191012_171723_061_M.mp4)(end time:2019-10-12 17:17:32)"
              "(pEnd_tm:(nil))\n");
    EXPECT_EQ(Counts(), "1 0");
    EXPECT_EQ(File("system_index_main").size(), 143u);
    EXPECT_EQ(File("system_index_main").substr(0, 19), "system_index_v1ITEM");

    const _ifs_rec_file_ rec = Search(IFS_STREAM_MAIN).at(0);
    EXPECT_EQ(Text(rec.end_tm), "2019-10-12 17:17:32");
    EXPECT_EQ(Numbers({rec.video_res, rec.video_system, rec.frame_rate, rec.width, rec.height, rec.have_audio,
                       rec.audio_profile, rec.audio_sample_rate_index, rec.audio_channel_conf}),
              "6 1 25 320 240 0 2 11 1");
    EXPECT_GT(rec.file_size, 1000);

    // The end of a recording under a second is its start made regular.
    const int leap = Create(At(22, 59, 60));
    Write_seconds(leap, 1);
    Ifsi_close(leap, nullptr);
    EXPECT_EQ(Text(Search(IFS_STREAM_MAIN).at(1).end_tm), "2019-10-12 23:00:00");
}

TEST_F(Recording, WithoutFramesIsDeleted)
{
    Ifsi_set_debug_level(IFS_DEBUG_ERROR | IFS_DEBUG_TRACE);
    const int fd = Create(At(10, 0));
    const std::string name = "Rec_20191012_100000_061_M.mp4";
    EXPECT_TRUE(Exists(name));
    const std::string printed = Said(0, [&] { return Ifsi_close(fd, nullptr); });
    EXPECT_TRUE(Holds(printed, "file size is zero\nremove file(" + m_files + ", " + name + ")\nRemove file(" +
                                   m_files + "/" + name + ")\nfd:" + std::to_string(fd) + ", ret_val:0\n"));
    EXPECT_FALSE(Exists(name));
    EXPECT_EQ(Counts(), "0 0");
}

TEST_F(Recording, NeedsMoreThan150MiBFree)
{
    hostcard_set_free(157286400);
    EXPECT_EQ(Said(-1, [&] { return Create(At(10, 0)); }), "sd card is full(157286400 <= 157286400)\n");
    EXPECT_EQ(Ifsi_is_full(), 0);
    hostcard_set_free(157286400 - 65536);
    EXPECT_EQ(Ifsi_is_full(), 1);
    hostcard_set_free(157286400 + 65536);
    const int fd = Create(At(10, 0));
    EXPECT_GT(fd, 0);
    hostcard_fail(HOSTCARD_STATFS, 1, EIO, 1);
    EXPECT_EQ(Said(-1, [&] { return Create(At(10, 1)); }), "Ifs_get_fs_size Failed\n");
    Ifsi_close(fd, nullptr);
}

TEST_F(Recording, ChecksFreeSpaceOnceIn32MiB)
{
    hostcard_set_free(1LL << 30);
    const int fd = Create(At(10, 0));
    std::string frame = Video_frame(true, (1 << 20) - 39); // 1 MiB with its parameter sets
    ASSERT_EQ(frame.size(), 1u << 20);
    const auto write = [&](int count) {
        int result = 0;
        for (int i = 0; i < count; ++i) {
            result =
                Ifsi_write(fd, frame.data(), 1000, frame.data() + 1000, (1 << 20) - 1000, IFS_FRAME_I, 0);
        }
        return result;
    };
    // Other tests have counted, too: go on until a write asks, which starts the count anew.
    for (unsigned before = hostcard_count(HOSTCARD_STATFS); hostcard_count(HOSTCARD_STATFS) == before;) {
        EXPECT_EQ(write(1), 0);
    }
    const unsigned queries = hostcard_count(HOSTCARD_STATFS);
    EXPECT_EQ(write(31), 0);
    EXPECT_EQ(hostcard_count(HOSTCARD_STATFS), queries);
    hostcard_set_free(104857600);
    EXPECT_EQ(Said(-1, [&] { return write(2); }), "sd card is full(104857600)\nsd card is full(104857600)\n");
    // Bytes refused for days must not wrap the counter into another allowance.
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(Ifsi_write(fd, frame.data(), INT_MAX, frame.data(), INT_MAX, IFS_FRAME_I, 0), -1);
    }
    hostcard_set_free(104857600 + 65536);
    EXPECT_EQ(write(1), 0);
    Ifsi_close(fd, nullptr);
}

TEST_F(Recording, RefusesForeignHandles)
{
    Record(At(9, 0));
    const int playing = Play(At(9, 0));
    char byte = 0;
    for (const int fd : {playing, 0, -1, 33}) {
        EXPECT_EQ(Said(-1, [&] { return Ifsi_write(fd, &byte, 1, nullptr, 0, IFS_FRAME_I, 0); }),
                  "It's not recording file(" + std::to_string(fd) + ")\n");
    }
    Ifsi_close(playing, nullptr);
    EXPECT_EQ(Said(0, [&] { return Ifsi_close(playing, nullptr); }),
              "Invalid fd:" + std::to_string(playing) + "\n");
}

TEST_F(Recording, NeverOverwritesAnotherAndGivesItsHandleBack)
{
    const std::string name = Record(At(9, 0));
    const std::string bytes = File(name);
    std::vector<int> open;
    open.push_back(Create(At(10, 0)));
    EXPECT_EQ(Create(At(9, 0)), -1);
    open.push_back(Create(At(10, 1)));
    // The failed create took a handle and gave it back; the allocator has moved on all the same.
    EXPECT_EQ(open[1], open[0] % 32 + 2);
    while (open.size() < 32) {
        open.push_back(Create(At(11, 0, static_cast<int>(open.size()))));
        ASSERT_GT(open.back(), 0);
    }
    EXPECT_EQ(Said(-1, [&] { return Create(At(12, 0)); }), "There is no free handle\n");
    std::string played = name;
    EXPECT_EQ(Said(-1, [&] { return Ifsi_open_v3(played.data()); }), "There is no free handle\n");
    for (const int fd : open) {
        Ifsi_close(fd, nullptr);
    }
    EXPECT_EQ(File(name), bytes);
}
