// The calls of the C library that stand before its own in an executable that links this archive. They share a
// file with hostcard_insert(), so that they are linked in exactly where a card can be inserted.

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <mutex>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "hostcard/card.h"
#include "hostcard/next_call.h"
#include "hostcard/script.h"

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
NextCall<int(int)> next_fsync{"fsync"};
NextCall<int(int)> next_fdatasync{"fdatasync"};
NextCall<int(int, struct stat*)> next_fstat{"fstat"};
NextCall<int(const char*, struct stat*)> next_stat{"stat"};
NextCall<int(const char*)> next_remove{"remove"};
NextCall<DIR*(const char*)> next_opendir{"opendir"};
NextCall<struct dirent*(DIR*)> next_readdir{"readdir"};
NextCall<int(DIR*)> next_closedir{"closedir"};
NextCall<int(int, unsigned long, ...)> next_ioctl{"ioctl"};
NextCall<int(const char*, const char*, const char*, unsigned long, const void*)> next_mount{"mount"};
NextCall<int(const char*)> next_umount{"umount"};
NextCall<int(const char*, struct statfs*)> next_statfs{"statfs"};

// Plain pointers and words, so that the calls work before any constructor has run and after any destructor.
std::mutex card_mutex; // guards the card
Card* card;

int refuse(int error)
{
    errno = error;
    return -1;
}

/* ---- Descriptors of the card ---- */

enum class Kind : unsigned char {
    None, // not of the card
    Disk,
    Partition,
    File,
    Gone // of a card that was ejected
};

constexpr int descriptors_max = 65536;
std::atomic<Kind> kinds[descriptors_max];

Kind kind_of(int fd)
{
    return fd >= 0 && fd < descriptors_max ? kinds[fd].load(std::memory_order_acquire) : Kind::None;
}

/** Enter a descriptor that was just opened. @return fd, or what the failed open left */
int track(int fd, Kind kind)
{
    if (fd < 0)
        return fd;
    if (fd >= descriptors_max) {
        next_close(fd);
        return refuse(EMFILE);
    }
    kinds[fd].store(kind, std::memory_order_release);
    return fd;
}

/** Forget a descriptor before it is closed. */
Kind untrack(int fd)
{
    return fd >= 0 && fd < descriptors_max ? kinds[fd].exchange(Kind::None) : Kind::None;
}

/** Enter a descriptor that is not the card's; its number may once have been. */
int not_the_cards(int fd)
{
    if (kind_of(fd) != Kind::None)
        untrack(fd);
    return fd;
}

bool any_open(Kind kind)
{
    for (const std::atomic<Kind>& entry : kinds)
        if (entry == kind)
            return true;
    return false;
}

void orphan_descriptors()
{
    for (std::atomic<Kind>& entry : kinds)
        if (entry != Kind::None)
            entry = Kind::Gone;
}

Place place_of(Kind kind)
{
    return kind == Kind::Partition ? Place::Partition : Place::Disk;
}

bool is_device(Kind kind)
{
    return kind == Kind::Disk || kind == Kind::Partition;
}

/* ---- Devices ---- */

int open_device(Place place, int flags)
{
    if (place == Place::NoDevice)
        return refuse(ENOENT);
    if (place == Place::DeviceFolder)
        return refuse(EISDIR);
    const int kept = flags & ~(O_CREAT | O_EXCL | O_TRUNC | O_APPEND);
    const Kind kind = place == Place::Disk ? Kind::Disk : Kind::Partition;
    const int fd = track(next_open(card->image_path().c_str(), kept | O_LARGEFILE), kind);
    if (fd >= 0)
        next_lseek64(fd, static_cast<off64_t>(card->window(place).start), SEEK_SET);
    return fd;
}

/** Position of a device's descriptor, or the one given; errno set when it is negative. */
off64_t position_in(const Window& window, int fd, const off_t* at)
{
    const off64_t position = at ? *at : next_lseek64(fd, 0, SEEK_CUR) - static_cast<off64_t>(window.start);
    if (position < 0)
        errno = EINVAL;
    return position;
}

