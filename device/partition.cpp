#include "device/partition.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

#include "device/card_scan.h"
#include "device/os_adapter.h"
#include "device/owned.h"
#include "util/little_endian.h"
#include "util/log.h"

namespace
{

constexpr size_t k_sector_bytes = 512;
constexpr unsigned long long k_largest_refused_bytes = 63 * k_sector_bytes;
constexpr int k_wait_attempts = 60;

constexpr char k_marker[] = "Veltrosan";

/* Offsets in the partition sector. */
enum {
    MBR_MARKER = 435,
    MBR_ENTRY_1 = 446,
    MBR_SIGNATURE = 510,
};

/* Offsets in a partition entry; a CHS address is head, sector with cylinder bits 8-9, cylinder bits 0-7. */
enum {
    ENTRY_STATUS = 0,
    ENTRY_FIRST_CHS = 1,
    ENTRY_TYPE = 4,
    ENTRY_LAST_CHS = 5,
    ENTRY_FIRST_LBA = 8,
    ENTRY_SECTORS = 12,
};

constexpr unsigned char k_type_fat32_lba = 0x0C;

using Sector = std::array<unsigned char, k_sector_bytes>;

void Put_chs(unsigned char* at, unsigned head, unsigned sector, unsigned cylinder_low)
{
    at[0] = static_cast<unsigned char>(head);
    at[1] = static_cast<unsigned char>(sector);
    at[2] = static_cast<unsigned char>(cylinder_low);
}

/** Sectors from the second track to the last whole heads x sectors bytes of the card. */
uint32_t Partition_sectors(const hd_geometry& geometry, unsigned long long dev_bytes)
{
    const unsigned long long unit = static_cast<unsigned long long>(geometry.heads) * geometry.sectors;
    const unsigned long long aligned_bytes = dev_bytes / unit * unit;
    return static_cast<uint32_t>(aligned_bytes / k_sector_bytes - geometry.sectors);
}

Sector Build_partition_sector(const hd_geometry& geometry, unsigned long long dev_bytes)
{
    Sector sector{};
    memcpy(&sector[MBR_MARKER], k_marker, sizeof k_marker);
    unsigned char* entry = &sector[MBR_ENTRY_1];
    entry[ENTRY_STATUS] = 0;
    Put_chs(entry + ENTRY_FIRST_CHS, 1, 1, 0);
    entry[ENTRY_TYPE] = k_type_fat32_lba;
    Put_chs(entry + ENTRY_LAST_CHS, geometry.heads - 1u, geometry.sectors, geometry.cylinders);
    Put_le32(entry + ENTRY_FIRST_LBA, geometry.sectors);
    Put_le32(entry + ENTRY_SECTORS, Partition_sectors(geometry, dev_bytes));
    sector[MBR_SIGNATURE] = 0x55;
    sector[MBR_SIGNATURE + 1] = 0xAA;
    return sector;
}

bool Partition_opens()
{
    std::string dev;
    if (Ifsscs_scan_sd_card(dev) != 0) {
        return false;
    }
    return Owned_fd(open((dev + "1").c_str(), O_RDWR | O_CLOEXEC)).valid();
}

} // namespace

int Ifsf_fdisk(const char* dev)
{
    const Owned_fd disk(open(dev, O_RDWR | O_CLOEXEC));
    if (!disk.valid()) {
        IFS_ERROR("open Failed(%s)(%s)\n", dev, strerror(errno));
        return -1;
    }
    hd_geometry geometry{};
    if (ioctl(disk.get(), HDIO_GETGEO, &geometry) != 0) {
        IFS_ERROR("HDIO_GETGEO Failed(%s)\n", strerror(errno));
        return -1;
    }
    if (geometry.heads < 2 || geometry.sectors < 1 || geometry.cylinders < 1) {
        IFS_ERROR("Invalid hdd parameter(%d)(%d)(%d)\n", geometry.heads, geometry.sectors,
                  geometry.cylinders);
        return -1;
    }
    unsigned long long dev_bytes = 0;
    if (Ifsod_get_dev_size(disk.get(), &dev_bytes) != 0) {
        IFS_ERROR("SCFSC_get_dev_size Failed\n");
        return -1;
    }
    if (dev_bytes <= k_largest_refused_bytes) {
        IFS_ERROR("Invalid hdd size(%lld)\n", static_cast<long long>(dev_bytes));
        return -1;
    }
    const Sector sector = Build_partition_sector(geometry, dev_bytes);
    if (lseek(disk.get(), 0, SEEK_SET) != 0) {
        IFS_ERROR("lseek Failed(%s)\n", strerror(errno));
        return -1;
    }
    if (write(disk.get(), sector.data(), sector.size()) != static_cast<ssize_t>(sector.size())) {
        IFS_ERROR("write Failed(%s)\n", strerror(errno));
        return -1;
    }
    for (int attempts_left = k_wait_attempts; attempts_left > 0; --attempts_left) {
        fsync(disk.get());
        ioctl(disk.get(), BLKRRPART);
        sleep(1);
        if (Partition_opens()) {
            IFS_TRACE("fdisk OK!(%d)\n", k_wait_attempts - attempts_left);
            return 0;
        }
        IFS_TRACE("fdisk wait ready(%d)...\n", attempts_left);
    }
    IFS_TRACE("fdisk Time out\n");
    return 0;
}
