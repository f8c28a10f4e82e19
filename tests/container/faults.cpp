#include "tests/container/faults.h"

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace
{

int writes_until_failure = 0;
bool fail_once = false;
bool discarding = false;
int64_t readable_bytes = -1;
std::vector<uint64_t> calls;

bool fails()
{
    if (writes_until_failure == 0 || --writes_until_failure > 0)
        return false;
    writes_until_failure = fail_once ? 0 : 1;
    return true;
}

} // namespace

extern "C" ssize_t pwrite(int fd, const void* data, size_t size, off_t offset)
{
    if (fails()) {
        if (size > 1)
            pwrite64(fd, data, size / 2, offset);
        errno = ENOSPC;
        return -1;
    }
    calls.push_back(size);
    return discarding ? static_cast<ssize_t>(size) : pwrite64(fd, data, size, offset);
}

extern "C" ssize_t pread(int fd, void* data, size_t size, off_t offset)
{
    if (readable_bytes >= 0 && offset + static_cast<int64_t>(size) > readable_bytes) {
        errno = EIO;
        return -1;
    }
    return pread64(fd, data, size, offset);
}

extern "C" int fallocate(int fd, int mode, off_t offset, off_t size)
{
    return discarding ? 0 : fallocate64(fd, mode, offset, size);
}

extern "C" int fsync(int)
{
    calls.push_back(0);
    return 0;
}

extern "C" int fdatasync(int)
{
    calls.push_back(0);
    return 0;
}

namespace faults
{

void fail_write(int nth, bool once)
{
    writes_until_failure = nth;
    fail_once = once;
}

void discard_writes(bool discard)
{
    discarding = discard;
}

void fail_reads_past(int64_t offset)
{
    readable_bytes = offset;
}

std::vector<uint64_t> take_calls()
{
    return std::exchange(calls, {});
}

} // namespace faults