ssize_t read_device(Place device, int fd, void* buffer, size_t count, const off_t* at)
{
    const Window window = card->window(device);
    const off64_t position = position_in(window, fd, at);
    if (position < 0)
        return -1;
    if (static_cast<std::uint64_t>(position) >= window.length)
        return 0;
    const std::uint64_t left = window.length - static_cast<std::uint64_t>(position);
    const size_t fitting = count < left ? count : static_cast<size_t>(left);
    const off64_t start = static_cast<off64_t>(window.start) + position;
    const ssize_t done = pread64(fd, buffer, fitting, start);
    if (done > 0 && !at)
        next_lseek64(fd, start + done, SEEK_SET);
    return done;
}

ssize_t write_device(Place device, int fd, const void* buffer, size_t count, const off_t* at)
{
    const Window window = card->window(device);
    const off64_t position = position_in(window, fd, at);
    if (position < 0)
        return -1;
    if (static_cast<std::uint64_t>(position) >= window.length)
        return count == 0 ? 0 : refuse(ENOSPC);
    const std::uint64_t left = window.length - static_cast<std::uint64_t>(position);
    const size_t fitting = count < left ? count : static_cast<size_t>(left);
    const off64_t start = static_cast<off64_t>(window.start) + position;
    const ssize_t done = pwrite64(fd, buffer, fitting, start);
    if (done <= 0)
        return done;
    if (!at)
        next_lseek64(fd, start + done, SEEK_SET);
    card->written(static_cast<std::uint64_t>(start), static_cast<std::uint64_t>(done));
    return done;
}

off64_t seek_device(Place device, int fd, off64_t offset, int whence)
{
    const Window window = card->window(device);
    const off64_t length = static_cast<off64_t>(window.length);
    off64_t base = 0;
    if (whence == SEEK_CUR)
        base = position_in(window, fd, nullptr);
    else if (whence == SEEK_END)
        base = length;
    else if (whence != SEEK_SET)
        return refuse(EINVAL);
    if (offset < -base || offset > length - base)
        return refuse(EINVAL);
    const off64_t start = static_cast<off64_t>(window.start);
    const off64_t reached = next_lseek64(fd, start + base + offset, SEEK_SET);
    return reached < 0 ? reached : reached - start;
}

void describe_device(Place place, struct stat* status)
{
    const bool folder = place == Place::DeviceFolder;
    status->st_mode = folder ? S_IFDIR | 0755 : S_IFBLK | 0660;
    status->st_rdev = folder ? 0 : makedev(8, place == Place::Partition ? 1 : 0);
    status->st_size = 0;
}

int reread_table(Place device)
{
    if (device == Place::Partition)
        return refuse(EINVAL);
    if (card->mounted() || any_open(Kind::Partition))
        return refuse(EBUSY);
    card->read_table();
    return 0;
}

int get_geometry(Place device, void* result)
{
    struct hd_geometry geometry = {};
    geometry.heads = static_cast<unsigned char>(card->geometry().heads);
    geometry.sectors = static_cast<unsigned char>(card->geometry().sectors);
    geometry.cylinders = static_cast<unsigned short>(card->cylinders());
    geometry.start = static_cast<unsigned long>(card->window(device).start / sector_bytes);
    memcpy(result, &geometry, sizeof geometry);
    return 0;
}

int request_device(Place device, unsigned long request, void* result)
{
    const std::uint64_t size = card->window(device).length;
    const unsigned long sectors = static_cast<unsigned long>(size / sector_bytes);
    switch (request) {
    case BLKGETSIZE64:
        if (fails(HOSTCARD_GET_SIZE64))
            return -1;
        memcpy(result, &size, sizeof size);
        return 0;
    case BLKGETSIZE:
        if (fails(HOSTCARD_GET_SIZE))
            return -1;
        memcpy(result, &sectors, sizeof sectors);
        return 0;
    case HDIO_GETGEO:
        return fails(HOSTCARD_GET_GEOMETRY) ? -1 : get_geometry(device, result);
    case BLKRRPART:
        return fails(HOSTCARD_REREAD) ? -1 : reread_table(device);
    default:
        return refuse(ENOTTY);
    }
}

/* ---- Files of the card ---- */

int open_file(const char* path, int flags, mode_t mode)
{
    if (!card->mounted())
        return refuse(ENOENT);
    if (flags & O_TRUNC)
        card->space_changed();
    return track(next_open(path, flags | O_LARGEFILE, mode), Kind::File);
}

