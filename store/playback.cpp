#include <array>
#include <climits>
#include <cstdio>

#include "store/ipc_file_system.h"
#include "store/limits.h"
#include "store/search.h"
#include "util/calendar_time.h"
#include "util/log.h"

namespace
{

/** Places of a time that a recording can be opened for besides its start, best first. */
constexpr int k_preferences[] = {IFRF_BETWEEN, IFRF_AT_END, IFRF_BEFORE_START};

/** Catalogue entries that answer a time: the best of each place that the time has against them. */
struct Candidates {
    unsigned long found = 0;               ///< a bit a place, as log lines print it
    _ifs_rec_file_ best[IFRF_BETWEEN + 1]; ///< by place

    bool Has(int place) const { return (found >> place & 1) != 0; }

    /** Consider an entry that starts on the day of t. @return the place of t against it */
    int Consider(const _ifs_rec_file_& rec, const tm& t)
    {
        const int place = Ifrf_tm_compare(&t, &rec.start_tm, &rec.end_tm);
        if (place != IFRF_AFTER_END && (!Has(place) || Is_better(place, rec))) {
            found |= 1ul << place;
            best[place] = rec;
        }
        return place;
    }

private:
    bool Is_better(int place, const _ifs_rec_file_& rec) const
    {
        switch (place) {
        case IFRF_BEFORE_START:
            return Ifsm_tm_cmp(&rec.start_tm, &best[place].start_tm) < 0;
        case IFRF_BETWEEN:
            return Ifsm_tm_cmp(&rec.end_tm, &best[place].end_tm) > 0;
        default:
            return true; // of those that end at it the last one
        }
    }
};

const char* Base_name(const char* path)
{
    const char* base = path;
    for (const char* c = path; *c != '\0'; ++c) {
        if (*c == '/') {
            base = c + 1;
        }
    }
    return base;
}

void Write_path(const char* dir, const _ifs_rec_file_& rec, char* path)
{
    _rec_file_info_ info{};
    info.info_mask = REC_INFO_NAME;
    info.rec = rec;
    std::string name;
    CIpcRecFile::SIrf_build_media_fn(name, &info);
    snprintf(path, IFS_PATH_BYTES, "%s/%s", dir, name.c_str());
}

} // namespace

int CIpcFileSystem::Ifs_find_record_file(tm* t, _ifs_stream_type_ stream, bool nearest, _rec_file_info_* out)
{
    Candidates listed;
    tm day = *t;
    day.tm_hour = 0;
    day.tm_min = 0;
    day.tm_sec = INT_MIN;
    m_catalogue.Walk_starts_from(stream, day, [&listed, t](const _ifs_rec_file_& rec) {
        return Ifsm_cmp_date(&rec.start_tm, t) == 0 && listed.Consider(rec, *t) != IFRF_AT_START;
    });
    if (listed.Has(IFRF_AT_START)) {
        out->rec = listed.best[IFRF_AT_START];
        return 0;
    }
    int running = -1; // where t stands to the recording in *out
    for (const auto& [fd, file] : m_open_files.Of(File_use::recording)) {
        out->info_mask = REC_INFO_NAME_AND_END;
        file->Irf_get_rec_info(out);
        const _ifs_rec_file_& rec = out->rec;
        IFS_TRACE("Find recording file(%s, " IFS_TM_FORMAT ")(%s)(" IFS_TM_FORMAT ")(" IFS_TM_FORMAT ")\n",
                  Ifs_stream_word(stream), IFS_TM_ARGS(*t), Ifs_stream_word(rec.stream_type),
                  IFS_TM_ARGS(rec.start_tm), IFS_TM_ARGS(rec.end_tm));
        if (rec.stream_type != stream || Ifsm_cmp_date(&rec.start_tm, t) != 0) {
            continue;
        }
        running = Ifrf_tm_compare(t, &rec.start_tm, &rec.end_tm);
        if (running == IFRF_AT_START) {
            return 0;
        }
        if (running != IFRF_AFTER_END) {
            break;
        }
    }
    IFS_DETAIL("list_find_bitmap:0x%08lx, %d, %d\n", listed.found, running, static_cast<int>(nearest));
    if (!nearest) {
        return -1;
    }
    for (const int place : k_preferences) {
        if (listed.Has(place)) {
            out->rec = listed.best[place];
            return 0;
        }
        if (running == place) {
            return 0;
        }
    }
    return -1;
}

/** The steps that all opens share; open_file opens the file that was asked for. */
template <typename Open_file>
int CIpcFileSystem::Ifs_open(Open_file open_file)
{
    Taken_handle handle(*m_file_handle);
    if (!handle.Valid()) {
        IFS_ERROR("There is no free handle\n");
        return -1;
    }
    auto file = std::make_unique<CIpcRecFile>();
    if (open_file(*file) != 0) {
        IFS_ERROR("Irf_open Failed\n");
        return -1;
    }
    m_open_files.Enter(File_use::playing, handle.Get(), file);
    return handle.Keep();
}

