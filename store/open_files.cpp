#include <algorithm>
#include <cstring>

#include "store/ipc_file_system.h"
#include "store/limits.h"
#include "util/calendar_time.h"

std::string CIpcFileSystem::Mount_point() const
{
    const std::lock_guard<std::mutex> held(m_table_guard);
    return m_mount_point;
}

bool CIpcFileSystem::Copy_mount_point(char* path, size_t size) const
{
    const std::lock_guard<std::mutex> held(m_table_guard);
    const bool fits = !m_mount_point.empty() && m_mount_point.size() < size;
    if (fits) {
        strcpy(path, m_mount_point.c_str());
    }
    return fits;
}

void CIpcFileSystem::Set_mount_point(std::string dir)
{
    const std::lock_guard<std::mutex> held(m_table_guard);
    m_mount_point.swap(dir);
}

void CIpcFileSystem::Empty_catalogue()
{
    const std::lock_guard<std::mutex> held(m_table_guard);
    m_unindexed_count_table.clear();
    m_index_list_table.clear();
    m_rec_file_list_table.clear();
    m_catalogue_indexes = {};
    m_overlap_count_table.clear();
}

void CIpcFileSystem::Forget_everything()
{
    Empty_catalogue();
    const std::lock_guard<std::mutex> held(m_table_guard);
    m_mount_point.clear();
    m_recording_file_table.clear();
    m_playing_file_table.clear();
    m_searcher_table.clear();
}

void CIpcFileSystem::Add_to_catalogue(_ifs_stream_type_ stream, const _ifs_rec_file_& rec)
{
    const std::lock_guard<std::mutex> held(m_table_guard);
    m_rec_file_list_table[stream].push_back(rec);
}

void CIpcFileSystem::Add_sorted(_ifs_stream_type_ stream, Rec_file_list& entry)
{
    const std::lock_guard<std::mutex> held(m_table_guard);
    Rec_file_list& list = m_rec_file_list_table[stream];
    Catalogue_index& index = m_catalogue_indexes[stream];
    const bool stays_sorted =
        index.Ascends() && (list.empty() || Ifsm_tm_cmp(&list.back().start_tm, &entry.front().start_tm) < 0);
    list.splice(list.end(), entry);
    if (stays_sorted) {
        index.Extend(list);
    } else {
        index.Sort(list);
    }
}

void CIpcFileSystem::Put_in_front_of_catalogue(_ifs_stream_type_ stream, Rec_file_list& recordings)
{
    const std::lock_guard<std::mutex> held(m_table_guard);
    Rec_file_list& list = m_rec_file_list_table[stream];
    list.splice(list.begin(), recordings);
}

void CIpcFileSystem::Remove_from_catalogue(_ifs_stream_type_ stream, Rec_file_list::iterator position)
{
    const std::lock_guard<std::mutex> held(m_table_guard);
    Rec_file_list& list = m_rec_file_list_table[stream];
    m_catalogue_indexes[stream].Forget(list, position);
    list.erase(position);
}

void CIpcFileSystem::Sort_catalogue(_ifs_stream_type_ stream)
{
    const std::lock_guard<std::mutex> held(m_table_guard);
    m_catalogue_indexes[stream].Sort(m_rec_file_list_table[stream]);
}

void CIpcFileSystem::Enter_file(File_table& table, int fd, std::unique_ptr<CIpcRecFile>& file)
{
    const std::lock_guard<std::mutex> held(m_table_guard);
    CIpcRecFile*& place = table[fd];
    place = file.release();
}

std::unique_ptr<CIpcRecFile> CIpcFileSystem::Remove_file(File_table& table, int fd)
{
    const std::lock_guard<std::mutex> held(m_table_guard);
    const auto found = table.find(fd);
    std::unique_ptr<CIpcRecFile> file(found->second);
    table.erase(found);
    return file;
}

CIpcRecFile* CIpcFileSystem::Find_file(const File_table& table, int fd) const
{
    const std::lock_guard<std::mutex> held(m_table_guard);
    const auto found = table.find(fd);
    return found != table.end() ? found->second : nullptr;
}

std::vector<CIpcRecFile*> CIpcFileSystem::Recordings() const
{
    std::vector<CIpcRecFile*> files;
    files.reserve(IFS_FILE_HANDLES);
    const std::lock_guard<std::mutex> held(m_table_guard);
    for (const auto& [fd, file] : m_recording_file_table) {
        files.push_back(file);
    }
    return files;
}

bool CIpcFileSystem::Find_catalogued(const tm* start, _ifs_stream_type_ stream, _ifs_rec_file_* out) const
{
    const std::lock_guard<std::mutex> held(m_table_guard);
    const auto found = m_rec_file_list_table.find(stream);
    if (found == m_rec_file_list_table.end()) {
        return false;
    }
    const Rec_file_list& list = found->second;
    const auto entry = std::find_if(list.begin(), list.end(), [start](const _ifs_rec_file_& rec) {
        return Ifsm_tm_cmp(&rec.start_tm, start) == 0;
    });
    if (entry == list.end()) {
        return false;
    }
    *out = *entry;
    return true;
}
