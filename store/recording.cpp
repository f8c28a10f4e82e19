#include <algorithm>
#include <climits>

#include "store/ipc_file_system.h"
#include "store/limits.h"
#include "util/log.h"

namespace
{

/** A signed 32-bit counter plus the bytes of one frame, held at its bounds. */
int Add_bytes(int counter, int len1, int len2)
{
    const long long sum = static_cast<long long>(counter) + len1 + len2;
    return static_cast<int>(std::clamp<long long>(sum, INT_MIN, INT_MAX));
}

} // namespace

int CIpcFileSystem::Ifs_create(tm* start, int video_system, int video_res, int width, int height,
                               int frame_rate, int audio_profile, SAMPLE_RATE_INDEX_E sample_rate_index,
                               int audio_channel_conf, int have_audio, _ifs_stream_type_ stream_type)
{
    if (!Is_mounted()) {
        IFS_ERROR("You must mount file system first\n");
        return -1;
    }
    unsigned long long free_bytes = 0;
    if (Ifs_get_fs_size(nullptr, &free_bytes) != 0) {
        IFS_ERROR("Ifs_get_fs_size Failed\n");
        return -1;
    }
    if (free_bytes <= IFS_FULL_FREE_LIMIT) {
        IFS_ERROR("sd card is full(%lld <= %lld)\n", static_cast<long long>(free_bytes),
                  static_cast<long long>(IFS_FULL_FREE_LIMIT));
        return -1;
    }
    Taken_handle handle(*m_file_handle);
    if (!handle.Valid()) {
        IFS_ERROR("There is no free handle\n");
        return -1;
    }
    _rec_file_info_ info{};
    info.info_mask = REC_INFO_CREATE;
    info.rec.start_tm = *start;
    info.rec.video_system = static_cast<unsigned char>(video_system);
    info.rec.video_res = static_cast<unsigned char>(video_res);
    info.rec.frame_rate = static_cast<unsigned char>(frame_rate);
    info.rec.width = width;
    info.rec.height = height;
    info.rec.audio_profile = audio_profile;
    info.rec.audio_sample_rate_index = sample_rate_index;
    info.rec.audio_channel_conf = audio_channel_conf;
    info.rec.have_audio = have_audio;
    info.rec.stream_type = stream_type;
    std::string name;
    name.reserve(IFS_PATH_BYTES); // so that a lack of memory leaves the name to delete
    auto file = std::make_unique<CIpcRecFile>();
    if (file->Irf_create(Mount_dir(), &info) != 0) {
        IFS_ERROR("Irf_create Failed\n");
        return -1;
    }
    try {
        m_open_files.Enter(File_use::recording, handle.Get(), file);
    } catch (const std::bad_alloc&) { // the file must not refuse its name to the next try
        file->Irf_get_media_fn(name);
        file->Irf_close();
        CIpcRecFile::SIrf_remove_file(Mount_dir(), name.c_str());
        return -1;
    }
    return handle.Keep();
}

int CIpcFileSystem::Ifs_write(int fd, char* data1, int len1, char* data2, int len2, _ifs_frame_type_ type,
                              unsigned long long pts)
{
    static int total_write_len = 0;

    total_write_len = Add_bytes(total_write_len, len1, len2);
    if (total_write_len >= IFS_WRITE_CHECK_BYTES) {
        unsigned long long free_bytes = 0;
        if (Ifs_get_fs_size(nullptr, &free_bytes) != 0) {
            IFS_ERROR("Ifs_get_fs_size Failed\n");
            return -1;
        }
        if (free_bytes <= IFS_WRITE_FREE_LIMIT) {
            IFS_ERROR("sd card is full(%lld)\n", static_cast<long long>(free_bytes));
            return -1;
        }
        total_write_len = 0;
    }
    CIpcRecFile* const file = m_open_files.Find(File_use::recording, fd);
    if (file == nullptr) {
        IFS_ERROR("It's not recording file(%d)\n", fd);
        return -1;
    }
    return file->Irf_write(data1, len1, data2, len2, type, pts);
}

int CIpcFileSystem::Ifs_close(int fd, tm* end)
{
    if (m_open_files.Find(File_use::playing, fd) != nullptr) {
        Close_file(File_use::playing, fd);
        return 0;
    }
    CIpcRecFile* const file = m_open_files.Find(File_use::recording, fd);
    if (file == nullptr) {
        IFS_ERROR("Invalid fd:%d\n", fd);
        return 0;
    }
    try {
        Ifs_close(*file, fd, end);
    } catch (const std::bad_alloc&) { // the next mount finds what the catalogue or the index now lacks
        if (m_open_files.Find(File_use::recording, fd) != nullptr) {
            Close_file(File_use::recording, fd);
        }
    }
    return 0;
}

/** Close a recording, and enter it or delete it. */
void CIpcFileSystem::Ifs_close(CIpcRecFile& file, int fd, tm* end)
{
    std::string name;
    file.Irf_get_media_fn(name);
    file.Irf_flush();
    _rec_file_info_ info{};
    info.info_mask = REC_INFO_ALL;
    bool stays = false;
    if (file.Irf_get_rec_info(&info) != 0) {
        IFS_ERROR("Irf_get_rec_info Failed\n");
    } else if (info.rec.file_size == 0) {
        IFS_ERROR("file size is zero\n");
    } else {
        stays = true;
    }
    if (!stays) {
        Close_file(File_use::recording, fd);
        IFS_TRACE("remove file(%s, %s)\n", Mount_dir(), name.c_str());
        CIpcRecFile::SIrf_remove_file(Mount_dir(), name.c_str());
        return;
    }
    if (end != nullptr) {
        info.rec.end_tm = *end;
    }
    IFS_ALWAYS("Close recording file(file name:%s)(end time:" IFS_TM_FORMAT ")(pEnd_tm:%p)\n", name.c_str(),
               IFS_TM_ARGS(info.rec.end_tm), static_cast<void*>(end));
    Rec_file_list entry(1, info.rec); // what is in the index can be entered in the catalogue, too
    Ifs_append_index_file(info.rec.stream_type, &info.rec);
    m_catalogue.Add(info.rec.stream_type, entry);
    Close_file(File_use::recording, fd);
}

/** Close an open file and take it out of its table, its handle back and its object down. */
void CIpcFileSystem::Close_file(File_use use, int fd)
{
    const std::unique_ptr<CIpcRecFile> file = m_open_files.Remove(use, fd);
    file->Irf_close();
    m_file_handle->Ifsh_free(fd);
}
