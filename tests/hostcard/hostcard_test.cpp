#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <linux/fs.h>
#include <linux/magic.h>
#include <map>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "hostcard/hostcard.h"
#include "tests/support.h"

namespace
{

namespace fs = std::filesystem;

constexpr unsigned long long card_bytes = 40ull << 20;
constexpr unsigned first_lba = 63, sector_count = 70000;
constexpr long long cluster_bytes = 4096;
constexpr off_t partition_bytes = off_t{sector_count} * 512;

/** Errno of a call that failed, 0 of one that did not. */
int failure(long long result)
{
    return result < 0 ? errno : 0;
}

std::vector<std::string> names_in(const char* path)
{
    std::vector<std::string> names;
    DIR* dir = opendir(path);
    while (struct dirent* entry = readdir(dir))
        if (entry->d_name[0] != '.')
            names.push_back(entry->d_name);
    closedir(dir);
    return names;
}

class HostCard : public ::testing::Test
{
protected:
    HostCard()
    {
        EXPECT_EQ(hostcard_create(m_card.c_str(), card_bytes, 16, 63), 0);
        EXPECT_EQ(hostcard_insert(m_card.c_str()), 0);
    }
    ~HostCard() override
    {
        hostcard_eject();
        fs::remove_all(m_folder);
    }

    /** Write a partition table through the device and let it be read. */
    static int partition(unsigned first, unsigned count)
    {
        unsigned char table[512] = {};
        table[450] = 0x0C;
        std::memcpy(table + 454, &first, sizeof first); // every processor that this runs on is little-endian
        std::memcpy(table + 458, &count, sizeof count);
        table[510] = 0x55;
        table[511] = 0xAA;
        const int fd = open("/dev/hd/sda", O_RDWR);
        const bool written = write(fd, table, sizeof table) == sizeof table;
        const int result = ioctl(fd, BLKRRPART);
        close(fd);
        return written ? result : -1;
    }

    void make_file_system() const
    {
        ASSERT_EQ(partition(first_lba, sector_count), 0);
        const std::string command = "mkfs.fat -F 32 -s 8 --offset " + std::to_string(first_lba) + " " +
                                    m_card + "/card.img " + std::to_string(sector_count / 2) +
                                    " > /dev/null 2>&1";
        ASSERT_EQ(std::system(command.c_str()), 0);
    }

    static int mount_card(const char* device = "/dev/hd/sda1")
    {
        return mount(device, hostcard_mount_point(), "vfat", MS_NOATIME, "errors=continue");
    }

    static std::string on_card(const char* name) { return std::string(hostcard_mount_point()) + "/" + name; }

    static long long free_clusters()
    {
        struct statfs sizes = {};
        return statfs(hostcard_mount_point(), &sizes) == 0 ? static_cast<long long>(sizes.f_bfree) : -1;
    }

