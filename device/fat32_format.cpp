#include "device/fat32_format.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>

#include "device/os_adapter.h"
#include "device/owned.h"
#include "util/little_endian.h"
#include "util/log.h"

/* Prints its message through the video BIOS, waits for a key and reboots. */
const unsigned char gFat32_dummy_boot_code[448] =
    "\x0E\x1F\xBE\x5B\x7C\xAC\x22\xC0\x74\x0B\x56\xB4\x0E\xBB\x07\x00\xCD\x10\x5E\xEB\xF0\x32\xE4\xCD\x16"
    "\xCD\x19\xEB\xFE"
    "This is not a bootable disk.  Please insert a bootable floppy and\r\n"
    "press any key to try again ... \r\n";

namespace
{

constexpr unsigned k_sector_bytes = 512;
constexpr unsigned k_cluster_sectors = 128;
constexpr unsigned k_reserved_sectors = 32;
constexpr unsigned k_fats = 2;
constexpr unsigned k_root_cluster = 2;
constexpr unsigned k_fsinfo_sector = 1;
constexpr unsigned k_backup_sector = 6;
constexpr unsigned char k_media = 0xF8;

/* Offsets in the boot record. */
enum {
    BOOT_JUMP = 0,
    BOOT_OEM_NAME = 3,
    BOOT_SECTOR_BYTES = 11,
    BOOT_CLUSTER_SECTORS = 13,
    BOOT_RESERVED_SECTORS = 14,
    BOOT_FATS = 16,
    BOOT_MEDIA = 21,
    BOOT_TRACK_SECTORS = 24,
    BOOT_HEADS = 26,
    BOOT_TOTAL_SECTORS = 32,
    BOOT_FAT_SECTORS = 36,
    BOOT_ROOT_CLUSTER = 44,
    BOOT_FSINFO_SECTOR = 48,
    BOOT_BACKUP_SECTOR = 50,
    BOOT_DRIVE = 64,
    BOOT_EXTENDED_SIGNATURE = 66,
    BOOT_SERIAL = 67,
    BOOT_LABEL = 71,
    BOOT_TYPE = 82,
    BOOT_CODE = 90,
    BOOT_CODE_MESSAGE_ADDRESS = 93,
    BOOT_SIGNATURE = 510,
};

/* Offsets in the FSInfo sector. */
enum {
    FSINFO_LEAD = 0,
    FSINFO_STRUCTURE = 484,
    FSINFO_FREE_CLUSTERS = 488,
    FSINFO_NEXT_FREE = 492,
    FSINFO_TRAIL = 510,
};

constexpr unsigned k_boot_code_bytes = BOOT_SIGNATURE - BOOT_CODE;
/* A BIOS loads the boot record to 0x7C00; the message follows the code's 29 instruction bytes. */
constexpr unsigned k_message_address = 0x7C00 + BOOT_CODE + 29;

using Sector = std::array<unsigned char, k_sector_bytes>;

void Put_signature(Sector& sector)
{
    sector[BOOT_SIGNATURE] = 0x55;
    sector[BOOT_SIGNATURE + 1] = 0xAA;
}

void Put_text(Sector& sector, unsigned offset, const char* text)
{
    memcpy(&sector[offset], text, strlen(text));
}

void Put_boot_code(Sector& boot)
{
    memcpy(&boot[BOOT_CODE], gFat32_dummy_boot_code, k_boot_code_bytes);
    boot[BOOT_SIGNATURE - 1] = 0; // the message ends here, should it fill the space
    Put_le16(&boot[BOOT_CODE_MESSAGE_ADDRESS], k_message_address);
}

/* The fields that stay 0 are not written: FAT12/16 sizes, hidden sectors, flags, version. */
Sector Build_boot_record(unsigned long used, unsigned long fat_sectors)
{
    Sector boot{};
    Put_text(boot, BOOT_JUMP, "\xEB\x58\x90");
    Put_text(boot, BOOT_OEM_NAME, "MSWIN4.1");
    Put_le16(&boot[BOOT_SECTOR_BYTES], k_sector_bytes);
    boot[BOOT_CLUSTER_SECTORS] = k_cluster_sectors;
    Put_le16(&boot[BOOT_RESERVED_SECTORS], k_reserved_sectors);
    boot[BOOT_FATS] = k_fats;
    boot[BOOT_MEDIA] = k_media;
    Put_le16(&boot[BOOT_TRACK_SECTORS], 63);
    Put_le16(&boot[BOOT_HEADS], 255);
    Put_le32(&boot[BOOT_TOTAL_SECTORS], static_cast<uint32_t>(used));
    Put_le32(&boot[BOOT_FAT_SECTORS], static_cast<uint32_t>(fat_sectors));
    Put_le32(&boot[BOOT_ROOT_CLUSTER], k_root_cluster);
    Put_le16(&boot[BOOT_FSINFO_SECTOR], k_fsinfo_sector);
    Put_le16(&boot[BOOT_BACKUP_SECTOR], k_backup_sector);
    boot[BOOT_DRIVE] = 0x80;
    boot[BOOT_EXTENDED_SIGNATURE] = 0x29;
    Put_le32(&boot[BOOT_SERIAL], static_cast<uint32_t>(time(nullptr)));
    Put_text(boot, BOOT_LABEL, "           ");
    Put_text(boot, BOOT_TYPE, "FAT32   ");
    Put_boot_code(boot);
    Put_signature(boot);
    return boot;
}

Sector Build_fsinfo(unsigned long clusters)
{
    Sector fsinfo{};
    Put_text(fsinfo, FSINFO_LEAD, "RRaA");
    Put_text(fsinfo, FSINFO_STRUCTURE, "rrAa");
    Put_le32(&fsinfo[FSINFO_FREE_CLUSTERS],
             static_cast<uint32_t>(clusters - 1)); // the root directory has one
    Put_le32(&fsinfo[FSINFO_NEXT_FREE], k_root_cluster + 1);
    fsinfo[FSINFO_TRAIL] = 0x55;
    fsinfo[FSINFO_TRAIL + 1] = 0xAA;
    return fsinfo;
}

Sector Build_first_fat_sector()
{
    Sector fat{};
    Put_le32(&fat[0], 0x0FFFFF00u | k_media);
    Put_le32(&fat[4], 0xFFFFFFFFu);
    Put_le32(&fat[8], 0x0FFFFFFFu); // the root directory's only cluster
    return fat;
}

bool Write_sector(int fd, unsigned long long sector_number, Sector& sector)
{
    return Ifsf_seek_and_write(fd, static_cast<long long>(sector_number * k_sector_bytes), sector.data(),
                               k_sector_bytes) == 0;
}

/** Where a volume's parts lie, read from its boot record so that record and writes agree. */
struct Volume_layout {
    explicit Volume_layout(const Sector& boot)
        : reserved_sectors(Get_le16(&boot[BOOT_RESERVED_SECTORS])),
          fat_sectors(Get_le32(&boot[BOOT_FAT_SECTORS])), fsinfo(Get_le16(&boot[BOOT_FSINFO_SECTOR])),
          backup(Get_le16(&boot[BOOT_BACKUP_SECTOR])), fat1(reserved_sectors), fat2(fat1 + fat_sectors),
          root(reserved_sectors + boot[BOOT_FATS] * fat_sectors), root_sectors(boot[BOOT_CLUSTER_SECTORS])
    {
    }
    unsigned long long reserved_sectors, fat_sectors, fsinfo, backup, fat1, fat2, root, root_sectors;
};

/** Write all of the volume but its free clusters. @return the text that names the failed step, or null */
const char* Write_volume(int fd, Sector& boot, unsigned long clusters)
{
    const Volume_layout at(boot);
    Sector zero{};
    for (unsigned long long i = 0; i < at.reserved_sectors; ++i) {
        if (!Write_sector(fd, i, zero)) {
            return "Ifsf_seek_and_write reserve Failed\n";
        }
    }
    if (!Write_sector(fd, 0, boot)) {
        return "Ifsf_seek_and_write DBR Failed\n";
    }
    if (!Write_sector(fd, at.backup, boot)) {
        return "Ifsf_seek_and_write Reserve DBR Failed\n";
    }
    Sector fsinfo = Build_fsinfo(clusters);
    if (!Write_sector(fd, at.fsinfo, fsinfo)) {
        return "Ifsf_seek_and_write fsinfo Failed\n";
    }
    Sector first_fat_sector = Build_first_fat_sector();
    if (!Write_sector(fd, at.fat1, first_fat_sector)) {
        return "Ifsf_seek_and_write FAT1 Failed\n";
    }
    if (!Write_sector(fd, at.fat2, first_fat_sector)) {
        return "Ifsf_seek_and_write FAT2 Failed\n";
    }
    for (unsigned long long i = 1; i < at.fat_sectors; ++i) {
        if (!Write_sector(fd, at.fat1 + i, zero)) {
            return "Ifsf_seek_and_write FAT3 Failed\n";
        }
        if (!Write_sector(fd, at.fat2 + i, zero)) {
            return "Ifsf_seek_and_write FAT4 Failed\n";
        }
    }
    for (unsigned long long i = 0; i < at.root_sectors; ++i) {
        if (!Write_sector(fd, at.root + i, zero)) {
            return "Ifsf_seek_and_write ROOT Failed\n";
        }
    }
    return nullptr;
}

/** Sectors of a FAT that holds this many clusters and the two reserved entries, 128 entries a sector. */
unsigned long long Fat_sectors_for(unsigned long long clusters)
{
    return (clusters + 129) / 128;
}

} // namespace