ssize_t write_file(int fd, const void* buffer, size_t count, const off_t* at)
{
    struct stat64 status;
    if (fstat64(fd, &status) != 0)
        return -1;
    const bool append = fcntl(fd, F_GETFL) & O_APPEND;
    const off64_t offset = append ? status.st_size : at ? *at : next_lseek64(fd, 0, SEEK_CUR);
    if (offset < 0)
        return refuse(EINVAL);
    if (count == 0)
        return 0;
    const std::uint64_t size = static_cast<std::uint64_t>(status.st_size);
    const std::uint64_t start = static_cast<std::uint64_t>(offset);
    const std::uint64_t room = card->room(size, start, count);
    if (room == 0)
        return -1;
    const size_t fitting = static_cast<size_t>(room);
    const ssize_t done = at ? next_pwrite(fd, buffer, fitting, *at) : next_write(fd, buffer, fitting);
    if (done > 0)
        card->grown(size, start + static_cast<std::uint64_t>(done));
    return done;
}

/* ---- Both ---- */

ssize_t read_card(Kind kind, int fd, void* buffer, size_t count, const off_t* at)
{
    if (kind == Kind::Gone)
        return refuse(EIO);
    if (fails(HOSTCARD_READ, count))
        return -1;
    if (kind == Kind::File)
        return at ? next_pread(fd, buffer, count, *at) : next_read(fd, buffer, count);
    std::lock_guard<std::mutex> lock(card_mutex);
    return card ? read_device(place_of(kind), fd, buffer, count, at) : refuse(EIO);
}

ssize_t write_card(Kind kind, int fd, const void* buffer, size_t count, const off_t* at)
{
    if (kind == Kind::Gone)
        return refuse(EIO);
    if (fails(HOSTCARD_WRITE, count))
        return -1;
    std::lock_guard<std::mutex> lock(card_mutex);
    if (!card || (kind == Kind::File && !card->mounted()))
        return refuse(EIO);
    return kind == Kind::File ? write_file(fd, buffer, count, at)
                              : write_device(place_of(kind), fd, buffer, count, at);
}

off64_t seek_card(Kind kind, int fd, off64_t offset, int whence)
{
    if (kind == Kind::Gone)
        return refuse(EIO);
    if (fails(HOSTCARD_SEEK))
        return -1;
    if (kind == Kind::File)
        return next_lseek64(fd, offset, whence);
    std::lock_guard<std::mutex> lock(card_mutex);
    return card ? seek_device(place_of(kind), fd, offset, whence) : refuse(EIO);
}

int sync_card(Kind kind, int fd, NextCall<int(int)>& next)
{
    if (kind == Kind::Gone)
        return refuse(EIO);
    return fails(HOSTCARD_SYNC) ? -1 : next(fd);
}

/* ---- Listings that no folder of the machine holds ---- */

struct Listing {
    std::atomic<bool> taken;
    char names[256]; // separated by blanks
    size_t next;
    struct dirent entry;
};

Listing listings[16];

Listing* listing_behind(DIR* directory)
{
    for (Listing& listing : listings)
        if (reinterpret_cast<DIR*>(&listing) == directory)
            return &listing;
    return nullptr;
}

DIR* open_listing(const std::string& names)
{
    for (Listing& listing : listings) {
        if (listing.taken.exchange(true))
            continue;
        snprintf(listing.names, sizeof listing.names, ". .. %s", names.c_str());
        listing.next = 0;
        return reinterpret_cast<DIR*>(&listing);
    }
    errno = EMFILE;
    return nullptr;
}

struct dirent* next_name(Listing& listing)
{
    const char* name = listing.names + listing.next;
    name += strspn(name, " ");
    const size_t length = strcspn(name, " ");
    if (length == 0)
        return nullptr;
    listing.next = static_cast<size_t>(name - listing.names) + length;
    listing.entry = {};
    listing.entry.d_type = DT_UNKNOWN;
    memcpy(listing.entry.d_name, name, length);
    return &listing.entry;
}

