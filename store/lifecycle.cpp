#include <sys/mount.h>

#include <array>
#include <climits>
#include <cstring>

#include "device/card_format.h"
#include "device/os_adapter.h"
#include "store/ipc_file_system.h"
#include "store/limits.h"
#include "util/log.h"

namespace
{

constexpr unsigned long k_mount_flags = MS_NOSUID | MS_NODEV | MS_NOATIME | MS_NODIRATIME;

} // namespace

CIpcFileSystem::CIpcFileSystem()
    : m_file_handle(new CIfsHandle(IFS_FILE_HANDLES)), m_search_handle(new CIfsHandle(IFS_SEARCH_HANDLES))
{
}

CIpcFileSystem::~CIpcFileSystem()
{
    Ifs_umount();
    delete m_file_handle;
    delete m_search_handle;
}

int CIpcFileSystem::Ifs_mount(const char* dev, const char* dir)
{
    const std::string partition = std::string(dev) + "1";
    std::string mount_point(dir); // the memory for it is there before the card is mounted
    if (Ifsod_mount(partition.c_str(), dir, "vfat", k_mount_flags, "errors=continue") != 0) {
        IFS_ERROR("Ifsod_mount Failed\n");
        return -1;
    }
    Set_mount_point(std::move(mount_point));
    return 0;
}

int CIpcFileSystem::Ifs_umount()
{
    if (!Is_mounted()) {
        return 0;
    }
    if (!m_open_files.Of(File_use::playing).empty()) {
        IFS_ERROR("m_playing_file_table is not empty!\n");
        return -1;
    }
    if (!m_open_files.Of(File_use::recording).empty()) {
        IFS_ERROR("m_recording_file_table is not empty!\n");
        return -1;
    }
    if (!m_searcher_table.empty()) {
        IFS_ERROR("m_searcher_table is not empty!\n");
        return -1;
    }
    if (Ifsod_umount(Mount_dir()) != 0) {
        IFS_ERROR("Ifsod_umount Failed\n");
        return -1;
    }
    Empty_catalogue();
    Set_mount_point({});
    return 0;
}

int CIpcFileSystem::Ifs_format()
{
    return Is_mounted() ? -1 : Ifsod_format();
}

int CIpcFileSystem::Ifs_get_fs_size(unsigned long long* total, unsigned long long* free)
{
    std::array<char, PATH_MAX> dir; // asked for while recording, which allocates nothing
    if (!Copy_mount_point(dir.data(), dir.size()) || Ifsod_get_fs_size(dir.data(), total, free) != 0) {
        return -1;
    }
    Store_shared(gHave_got_fs_size, 1);
    return 0;
}

int CIpcFileSystem::Ifs_get_file_number(unsigned long* main_number, unsigned long* sub_number)
{
    *main_number = 0;
    *sub_number = 0;
    if (!Is_mounted()) {
        return -1;
    }
    *main_number = m_catalogue.Count(IFS_STREAM_MAIN);
    *sub_number = m_catalogue.Count(IFS_STREAM_SUB);
    return 0;
}

const char* CIpcFileSystem::Mount_dir()
{
    May_read();
    return m_mount_point.c_str();
}

void CIpcFileSystem::Set_mount_point(std::string dir)
{
    const Mutex_holder held(m_mount_guard);
    m_mount_point.swap(dir);
}

bool CIpcFileSystem::Copy_mount_point(char* path, size_t size)
{
    const Mutex_holder held(m_mount_guard);
    const bool fits = !m_mount_point.empty() && m_mount_point.size() < size;
    if (fits) {
        strcpy(path, m_mount_point.c_str());
    }
    return fits;
}
