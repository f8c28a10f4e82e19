#include "store/rec_file_list.h"

#include "store/ifsdirectoryscaner.h"
#include "store/index_item.h"
#include "tests/support.h"

TEST(Catalogue, DumpsAnEntryWithItsDefaults)
{
    _ifs_rec_file_ rec;
    Ifs_rec_file_info_init(&rec);
    EXPECT_EQ(Messages([&] { Ifs_print_rec_file_info(nullptr, 7, &rec); }),
              "\n\n#(, 7)########################################\n"
              "stream type:main\n"
              "start time:1900-01-00 00:00:00\n"
              "end time:1900-01-00 00:00:00\n"
              "resolution(255):-1 * -1\n"
              "frame rate:255\n"
              "have audio:0\n"
              "audio profile:0\n"
              "audio sample rate index:0\n"
              "audio channel conf:0\n"
              "file size:-1\n"
              "#########################################\n\n\n");
}

TEST(Catalogue, KeepsAnEntryThroughItsImageOnTheCard)
{
    const std::string image = Bytes(R"(
        17 00 00 00 11 00 00 00 11 00 00 00 0c 00 00 00   # start: 23 s, 17 min, 17 h, 12th
        09 00 00 00 77 00 00 00 00 00 00 00 00 00 00 00   # October, 2019, day of week, of year
        00 00 00 00 f0 f1 ff ff 00 00 00 00               # daylight saving, offset, zone word
        17 00 00 00 12 00 00 00 11 00 00 00 0c 00 00 00   # end
        09 00 00 00 77 00 00 00 00 00 00 00 00 00 00 00
        00 00 00 00 00 00 00 00 00 00 00 00
        06 01 19 00                                       # codes, frame rate, reserved
        01 00 00 00 00 05 00 00 d0 02 00 00               # stream, width, height
        01 00 00 00 02 00 00 00 0b 00 00 00 03 00 00 00   # audio
        fe ff ff ff                                       # file size
    )");
    const _ifs_rec_file_ rec = Ifs_get_index_item(reinterpret_cast<const unsigned char*>(image.data()));
    EXPECT_EQ(Text(rec.start_tm) + Text(rec.end_tm), "2019-10-12 17:17:232019-10-12 17:18:23");
    EXPECT_EQ(Numbers({rec.start_tm.tm_gmtoff, rec.video_res, rec.video_system, rec.frame_rate,
                       rec.stream_type, rec.width, rec.height, rec.have_audio, rec.audio_profile,
                       rec.audio_sample_rate_index, rec.audio_channel_conf, rec.file_size}),
              "-3600 6 1 25 1 1280 720 1 2 11 3 -2");
    std::string again(IFS_ITEM_BYTES, '\xee');
    Ifs_put_index_item(rec, reinterpret_cast<unsigned char*>(again.data()));
    EXPECT_EQ(Hex(again), Hex(image));
}

TEST(DirectoryWalk, StopsAsTheCallbackAnswers)
{
    const auto walk = [](int answer) {
        int calls = 0;
        const int result = Ifsdc_scan_directory(
            "/proc/self",
            [&](const char*, const char*, void*) {
                return ++calls, static_cast<_scan_dir_operation_>(answer);
            },
            nullptr);
        return Numbers({result, calls > 1});
    };
    EXPECT_EQ(walk(SCAN_DIR_CONTINUE), "0 1");
    EXPECT_EQ(walk(SCAN_DIR_BREAK), "0 0");
    EXPECT_EQ(walk(SCAN_DIR_ERROR), "1 0");
    EXPECT_EQ(walk(99), "0 0");
    EXPECT_EQ(Ifsdc_scan_directory(nullptr, {}, nullptr), 1);
    EXPECT_EQ(Messages([] { EXPECT_EQ(Ifsdc_scan_directory("/nowhere", {}, nullptr), 1); }),
              "opendir(/nowhere) Failed(No such file or directory)\n");
}