DIR* open_card_directory(Place place, const char* path)
{
    if (place == Place::DeviceFolder)
        return open_listing(scripted_listing(card->device_names()));
    if (place == Place::MountPoint && !card->mounted())
        return open_listing("");
    if (place == Place::NoDevice || (place == Place::File && !card->mounted())) {
        errno = ENOENT;
        return nullptr;
    }
    DIR* const directory =
        next_opendir(place == Place::File || place == Place::MountPoint ? path : card->image_path().c_str());
    if (directory)
        track(dirfd(directory), Kind::File);
    return directory;
}

} // namespace

/* ---- hostcard.h ---- */

int hostcard_create(const char* folder, unsigned long long size, unsigned heads, unsigned sectors)
{
    return Card::create(folder, size, Geometry{heads, sectors});
}

int hostcard_insert(const char* folder)
{
    std::lock_guard<std::mutex> lock(card_mutex);
    if (card)
        return refuse(EBUSY);
    card = Card::open(folder).release();
    if (!card)
        return -1;
    reset_counts();
    return 0;
}

void hostcard_eject(void)
{
    {
        std::lock_guard<std::mutex> lock(card_mutex);
        orphan_descriptors();
        delete card;
        card = nullptr;
    }
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
    return card && card->mounted();
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
    std::unique_lock<std::mutex> lock(card_mutex);
    const Place place = card ? card->locate(path) : Place::Elsewhere;
    if (place == Place::Elsewhere) {
        lock.unlock();
        return not_the_cards(next_open(path, flags, mode));
    }
    if (fails(HOSTCARD_OPEN))
        return -1;
    const bool file = place == Place::File || place == Place::MountPoint;
    return file ? open_file(path, flags, mode) : open_device(place, flags);
}

int close(int fd)
{
    const Kind kind = untrack(fd);
    if (kind == Kind::None || kind == Kind::Gone)
        return next_close(fd);
    const bool failed = fails(HOSTCARD_CLOSE);
    const int error = errno;
    const int result = next_close(fd); // a kernel releases the descriptor of a failed close too
    return failed ? refuse(error) : result;
}

ssize_t read(int fd, void* buffer, size_t count)
{
    const Kind kind = kind_of(fd);
    return kind == Kind::None ? next_read(fd, buffer, count) : read_card(kind, fd, buffer, count, nullptr);
}

ssize_t pread(int fd, void* buffer, size_t count, off_t offset)
{
    const Kind kind = kind_of(fd);
    return kind == Kind::None ? next_pread(fd, buffer, count, offset)
                              : read_card(kind, fd, buffer, count, &offset);
}

ssize_t write(int fd, const void* buffer, size_t count)
{
    const Kind kind = kind_of(fd);
    return kind == Kind::None ? next_write(fd, buffer, count) : write_card(kind, fd, buffer, count, nullptr);
}

ssize_t pwrite(int fd, const void* buffer, size_t count, off_t offset)
{
    const Kind kind = kind_of(fd);
    return kind == Kind::None ? next_pwrite(fd, buffer, count, offset)
                              : write_card(kind, fd, buffer, count, &offset);
}

off_t lseek(int fd, off_t offset, int whence) noexcept
{
    const Kind kind = kind_of(fd);
    if (kind == Kind::None)
        return next_lseek(fd, offset, whence);
    const off64_t reached = seek_card(kind, fd, offset, whence);
    return static_cast<off_t>(reached) == reached ? static_cast<off_t>(reached) : refuse(EOVERFLOW);
}

off64_t lseek64(int fd, off64_t offset, int whence) noexcept
{
    const Kind kind = kind_of(fd);
    return kind == Kind::None ? next_lseek64(fd, offset, whence) : seek_card(kind, fd, offset, whence);
}

int fsync(int fd)
{
    const Kind kind = kind_of(fd);
    return kind == Kind::None ? next_fsync(fd) : sync_card(kind, fd, next_fsync);
}

int fdatasync(int fd)
{
    const Kind kind = kind_of(fd);
    return kind == Kind::None ? next_fdatasync(fd) : sync_card(kind, fd, next_fdatasync);
}

