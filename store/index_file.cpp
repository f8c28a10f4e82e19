#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "device/os_adapter.h"
#include "store/index_item.h"
#include "store/ipc_file_system.h"
#include "store/limits.h"
#include "util/log.h"

namespace
{

/** An index file that is closed, and a failed close reported, on every path. */
class Open_index
{
public:
    explicit Open_index(int fd) : m_fd(fd) {}
    ~Open_index()
    {
        if (m_fd >= 0) {
            Ifsod_close_file(m_fd);
        }
    }
    Open_index(const Open_index&) = delete;
    Open_index& operator=(const Open_index&) = delete;

    int Get() const { return m_fd; }
    bool Valid() const { return m_fd >= 0; }
    void Reset(int fd) { m_fd = fd; }
    /** @return its size, or -1 when that is not known */
    long long Bytes() const
    {
        struct stat info {
        };
        return fstat(m_fd, &info) == 0 ? info.st_size : -1;
    }

private:
    int m_fd;
};

constexpr size_t k_block_bytes =
    4096; ///< of a read or write; thousands of small ones take seconds on a camera

constexpr long long k_most_bytes =
    IFS_INDEX_MAGIC_BYTES + IFS_INDEX_ITEMS_MOST * (IFS_ITEM_MAGIC_BYTES + IFS_ITEM_BYTES);

/** Reads an index file piece by piece, from the card in blocks. */
class Index_reader
{
public:
    explicit Index_reader(int fd) : m_fd(fd) {}

    /**
     * Read the next len bytes.
     *
     * @param bytes  receives their place, good until the next call
     * @return bytes read, fewer than len at the end of the file, -1 on a read error
     */
    int Read(const char** bytes, int len)
    {
        if (m_left < len) {
            memmove(m_block.data(), m_block.data() + m_begin, static_cast<size_t>(m_left));
            m_begin = 0;
            const int count =
                Ifsod_read_file(m_fd, m_block.data() + m_left, static_cast<int>(m_block.size()) - m_left);
            if (count < 0) {
                return -1;
            }
            m_left += count;
        }
        const int given = std::min(len, m_left);
        *bytes = m_block.data() + m_begin;
        m_begin += given;
        m_left -= given;
        return given;
    }

private:
    int m_fd;
    int m_begin = 0; ///< of what was read from the card and not yet given out
    int m_left = 0;
    std::array<char, k_block_bytes> m_block;
};

/**
 * Writes an index file, to the card in blocks; the last one with Flush(). Results of the writes are not
 * looked at: the next rebuild finds and mends a damaged index.
 */
class Index_writer
{
public:
    explicit Index_writer(int fd) : m_fd(fd) {}

    void Put_file_magic() { Put(IFS_INDEX_MAGIC, IFS_INDEX_MAGIC_BYTES); }

    void Put_item(const _ifs_rec_file_& rec)
    {
        std::array<unsigned char, IFS_ITEM_BYTES> image;
        Ifs_put_index_item(rec, image.data());
        Put(IFS_ITEM_MAGIC, IFS_ITEM_MAGIC_BYTES);
        Put(image.data(), IFS_ITEM_BYTES);
    }

    void Flush()
    {
        Ifsod_write_file(m_fd, m_block.data(), static_cast<int>(m_used));
        m_used = 0;
    }

private:
    void Put(const void* bytes, size_t size)
    {
        if (size > m_block.size() - m_used) {
            Flush();
        }
        memcpy(m_block.data() + m_used, bytes, size);
        m_used += size;
    }

    int m_fd;
    size_t m_used = 0;
    std::array<char, k_block_bytes> m_block;
};

} // namespace

int CIpcFileSystem::Ifs_get_index_fn(_ifs_stream_type_ stream, std::string& fn)
{
    if (!Is_mounted()) {
        return -1;
    }
    fn = std::string(Mount_dir()) + "/";
    if (stream == IFS_STREAM_MAIN) {
        fn += "system_index_main";
    } else if (stream == IFS_STREAM_SUB) {
        fn += "system_index_sub";
    } else {
        return -1;
    }
    if (Load_shared(gIfs_demo_flag) == 1) {
        fn += "_demo";
    }
    return 0;
}

