#include <filesystem>

#include "tests/interface/card_test.h"

class Format : public CardTest
{
protected:
    void SetUp() override
    {
        CardTest::SetUp();
        ASSERT_EQ(Ifsi_umount(), 0);
    }

    /** What a format prints that shall fail. */
    static std::string Failing_format()
    {
        return Said(-1, [] { return Ifsi_format(); });
    }
    /** Standard output of a shell command. */
    std::string Run(const std::string& command)
    {
        return Printed([&] { EXPECT_EQ(system(command.c_str()), 0) << command; });
    }
};

TEST_F(Format, WritesThePartitionSector)
{
    Insert_blank(7948206080ULL, 2, 16);
    EXPECT_EQ(Ifsi_format(), 0);
    // Not bootable, first CHS, type, last CHS of 65,535 cylinders; first LBA 16, 15,523,824 sectors.
    EXPECT_EQ(Hex(Image(446, 16)), "00 01 01 00 0c 01 10 ff 10 00 00 00 f0 df ec 00\n");
}

TEST_F(Format, EmptiesTheCardAndSatisfiesFsckAndMdir)
{
    Mount();
    const std::string name = Record(At(10, 0));
    EXPECT_EQ(Printed([] { EXPECT_EQ(Ifsi_format(), -1); }), "");
    EXPECT_TRUE(Exists(name));
    ASSERT_EQ(Ifsi_umount(), 0);
    EXPECT_EQ(Ifsi_format(), 0);
    // A file with the partition's bytes: what a format writes at its beginning, behind it a hole.
    const std::string partition = m_folder + "/partition.img";
    Run("dd if=" + m_folder + "/card.img of=" + partition + " bs=32256 skip=1 count=40 status=none");
    std::filesystem::resize_file(partition, 15624906ULL * 512);
    EXPECT_TRUE(Holds(Run("mdir -i " + partition + " ::"), "No files"));
    const std::string judged = Run("fsck.fat -n " + partition + " 2>&1 || true");
    EXPECT_EQ(judged.substr(judged.find('\n') + 1), // behind the version
              "Label '' stored in boot sector is not valid.\n  Auto-removing label from boot sector.\n\n"
              "Leaving filesystem unchanged.\n" +
                  partition + ": 0 files, 1/122054 clusters\n");
    Mount();
    EXPECT_EQ(Counts(), "0 0");
    EXPECT_FALSE(Exists(name) || Exists("system_index_main"));
}

TEST_F(Format, NamesTheStepThatFailed)
{
    const auto fail = [](hostcard_call call, unsigned nth, const std::string& messages) {
        hostcard_fail_none();
        hostcard_fail(call, nth, EIO, 1);
        EXPECT_EQ(Failing_format(), messages);
    };
    const std::string no_partition = "(Input/output error)\nIfsf_fdisk Failed(/dev/hd/sda)\n";
    fail(HOSTCARD_OPENDIR, 1, "opendir (/dev/hd/) Failed\nIfsscs_scan_sd_card Failed1\n");
    fail(HOSTCARD_OPEN, 1, "open Failed(/dev/hd/sda)" + no_partition);
    fail(HOSTCARD_GET_GEOMETRY, 1, "HDIO_GETGEO Failed" + no_partition);
    fail(HOSTCARD_SEEK, 1, "lseek Failed" + no_partition);
    fail(HOSTCARD_WRITE, 1, "write Failed" + no_partition);
    fail(HOSTCARD_OPENDIR, 3, "opendir (/dev/hd/) Failed\nIfsscs_scan_sd_card Failed2\n");
    fail(HOSTCARD_OPEN, 3, "Open Failed(/dev/hd/sda1)(Input/output error)\nIfsf_format Failed\n");
    fail(HOSTCARD_SEEK, 2,
         "lseek Failed(Input/output error)\nIfsf_seek_and_write reserve Failed\nIfsf_format Failed\n");
    fail(HOSTCARD_SYNC, 2, "fsync Failed(Input/output error)\nIfsf_format Failed\n");

    const unsigned last_reserved = 1 + 32; // behind the partition sector
    const std::pair<unsigned, std::string> regions[] = {
        {0, "reserve"}, {1, "DBR"},  {2, "Reserve DBR"},         {3, "fsinfo"}, {4, "FAT1"}, {5, "FAT2"},
        {6, "FAT3"},    {7, "FAT4"}, {4 + 2 * 954 + 127, "ROOT"}};
    for (const auto& [further, region] : regions) {
        fail(HOSTCARD_WRITE, last_reserved + further,
             "write Failed(Input/output error)\nIfsf_seek_and_write " + region +
                 " Failed\nIfsf_format Failed\n");
    }
}

TEST_F(Format, WaitsAMinuteForThePartition)
{
    Ifsi_set_debug_level(IFS_DEBUG_ERROR | IFS_DEBUG_TRACE);
    EXPECT_EQ(Messages([] { Ifsi_format(); }), "fdisk OK!(0)\n");
    Insert_blank();
    hostcard_fail(HOSTCARD_REREAD, 1, EBUSY, 0);
    std::string expected;
    for (int left = 60; left >= 1; --left) {
        expected += "fdisk wait ready(" + std::to_string(left) + ")...\n";
    }
    EXPECT_EQ(Failing_format(), expected +
                                    "fdisk Time out\nOpen Failed(/dev/hd/sda1)(No such file or directory)\n"
                                    "Ifsf_format Failed\n");
}

TEST_F(Format, RefusesGeometriesAndSizesItCannotUse)
{
    Insert_blank(8000000000ULL, 1, 63);
    EXPECT_EQ(Failing_format(), "Invalid hdd parameter(1)(63)(65535)\nIfsf_fdisk Failed(/dev/hd/sda)\n");
    EXPECT_EQ(Image(0, 512), std::string(512, '\0'));
    Insert_blank();
    hostcard_fail(HOSTCARD_GET_SIZE64, 1, EIO, 0);
    hostcard_fail(HOSTCARD_GET_SIZE, 1, EIO, 0);
    EXPECT_EQ(Failing_format(), "SCFSC_get_dev_size Failed\nIfsf_fdisk Failed(/dev/hd/sda)\n");
    hostcard_fail_none();
    hostcard_fail(HOSTCARD_GET_SIZE64, 1, EIO, 0);
    EXPECT_EQ(Said(0, [] { return Ifsi_format(); }), "");
}
