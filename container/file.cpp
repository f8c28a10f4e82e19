#include "container/file.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "container/failure.h"

namespace ifs_mp4
{

Fd::~Fd()
{
    KeptErrno kept;
    reset();
}

Fd& Fd::operator=(Fd&& other) noexcept
{
    if (this != &other) {
        reset();
        m_fd = other.release();
    }
    return *this;
}

int Fd::release()
{
    int fd = m_fd;
    m_fd = -1;
    return fd;
}

bool Fd::reset()
{
    int fd = release();
    return fd < 0 || close(fd) == 0;
}

bool write_at(int fd, const uint8_t* data, size_t size, uint64_t offset)
{
    while (size > 0) {
        ssize_t written = pwrite(fd, data, size, static_cast<off_t>(offset));
        if (written < 0 && errno == EINTR)
            continue;
        if (written == 0)
            errno = EIO;
        if (written <= 0)
            return false;
        data += written;
        size -= static_cast<size_t>(written);
        offset += static_cast<uint64_t>(written);
    }
    return true;
}

void discard_from(int fd, uint64_t offset)
{
    KeptErrno kept;
    int ignored = ftruncate(fd, static_cast<off_t>(offset));
    static_cast<void>(ignored);
}

std::string folder_of(const char* path)
{
    std::string folder(path);
    size_t slash = folder.rfind('/');
    if (slash == std::string::npos)
        return ".";
    folder.resize(std::max<size_t>(slash, 1));
    return folder;
}

std::string name_of(const char* path)
{
    const char* slash = std::strrchr(path, '/');
    return slash ? slash + 1 : path;
}

void sync_folder(const std::string& folder)
{
    Fd fd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd)
        fsync(fd.get());
}

bool reserve_space(int fd, uint64_t end)
{
    return fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(end)) == 0;
}

bool Source::refresh()
{
    struct stat status = {};
    m_window_size = 0;
    if (fstat(m_fd, &status) != 0) {
        m_error = errno;
        return false;
    }
    if (!S_ISREG(status.st_mode))
        return false;
    m_size = static_cast<uint64_t>(status.st_size);
    return true;
}

void Source::limit(uint64_t size)
{
    m_size = std::min(m_size, size);
    m_window_size = 0;
}

uint64_t Source::readable_end()
{
    uint8_t byte = 0;
    uint64_t readable = 0;
    uint64_t end = m_size;
    for (uint64_t probe = end; readable < end; probe = readable + (end - readable + 1) / 2) {
        if (pread(m_fd, &byte, 1, static_cast<off_t>(probe - 1)) == 1)
            readable = probe;
        else
            end = probe - 1;
    }
    if (readable < m_size)
        m_error = EIO;
    return readable;
}

size_t Source::read_some(uint64_t offset, uint8_t* out, size_t size)
{
    size_t done = 0;
    while (done < size) {
        ssize_t got = pread(m_fd, out + done, size - done, static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got == 0)
            errno = EIO; // the file was longer when its size was taken
        if (got < 0)
            m_error = errno;
        if (got <= 0)
            break;
        done += static_cast<size_t>(got);
    }
    return done;
}

const uint8_t* Source::at(uint64_t offset, size_t size)
{
    if (size > m_size || offset > m_size - size)
        return nullptr;
    bool inside = offset >= m_window_offset && offset - m_window_offset <= m_window_size &&
                  size <= m_window_size - (offset - m_window_offset);
    if (!inside) {
        m_window_offset = offset;
        m_window_size = 0;
        m_window_size = read_some(offset, m_window,
                                  static_cast<size_t>(std::min<uint64_t>(window_bytes, m_size - offset)));
        if (size > m_window_size)
            return nullptr;
    }
    return m_window + (offset - m_window_offset);
}

bool Source::read(uint64_t offset, uint8_t* out, size_t size)
{
    if (size > m_size || offset > m_size - size)
        return fail(EBADMSG);
    return read_some(offset, out, size) == size;
}

bool Source::read_on(uint64_t offset, uint8_t* out, size_t size)
{
    const uint8_t* data = size <= window_bytes ? at(offset, size) : nullptr;
    // What lies behind the piece may be what could not be read.
    if (!data)
        return read(offset, out, size);
    std::copy_n(data, size, out);
    return true;
}

bool next_box(Source& source, uint64_t& pos, uint64_t end, Box& box)
{
    if (pos > end || end - pos < 8)
        return false;
    const uint8_t* header = source.at(pos, 8);
    if (!header)
        return false;
    uint64_t size = be32(header);
    uint64_t header_size = 8;
    box.type = be32(header + 4);
    if (size == 0)
        size = end - pos;
    if (size == 1) {
        header_size = 16;
        header = end - pos < 16 ? nullptr : source.at(pos, 16);
        if (!header)
            return false;
        size = be64(header + 8);
    }
    if (size < header_size || size > end - pos)
        return false;
    box.begin = pos + header_size;
    box.end = pos + size;
    pos = box.end;
    return true;
}

bool find_box(Source& source, uint64_t begin, uint64_t end, uint32_t type, Box& box)
{
    while (next_box(source, begin, end, box)) {
        if (box.type == type)
            return true;
    }
    return false;
}

} // namespace ifs_mp4
