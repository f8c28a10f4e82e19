// The calls of the C library that stand before its own in an executable that links this archive. They share a
// file with hostcard_insert(), so that they are linked in exactly where a card can be inserted.

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <limits>
#include <mutex>
#include <new>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include "hostcard/card.h"
#include "hostcard/descriptors.h"
#include "hostcard/device.h"
#include "hostcard/next_call.h"
#include "hostcard/script.h"

// Files of the machine are asked about with the 64-bit calls: its file system may number them and their
// places in a folder as no card's does, which makes the plain calls of a 32-bit machine fail.

using namespace hostcard;

namespace
{

NextCall<int(const char*, int, ...)> next_open{"open"};
NextCall<int(int)> next_close{"close"};
NextCall<ssize_t(int, void*, size_t)> next_read{"read"};
NextCall<ssize_t(int, const void*, size_t)> next_write{"write"};
NextCall<ssize_t(int, void*, size_t, off_t)> next_pread{"pread"};
NextCall<ssize_t(int, const void*, size_t, off_t)> next_pwrite{"pwrite"};
NextCall<off_t(int, off_t, int)> next_lseek{"lseek"};
NextCall<off64_t(int, off64_t, int)> next_lseek64{"lseek64"};
NextCall<int(int, off_t)> next_ftruncate{"ftruncate"};
NextCall<int(int)> next_fsync{"fsync"};
NextCall<int(int)> next_fdatasync{"fdatasync"};
NextCall<int(int, struct stat64*)> next_fstat64{"fstat64"};
NextCall<int(const char*, struct stat64*)> next_stat64{"stat64"};
NextCall<int(const char*)> next_remove{"remove"};
NextCall<DIR*(const char*)> next_opendir{"opendir"};
NextCall<struct dirent64*(DIR*)> next_readdir64{"readdir64"};
NextCall<int(DIR*)> next_closedir{"closedir"};
NextCall<int(int, unsigned long, ...)> next_ioctl{"ioctl"};
NextCall<int(const char*, const char*, const char*, unsigned long, const void*)> next_mount{"mount"};
NextCall<int(const char*)> next_umount{"umount"};
NextCall<int(const char*, struct statfs*)> next_statfs{"statfs"};

// Plain words, so that the calls work before any constructor has run and after any destructor.
std::mutex card_mutex; // guards the card
Card* card;

/** Make a call that may take memory. @return what it returns, -1 with ENOMEM without the memory */
template <typename Call>
auto with_memory(Call call) -> decltype(call())
{
    try {
        return call();
    } catch (const std::bad_alloc&) {
        return refuse(ENOMEM);
    }
}

/** A call on a path: holds the card while the path is one of the card's. */
struct PathCall {
    explicit PathCall(const char* path)
        : lock(card_mutex), place(card ? card->locate(path) : Place::elsewhere)
    {
        if (place == Place::elsewhere)
            lock.unlock();
    }

    bool elsewhere() const { return place == Place::elsewhere; }
    bool in_file_system() const { return place == Place::mount_point || place == Place::file; }
    bool missing() const { return place == Place::no_device || (place == Place::file && !card->volume()); }

