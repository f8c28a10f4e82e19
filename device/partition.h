#ifndef IFS_DEVICE_PARTITION_H
#define IFS_DEVICE_PARTITION_H

/**
 * Write a fresh partition table to a whole-disk device: one FAT32 (LBA) partition from the second track to
 * the end. Then wait, up to about a minute, until the partition's device can be opened.
 *
 * The card must not be mounted. Nothing is written before every check has passed.
 *
 * @param dev  path of the whole-disk device
 * @return 0 once the table is written, also when the wait timed out; -1: the device cannot be opened, has no
 *         usable geometry or size, or the write failed
 */
int Ifsf_fdisk(const char* dev);

#endif
