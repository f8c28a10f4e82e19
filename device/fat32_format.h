#ifndef IFS_DEVICE_FAT32_FORMAT_H
#define IFS_DEVICE_FAT32_FORMAT_H

/**
 * Lay an empty FAT32 file system of 64 KiB clusters onto a partition device, which must not be mounted.
 *
 * @param dev  path of the partition device
 * @return 0, or -1 (reported): the device cannot be opened or measured or is too small, then nothing is
 *         written; or a write failed, then the volume is partly written
 */
int Ifsf_format(const char* dev);

/**
 * Find the largest FAT32 volume that fits. All sizes in 512-byte sectors.
 *
 * @param total         size of the partition
 * @param reserved      sectors in front of the FATs
 * @param per_cluster   sectors of a cluster
 * @param used          receives the size of the volume
 * @param fat_sectors   receives the size of each of the two FATs
 * @param clusters      receives the number of data clusters, 0 when not even one fits
 */
void Ifsf_calculate(unsigned long long total, unsigned long reserved, unsigned long per_cluster,
                    unsigned long* used, unsigned long* fat_sectors, unsigned long* clusters);

/** Write len bytes at a byte offset in one call. @return 0, or -1 (reported): not all written */
int Ifsf_seek_and_write(int fd, long long offset, unsigned char* data, int len);

#endif