    /** @return bytes written, or -1 */
    static ssize_t write_file(const char* name, size_t size)
    {
        const std::vector<char> bytes(size, 'x');
        const int fd = open(on_card(name).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
        const ssize_t done = write(fd, bytes.data(), size);
        close(fd);
        return done;
    }

    const std::string m_folder = [] {
        char name[] = "/tmp/hostcard-XXXXXX";
        return std::string(mkdtemp(name));
    }();
    const std::string m_card = m_folder + "/card";
};

TEST_F(HostCard, RefusesFoldersThatAreNoCard)
{
    EXPECT_EQ(failure(hostcard_create(m_card.c_str(), card_bytes, 16, 63)), EEXIST);
    EXPECT_EQ(failure(hostcard_create((m_folder + "/b").c_str(), card_bytes, 256, 63)), EINVAL);
    EXPECT_EQ(failure(hostcard_create((m_folder + "/b").c_str(), 1ull << 63, 1, 1)), EINVAL);
    EXPECT_FALSE(fs::exists(m_folder + "/b"));
    EXPECT_EQ(failure(hostcard_insert(m_card.c_str())), EBUSY);
    hostcard_eject();
    EXPECT_EQ(failure(hostcard_insert(m_folder.c_str())), ENODEV);
    EXPECT_EQ(failure(open("/dev/hd/sda", O_RDONLY)), ENOENT);
    std::ofstream(m_card + "/card.conf") << "heads 0 sectors 99999999999";
    EXPECT_EQ(failure(hostcard_insert(m_card.c_str())), EINVAL);
}

TEST_F(HostCard, PartitionAppearsWhenTheTableIsReread)
{
    EXPECT_EQ(names_in("/dev/hd"), std::vector<std::string>{"sda"});
    EXPECT_EQ(failure(open("/dev/hd/sda1", O_RDWR)), ENOENT);
    ASSERT_EQ(partition(first_lba, 0xFFFFFFFF), 0); // cut at the end of the card
    EXPECT_EQ(names_in("/dev/hd/"), (std::vector<std::string>{"sda", "sda1"}));
    const int fd = open("/dev/hd/sda1", O_RDWR);
    EXPECT_EQ(lseek(fd, 0, SEEK_END), static_cast<off_t>(card_bytes - first_lba * 512ull));
    EXPECT_EQ(failure(partition(first_lba, 1)), EBUSY);
    close(fd);
    ASSERT_EQ(partition(0xFFFFFF00, 0x1000), 0);
    EXPECT_EQ(failure(open("/dev/hd/sda1", O_RDWR)), ENOENT);
}

TEST_F(HostCard, PartitionIsAWindowOfTheDisk)
{
    ASSERT_EQ(partition(first_lba, sector_count), 0);
    const int disk = open("/dev/hd/sda", O_RDWR | O_TRUNC), part = open("/dev/hd/sda1", O_RDWR);
    char bytes[8] = "";
    EXPECT_EQ(lseek64(part, partition_bytes - 4, SEEK_SET), partition_bytes - 4);
    EXPECT_EQ(write(part, "12345678", 8), 4);
    EXPECT_EQ(lseek(part, 0, SEEK_CUR), partition_bytes);
    EXPECT_EQ(failure(write(part, "5", 1)), ENOSPC);
    EXPECT_EQ(read(part, bytes, 8), 0);
    EXPECT_EQ(failure(lseek(part, 1, SEEK_CUR)), EINVAL);
    EXPECT_EQ(failure(lseek(part, -1, SEEK_SET)), EINVAL);
    EXPECT_EQ(pread(disk, bytes, 8, first_lba * 512l + partition_bytes - 4), 8);
    EXPECT_EQ(std::string(bytes, 8), std::string("1234\0\0\0\0", 8));

    unsigned long sectors = 0;
    struct stat status = {};
    EXPECT_EQ(ioctl(part, BLKGETSIZE, &sectors), 0);
    EXPECT_EQ(sectors, sector_count);
    EXPECT_EQ(failure(ioctl(part, BLKRRPART)), EINVAL);
    EXPECT_EQ(fstat(part, &status), 0);
    EXPECT_TRUE(S_ISBLK(status.st_mode));
    close(disk);
    close(part);
}

TEST_F(HostCard, MountsOnlyAFat32)
{
    ASSERT_EQ(failure(mount_card()), ENOENT);
    make_file_system();
    EXPECT_EQ(failure(mount_card("/dev/hd/sda")), EINVAL);
    EXPECT_EQ(failure(mount("/dev/hd/sda1", "/tmp", "vfat", 0, nullptr)), EINVAL);
    EXPECT_EQ(failure(umount(hostcard_mount_point())), EINVAL);
    const int image = open((m_card + "/card.img").c_str(), O_RDWR);
    const std::map<unsigned, unsigned char> faults = {{11, 3}, {13, 3},    {14, 0}, {16, 0}, {21, 3},
                                                      {22, 1}, {35, 0xFF}, {36, 0}, {44, 0}, {510, 0}};
    for (const auto& [offset, value] : faults) {
        const off_t at = first_lba * 512l + offset;
        unsigned char sound = 0;
        ASSERT_EQ(pread(image, &sound, 1, at), 1);
        ASSERT_EQ(pwrite(image, &value, 1, at), 1);
        EXPECT_EQ(failure(mount_card()), EINVAL) << offset;
        ASSERT_EQ(pwrite(image, &sound, 1, at), 1);
    }
    close(image);
    EXPECT_EQ(mount_card(), 0);
    EXPECT_EQ(failure(mount_card()), EBUSY);
    EXPECT_EQ(failure(partition(first_lba, 1)), EBUSY);
}

TEST_F(HostCard, UnmountedCardTakesNoFilesAndKeepsItsOwn)
{
    make_file_system();
    EXPECT_EQ(failure(write_file("early", 1)), EBADF);
    const std::string alias = m_card + "//files/";
    ASSERT_EQ(mount("/dev/hd/sda1", alias.c_str(), "vfat", 0, nullptr), 0);
    EXPECT_EQ(write_file("kept", 10), 10);
    const int fd = open((alias + "kept").c_str(), O_RDONLY);
    EXPECT_GE(fd, 0);
    EXPECT_EQ(failure(umount(alias.c_str())), EBUSY);
    close(fd);
    EXPECT_EQ(umount(alias.c_str()), 0);
    EXPECT_TRUE(names_in(hostcard_mount_point()).empty());
    EXPECT_EQ(failure(remove((alias + "kept").c_str())), ENOENT);
    EXPECT_EQ(free_clusters(), -1);
    ASSERT_EQ(mount_card(), 0);
    EXPECT_EQ(names_in(hostcard_mount_point()), std::vector<std::string>{"kept"});
}

TEST_F(HostCard, FullCardRefusesFurtherClusters)
{
    make_file_system();
    ASSERT_EQ(mount_card(), 0);
    struct statfs sizes = {};
    ASSERT_EQ(statfs(hostcard_mount_point(), &sizes), 0);
    EXPECT_EQ(sizes.f_type, MSDOS_SUPER_MAGIC);
    const long long free = free_clusters();
    const size_t most = static_cast<size_t>(free - 1) * cluster_bytes;
    EXPECT_EQ(write_file("a", most), static_cast<ssize_t>(most));
    EXPECT_EQ(write_file("b", 2 * cluster_bytes), cluster_bytes); // what fits, as a kernel does
    EXPECT_EQ(failure(write_file("c", 1)), ENOSPC);
    EXPECT_EQ(write_file("b", 1), 1);
    EXPECT_EQ(remove(on_card("a").c_str()), 0);
    EXPECT_EQ(write_file("c", 2 * cluster_bytes), 2 * cluster_bytes);
    EXPECT_EQ(free_clusters(), free - 3);
    const int fd = open(on_card("c").c_str(), O_WRONLY);
    EXPECT_EQ(lseek64(fd, 0xFFFFFFFF, SEEK_SET), 0xFFFFFFFF);
    EXPECT_EQ(failure(write(fd, "x", 1)), EFBIG);
    EXPECT_EQ(failure(ftruncate(fd, free * cluster_bytes)), ENOSPC);
    EXPECT_EQ(ftruncate(fd, 0), 0);
    EXPECT_EQ(free_clusters(), free - 1);
    close(fd);
    hostcard_set_free(10 * cluster_bytes + 1);
    EXPECT_EQ(free_clusters(), 10);
}

// The tests of the library, which have many calls fail, depend on the rest of the scripts.
TEST_F(HostCard, ScriptedFaultsCountHalveATransferAndReleaseWhatIsClosed)
{
    const int fd = open("/dev/hd/sda", O_RDWR);
    char bytes[8];
    hostcard_fail(HOSTCARD_READ, 1, 0, 1);
    EXPECT_EQ(read(fd, bytes, 8), 4);
    EXPECT_EQ(read(fd, bytes, 8), 8);
    hostcard_fail(HOSTCARD_READ, 1, ENODEV, 1);
    EXPECT_EQ(failure(read(fd, bytes, 8)), ENODEV);
    EXPECT_EQ(hostcard_count(HOSTCARD_READ), 3u);
    hostcard_fail(HOSTCARD_CLOSE, 1, EIO, 1);
    EXPECT_EQ(failure(close(fd)), EIO);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1); // released all the same
    EXPECT_EQ(close(open("/", O_RDONLY)), 0);
    EXPECT_EQ(hostcard_count(HOSTCARD_OPEN), 1u); // no use on the card
}

TEST_F(HostCard, PulledCardFailsInEveryThread)
{
    make_file_system();
    ASSERT_EQ(mount_card(), 0);
    const int fd = open(on_card("a").c_str(), O_RDWR | O_CREAT, 0666);
    std::thread writers[3];
    for (std::thread& writer : writers)
        writer = std::thread([fd, path = on_card("a")] {
            struct statfs sizes = {};
            while (write(fd, "x", 1) == 1)
                statfs(path.c_str(), &sizes);
            EXPECT_EQ(errno, EIO);
        });
    while (hostcard_count(HOSTCARD_WRITE) < 100)
        std::this_thread::yield();
    hostcard_eject();
    for (std::thread& writer : writers)
        writer.join();
    EXPECT_EQ(close(fd), 0);
    EXPECT_EQ(hostcard_insert(m_card.c_str()), 0);
}

} // namespace
