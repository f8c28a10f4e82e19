/** A FAT32 volume as its boot record describes it, and the clusters that a folder's files take on it. */
#ifndef HOSTCARD_VOLUME_H
#define HOSTCARD_VOLUME_H

#include <cstdint>
#include <optional>
#include <string>
#include <sys/statfs.h>

namespace hostcard
{

constexpr unsigned sector_bytes = 512;

/** Largest file, bytes. */
constexpr std::uint64_t fat32_file_max = 0xFFFFFFFF;

struct Volume {
    std::uint32_t cluster_bytes;
    std::uint32_t clusters; // data clusters, the root directory's included

    std::uint64_t clusters_for(std::uint64_t bytes) const
    {
        return (bytes + cluster_bytes - 1) / cluster_bytes;
    }

    /** Clusters that are free beside the files and folders below a folder. Walks through the folder. */
    std::uint64_t free_clusters(const std::string& folder) const;

    /** What statfs() reports. */
    struct statfs sizes(std::uint64_t free_clusters) const;
};

/** 16 and 32 bits of little-endian memory. */
std::uint32_t le16(const std::uint8_t* bytes);
std::uint32_t le32(const std::uint8_t* bytes);

/**
 * Check a boot record as a kernel does that mounts it.
 *
 * @param device_bytes  size of the device that the volume must fit on
 * @return none where it is no FAT32
 */
std::optional<Volume> fat32_volume(const std::uint8_t (&boot_record)[sector_bytes],
                                   std::uint64_t device_bytes);

/**
 * Delete everything below a folder, as far as the permissions go.
 *
 * @return 0, or the errno of the first deletion that failed
 */
int empty_folder(const std::string& folder);

} // namespace hostcard

#endif
