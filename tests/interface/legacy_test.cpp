#include "ifs_legacy.h"

#include <sys/resource.h>
#include <unistd.h>

#include <climits>
#include <cstring>

#include "tests/interface/card_test.h"

using LegacyTest = CardTest;

TEST_F(LegacyTest, FetchesSearchResultsIntoBothArraysAndNoFurther)
{
    Record(At(10, 0), 10, IFS_STREAM_SUB);
    Record(At(11, 0), 10, IFS_STREAM_SUB);
    tm from = At(0, 0);
    tm to = At(23, 59, 59);
    const int search = rec_find_open(&from, &to, 77, 5);
    EXPECT_EQ(rec_find_getcounts(search), 2);

    struct {
        record records[3];
        record_stat_t stats[3];
    } out;
    memset(&out, 0x5A, sizeof out);
    const auto untouched = [](const void* at, size_t bytes) {
        return std::string(static_cast<const char*>(at), bytes) == std::string(bytes, 0x5A);
    };
    EXPECT_EQ(rec_find_next(search, out.records, out.stats, 0), -1);
    EXPECT_EQ(rec_find_next(search, out.records, out.stats, -1), -1);
    rlimit unlimited;
    ASSERT_EQ(getrlimit(RLIMIT_AS, &unlimited), 0);
    const rlimit gigabyte{1u << 30, unlimited.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_AS, &gigabyte), 0);
    EXPECT_EQ(rec_find_next(search, out.records, out.stats, INT_MAX), -1) << "more than memory can hold";
    ASSERT_EQ(setrlimit(RLIMIT_AS, &unlimited), 0);
    EXPECT_TRUE(untouched(&out, sizeof out));

    EXPECT_EQ(rec_find_next(search, out.records, out.stats, 3), 2)
        << "a refused call must not have fetched any";
    EXPECT_TRUE(untouched(out.records + 2, sizeof(record)) &&
                untouched(out.stats + 2, sizeof(record_stat_t)));
    EXPECT_EQ(Text(out.records[1].start_tm), "2019-10-12 11:00:00");
    EXPECT_EQ(Numbers({out.records[1].width, out.records[1].height, out.records[1].stream}), "320 240 1");
    EXPECT_EQ(Text(out.stats[0].start_tm) + Text(out.stats[0].end_tm),
              "2019-10-12 10:00:002019-10-12 10:00:10");
    EXPECT_EQ(Numbers({out.stats[0].always_4, out.stats[0].file_kind}), "4 1");
    EXPECT_EQ(rec_find_next(search, out.records, out.stats, 1), 0);
    EXPECT_EQ(rec_find_close(search), 0);
}

TEST_F(LegacyTest, PlaysBackByTime)
{
    const std::string name = Record(At(10, 0), 10, IFS_STREAM_SUB);
    tm start = At(10, 0);
    char path[128];
    ASSERT_EQ(rec_get_file_name(&start, 1, path), 0);
    EXPECT_EQ(path, m_files + "/" + name);
    EXPECT_EQ(rec_get_file_name(&start, 0, path), -1);

    const int fd = rec_open(77, &start, 1);
    ASSERT_GT(fd, 0);
    int out = 77;
    EXPECT_EQ(rec_tseek(fd, static_cast<unsigned>(timegm(&start)) + 4, 77, &out), 0);
    EXPECT_EQ(out, 0);
    EXPECT_EQ(Read(fd).time, static_cast<int>(timegm(&start)) + 4);

    record_info_t info;
    memset(&info, 0x5A, sizeof info);
    ASSERT_EQ(rec_stat(fd, &info), 0);
    EXPECT_EQ(Text(info.start_tm), "2019-10-12 10:00:00");
    EXPECT_EQ(info.file_size, static_cast<int64_t>(File(name).size()));
    EXPECT_EQ(Numbers({info.always_2, info.width, info.height, info.frame_rate, info.stream, info.file_kind}),
              "2 320 240 25 1 1");
    EXPECT_EQ(std::string(reinterpret_cast<char*>(info.reserved_3), sizeof info.reserved_3),
              std::string(sizeof info.reserved_3, '\0'));
    EXPECT_EQ(rec_close(fd, nullptr), 0);

    memset(&info, 0x5A, sizeof info);
    EXPECT_EQ(rec_stat(fd, &info), -1);
    EXPECT_EQ(info.reserved_1[0], 0x5A);
    out = 77;
    EXPECT_EQ(rec_tseek(fd, 0, 77, &out), -1);
    EXPECT_EQ(out, 0);
}

