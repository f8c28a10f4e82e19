#include "tests/interface/card_test.h"

using CardCalls = CardTest;

TEST_F(CardCalls, DescribeTheCard)
{
    Ifsi_set_debug_level(IFS_DEBUG_TRACE | IFS_DEBUG_ERROR);
    _ifs_system_info_ info;
    EXPECT_EQ(Said(0, [&] { return Ifsi_get_system_info(&info); }),
              "have_card:1, formatted:1, dev_size:8000000000, fs_total_size:7998930944, "
              "fs_free_size:7998865408\n");
    EXPECT_EQ(Numbers({info.fs_version, info.card_fs_version, gHave_got_fs_size}), "2 2 1");

    ASSERT_EQ(Ifsi_umount(), 0);
    Ifsi_get_system_info(&info);
    EXPECT_EQ(Numbers({info.have_card, info.formatted, static_cast<long long>(info.dev_size),
                       static_cast<long long>(info.fs_total_size)}),
              "1 0 8000000000 0");
    hostcard_fail(HOSTCARD_GET_SIZE64, 1, EIO, 0);
    hostcard_fail(HOSTCARD_GET_SIZE, 1, EIO, 0);
    EXPECT_EQ(Messages([&] { Ifsi_get_system_info(&info); }),
              "Ifsod_get_dev_size Failed\n"
              "have_card:1, formatted:0, dev_size:0, fs_total_size:0, fs_free_size:0\n");
    hostcard_set_listing("sda1 sd sdA hda");
    EXPECT_EQ(Messages([&] { Ifsi_get_system_info(&info); }),
              "There is no sd card\nhave_card:0, formatted:0, dev_size:0, fs_total_size:0, fs_free_size:0\n");
}

TEST_F(CardCalls, MountOnlyACardThatIsThereAndFormatted)
{
    ASSERT_EQ(Ifsi_umount(), 0);
    const auto mount = [this] { EXPECT_EQ(Ifsi_mount(m_files.c_str()), -1); };
    hostcard_set_listing("");
    EXPECT_EQ(Messages(mount), "There is no sd card\n");
    hostcard_set_listing(nullptr);
    hostcard_fail(HOSTCARD_MOUNT, 1, EINVAL, 1);
    EXPECT_EQ(Messages(mount), "mount(/dev/hd/sda1) on (" + m_files +
                                   ") Failed(Invalid argument)\nIfsod_mount Failed\nIfs_mount Failed\n");
    hostcard_fail(HOSTCARD_OPENDIR, 1, ENOENT, 1);
    EXPECT_EQ(Messages(mount), "opendir (/dev/hd/) Failed\nThere is no sd card\n");
    EXPECT_EQ(Ifsi_loading_rebuilding_index_file_flag(), 0);
    Mount();
}

TEST_F(CardCalls, UnmountIsRefusedWhileSomethingIsOpen)
{
    Record(At(9, 0));
    const int playing = Play(At(9, 0));
    const int recording = Create(At(10, 0));
    const int search = Find(IFS_STREAM_MAIN);
    const auto umount = [] { EXPECT_EQ(Ifsi_umount(), -1); };
    EXPECT_EQ(Messages(umount), "m_playing_file_table is not empty!\n");
    Ifsi_close(playing, nullptr);
    EXPECT_EQ(Messages(umount), "m_recording_file_table is not empty!\n");
    Ifsi_close(recording, nullptr);
    EXPECT_EQ(Messages(umount), "m_searcher_table is not empty!\n");
    Ifsi_find_close(search);
    hostcard_fail(HOSTCARD_UMOUNT, 1, EBUSY, 1);
    EXPECT_EQ(Messages(umount),
              "umount(" + m_files + ") Failed(Device or resource busy)\nIfsod_umount Failed\n");
    EXPECT_EQ(Counts(), "1 0");
    ASSERT_EQ(Ifsi_umount(), 0);
    EXPECT_EQ(Printed([] { EXPECT_EQ(Ifsi_umount(), 0); }), "");
}

TEST_F(CardCalls, AnswerAsDocumentedWhileNothingIsMounted)
{
    ASSERT_EQ(Ifsi_umount(), 0);
    tm t = At(9, 0);
    char path[128];
    _ifs_rec_file_ rec{};
    unsigned char days[31] = {7};
    unsigned long main_number = 7;
    unsigned long sub_number = 7;
    const std::string refused = "You must mount file system first\n";
    EXPECT_EQ(Ifsi_get_file_number(&main_number, &sub_number), -1);
    EXPECT_EQ(main_number + sub_number, 0u);
    EXPECT_EQ(Said(-1, [] { return Create(At(9, 0)); }), refused);
    EXPECT_EQ(Said(-1, [&] { return Ifsi_open(&rec); }), refused);
    EXPECT_EQ(Said(-1, [] { return Play(At(9, 0)); }), refused);
    EXPECT_EQ(Said(-1, [&] { return Ifsi_open_v3(path); }), refused);
    EXPECT_EQ(Said(-1, [&] { return Ifsi_get_file_name(&rec, path); }), refused);
    EXPECT_EQ(Said(-1, [&] { return Ifsi_get_file_name_v2(&t, IFS_STREAM_SUB, path); }), refused);
    EXPECT_EQ(Said(-1, [] { return Find(IFS_STREAM_MAIN); }), refused);
    EXPECT_EQ(Said(-1, [&] { return Ifsi_get_rec_calendar(&t, &t, IFS_STREAM_MAIN, days); }), refused);
    EXPECT_EQ(days[0], 7);
    EXPECT_EQ(Said(-3, [&] { return Ifsi_get_latest_rec_time(&t); }), refused);
    EXPECT_EQ(Said(-1, [&] { return Ifsi_is_full(); }), "");
}

TEST_F(CardCalls, FindAMountPointByDirectoryOrDevice)
{
    Put_file("mounts", "rootfs / rootfs rw 0 0\n/dev/hd/sda1 /mnt/sd vfat rw 0 0\n");
    const std::string table = m_files + "/mounts";
    for (const char* mounted : {"/mnt/sd/", "/dev/hd/sda1", "/"}) {
        EXPECT_NE(find_mount_point(mounted, table.c_str()), nullptr) << mounted;
    }
    EXPECT_NE(find_mount_point("/proc/", nullptr), nullptr);
    EXPECT_EQ(find_mount_point("/mnt", table.c_str()), nullptr);
    EXPECT_EQ(find_mount_point(std::string(500, '/').c_str(), table.c_str()), nullptr);
    EXPECT_EQ(find_mount_point("/", "/nowhere"), nullptr);
}

TEST(LibraryState, StartsAsDocumented)
{
    EXPECT_EQ(
        Numbers({gScan_rec_file_flag, gCard_fs_version, gFs_max_file_number, gIfs_demo_flag, gIfs_file_type}),
        "1 2 0 0 0");
    Ifsi_set_scan_rec_file_flag(5);
    EXPECT_EQ(gScan_rec_file_flag, 5);
    Ifsi_set_scan_rec_file_flag(1);
}
