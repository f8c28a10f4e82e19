/**
 * hostcard: presents a card to libifs on a machine that has none.
 *
 * An executable that links libhostcard.a defines the libc calls that the library makes for the card (open,
 * opendir, ioctl, mount, statfs, ...). A path that is not the card's goes to the real call. One card at a
 * time can be inserted. Every call here may be made from any thread.
 *
 * A virtual card is a folder:
 *
 *     card.img    the card's sectors, a sparse file; /dev/hd/sda, and /dev/hd/sda1 as its MBR describes it
 *     card.conf   its geometry, one line of text
 *     files/      the mount point: the files of the partition's file system
 *
 * The devices behave like a kernel's. The card's partition table decides at the insertion, and again at each
 * BLKRRPART, whether /dev/hd/sda1 exists. A mount checks the FAT32 boot record. An open file or folder keeps
 * the card from being unmounted, and an unmounted card shows no files.
 *
 * The image holds no files, the folder does. The free space is that of the boot record's file system, less
 * whole clusters for each file. A write of the partition's boot record through a device empties the folder,
 * and fails where that fails.
 *
 * Interposed are open, close, read, write, pread, pwrite, lseek, lseek64, ftruncate, fsync, fdatasync, fstat,
 * stat, remove, opendir, readdir, closedir, ioctl, mount, umount, statfs, sleep and usleep. Streams, the
 * openat() family and code built with _FILE_OFFSET_BITS=64 reach the machine's own files instead: they see
 * files/ whether it is mounted or not, and no devices. What they add or delete there counts in the free space
 * from the next mount on at the latest. Close with close() what open() opened.
 *
 * Results are 0 (or a value) on success; on failure -1 with errno set, as by the calls they stand for, to
 * ENOMEM where memory runs out.
 */
#ifndef HOSTCARD_H
#define HOSTCARD_H

/* C89 and C++98 have no long long; their compilers do. */
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wlong-long"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Make a blank virtual card. A call that fails leaves nothing behind.
 *
 * @param folder         must not exist, or be an empty folder
 * @param size           bytes, at least 1 MiB
 * @param heads,sectors  geometry that HDIO_GETGEO reports, 1 to 255 and 1 to 63; the cylinders follow from
 *                       the size, at most 65,535
 * @return 0, or -1: EEXIST (folder not empty), EINVAL (a value out of range), or as mkdir() and open()
 */
int hostcard_create(const char* folder, unsigned long long size, unsigned heads, unsigned sectors);

/**
 * Make a card the one that this process sees under /dev/hd/.
 *
 * @param folder  of a virtual card; copied
 * @return 0, or -1: ENODEV (no card there), EINVAL (no geometry in card.conf), EBUSY (a card is inserted, or
 *         another process has this one), or as open()
 */
int hostcard_insert(const char* folder);

/**
 * Take the inserted card out, mounted or not, and forget faults, free space, listing and sleep scale.
 * What is open on it fails with EIO from then on and must still be closed. Harmless without a card.
 */
void hostcard_eject(void);

/** Directory to mount the inserted card on. @return path, valid until the card is ejected, or null */
const char* hostcard_mount_point(void);

/** Whether the inserted card is mounted. @return 1 or 0 */
int hostcard_is_mounted(void);

/* ---- Scripts for tests ---- */

/** Calls that can be made to fail, and are counted. Only uses on the inserted card count. */
enum hostcard_call {
    HOSTCARD_OPEN,
    HOSTCARD_CLOSE,
    HOSTCARD_READ,  /**< read and pread */
    HOSTCARD_WRITE, /**< write and pwrite */
    HOSTCARD_SEEK,
    HOSTCARD_TRUNCATE, /**< ftruncate */
    HOSTCARD_SYNC,     /**< fsync and fdatasync */
    HOSTCARD_STAT,     /**< stat and fstat */
    HOSTCARD_REMOVE,
    HOSTCARD_OPENDIR,
    HOSTCARD_MOUNT,
    HOSTCARD_UMOUNT,
    HOSTCARD_STATFS,
    HOSTCARD_GET_SIZE64,   /**< ioctl BLKGETSIZE64 */
    HOSTCARD_GET_SIZE,     /**< ioctl BLKGETSIZE */
    HOSTCARD_GET_GEOMETRY, /**< ioctl HDIO_GETGEO */
    HOSTCARD_REREAD,       /**< ioctl BLKRRPART */
    HOSTCARD_CALLS
};

/**
 * Let a call fail from its nth use on, counted from now.
 *
 * @param nth    1 for the next use
 * @param error  errno of the failing use; 0: a read or write transfers half, any other call is unchanged
 * @param once   nonzero: only the nth use fails; 0: all from there on
 */
void hostcard_fail(enum hostcard_call call, unsigned nth, int error, int once);

/** Let all calls work again. */
void hostcard_fail_none(void);

/** Uses of a call on the card since it was inserted, failed ones included. */
unsigned hostcard_count(enum hostcard_call call);

/** Let statfs report this many free bytes, rounded down to whole clusters; negative: what is free. */
void hostcard_set_free(long long bytes);

/**
 * Let /dev/hd/ list these names in this order.
 *
 * @param names  separated by blanks, e.g. "sda1 sdb sda"; null: what the card has
 */
void hostcard_set_listing(const char* names);

/** Let sleep() and usleep() of this process take this share of their time, for instance 0.01; initially 1. */
void hostcard_scale_sleep(double share);

#ifdef __cplusplus
}
#endif

#pragma GCC diagnostic pop

#endif
