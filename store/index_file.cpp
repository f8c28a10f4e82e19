#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstring>

#include "device/os_adapter.h"
#include "store/index_item.h"
#include "store/ipc_file_system.h"
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

private:
    int m_fd;
};

/* Results of the writes are not looked at: the next rebuild finds and mends a damaged index. */

void Write_file_magic(int fd)
{
    Ifsod_write_file(fd, IFS_INDEX_MAGIC, IFS_INDEX_MAGIC_BYTES);
}

void Write_item(int fd, const _ifs_rec_file_& rec)
{
    std::array<unsigned char, IFS_ITEM_BYTES> image;
    Ifs_put_index_item(rec, image.data());
    Ifsod_write_file(fd, IFS_ITEM_MAGIC, IFS_ITEM_MAGIC_BYTES);
    Ifsod_write_file(fd, reinterpret_cast<const char*>(image.data()), IFS_ITEM_BYTES);
}

} // namespace

int CIpcFileSystem::Ifs_get_index_fn(_ifs_stream_type_ stream, std::string& fn)
{
    if (!Is_mounted()) {
        return -1;
    }
    fn = m_mount_point + "/";
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
    if (index.Valid()) {
        Ifsod_lseek_file(index.Get(), 0, SEEK_END);
    } else {
        IFS_ERROR("Ifsod_open_file O_WRONLY Failed(%s)\n", fn.c_str());
        index.Reset(Ifsod_open_file(fn.c_str(), O_WRONLY | O_CREAT));
        if (!index.Valid()) {
            IFS_ERROR("Ifsod_open_file O_WRONLY | O_CREAT Failed(%s)\n", fn.c_str());
            return -1;
        }
        Write_file_magic(index.Get());
    }
    Write_item(index.Get(), *rec);
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
    Write_file_magic(index.Get());
    for (auto it = list.begin(); it != list.end(); ++it) {
        _ifs_rec_file_ copy;
        Ifs_rec_file_info_copy(it, &copy, true);
        Write_item(index.Get(), copy);
    }
    // The allocation reaches the card before the size that counts on it, see Ifsod_sync_dir().
    Ifsod_sync_dir(m_mount_point.c_str());
    fsync(index.Get());
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
    std::array<char, IFS_ITEM_BYTES> bytes;
    int count = Ifsod_read_file(index.Get(), bytes.data(), IFS_INDEX_MAGIC_BYTES);
    if (count != IFS_INDEX_MAGIC_BYTES) {
        IFS_ERROR("Ifsod_read_file read file magic Failed(%s)(%d)\n", fn.c_str(), count);
        return 0;
    }
    if (memcmp(bytes.data(), IFS_INDEX_MAGIC, IFS_INDEX_MAGIC_BYTES) != 0) {
        IFS_ERROR("It's not index file magic(%s)\n", fn.c_str());
        return 0;
    }
    Rec_file_list loaded; // all or nothing
    for (;;) {
        count = Ifsod_read_file(index.Get(), bytes.data(), IFS_ITEM_MAGIC_BYTES);
        if (count == 0) {
            IFS_ERROR("Load over!(%d, %s, %d)\n", static_cast<int>(stream), fn.c_str(),
                      static_cast<int>(loaded.size()));
            break;
        }
        if (count != IFS_ITEM_MAGIC_BYTES) {
            IFS_ERROR("Ifsod_read_file read file magic Failed(%s)(%d)\n", fn.c_str(), count);
            return 0;
        }
        if (memcmp(bytes.data(), IFS_ITEM_MAGIC, IFS_ITEM_MAGIC_BYTES) != 0) {
            IFS_ERROR("It's not item magic(%s)\n", fn.c_str());
            return 0;
        }
        count = Ifsod_read_file(index.Get(), bytes.data(), IFS_ITEM_BYTES);
        if (count != IFS_ITEM_BYTES) {
            IFS_ERROR("Ifsod_read_file read item (%s, %d)(%d, %d)\n", fn.c_str(),
                      static_cast<int>(loaded.size()), count, IFS_ITEM_BYTES);
            return 0;
        }
        loaded.push_back(Ifs_get_index_item(reinterpret_cast<const unsigned char*>(bytes.data())));
    }
    list = std::move(loaded);
    Ifs_sort_rec_file_list(list);
    return 0;
}
