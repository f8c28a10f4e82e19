#include "tests/container/faults.h"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

Faults faults;

extern "C" ssize_t pwrite(int fd, const void* data, size_t size, off_t offset)
{
    if (faults.failing_write == 1) {
        pwrite64(fd, data, size / 2, offset);
        errno = ENOSPC;
        return -1;
    }
    if (faults.failing_write > 1)
        --faults.failing_write;
    faults.calls.push_back(size);
    return faults.discarding ? static_cast<ssize_t>(size) : pwrite64(fd, data, size, offset);
}

extern "C" ssize_t pread(int fd, void* data, size_t size, off_t offset)
{
    if (offset + static_cast<int64_t>(size) > faults.readable_bytes) {
        errno = EIO;
        return -1;
    }
    return pread64(fd, data, size, offset);
}

extern "C" int fallocate(int fd, int mode, off_t offset, off_t size)
{
    return faults.discarding ? 0 : fallocate64(fd, mode, offset, size);
}

extern "C" int fsync(int)
{
    faults.calls.push_back(0);
    return 0;
}

extern "C" int fdatasync(int fd)
{
    return fsync(fd);
}