int CIpcFileSystem::Ifs_open(tm* t, _ifs_stream_type_ stream)
{
    if (!Is_mounted()) {
        IFS_ERROR("You must mount file system first\n");
        return -1;
    }
    _rec_file_info_ info{};
    const bool nearest = stream != IFS_STREAM_MAIN;
    if (Ifs_find_record_file(t, stream, nearest, &info) != 0) {
        IFS_ERROR("Find record file Failed(%s, " IFS_TM_FORMAT ")\n", Ifs_stream_word(stream),
                  IFS_TM_ARGS(*t));
        return -1;
    }
    IFS_ALWAYS("Ifs_open Find Ok(%s, " IFS_TM_FORMAT ")(" IFS_TM_FORMAT ")(" IFS_TM_FORMAT ")\n",
               Ifs_stream_word(stream), IFS_TM_ARGS(*t), IFS_TM_ARGS(info.rec.start_tm),
               IFS_TM_ARGS(info.rec.end_tm));
    info.info_mask = REC_INFO_NAME;
    const char* const dir = Mount_dir();
    return Ifs_open([&](CIpcRecFile& file) { return file.Irf_open(dir, &info, IRF_OPEN_READ); });
}

int CIpcFileSystem::Ifs_open(char* name)
{
    if (!Is_mounted()) {
        IFS_ERROR("You must mount file system first\n");
        return -1;
    }
    const char* const dir = Mount_dir();
    return Ifs_open([&](CIpcRecFile& file) { return file.Irf_open(dir, Base_name(name), IRF_OPEN_READ); });
}

int CIpcFileSystem::Ifs_open(_ifs_rec_file_* rec)
{
    if (!Is_mounted()) {
        IFS_ERROR("You must mount file system first\n");
        return -1;
    }
    _rec_file_info_ info{REC_INFO_NAME, *rec};
    const char* const dir = Mount_dir();
    return Ifs_open([&](CIpcRecFile& file) { return file.Irf_open(dir, &info, IRF_OPEN_READ); });
}

int CIpcFileSystem::Ifs_stat(int fd, _ifs_rec_file_* rec)
{
    CIpcRecFile* file = m_open_files.Find(File_use::playing, fd);
    if (file == nullptr) {
        file = m_open_files.Find(File_use::recording, fd);
    }
    if (file == nullptr) {
        IFS_ERROR("Invalid fd\n");
        return -1;
    }
    _rec_file_info_ info{};
    info.info_mask = REC_INFO_ALL;
    if (file->Irf_get_rec_info(&info) != 0) {
        IFS_ERROR("Irf_get_rec_info Failed\n");
        return -1;
    }
    *rec = info.rec;
    return 0;
}

int CIpcFileSystem::Ifs_read(int fd, char* buf, int size, int* payload_offset, int* payload_len,
                             int* frame_offset, int* frame_len, _ifs_frame_type_* frame_type, int* time)
{
    CIpcRecFile* const file = m_open_files.Find(File_use::playing, fd);
    if (file == nullptr) {
        IFS_ERROR("It's not playing file(%d)\n", fd);
        return -1;
    }
    return file->Irf_read(buf, size, payload_offset, payload_len, frame_offset, frame_len, frame_type, time);
}

int CIpcFileSystem::Ifs_read(int fd, char* buf, int size)
{
    CIpcRecFile* const file = m_open_files.Find(File_use::playing, fd);
    if (file == nullptr) {
        IFS_ERROR("It's not playing file(%d)\n", fd);
        return -1;
    }
    return file->Irf_read(buf, size);
}

int CIpcFileSystem::Ifs_seek(int fd, long offset, int whence)
{
    CIpcRecFile* const file = m_open_files.Find(File_use::playing, fd);
    if (file == nullptr) {
        IFS_ERROR("It's not playing file(%d)\n", fd);
        return -1;
    }
    return file->Irf_seek(offset, whence);
}

int CIpcFileSystem::Ifs_tseek(int fd, unsigned int t)
{
    CIpcRecFile* const file = m_open_files.Find(File_use::playing, fd);
    if (file == nullptr) {
        IFS_ERROR("It's not playing file(%d)\n", fd);
        return -1;
    }
    return file->Irf_tseek(t);
}

int CIpcFileSystem::Ifs_get_file_name(_ifs_rec_file_* rec, char* path)
{
    std::array<char, PATH_MAX> dir;
    if (!Copy_mount_point(dir.data(), dir.size())) {
        IFS_ERROR("You must mount file system first\n");
        return -1;
    }
    Write_path(dir.data(), *rec, path);
    return 0;
}

int CIpcFileSystem::Ifs_get_file_name(tm* t, _ifs_stream_type_ stream, char* path)
{
    std::array<char, PATH_MAX> dir;
    if (!Copy_mount_point(dir.data(), dir.size())) {
        IFS_ERROR("You must mount file system first\n");
        return -1;
    }
    _rec_file_info_ info{};
    if (m_catalogue.Find_start(stream, *t, &info.rec)) {
        Write_path(dir.data(), info.rec, path);
        return 0;
    }
    std::array<CIpcRecFile*, IFS_FILE_HANDLES> files;
    const size_t count = m_open_files.Copy_recordings(files);
    for (size_t i = 0; i < count; ++i) {
        info.info_mask = REC_INFO_NAME;
        if (files[i]->Irf_get_rec_info(&info) == 0 && Ifsm_tm_cmp(&info.rec.start_tm, t) == 0 &&
            info.rec.stream_type == stream) {
            Write_path(dir.data(), info.rec, path);
            return 0;
        }
    }
    IFS_ERROR("Find file Failed\n");
    return -1;
}
