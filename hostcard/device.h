/** I/O on a card's devices, whose descriptors are open on the whole image. Callers serialise the calls. */
#ifndef HOSTCARD_DEVICE_H
#define HOSTCARD_DEVICE_H

#include <cstddef>
#include <sys/stat.h>
#include <sys/types.h>

#include "hostcard/card.h"

namespace hostcard
{

/** Open the device at a place; errno set where there is none. */
int open_device(const Card& card, Place place, int flags);

/** As read() and write(), or pread() and pwrite() where a position is given. */
ssize_t read_device(const Card& card, Place device, int fd, void* buffer, std::size_t count, const off_t* at);
ssize_t write_device(Card& card, Place device, int fd, const void* buffer, std::size_t count,
                     const off_t* at);

off64_t seek_device(const Card& card, Place device, int fd, off64_t offset, int whence);

/** As ioctl(), for the requests that a disk answers. */
int request_device(Card& card, Place device, unsigned long request, void* result);

/** Turn a description into that of a device or of the folder of devices. */
void describe_device(Place place, struct stat* status);

} // namespace hostcard

#endif
