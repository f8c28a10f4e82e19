#include "store/open_files.h"

void Open_files::Enter(File_use use, int fd, std::unique_ptr<CIpcRecFile>& file)
{
    const Mutex_holder held(m_guard);
    CIpcRecFile*& place = Table(use)[fd];
    place = file.release();
}

std::unique_ptr<CIpcRecFile> Open_files::Remove(File_use use, int fd)
{
    const Mutex_holder held(m_guard);
    File_table& table = Table(use);
    const auto found = table.find(fd);
    std::unique_ptr<CIpcRecFile> file(found->second);
    table.erase(found);
    return file;
}

File_table& Open_files::Of(File_use use)
{
    May_read();
    return Table(use);
}

CIpcRecFile* Open_files::Find(File_use use, int fd)
{
    const Mutex_holder held(m_guard);
    const File_table& table = Table(use);
    const auto found = table.find(fd);
    return found != table.end() ? found->second : nullptr;
}

size_t Open_files::Copy_recordings(std::array<CIpcRecFile*, IFS_FILE_HANDLES>& files)
{
    const Mutex_holder held(m_guard);
    size_t count = 0;
    for (const auto& [fd, file] : m_recording_file_table) {
        files[count++] = file;
    }
    return count;
}
