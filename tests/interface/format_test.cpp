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

    /** Replace the inserted card by a blank one. */
    void Insert_blank(unsigned long long bytes, unsigned heads, unsigned sectors)
    {
        hostcard_eject();
        std::filesystem::remove_all(m_folder);
        ASSERT_EQ(hostcard_create(m_folder.c_str(), bytes, heads, sectors), 0);
        ASSERT_EQ(hostcard_insert(m_folder.c_str()), 0);
        hostcard_scale_sleep(0.001);
        m_files = hostcard_mount_point();
    }
    /** Standard output of a shell command. */
    std::string Run(const std::string& command)
    {
        return Printed([&] { EXPECT_EQ(system(command.c_str()), 0) << command; });
    }
    /** A file with the partition's bytes: what a format writes at its beginning, behind it a hole. */
    std::string Partition_file()
    {
        const std::string path = m_folder + "/partition.img";
        Run("dd if=" + m_folder + "/card.img of=" + path + " bs=32256 skip=1 count=40 status=none");
        std::filesystem::resize_file(path, 15624906ULL * 512);
        return path;
    }
};

TEST_F(Format, WritesThePartitionSector)
{
    Insert_blank(7948206080ULL, 2, 16);
    EXPECT_EQ(Ifsi_format(), 0);
    EXPECT_EQ(Hex(Image(0, 512)), Hex(std::string(435, '\0') + Bytes(R"(
        56 65 6c 74 72 6f 73 61 6e 00 00    # "Veltrosan"
        00  01 01 00  0c  01 10 ff          # not bootable, first CHS, type, last CHS of 65,535 cylinders
        10 00 00 00  f0 df ec 00            # first LBA 16, 15,523,824 sectors
    )") + std::string(48, '\0') + Bytes("55 aa")));
}

TEST_F(Format, EmptiesTheCardAndSatisfiesFsckAndMdir)
{
    Mount();
    const std::string name = Record(At(10, 0));
    EXPECT_EQ(Printed([] { EXPECT_EQ(Ifsi_format(), -1); }), "");
    EXPECT_TRUE(Exists(name));
    ASSERT_EQ(Ifsi_umount(), 0);
    EXPECT_EQ(Ifsi_format(), 0);
    const std::string partition = Partition_file();
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
    struct Step {
        hostcard_call call;
        unsigned nth;
        const char* messages;
    };
    const unsigned first_sector = 2; // behind the partition sector
    const Step steps[] = {
        {HOSTCARD_OPENDIR, 1, "opendir (/dev/hd/) Failed\nIfsscs_scan_sd_card Failed1\n"},
        {HOSTCARD_OPEN, 1, "open Failed(/dev/hd/sda)(Input/output error)\nIfsf_fdisk Failed(/dev/hd/sda)\n"},
        {HOSTCARD_GET_GEOMETRY, 1,
         "HDIO_GETGEO Failed(Input/output error)\nIfsf_fdisk Failed(/dev/hd/sda)\n"},
        {HOSTCARD_SEEK, 1, "lseek Failed(Input/output error)\nIfsf_fdisk Failed(/dev/hd/sda)\n"},
        {HOSTCARD_WRITE, 1, "write Failed(Input/output error)\nIfsf_fdisk Failed(/dev/hd/sda)\n"},
        {HOSTCARD_OPENDIR, 3, "opendir (/dev/hd/) Failed\nIfsscs_scan_sd_card Failed2\n"},
        {HOSTCARD_OPEN, 3, "Open Failed(/dev/hd/sda1)(Input/output error)\nIfsf_format Failed\n"},
        {HOSTCARD_SEEK, 2,
         "lseek Failed(Input/output error)\nIfsf_seek_and_write reserve Failed\n"
         "Ifsf_format Failed\n"},
        {HOSTCARD_SYNC, 2, "fsync Failed(Input/output error)\nIfsf_format Failed\n"},
        {HOSTCARD_WRITE, first_sector + 31, "reserve"},
        {HOSTCARD_WRITE, first_sector + 32, "DBR"},
        {HOSTCARD_WRITE, first_sector + 33, "Reserve DBR"},
        {HOSTCARD_WRITE, first_sector + 34, "fsinfo"},
        {HOSTCARD_WRITE, first_sector + 35, "FAT1"},
        {HOSTCARD_WRITE, first_sector + 36, "FAT2"},
        {HOSTCARD_WRITE, first_sector + 37, "FAT3"},
        {HOSTCARD_WRITE, first_sector + 38, "FAT4"},
        {HOSTCARD_WRITE, first_sector + 35 + 2 * 954 + 127, "ROOT"},
    };
    for (const Step& step : steps) {
        hostcard_fail_none();
        hostcard_fail(step.call, step.nth, EIO, 1);
        std::string expected = step.messages;
        if (expected.back() != '\n') {
            expected = "write Failed(Input/output error)\nIfsf_seek_and_write " + expected +
                       " Failed\nIfsf_format Failed\n";
        }
        EXPECT_EQ(Said(-1, [] { return Ifsi_format(); }), expected);
    }
}

TEST_F(Format, WaitsAMinuteForThePartition)
{
    Ifsi_set_debug_level(IFS_DEBUG_ERROR | IFS_DEBUG_TRACE);
    const std::string first = Messages([] { Ifsi_format(); });
    EXPECT_EQ(first, "fdisk OK!(0)\n");
    Insert_blank(8000000000ULL, 255, 63);
    hostcard_fail(HOSTCARD_REREAD, 1, EBUSY, 0);
    std::string expected;
    for (int left = 60; left >= 1; --left) {
        expected += "fdisk wait ready(" + std::to_string(left) + ")...\n";
    }
    EXPECT_EQ(Said(-1, [] { return Ifsi_format(); }),
              expected + "fdisk Time out\nOpen Failed(/dev/hd/sda1)(No such file or directory)\n"
                         "Ifsf_format Failed\n");
}

TEST_F(Format, RefusesGeometriesAndSizesItCannotUse)
{
    Insert_blank(8000000000ULL, 1, 63);
    EXPECT_EQ(Said(-1, [] { return Ifsi_format(); }),
              "Invalid hdd parameter(1)(63)(65535)\nIfsf_fdisk Failed(/dev/hd/sda)\n");
    EXPECT_EQ(Image(0, 512), std::string(512, '\0'));
    Insert_blank(8000000000ULL, 255, 63);
    hostcard_fail(HOSTCARD_GET_SIZE64, 1, EIO, 0);
    hostcard_fail(HOSTCARD_GET_SIZE, 1, EIO, 0);
    EXPECT_EQ(Said(-1, [] { return Ifsi_format(); }),
              "SCFSC_get_dev_size Failed\nIfsf_fdisk Failed(/dev/hd/sda)\n");
    hostcard_fail_none();
    hostcard_fail(HOSTCARD_GET_SIZE64, 1, EIO, 0);
    EXPECT_EQ(Said(0, [] { return Ifsi_format(); }), "");
}