    std::unique_lock<std::mutex> lock;
    const Place place;
};

Place place_of(Kind kind)
{
    return kind == Kind::partition ? Place::partition : Place::disk;
}

bool is_device(Kind kind)
{
    return kind == Kind::disk || kind == Kind::partition;
}

std::uint64_t size_of(const char* path)
{
    struct stat64 status = {};
    return stat64(path, &status) == 0 && S_ISREG(status.st_mode) ? static_cast<std::uint64_t>(status.st_size)
                                                                 : 0;
}

/** Give a real file's description as the plain call does, its numbers cut where they must be. @return 0, or
 * -1 when the file is too large for that call */
int describe(const struct stat64& file, struct stat* status)
{
    if (file.st_size > std::numeric_limits<off_t>::max())
        return refuse(EOVERFLOW);
    *status = {};
    status->st_dev = static_cast<decltype(status->st_dev)>(file.st_dev);
    status->st_ino = static_cast<ino_t>(file.st_ino);
    status->st_mode = file.st_mode;
    status->st_nlink = file.st_nlink;
    status->st_uid = file.st_uid;
    status->st_gid = file.st_gid;
    status->st_rdev = static_cast<decltype(status->st_rdev)>(file.st_rdev);
    status->st_size = static_cast<off_t>(file.st_size);
    status->st_blksize = file.st_blksize;
    status->st_blocks = static_cast<blkcnt_t>(file.st_blocks);
    status->st_atim = file.st_atim;
    status->st_mtim = file.st_mtim;
    status->st_ctim = file.st_ctim;
    return 0;
}

/** Turn a real entry, in its place, into the plain call's, its numbers cut where they must be. */
struct dirent* plain_entry(struct dirent64* entry)
{
    if (!entry)
        return nullptr;
    struct dirent plain = {};
    plain.d_ino = static_cast<ino_t>(entry->d_ino);
    plain.d_off = static_cast<off_t>(entry->d_off);
    plain.d_reclen = entry->d_reclen;
    plain.d_type = entry->d_type;
    const size_t name_bytes = strlen(entry->d_name) + 1;
    memcpy(plain.d_name, entry->d_name, name_bytes);
    return static_cast<struct dirent*>(
        memcpy(static_cast<void*>(entry), &plain, offsetof(struct dirent, d_name) + name_bytes));
}

int open_file(const char* path, int flags, mode_t mode)
{
    if (!card->volume())
        return refuse(ENOENT);
    const std::uint64_t size = flags & O_TRUNC ? size_of(path) : 0;
    const int fd = open64(path, flags, mode);
    if (fd >= 0)
        card->resized(size, 0);
    return fd;
}

int open_on_card(Place place, const char* path, int flags, mode_t mode)
{
    const bool file = place == Place::file || place == Place::mount_point;
    const Kind kind = file ? Kind::file : place == Place::partition ? Kind::partition : Kind::disk;
    const int fd = file ? open_file(path, flags, mode) : open_device(*card, place, flags);
    if (fd < 0 || track(fd, kind))
        return fd;
    next_close(fd);
    return refuse(EMFILE);
}

DIR* open_directory_on_card(Place place, const char* path)
{
    if (place == Place::device_folder)
        return open_listing(scripted_listing(card->device_names()));
    if (place == Place::mount_point && !card->volume())
        return open_listing("");
    if (place == Place::disk || place == Place::partition) {
        errno = ENOTDIR;
        return nullptr;
    }
    DIR* const directory = next_opendir(path);
    if (directory)
        track(dirfd(directory), Kind::file);
    return directory;
}

ssize_t write_file(int fd, const void* buffer, size_t count, const off_t* at)
{
    struct stat64 status = {};
    if (fstat64(fd, &status) != 0)
        return -1;
    const bool append = fcntl(fd, F_GETFL) & O_APPEND;
    const off64_t offset = append ? status.st_size : at ? *at : next_lseek64(fd, 0, SEEK_CUR);
    if (offset < 0)
        return refuse(EINVAL);
    const std::uint64_t size = static_cast<std::uint64_t>(status.st_size);
    const std::uint64_t start = static_cast<std::uint64_t>(offset);
    const size_t fitting = static_cast<size_t>(card->room(size, start, count));
    if (fitting == 0 && count > 0)
        return -1;
    const ssize_t done = at ? next_pwrite(fd, buffer, fitting, *at) : next_write(fd, buffer, fitting);
    if (done > 0)
        card->resized(size, std::max(size, start + static_cast<std::uint64_t>(done)));
    return done;
}

int truncate_file(int fd, off_t length)
{
    struct stat64 status = {};
    if (fstat64(fd, &status) != 0)
        return -1;
    const std::uint64_t size = static_cast<std::uint64_t>(status.st_size);
    const std::uint64_t wanted = static_cast<std::uint64_t>(std::max<off_t>(length, 0));
    if (wanted > size && card->room(size, size, wanted - size) < wanted - size)
        return refuse(wanted > fat32_file_max ? EFBIG : ENOSPC);
    const int result = next_ftruncate(fd, length);
    if (result == 0)
        card->resized(size, wanted);
    return result;
}

ssize_t read_card(Kind kind, int fd, void* buffer, size_t count, const off_t* at)
{
    if (kind == Kind::gone)
        return refuse(EIO);
    if (fails(HOSTCARD_READ, count))
        return -1;
    if (kind == Kind::file)
        return at ? next_pread(fd, buffer, count, *at) : next_read(fd, buffer, count);
    std::lock_guard<std::mutex> lock(card_mutex);
    return card ? read_device(*card, place_of(kind), fd, buffer, count, at) : refuse(EIO);
}

ssize_t write_card(Kind kind, int fd, const void* buffer, size_t count, const off_t* at)
{
    if (kind == Kind::gone)
        return refuse(EIO);
    if (fails(HOSTCARD_WRITE, count))
        return -1;
    std::lock_guard<std::mutex> lock(card_mutex);
    if (!card || (kind == Kind::file && !card->volume()))
        return refuse(EIO);
    return with_memory([&] {
        return kind == Kind::file ? write_file(fd, buffer, count, at)
                                  : write_device(*card, place_of(kind), fd, buffer, count, at);
    });
}

off64_t seek_card(Kind kind, int fd, off64_t offset, int whence)
{
    if (kind == Kind::gone)
        return refuse(EIO);
    if (fails(HOSTCARD_SEEK))
        return -1;
    if (kind == Kind::file)
        return next_lseek64(fd, offset, whence);
    std::lock_guard<std::mutex> lock(card_mutex);
    return card ? seek_device(*card, place_of(kind), fd, offset, whence) : refuse(EIO);
}

int sync_card(Kind kind, int fd, NextCall<int(int)>& next)
{
    if (kind == Kind::gone)
        return refuse(EIO);
    return fails(HOSTCARD_SYNC) ? -1 : next(fd);
}

} // namespace