void Ifsf_calculate(unsigned long long total, unsigned long reserved, unsigned long per_cluster,
                    unsigned long* used, unsigned long* fat_sectors, unsigned long* clusters)
{
    const auto needed = [=](unsigned long long count) {
        return count * per_cluster + reserved + k_fats * Fat_sectors_for(count);
    };
    unsigned long long count = 0;                   // fits
    unsigned long long bound = total / per_cluster; // nothing above does
    while (count < bound) {
        const unsigned long long middle = count + (bound - count + 1) / 2;
        if (needed(middle) <= total) {
            count = middle;
        } else {
            bound = middle - 1;
        }
    }
    *clusters = static_cast<uint32_t>(count);
    *fat_sectors = static_cast<uint32_t>(Fat_sectors_for(count));
    *used = static_cast<uint32_t>(needed(count));
}

int Ifsf_seek_and_write(int fd, long long offset, unsigned char* data, int len)
{
    if (lseek64(fd, offset, SEEK_SET) != offset) {
        IFS_ERROR("lseek Failed(%s)\n", strerror(errno));
        return -1;
    }
    if (write(fd, data, static_cast<size_t>(len)) != len) {
        IFS_ERROR("write Failed(%s)\n", strerror(errno));
        return -1;
    }
    return 0;
}