int fstat(int fd, struct stat* status) noexcept
{
    const Kind kind = kind_of(fd);
    if (kind == Kind::None)
        return next_fstat(fd, status);
    if (kind == Kind::Gone)
        return refuse(EIO);
    if (fails(HOSTCARD_STAT) || next_fstat(fd, status) != 0)
        return -1;
    if (is_device(kind))
        describe_device(place_of(kind), status);
    return 0;
}

int stat(const char* path, struct stat* status) noexcept
{
    std::unique_lock<std::mutex> lock(card_mutex);
    const Place place = card ? card->locate(path) : Place::Elsewhere;
    if (place == Place::Elsewhere) {
        lock.unlock();
        return next_stat(path, status);
    }
    if (fails(HOSTCARD_STAT))
        return -1;
    if (place == Place::NoDevice || (place == Place::File && !card->mounted()))
        return refuse(ENOENT);
    if (place == Place::File || place == Place::MountPoint)
        return next_stat(path, status);
    *status = {};
    describe_device(place, status);
    return 0;
}

int remove(const char* path) noexcept
{
    std::unique_lock<std::mutex> lock(card_mutex);
    const Place place = card ? card->locate(path) : Place::Elsewhere;
    if (place == Place::Elsewhere) {
        lock.unlock();
        return next_remove(path);
    }
    if (fails(HOSTCARD_REMOVE))
        return -1;
    if (place != Place::File)
        return refuse(place == Place::MountPoint ? EBUSY : EACCES);
    if (!card->mounted())
        return refuse(ENOENT);
    card->space_changed();
    return next_remove(path);
}

DIR* opendir(const char* path)
{
    std::unique_lock<std::mutex> lock(card_mutex);
    const Place place = card ? card->locate(path) : Place::Elsewhere;
    if (place == Place::Elsewhere) {
        lock.unlock();
        return next_opendir(path);
    }
    return fails(HOSTCARD_OPENDIR) ? nullptr : open_card_directory(place, path);
}

struct dirent* readdir(DIR* directory)
{
    Listing* const listing = listing_behind(directory);
    return listing ? next_name(*listing) : next_readdir(directory);
}

int closedir(DIR* directory)
{
    if (Listing* const listing = listing_behind(directory)) {
        listing->taken = false;
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
    if (kind == Kind::Gone)
        return refuse(EIO);
    if (!is_device(kind))
        return next_ioctl(fd, request, argument);
    std::lock_guard<std::mutex> lock(card_mutex);
    return card ? request_device(place_of(kind), request, argument) : refuse(EIO);
}

int mount(const char* device, const char* directory, const char* type, unsigned long flags,
          const void* data) noexcept
{
    std::unique_lock<std::mutex> lock(card_mutex);
    const Place place = card ? card->locate(device) : Place::Elsewhere;
    if (place == Place::Elsewhere || place == Place::MountPoint || place == Place::File) {
        lock.unlock();
        return next_mount(device, directory, type, flags, data);
    }
    if (fails(HOSTCARD_MOUNT))
        return -1;
    if (place == Place::DeviceFolder || place == Place::NoDevice)
        return refuse(place == Place::NoDevice ? ENOENT : ENOTBLK);
    return card->mount(place, directory, type);
}

int umount(const char* directory) noexcept
{
    std::unique_lock<std::mutex> lock(card_mutex);
    if (!card || !card->is_mount_point(directory)) {
        lock.unlock();
        return next_umount(directory);
    }
    if (fails(HOSTCARD_UMOUNT))
        return -1;
    if (!card->mounted())
        return refuse(EINVAL);
    if (any_open(Kind::File))
        return refuse(EBUSY);
    card->umount();
    return 0;
}

int statfs(const char* path, struct statfs* sizes) noexcept
{
    std::unique_lock<std::mutex> lock(card_mutex);
    const Place place = card ? card->locate(path) : Place::Elsewhere;
    if (place == Place::Elsewhere) {
        lock.unlock();
        return next_statfs(path, sizes);
    }
    if (fails(HOSTCARD_STATFS))
        return -1;
    struct stat64 status;
    if ((place != Place::MountPoint && place != Place::File) || !card->mounted())
        return refuse(ENOENT);
    if (stat64(path, &status) != 0)
        return -1;
    *sizes = card->sizes(scripted_free_bytes());
    return 0;
}

} // extern "C"
