/** Formatting a card. */
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <memory>

#include "bench/bench.h"
#include "bench/card.h"
#include "bench/media.h"
#include "ifs.h"

namespace bench
{
namespace
{

using Sector = std::array<unsigned char, 512>;

constexpr char DISK[] = "/dev/hd/sda";
constexpr char PARTITION[] = "/dev/hd/sda1";
constexpr unsigned RESERVED_SECTORS = 32;
constexpr unsigned ROOT_SECTORS = 128;

/** A device of the inserted card. */
class Device
{
public:
    explicit Device(const char* path) : m_fd(open(path, O_RDWR))
    {
        Require(m_fd >= 0, "cannot open a device");
    }
    ~Device()
    {
        fsync(m_fd);
        close(m_fd);
    }
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    Sector Read(off_t number) const
    {
        Sector sector;
        Require(pread(m_fd, sector.data(), sector.size(), number * off_t{512}) == ssize_t{512},
                "cannot read a sector");
        return sector;
    }

    void Write(off_t number, const Sector& sector) const
    {
        Require(lseek(m_fd, number * off_t{512}, SEEK_SET) >= 0 &&
                    write(m_fd, sector.data(), sector.size()) == ssize_t{512},
                "cannot write a sector");
    }

private:
    int m_fd;
};

/** The writes and syncs of a format, on a formatted card, of what is there. */
void Write_sectors()
{
    constexpr size_t FAT_SECTORS = 36; // in the boot record
    const Sector zero{};
    {
        const Device disk(DISK);
        disk.Write(0, disk.Read(0));
    }
    const Device partition(PARTITION);
    const Sector boot = partition.Read(0), fsinfo = partition.Read(1), fat = partition.Read(RESERVED_SECTORS);
    const off_t fat_sectors = boot[FAT_SECTORS] | boot[FAT_SECTORS + 1] << 8 | boot[FAT_SECTORS + 2] << 16;
    for (off_t i = 0; i < RESERVED_SECTORS; ++i) {
        partition.Write(i, zero);
    }
    partition.Write(0, boot);
    partition.Write(6, boot);
    partition.Write(1, fsinfo);
    for (off_t i = 0; i < fat_sectors; ++i) {
        const Sector& sector = i == 0 ? fat : zero;
        partition.Write(RESERVED_SECTORS + i, sector);
        partition.Write(RESERVED_SECTORS + fat_sectors + i, sector);
    }
    for (off_t i = 0; i < ROOT_SECTORS; ++i) {
        partition.Write(RESERVED_SECTORS + 2 * fat_sectors + i, zero);
    }
}

} // namespace

void Register_format(const Folders& folders)
{
    for (const int gigabytes : {8, 128}) {
        const int iterations = gigabytes < 100 ? 40 : 10;
        const auto card = [=] {
            return std::make_shared<Card>(folders.memory + "/format" + std::to_string(gigabytes),
                                          gigabytes * 1000000000ull);
        };
        Register("format", "format", Role::OURS, gigabytes, iterations, [=]() -> Run {
            return [inserted = card()] {
                return Seconds([] { Require(Ifsi_format() == 0, "cannot format the card"); });
            };
        });
        Register("format", "format", Role::LIMIT, gigabytes, iterations,
                 [=]() -> Run { return [inserted = card()] { return Seconds(Write_sectors); }; });
    }
}

} // namespace bench
