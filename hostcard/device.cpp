#include "hostcard/device.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "hostcard/descriptors.h"
#include "hostcard/next_call.h"
#include "hostcard/script.h"

// open64(), pread64() and pwrite64() are not interposed; lseek64() is.

namespace hostcard
{

namespace
{

NextCall<off64_t(int, off64_t, int)> next_lseek64{"lseek64"};

/** Part of the image that a transfer reaches. */
struct Extent {
    off64_t start;
    std::size_t length; // 0 at the device's end
};

/** @return none with errno set when the position is none */
std::optional<Extent> extent_of(const Window& window, int fd, std::size_t count, const off_t* at)
{
    const off64_t begin = static_cast<off64_t>(window.start);
    const off64_t position = at ? *at : next_lseek64(fd, 0, SEEK_CUR) - begin;
    if (position < 0) {
        errno = EINVAL;
        return std::nullopt;
    }
    const std::uint64_t left = window.length - std::min<std::uint64_t>(window.length, position);
    return Extent{begin + position, static_cast<std::size_t>(std::min<std::uint64_t>(count, left))};
}

/** Let a transfer without a position of its own move the descriptor's. */
void advance(int fd, const Extent& extent, ssize_t done, const off_t* at)
{
    if (!at && done > 0)
        next_lseek64(fd, extent.start + done, SEEK_SET);
}

int reread_table(Card& card, Place device)
{
    if (device == Place::partition)
        return refuse(EINVAL);
    if (card.volume() || any_open(Kind::partition))
        return refuse(EBUSY);
    card.read_table();
    return 0;
}

struct hd_geometry geometry_of(const Card& card, Place device)
{
    struct hd_geometry geometry = {};
    geometry.heads = static_cast<unsigned char>(card.geometry().heads);
    geometry.sectors = static_cast<unsigned char>(card.geometry().sectors);
    geometry.cylinders = static_cast<unsigned short>(card.cylinders());
    geometry.start = static_cast<unsigned long>(card.window(device).start / sector_bytes);
    return geometry;
}

template <typename Value>
int answer(hostcard_call call, const Value& value, void* result)
{
    if (fails(call))
        return -1;
    memcpy(result, &value, sizeof value);
    return 0;
}

} // namespace

int open_device(const Card& card, Place place, int flags)
{
    if (place != Place::disk && place != Place::partition)
        return refuse(place == Place::device_folder ? EISDIR : ENOENT);
    const int kept = flags & ~(O_CREAT | O_EXCL | O_TRUNC | O_APPEND);
    const int fd = open64(card.image_path().c_str(), kept);
    if (fd >= 0)
        next_lseek64(fd, static_cast<off64_t>(card.window(place).start), SEEK_SET);
    return fd;
}

ssize_t read_device(const Card& card, Place device, int fd, void* buffer, std::size_t count, const off_t* at)
{
    const std::optional<Extent> extent = extent_of(card.window(device), fd, count, at);
    if (!extent)
        return -1;
    const ssize_t done = pread64(fd, buffer, extent->length, extent->start);
    advance(fd, *extent, done, at);
    return done;
}

ssize_t write_device(Card& card, Place device, int fd, const void* buffer, std::size_t count, const off_t* at)
{
    const std::optional<Extent> extent = extent_of(card.window(device), fd, count, at);
    if (!extent)
        return -1;
    if (extent->length == 0)
        return count == 0 ? 0 : refuse(ENOSPC);
    if (card.before_write(static_cast<std::uint64_t>(extent->start), extent->length) != 0)
        return -1;
    const ssize_t done = pwrite64(fd, buffer, extent->length, extent->start);
    advance(fd, *extent, done, at);
    return done;
}

off64_t seek_device(const Card& card, Place device, int fd, off64_t offset, int whence)
{
    const Window window = card.window(device);
    const off64_t begin = static_cast<off64_t>(window.start), length = static_cast<off64_t>(window.length);
    off64_t base = 0;
    if (whence == SEEK_CUR)
        base = next_lseek64(fd, 0, SEEK_CUR) - begin;
    else if (whence == SEEK_END)
        base = length;
    else if (whence != SEEK_SET)
        return refuse(EINVAL);
    if (offset < -base || offset > length - base)
        return refuse(EINVAL);
    const off64_t reached = next_lseek64(fd, begin + base + offset, SEEK_SET);
    return reached < 0 ? reached : reached - begin;
}

int request_device(Card& card, Place device, unsigned long request, void* result)
{
    const std::uint64_t size = card.window(device).length;
    switch (request) {
    case BLKGETSIZE64:
        return answer(HOSTCARD_GET_SIZE64, size, result);
    case BLKGETSIZE:
        return answer(HOSTCARD_GET_SIZE, static_cast<unsigned long>(size / sector_bytes), result);
    case HDIO_GETGEO:
        return answer(HOSTCARD_GET_GEOMETRY, geometry_of(card, device), result);
    case BLKRRPART:
        return fails(HOSTCARD_REREAD) ? -1 : reread_table(card, device);
    default:
        return refuse(ENOTTY);
    }
}

void describe_device(Place place, struct stat* status)
{
    const bool folder = place == Place::device_folder;
    status->st_mode = folder ? S_IFDIR | 0755 : S_IFBLK | 0660;
    status->st_rdev = folder ? 0 : makedev(8, place == Place::partition ? 1 : 0);
    status->st_size = 0;
}

} // namespace hostcard