/* ---- hostcard.h ---- */

int hostcard_create(const char* folder, unsigned long long size, unsigned heads, unsigned sectors)
{
    return with_memory([&] { return Card::create(folder, size, Geometry{heads, sectors}); });
}

int hostcard_insert(const char* folder)
{
    std::lock_guard<std::mutex> lock(card_mutex);
    if (card)
        return refuse(EBUSY);
    with_memory([&] {
        card = Card::open(folder).release();
        return 0;
    });
    if (!card)
        return -1;
    reset_counts();
    return 0;
}

void hostcard_eject(void)
{
    std::lock_guard<std::mutex> lock(card_mutex);
    orphan_descriptors();
    delete card;
    card = nullptr;
    forget_script();
}

const char* hostcard_mount_point(void)
{
    std::lock_guard<std::mutex> lock(card_mutex);
    return card ? card->mount_point().c_str() : nullptr;
}

int hostcard_is_mounted(void)
{
    std::lock_guard<std::mutex> lock(card_mutex);
    return card && card->volume();
}

/* ---- The calls ---- */

extern "C" {

int open(const char* path, int flags, ...)
{
    mode_t mode = 0;
    if ((flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE) {
        va_list arguments;
        va_start(arguments, flags);
        mode = static_cast<mode_t>(va_arg(arguments, unsigned));
        va_end(arguments);
    }
    const PathCall call(path);
    if (!call.elsewhere())
        return fails(HOSTCARD_OPEN) ? -1 : open_on_card(call.place, path, flags, mode);
    const int fd = next_open(path, flags, mode);
    if (kind_of(fd) != Kind::none) // a number of the card's that was closed by other means
        untrack(fd);
    return fd;
}

int close(int fd)
{
    const Kind kind = untrack(fd);
    if (kind == Kind::none || kind == Kind::gone)
        return next_close(fd);
    const bool failed = fails(HOSTCARD_CLOSE);
    const int error = errno;
    const int result = next_close(fd); // a kernel releases the descriptor of a failed close too
    return failed ? refuse(error) : result;
}

ssize_t read(int fd, void* buffer, size_t count)
{
    const Kind kind = kind_of(fd);
    return kind == Kind::none ? next_read(fd, buffer, count) : read_card(kind, fd, buffer, count, nullptr);
}

ssize_t pread(int fd, void* buffer, size_t count, off_t offset)
{
    const Kind kind = kind_of(fd);
    return kind == Kind::none ? next_pread(fd, buffer, count, offset)
                              : read_card(kind, fd, buffer, count, &offset);
}

ssize_t write(int fd, const void* buffer, size_t count)
{
    const Kind kind = kind_of(fd);
    return kind == Kind::none ? next_write(fd, buffer, count) : write_card(kind, fd, buffer, count, nullptr);
}

ssize_t pwrite(int fd, const void* buffer, size_t count, off_t offset)
{
    const Kind kind = kind_of(fd);
    return kind == Kind::none ? next_pwrite(fd, buffer, count, offset)
                              : write_card(kind, fd, buffer, count, &offset);
}

off_t lseek(int fd, off_t offset, int whence) noexcept
{
    const Kind kind = kind_of(fd);
    if (kind == Kind::none)
        return next_lseek(fd, offset, whence);
    const off64_t reached = seek_card(kind, fd, offset, whence);
    return static_cast<off_t>(reached) == reached ? static_cast<off_t>(reached) : refuse(EOVERFLOW);
}

off64_t lseek64(int fd, off64_t offset, int whence) noexcept
{
    const Kind kind = kind_of(fd);
    return kind == Kind::none ? next_lseek64(fd, offset, whence) : seek_card(kind, fd, offset, whence);
}

int fsync(int fd)
{
    const Kind kind = kind_of(fd);
    return kind == Kind::none ? next_fsync(fd) : sync_card(kind, fd, next_fsync);
}

int fdatasync(int fd)
{
    const Kind kind = kind_of(fd);
    return kind == Kind::none ? next_fdatasync(fd) : sync_card(kind, fd, next_fdatasync);
}

int ftruncate(int fd, off_t length) noexcept
{
    const Kind kind = kind_of(fd);
    if (kind == Kind::none)
        return next_ftruncate(fd, length);
    if (kind == Kind::gone)
        return refuse(EIO);
    if (fails(HOSTCARD_TRUNCATE))
        return -1;
    std::lock_guard<std::mutex> lock(card_mutex);
    if (!card || (kind == Kind::file && !card->volume()))
        return refuse(EIO);
    return kind == Kind::file ? with_memory([&] { return truncate_file(fd, length); }) : refuse(EINVAL);
}

int fstat(int fd, struct stat* status) noexcept
{
    const Kind kind = kind_of(fd);
    if (kind == Kind::gone)
        return refuse(EIO);
    if (kind != Kind::none && fails(HOSTCARD_STAT))
        return -1;
    struct stat64 file = {};
    if (next_fstat64(fd, &file) != 0 || describe(file, status) != 0)
        return -1;
    if (is_device(kind))
        describe_device(place_of(kind), status);
    return 0;
}

int stat(const char* path, struct stat* status) noexcept
{
    const PathCall call(path);
    if (!call.elsewhere() && fails(HOSTCARD_STAT))
        return -1;
    if (call.missing())
        return refuse(ENOENT);
    struct stat64 file = {};
    if (call.elsewhere() || call.in_file_system())
        return next_stat64(path, &file) == 0 ? describe(file, status) : -1;
    *status = {};
    describe_device(call.place, status);
    return 0;
}

int remove(const char* path) noexcept
{
    const PathCall call(path);
    if (call.elsewhere())
        return next_remove(path);
    if (fails(HOSTCARD_REMOVE))
        return -1;
    if (call.missing())
        return refuse(ENOENT);
    if (call.place != Place::file)
        return refuse(EBUSY);
    const std::uint64_t size = size_of(path);
    const int result = next_remove(path);
    if (result == 0)
        card->resized(size, 0);
    return result;
}

DIR* opendir(const char* path)
{
    const PathCall call(path);
    if (call.elsewhere())
        return next_opendir(path);
    if (fails(HOSTCARD_OPENDIR))
        return nullptr;
    DIR* directory = nullptr;
    if (call.missing())
        errno = ENOENT;
    else
        with_memory([&] {
            directory = open_directory_on_card(call.place, path);
            return 0;
        });
    return directory;
}

struct dirent* readdir(DIR* directory)
{
    return is_listing(directory) ? next_in_listing(directory) : plain_entry(next_readdir64(directory));
}

int closedir(DIR* directory)
{
    if (is_listing(directory)) {
        close_listing(directory);
        return 0;
    }
    untrack(dirfd(directory));
    return next_closedir(directory);
}

int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    const Kind kind = kind_of(fd);
    if (kind == Kind::gone)
        return refuse(EIO);
    if (!is_device(kind))
        return next_ioctl(fd, request, argument);
    std::lock_guard<std::mutex> lock(card_mutex);
    return card ? request_device(*card, place_of(kind), request, argument) : refuse(EIO);
}

int mount(const char* device, const char* directory, const char* type, unsigned long flags,
          const void* data) noexcept
{
    const PathCall call(device);
    if (call.elsewhere())
        return next_mount(device, directory, type, flags, data);
    if (fails(HOSTCARD_MOUNT))
        return -1;
    if (call.missing())
        return refuse(ENOENT);
    if (call.place != Place::disk && call.place != Place::partition)
        return refuse(ENOTBLK);
    return with_memory([&] { return card->mount(call.place, directory, type); });
}

int umount(const char* directory) noexcept
{
    std::unique_lock<std::mutex> lock(card_mutex);
    const int ours = with_memory([&] { return card && card->is_mount_point(directory) ? 1 : 0; });
    if (ours < 0)
        return -1;
    if (!ours) {
        lock.unlock();
        return next_umount(directory);
    }
    if (fails(HOSTCARD_UMOUNT))
        return -1;
    if (!card->volume())
        return refuse(EINVAL);
    if (any_open(Kind::file))
        return refuse(EBUSY);
    card->umount();
    return 0;
}

int statfs(const char* path, struct statfs* sizes) noexcept
{
    const PathCall call(path);
    if (call.elsewhere())
        return next_statfs(path, sizes);
    if (fails(HOSTCARD_STATFS))
        return -1;
    struct stat64 status = {};
    if (!call.in_file_system() || !card->volume())
        return refuse(ENOENT);
    if (stat64(path, &status) != 0)
        return -1;
    return with_memory([&] {
        *sizes = card->sizes(scripted_free_bytes());
        return 0;
    });
}

} // extern "C"
