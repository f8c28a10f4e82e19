/** Files as the container uses them: owned descriptors, whole writes, checked reads. */
#ifndef CONTAINER_FILE_H
#define CONTAINER_FILE_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "container/bytes.h"

namespace ifs_mp4
{

/** Largest file that is written: FAT and 32-bit offsets agree on it. */
constexpr uint64_t max_file_bytes = 0x7fffffff;

/** An owned file descriptor, -1 when there is none. */
class Fd
{
public:
    Fd() = default;
    explicit Fd(int fd) : m_fd(fd) {}
    ~Fd();
    Fd(Fd&& other) noexcept : m_fd(other.release()) {}
    Fd& operator=(Fd&& other) noexcept;

    int get() const { return m_fd; }
    explicit operator bool() const { return m_fd >= 0; }
    int release();
    /** Close. @return false when the system reports an error */
    bool reset();

private:
    int m_fd = -1;
};

/** Write all bytes at an offset. @return false on an error (errno); part of them may have been written */
bool write_at(int fd, const uint8_t* data, size_t size, uint64_t offset);

/** Take back a write that failed. The next write there overwrites what is left of it. errno stays. */
void discard_from(int fd, uint64_t offset);

std::string folder_of(const char* path);
std::string name_of(const char* path);

/**
 * Make the names of a folder durable, where the file system can do that. On FAT all of the allocation
 * table goes with them, but neither the bytes of its files nor their sizes.
 */
void sync_folder(const std::string& folder);

/**
 * Give a file the space up to end; its size stays. Once a sync has made that durable, writes in there need no
 * other change of an allocation table, which a power cut could part from the file's size.
 *
 * @return false where the file system cannot do that, or has not got the space
 */
bool reserve_space(int fd, uint64_t end);

/**
 * A file that is read, as large as it was at the last refresh(). The descriptor stays the caller's.
 * Small reads near each other cost one system call.
 */
class Source
{
public:
    static constexpr size_t window_bytes = 4096;

    explicit Source(int fd) : m_fd(fd) {}

    /** Take the file's present size and forget what was read. @return false: no regular file, I/O error */
    bool refresh();
    /** Take the file for shorter than it is. */
    void limit(uint64_t size);
    /**
     * Where the bytes end that can be read. A file system can say that a file is larger than what it has got
     * of it, when a power cut came between the two.
     */
    uint64_t readable_end();
    uint64_t size() const { return m_size; }
    /** Whether a read failed for another reason than the file's end. */
    bool failed() const { return m_error != 0; }
    /** errno of the last read that did, 0 without one. */
    int error() const { return m_error; }

    /** @return bytes in place until the next call, at most window_bytes; null: past the end, I/O error */
    const uint8_t* at(uint64_t offset, size_t size);
    /** Copy size bytes. @return false, errno says why: past the end (EBADMSG), I/O error */
    bool read(uint64_t offset, uint8_t* out, size_t size);
    /** As read(), for small pieces that lie one behind the other. */
    bool read_on(uint64_t offset, uint8_t* out, size_t size);

private:
    size_t read_some(uint64_t offset, uint8_t* out, size_t size);

    int m_fd;
    uint64_t m_size = 0;
    int m_error = 0;
    uint64_t m_window_offset = 0;
    size_t m_window_size = 0;
    uint8_t m_window[window_bytes]; // m_window_size of them count
};

/** One box of a file: its type and the range of its content. */
struct Box {
    uint32_t type = 0;
    uint64_t begin = 0;
    uint64_t end = 0;
    uint64_t size() const { return end - begin; }
};

/**
 * Step over the box at pos. @return false: no whole box lies between pos and end; pos then stays
 */
bool next_box(Source& source, uint64_t& pos, uint64_t end, Box& box);

/** Find the first box of a type in a range. @return false: none before the first damage or the end */
bool find_box(Source& source, uint64_t begin, uint64_t end, uint32_t type, Box& box);

} // namespace ifs_mp4

#endif
