#include "recfile/rec_file.h"
#include "tests/support.h"
#include "util/shared_word.h"

namespace
{

_rec_file_info_ Worked_example()
{
    _rec_file_info_ info{};
    info.info_mask = REC_INFO_NAME;
    info.rec.start_tm = Utc(2019, 10, 12, 17, 17, 23);
    info.rec.video_res = 6;
    info.rec.video_system = 1;
    info.rec.stream_type = IFS_STREAM_SUB;
    return info;
}

/** The name that is built of a description, and what is printed. */
std::string Built(const _rec_file_info_& info)
{
    std::string name;
    const std::string printed = Messages([&] { CIpcRecFile::SIrf_build_media_fn(name, &info); });
    return name + printed;
}

bool Parses(const std::string& name)
{
    _rec_file_info_ info{};
    info.info_mask = REC_INFO_NAME;
    const bool parses = CIpcRecFile::SIrf_get_rec_info(name, &info) == 0;
    EXPECT_EQ(CIpcRecFile::SIrf_is_media_fn(name) == 0, parses) << name;
    return parses;
}

} // namespace

TEST(RecFileName, IsBuiltAndReadBack)
{
    _rec_file_info_ info = Worked_example();
    const std::string name = "Rec_20191012_171723_061_S.mp4";
    EXPECT_EQ(Built(info), name);
    EXPECT_TRUE(Parses(name));
    EXPECT_EQ(CIpcRecFile::SIrf_is_index_fn(name), -1);
    _rec_file_info_ parsed{};
    parsed.info_mask = REC_INFO_NAME;
    CIpcRecFile::SIrf_get_rec_info(name, &parsed);
    EXPECT_EQ(Built(parsed), name);

    info.rec.video_res = 100; // not read back
    info.rec.stream_type = static_cast<_ifs_stream_type_>(2);
    EXPECT_EQ(Built(info), "Rec_20191012_171723_1001_.mp4Invalid stream type(2)\n");
    info.info_mask = REC_INFO_NAME & ~REC_INFO_STREAM_TYPE;
    EXPECT_EQ(Built(info), "Rec_20191012_171723_1001.mp4There is no stream type\n");
    info.info_mask = REC_INFO_START_TIME | REC_INFO_VIDEO_RES;
    EXPECT_EQ(Built(info), "Rec_20191012_171723.mp4There is no resolution or tv system\n");
    info.info_mask = 0;
    EXPECT_EQ(Built(info), "Rec.mp4There is no start time\n");
}

TEST(RecFileName, RefusesWhatIsNoRecordFile)
{
    for (const char* name :
         {"", "Rec", "Rec_20191012_171723", "Rec_20191012_171723_061", "Rec_20191012_171723_061_M",
          "Rec_20191012_171723_061_M.MP4", "Rec_20191012_171723_061_M.mp4.bak",
          "Rec_20191012_171723.061_M.mp4", "Rec_2019101a_171723_061_M.mp4", "Rec_20191012_17172a_061_M.mp4",
          "Rec_20191012_171723_0x1_M.mp4", "Rec_20191012_171723_061_X.mp4", "Rec_20191012_171723_1001_M.mp4",
          "rec_20191012_171723_061_M.mp4"}) {
        EXPECT_FALSE(Parses(name)) << name;
    }
    EXPECT_TRUE(Parses("RecX20191012-171723+061xM.mp4")); // separators are not looked at, ranges neither
    _rec_file_info_ info{};
    info.info_mask = REC_INFO_NAME | REC_INFO_END_TIME;
    EXPECT_EQ(CIpcRecFile::SIrf_get_rec_info("Rec_20191312_251723_061_M.mp4", &info), -1)
        << "names have no end";
    EXPECT_EQ(Text(info.rec.start_tm), "2019-13-12 25:17:23");

    Store_shared(gIfs_file_type, 1); // foreign
    EXPECT_EQ(Built(Worked_example()), "Rec_20191012_171723_061_S");
    EXPECT_FALSE(Parses("Rec_20191012_171723_061_M.mp4"));
    Store_shared(gIfs_file_type, 0);
}

TEST(RecFileName, DigitsEndAtTheTerminator)
{
    int value = -1;
    EXPECT_EQ(Get_value("12", 3, &value), 0u);
    EXPECT_EQ(value, 12);
    EXPECT_EQ(Is_digital_string("12", 3), 0u);
    EXPECT_EQ(Is_digital_string("x", 0), 1u);
    EXPECT_EQ(Is_sub_string("Re", "Rec"), 0u);
    EXPECT_EQ(Is_sub_string("Rec", ""), 1u);
}
