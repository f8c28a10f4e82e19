#ifndef IFS_DEVICE_OS_ADAPTER_H
#define IFS_DEVICE_OS_ADAPTER_H

/**
 * The library's way to the operating system: each function makes one system call (or the few that its
 * comment names) and reports a failure once, with the text of errno. No state, no retries.
 * Results are 0 or a count, -1 on failure. Offsets and file sizes are 32-bit.
 */

/** mount(2); a device that is mounted there already (EBUSY) counts as success. */
int Ifsod_mount(const char* special_file, const char* dir, const char* fstype, unsigned long rwflag,
                const void* data);

/** umount(2) of a mount point. */
int Ifsod_umount(const char* special_file);

/** open(2); a file that is created gets mode 0644. @return descriptor that Ifsod_close_file() releases */
int Ifsod_open_file(const char* path, int oflag);

/** close(2). */
int Ifsod_close_file(int fd);

/** One read(2). @return bytes read, 0 at the end of the file */
int Ifsod_read_file(int fd, char* buf, int len);

/** One write(2). @return bytes written, which may be fewer than len */
int Ifsod_write_file(int fd, const char* buf, int len);

/** lseek(2). @return the new offset */
int Ifsod_lseek_file(int fd, int offset, int whence);

/** remove(3). The name is gone for good before the file's space can be used again. */
int Ifsod_remove_file(const char* path);

/** Make the names of a directory durable, removals included. On FAT the allocation table goes with them. */
int Ifsod_sync_dir(const char* dir);

/** fsync(2). */
int Ifsod_sync_file(int fd);

/** Size of a file in bytes; *size is untouched on failure. */
int Ifsod_get_file_size(const char* file, int* size);

/** Size of an open block device in bytes; reports nothing, *size is untouched on failure. */
long long Ifsod_get_dev_size(int fd, unsigned long long* size);

/** The same by path; reports nothing, not even a failed open. */
long long Ifsod_get_dev_size(const char* path, unsigned long long* size);

/** Total and free bytes of the file system that holds a path; either pointer may be null. Reports nothing. */
int Ifsod_get_fs_size(const char* file, unsigned long long* total, unsigned long long* free);

/** Directories are not made on the card. @return -1 */
int Ifsod_make_directory(const char* path);

#endif