int CIpcFileSystem::Ifs_append_index_file(_ifs_stream_type_ stream, _ifs_rec_file_* rec)
{
    IFS_DETAIL("%s, start time:" IFS_TM_FORMAT ", end time:" IFS_TM_FORMAT "\n",
               Ifs_stream_word(rec->stream_type), IFS_TM_ARGS(rec->start_tm), IFS_TM_ARGS(rec->end_tm));
    std::string fn;
    if (Ifs_get_index_fn(stream, fn) != 0) {
        IFS_ERROR("Ifs_get_index_fn Failed(%d)\n", static_cast<int>(stream));
        return -1;
    }
    Open_index index(Ifsod_open_file(fn.c_str(), O_WRONLY));
    const bool exists = index.Valid();
    if (exists) {
        Ifsod_lseek_file(index.Get(), 0, SEEK_END);
    } else {
        IFS_ERROR("Ifsod_open_file O_WRONLY Failed(%s)\n", fn.c_str());
        index.Reset(Ifsod_open_file(fn.c_str(), O_WRONLY | O_CREAT));
        if (!index.Valid()) {
            IFS_ERROR("Ifsod_open_file O_WRONLY | O_CREAT Failed(%s)\n", fn.c_str());
            return -1;
        }
    }
    Index_writer writer(index.Get());
    if (!exists) {
        writer.Put_file_magic();
    }
    writer.Put_item(*rec);
    writer.Flush();
    return 0;
}

int CIpcFileSystem::Ifs_rewrite_index_file(_ifs_stream_type_ stream, Rec_file_list& list)
{
    std::string fn;
    if (Ifs_get_index_fn(stream, fn) != 0) {
        IFS_ERROR("Ifs_get_index_fn Failed(%d)\n", static_cast<int>(stream));
        return -1;
    }
    Ifsod_remove_file(fn.c_str());
    if (list.empty()) {
        IFS_TRACE("There is no Item(%d)\n", static_cast<int>(stream));
        return -1;
    }
    const Open_index index(Ifsod_open_file(fn.c_str(), O_WRONLY | O_CREAT));
    if (!index.Valid()) {
        IFS_ERROR("Ifsod_open_file O_WRONLY | O_CREAT Failed(%s)\n", fn.c_str());
        return -1;
    }
    Index_writer writer(index.Get());
    writer.Put_file_magic();
    for (const _ifs_rec_file_& rec : list) {
        writer.Put_item(rec);
    }
    writer.Flush();
    // The allocation reaches the card before the size that counts on it, see Ifsod_sync_dir().
    Ifsod_sync_dir(Mount_dir());
    Ifsod_sync_file(index.Get());
    return 0;
}

int CIpcFileSystem::Ifs_load_index_file(_ifs_stream_type_ stream, Rec_file_list& list)
{
    std::string fn;
    if (Ifs_get_index_fn(stream, fn) != 0) {
        IFS_ERROR("Ifs_get_index_fn Failed(%d)\n", static_cast<int>(stream));
        return 0;
    }
    const Open_index index(Ifsod_open_file(fn.c_str(), O_RDONLY));
    if (!index.Valid()) {
        IFS_ERROR("Ifsod_open_file Failed(%s)\n", fn.c_str());
        return 0;
    }
    if (index.Bytes() > k_most_bytes) {
        IFS_ERROR("Index file is too large(%s)(%lld)\n", fn.c_str(), index.Bytes());
        return 0;
    }
    Index_reader reader(index.Get());
    const char* bytes = nullptr;
    int count = reader.Read(&bytes, IFS_INDEX_MAGIC_BYTES);
    if (count != IFS_INDEX_MAGIC_BYTES) {
        IFS_ERROR("Ifsod_read_file read file magic Failed(%s)(%d)\n", fn.c_str(), count);
        return 0;
    }
    if (memcmp(bytes, IFS_INDEX_MAGIC, IFS_INDEX_MAGIC_BYTES) != 0) {
        IFS_ERROR("It's not index file magic(%s)\n", fn.c_str());
        return 0;
    }
    Rec_file_list loaded; // all or nothing
    for (;;) {
        count = reader.Read(&bytes, IFS_ITEM_MAGIC_BYTES);
        if (count == 0) {
            IFS_ERROR("Load over!(%d, %s, %d)\n", static_cast<int>(stream), fn.c_str(),
                      static_cast<int>(loaded.size()));
            break;
        }
        if (count != IFS_ITEM_MAGIC_BYTES) {
            IFS_ERROR("Ifsod_read_file read file magic Failed(%s)(%d)\n", fn.c_str(), count);
            return 0;
        }
        if (memcmp(bytes, IFS_ITEM_MAGIC, IFS_ITEM_MAGIC_BYTES) != 0) {
            IFS_ERROR("It's not item magic(%s)\n", fn.c_str());
            return 0;
        }
        count = reader.Read(&bytes, IFS_ITEM_BYTES);
        if (count != IFS_ITEM_BYTES) {
            IFS_ERROR("Ifsod_read_file read item (%s, %d)(%d, %d)\n", fn.c_str(),
                      static_cast<int>(loaded.size()), count, IFS_ITEM_BYTES);
            return 0;
        }
        loaded.push_back(Ifs_get_index_item(reinterpret_cast<const unsigned char*>(bytes)));
    }
    list = std::move(loaded);
    Ifs_sort_rec_file_list(list);
    return 0;
}