int Ifsf_format(const char* dev)
{
    const Owned_fd partition(open(dev, O_RDWR | O_CLOEXEC));
    if (!partition.valid()) {
        IFS_ERROR("Open Failed(%s)(%s)\n", dev, strerror(errno));
        return -1;
    }
    unsigned long long bytes = 0;
    if (Ifsod_get_dev_size(partition.get(), &bytes) != 0) {
        IFS_ERROR("Ifsod_get_dev_size Failed\n");
        return -1;
    }
    if (bytes == 0) {
        IFS_ERROR("Invalid size(%lld)\n", static_cast<long long>(bytes));
        return -1;
    }
    unsigned long used = 0;
    unsigned long fat_sectors = 0;
    unsigned long clusters = 0;
    Ifsf_calculate(bytes / k_sector_bytes, k_reserved_sectors, k_cluster_sectors, &used, &fat_sectors,
                   &clusters);
    if (used == 0 || fat_sectors == 0 || clusters == 0) {
        IFS_ERROR("Invalid paramter (%ld)(%ld)(%ld)\n", static_cast<long>(used),
                  static_cast<long>(fat_sectors), static_cast<long>(clusters));
        return -1;
    }
    Sector boot = Build_boot_record(used, fat_sectors);
    if (const char* failed_step = Write_volume(partition.get(), boot, clusters)) {
        IFS_ERROR("%s", failed_step);
        return -1;
    }
    // A card must not lose its boot record after the call that made it has returned.
    if (fsync(partition.get()) != 0) {
        IFS_ERROR("fsync Failed(%s)\n", strerror(errno));
        return -1;
    }
    return 0;
}
