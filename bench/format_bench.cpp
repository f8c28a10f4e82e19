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

using Sector = std::array<char, 512>;

constexpr char DISK[] = "/dev/hd/sda";
constexpr char PARTITION[] = "/dev/hd/sda1";
constexpr unsigned RESERVED_SECTORS = 32;
constexpr unsigned ROOT_SECTORS = 128;

/** The sectors of a FAT, from the boot record of the formatted card. */
unsigned Fat_sectors(int partition)
{
    constexpr size_t AT = 36;
    std::array<unsigned char, 512> boot;
    Require(pread(partition, boot.data(), boot.size(), 0) == static_cast<ssize_t>(boot.size()),
            "cannot read the boot record");
    return boot[AT] | boot[AT + 1] << 8 | boot[AT + 2] << 16 | static_cast<unsigned>(boot[AT + 3]) << 24;
}

void Write_sector(int fd, off_t sector_number)
{
    static const Sector zero{};
    Require(lseek(fd, sector_number * 512, SEEK_SET) >= 0 &&
                write(fd, zero.data(), zero.size()) == static_cast<ssize_t>(zero.size()),
            "cannot write a sector");
}

/** The writes of a format, each a sector: reserved ones, both FATs in step, the root directory; and both
 * syncs. */
void Write_sectors()
{
    const int disk = open(DISK, O_RDWR);
    Require(disk >= 0, "cannot open the card");
    fsync(disk);
    close(disk);
    const int partition = open(PARTITION, O_RDWR);
    Require(partition >= 0, "cannot open the partition");
    const unsigned fat_sectors = Fat_sectors(partition);
    for (unsigned i = 1; i < RESERVED_SECTORS; ++i) {
        Write_sector(partition, i);
    }
    for (unsigned i = 0; i < fat_sectors; ++i) {
        Write_sector(partition, RESERVED_SECTORS + i);
        Write_sector(partition, static_cast<off_t>(RESERVED_SECTORS) + fat_sectors + i);
    }
    for (unsigned i = 0; i < ROOT_SECTORS; ++i) {
        Write_sector(partition, RESERVED_SECTORS + off_t{2} * fat_sectors + i);
    }
    fsync(partition);
    close(partition);
}

} // namespace

void Register_format(const Folders& folders)
{
    for (const int gigabytes : {8, 128}) {
        const auto card = [=] {
            return std::make_shared<Card>(folders.memory + "/format" + std::to_string(gigabytes),
                                          gigabytes * 1000000000ull);
        };
        Register(8, "format", Role::OURS, gigabytes, 10, [=]() -> Run {
            return [inserted = card()] {
                return Seconds([] { Require(Ifsi_format() == 0, "cannot format the card"); });
            };
        });
        Register(8, "format", Role::LIMIT, gigabytes, 10,
                 [=]() -> Run { return [inserted = card()] { return Seconds(Write_sectors); }; });
    }
}

} // namespace bench
