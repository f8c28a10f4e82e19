#include "device/os_adapter.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <mntent.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "device/owned.h"
#include "util/log.h"

namespace
{

constexpr mode_t k_new_file_mode = 0644;

unsigned long long Blocks_to_bytes(const struct statfs& info, unsigned long long blocks)
{
    const auto block_bytes = static_cast<long long>(static_cast<int32_t>(info.f_bsize));
    return static_cast<unsigned long long>(block_bytes) * static_cast<uint32_t>(blocks);
}

struct Mount_table_closer {
    void operator()(FILE* table) const { endmntent(table); }
};

} // namespace

int Ifsod_mount(const char* special_file, const char* dir, const char* fstype, unsigned long rwflag,
                const void* data)
{
    if (mount(special_file, dir, fstype, rwflag, data) == 0) {
        return 0;
    }
    if (errno == EBUSY) {
        IFS_TRACE("mount(%s) on (%s) already mounted\n", special_file, dir);
        return 0;
    }
    IFS_ERROR("mount(%s) on (%s) Failed(%s)\n", special_file, dir, strerror(errno));
    return -1;
}

int Ifsod_umount(const char* special_file)
{
    if (umount(special_file) != 0) {
        IFS_ERROR("umount(%s) Failed(%s)\n", special_file, strerror(errno));
        return -1;
    }
    return 0;
}

int Ifsod_open_file(const char* path, int oflag)
{
    const int fd = open(path, oflag | O_CLOEXEC, k_new_file_mode);
    if (fd < 0) {
        IFS_ERROR("open (%s) Failed(%s)\n", path, strerror(errno));
        return -1;
    }
    return fd;
}

int Ifsod_close_file(int fd)
{
    if (close(fd) != 0) {
        IFS_ERROR("close (%d) Failed(%s)\n", fd, strerror(errno));
        return -1;
    }
    return 0;
}

int Ifsod_read_file(int fd, char* buf, int len)
{
    const ssize_t count = read(fd, buf, static_cast<size_t>(len));
    if (count < 0) {
        IFS_ERROR("read (%d, %d) Failed(%s)\n", fd, len, strerror(errno));
        return -1;
    }
    return static_cast<int>(count);
}

int Ifsod_write_file(int fd, const char* buf, int len)
{
    const ssize_t count = write(fd, buf, static_cast<size_t>(len));
    if (count < 0) {
        IFS_ERROR("write (%d, %d) Failed(%s)\n", fd, len, strerror(errno));
        return -1;
    }
    return static_cast<int>(count);
}

int Ifsod_lseek_file(int fd, int offset, int whence)
{
    const off_t position = lseek(fd, offset, whence);
    if (position < 0) {
        IFS_ERROR("lseek (%d, %d, %d) Failed(%s)\n", fd, offset, whence, strerror(errno));
        return -1;
    }
    return Wrap_to_int32(static_cast<uint64_t>(position));
}

int Ifsod_remove_file(const char* path)
{
    // A power cut could bring the name back after a newer recording has taken its clusters, and deleting it
    // once more would take them from that recording. While the file is open, it
    // keeps its clusters; it is closed when its name is gone for good.
    const Owned_fd kept(open(path, O_RDONLY | O_CLOEXEC));
    const int not_kept = kept.valid() ? 0 : errno;
    std::string dir(path);
    dir = dir.substr(0, dir.rfind('/'));
    if (remove(path) != 0) {
        IFS_ERROR("remove (%s) Failed(%s)\n", path, strerror(errno));
        return -1;
    }
    if (not_kept != 0) {
        IFS_ERROR("open (%s) Failed(%s)\n", path, strerror(not_kept));
    }
    Ifsod_sync_dir(dir.c_str());
    return 0;
}

int Ifsod_sync_dir(const char* dir)
{
    const Owned_fd fd(Ifsod_open_file(dir, O_RDONLY | O_DIRECTORY));
    return fd.valid() ? Ifsod_sync_file(fd.get()) : -1;
}

int Ifsod_sync_file(int fd)
{
    if (fsync(fd) != 0) {
        IFS_ERROR("fsync (%d) Failed(%s)\n", fd, strerror(errno));
        return -1;
    }
    return 0;
}

int Ifsod_get_file_size(const char* file, int* size)
{
    struct stat info {
    };
    if (stat(file, &info) != 0) {
        IFS_ERROR("stat Failed(%s)\n", file);
        return -1;
    }
    *size = Wrap_to_int32(static_cast<uint64_t>(info.st_size));
    return 0;
}

long long Ifsod_get_dev_size(int fd, unsigned long long* size)
{
    uint64_t bytes = 0;
    if (ioctl(fd, BLKGETSIZE64, &bytes) == 0) {
        *size = bytes;
        return 0;
    }
    unsigned long sectors = 0;
    if (ioctl(fd, BLKGETSIZE, &sectors) != 0) {
        return -1;
    }
    *size = 512ULL * sectors;
    return 0;
}

long long Ifsod_get_dev_size(const char* path, unsigned long long* size)
{
    const Owned_fd fd(open(path, O_RDONLY | O_CLOEXEC));
    return fd.valid() ? Ifsod_get_dev_size(fd.get(), size) : -1;
}

int Ifsod_get_fs_size(const char* file, unsigned long long* total, unsigned long long* free)
{
    struct statfs info {
    };
    if (statfs(file, &info) != 0) {
        return -1;
    }
    if (total != nullptr) {
        *total = Blocks_to_bytes(info, info.f_blocks);
    }
    if (free != nullptr) {
        *free = Blocks_to_bytes(info, info.f_bfree);
    }
    return 0;
}

int Ifsod_make_directory(const char*)
{
    return -1;
}

mntent* find_mount_point(const char* name, const char* table)
{
    const std::unique_ptr<FILE, Mount_table_closer> mounts(
        setmntent(table != nullptr ? table : "/proc/mounts", "r"));
    if (!mounts) {
        return nullptr;
    }
    char wanted[128] = {};
    strncpy(wanted, name, sizeof wanted - 1);
    const size_t length = strlen(wanted);
    if (length >= 2 && wanted[length - 1] == '/') {
        wanted[length - 1] = '\0';
    }
    while (mntent* entry = getmntent(mounts.get())) {
        if (strcmp(wanted, entry->mnt_dir) == 0 || strcmp(wanted, entry->mnt_fsname) == 0) {
            return entry;
        }
    }
    return nullptr;
}