TEST_F(LegacyTest, ItsCalendarCoversTheMainStream)
{
    Record(At(10, 0, 0, 12), 10, IFS_STREAM_MAIN);
    Record(At(10, 0, 0, 14), 10, IFS_STREAM_SUB);
    const Zone utc("UTC");
    tm from = At(0, 0, 0, 1);
    tm to = At(23, 59, 59, 31);
    unsigned char days[31];
    ASSERT_EQ(rec_get_calendar(&from, &to, days), 0);
    EXPECT_EQ(Numbers({days[11], days[13]}), "1 0");
}

TEST(RecTransfer, KeepsTheLowHalfOfASizeAndTheSignOfAFileSize)
{
    _ifs_rec_file_ entry{};
    entry.width = 0x1A2B3;
    entry.height = -1;
    entry.frame_rate = 255;
    entry.file_size = -5;
    entry.stream_type = static_cast<_ifs_stream_type_>(9);
    entry.audio_profile = 6;
    entry.audio_sample_rate_index = 7;
    entry.audio_channel_conf = 8;
    record_info_t info;
    gIfs_file_type = 1;
    rec_transfer(&entry, &info);
    EXPECT_EQ(
        Numbers({info.width, info.height, info.frame_rate, info.file_size, info.stream, info.file_kind}),
        "41651 65535 255 -5 1 2");
    record_stat_t stat;
    gIfs_file_type = 3;
    rec_transfer(&entry, &stat);
    EXPECT_EQ(Numbers({stat.file_size, stat.audio_profile, stat.audio_sample_rate_index,
                       stat.audio_channel_conf, stat.file_kind}),
              "-5 6 7 8 0");
    gIfs_file_type = 0;
}

TEST_F(LegacyTest, ProbesForTheCardMountedOrNot)
{
    char device[12] = "untouched";
    int count = 77;
    hostcard_set_listing("sda1 mmcblk0");
    EXPECT_EQ(fs_probe(device, &count), -1);
    EXPECT_EQ(device + std::to_string(count), "untouched77");
    hostcard_set_listing(nullptr);
    EXPECT_EQ(fs_probe(device, &count), 0);
    EXPECT_EQ(device + std::to_string(count), "/dev/hd/sda1");
    EXPECT_EQ(Numbers({fs_getgrp(), fs_earliest()}), "3 0");
}

TEST(LegacyDeathTest, EveryPlaceholderEndsTheProcessUnderItsOwnName)
{
    const struct {
        const char* name;
        void (*call)();
    } placeholders[] = {
#define ENTRY(name) {#name, name},
        IFS_LEGACY_REC_PLACEHOLDERS(ENTRY) IFS_LEGACY_FS_PLACEHOLDERS(ENTRY)
#undef ENTRY
    };
    EXPECT_EQ(std::size(placeholders), 31u + 60u);
    const auto end = [](void (*call)(), unsigned level) {
        dup2(STDERR_FILENO, STDOUT_FILENO); // what a death test looks at
        Ifsi_set_debug_level(level);
        call();
    };
    for (const auto& [name, call] : placeholders) {
        EXPECT_EXIT(end(call, IFS_DEBUG_LEGACY), testing::ExitedWithCode(1),
                    std::string("^\\[func:") + name + "\\]\\[line:[0-9]+\\]You must give implement\n$");
    }
    EXPECT_EXIT(end(rec_init, 0), testing::ExitedWithCode(1), "^$");
    EXPECT_EXIT(end(fs_format, ~static_cast<unsigned>(IFS_DEBUG_LEGACY)), testing::ExitedWithCode(1), "^$");
}
