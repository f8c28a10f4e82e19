#include "hostcard/volume.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <dirent.h>
#include <functional>
#include <linux/magic.h>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr long vfat_name_max = 1530;

using Visit = std::function<void(const char* path, const struct stat64& status)>;

/** The entries of a folder, none when it cannot be read. */
struct Entries {
    explicit Entries(const std::string& folder)
        // Not interposed, nor are the calls that it makes. fts64_open() would read folders with 32-bit calls.
        : count(scandir64(folder.c_str(), &entries, nullptr, nullptr))
    {
        if (count < 0 && errno == ENOMEM)
            throw std::bad_alloc();
    }
    ~Entries()
    {
        for (int i = 0; i < count; i++)
            free(entries[i]);
        free(entries);
    }
    Entries(const Entries&) = delete;
    Entries& operator=(const Entries&) = delete;

    struct dirent64** entries = nullptr;
    const int count;
};

/** Visit everything below a folder, a folder after what it holds. */
void walk(const std::string& folder, const Visit& visit)
{
    const Entries all(folder);
    for (int i = 0; i < all.count; i++) {
        const std::string name = all.entries[i]->d_name, path = std::string(folder).append("/").append(name);
        struct stat64 status = {};
        if (name == "." || name == ".." || lstat64(path.c_str(), &status) != 0)
            continue;
        if (S_ISDIR(status.st_mode))
            walk(path, visit);
        visit(path.c_str(), status);
    }
}

bool is_power_of_two(std::uint32_t value)
{
    return value != 0 && (value & (value - 1)) == 0;
}

bool is_media_byte(std::uint8_t media)
{
    return media == 0xF0 || media >= 0xF8;
}

} // namespace

namespace hostcard
{

std::uint32_t le16(const std::uint8_t* bytes)
{
    return bytes[0] | static_cast<std::uint32_t>(bytes[1]) << 8;
}

std::uint32_t le32(const std::uint8_t* bytes)
{
    return le16(bytes) | le16(bytes + 2) << 16;
}

std::optional<Volume> fat32_volume(const std::uint8_t (&boot_record)[sector_bytes],
                                   std::uint64_t device_bytes)
{
    const std::uint8_t* const boot = boot_record;
    const std::uint32_t bytes_per_sector = le16(boot + 11), sectors_per_cluster = boot[13];
    const std::uint32_t reserved = le16(boot + 14), fats = boot[16], root_entries = le16(boot + 17);
    const std::uint32_t sectors16 = le16(boot + 19), fat_sectors16 = le16(boot + 22);
    const std::uint32_t sectors = sectors16 ? sectors16 : le32(boot + 32);
    const std::uint32_t fat_sectors = le32(boot + 36), root_cluster = le32(boot + 44);

    if (boot[510] != 0x55 || boot[511] != 0xAA || !is_media_byte(boot[21]))
        return std::nullopt;
    if (!is_power_of_two(bytes_per_sector) || bytes_per_sector < 512 || bytes_per_sector > 4096)
        return std::nullopt;
    if (!is_power_of_two(sectors_per_cluster) || reserved == 0 || fats == 0)
        return std::nullopt;
    if (fat_sectors16 != 0 || fat_sectors == 0 || root_entries != 0) // FAT12 or FAT16
        return std::nullopt;
    if (static_cast<std::uint64_t>(sectors) * bytes_per_sector > device_bytes)
        return std::nullopt;

    const std::uint64_t data_start = reserved + static_cast<std::uint64_t>(fats) * fat_sectors;
    if (data_start >= sectors)
        return std::nullopt;
    const std::uint64_t fat_entries = static_cast<std::uint64_t>(fat_sectors) * bytes_per_sector / 4;
    const std::uint64_t clusters = std::min((sectors - data_start) / sectors_per_cluster, fat_entries - 2);
    if (root_cluster < 2 || root_cluster - 2 >= clusters || clusters > 0x0FFFFFF6)
        return std::nullopt;
    return Volume{bytes_per_sector * sectors_per_cluster, static_cast<std::uint32_t>(clusters)};
}

std::uint64_t Volume::free_clusters(const std::string& folder) const
{
    std::uint64_t used = 1; // the root directory's
    walk(folder, [&](const char*, const struct stat64& status) {
        if (S_ISREG(status.st_mode))
            used += clusters_for(static_cast<std::uint64_t>(status.st_size));
        else if (S_ISDIR(status.st_mode))
            used++;
    });
    return clusters - std::min<std::uint64_t>(used, clusters);
}

struct statfs Volume::sizes(std::uint64_t free_clusters) const
{
    struct statfs sizes = {};
    sizes.f_type = MSDOS_SUPER_MAGIC;
    sizes.f_bsize = cluster_bytes;
    sizes.f_frsize = cluster_bytes;
    sizes.f_blocks = clusters;
    sizes.f_bfree = static_cast<fsblkcnt_t>(free_clusters);
    sizes.f_bavail = sizes.f_bfree;
    sizes.f_namelen = vfat_name_max;
    return sizes;
}

int empty_folder(const std::string& folder)
{
    int error = 0;
    walk(folder, [&error](const char* path, const struct stat64& status) {
        if ((S_ISDIR(status.st_mode) ? rmdir(path) : unlink(path)) != 0 && error == 0)
            error = errno;
    });
    return error;
}

} // namespace hostcard
