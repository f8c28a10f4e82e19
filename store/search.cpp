#include "store/search.h"

#include <cstring>

#include "store/ipc_file_system.h"
#include "util/calendar_time.h"
#include "util/log.h"

namespace
{

constexpr int k_calendar_days = 31;

/** file_size of a listed recording that was being written when the search was opened. */
constexpr int k_still_written = -1;

bool Describe(CIpcRecFile* file, unsigned info_mask, _ifs_rec_file_* rec)
{
    _rec_file_info_ info{};
    info.info_mask = info_mask;
    const bool described = file->Irf_get_rec_info(&info) == 0;
    *rec = info.rec;
    return described;
}

bool Is_within(const tm* t, const tm* start, const tm* end)
{
    return Ifsm_tm_cmp(t, start) >= 0 && Ifsm_tm_cmp(t, end) <= 0;
}

void Mark_day(const tm* utc, unsigned char* days)
{
    tm local{};
    Ifsm_utc_to_local(utc, &local);
    const int index = local.tm_mday - 1;
    if (index >= 0 && index < k_calendar_days) {
        days[index] = 1;
    }
}

} // namespace

bool Ifs_is_suitable_rec(_ifs_rec_file_* rec, _searcher_info_* search, bool* go_on)
{
    *go_on = true;
    if (Ifsm_tm_cmp(&rec->end_tm, &search->start_tm) < 0) {
        return false;
    }
    if (Ifsm_tm_cmp(&rec->start_tm, &search->end_tm) > 0) {
        *go_on = false;
        return false;
    }
    return true;
}

bool Ifs_is_suitable_rec(Rec_file_list::iterator& it, _ifs_rec_file_* out, _searcher_info_* search,
                         bool* go_on)
{
    if (!Ifs_is_suitable_rec(&*it, search, go_on)) {
        return false;
    }
    Ifs_rec_file_info_copy(it, out, true);
    return true;
}

bool Ifs_is_suitable_rec(CIpcRecFile* file, _ifs_rec_file_* out, _searcher_info_* search)
{
    _ifs_rec_file_ span;
    bool go_on = true;
    return Describe(file, REC_INFO_SPAN, &span) && span.stream_type == search->stream_type &&
           Ifs_is_suitable_rec(&span, search, &go_on) && Describe(file, REC_INFO_ALL, out);
}

void Ifs_calendar_calculate(_ifs_rec_file_* rec, unsigned char* days, tm* start, tm* end)
{
    if (Is_within(&rec->start_tm, start, end)) {
        Mark_day(&rec->start_tm, days);
    }
    if (Is_within(&rec->end_tm, start, end)) {
        Mark_day(&rec->end_tm, days);
    }
}

int Ifrf_tm_compare(const tm* t, const tm* start, const tm* end)
{
    const int against_start = Ifsm_tm_cmp(t, start);
    if (against_start <= 0) {
        return against_start == 0 ? IFRF_AT_START : IFRF_BEFORE_START;
    }
    const int against_end = Ifsm_tm_cmp(t, end);
    if (against_end == 0) {
        return IFRF_AT_END;
    }
    return against_end < 0 ? IFRF_BETWEEN : IFRF_AFTER_END;
}

/** Call take with each catalogued, then with each running recording of a search; its flag: still running. */
template <typename Take>
void CIpcFileSystem::For_each_match(_searcher_info_* search, Take take)
{
    m_catalogue.Walk_ends_from(search->stream_type, search->start_tm,
                               [search, &take](Rec_file_list::iterator it) {
                                   _ifs_rec_file_ rec;
                                   bool go_on = true;
                                   if (Ifs_is_suitable_rec(it, &rec, search, &go_on)) {
                                       take(rec, false);
                                   }
                                   return go_on;
                               });
    for (const auto& [fd, file] : m_open_files.Of(File_use::recording)) {
        _ifs_rec_file_ rec;
        if (Ifs_is_suitable_rec(file, &rec, search)) {
            take(rec, true);
        }
    }
}

int CIpcFileSystem::Ifs_find_open(tm* start, tm* end, _ifs_stream_type_ stream)
{
    if (!Is_mounted()) {
        IFS_ERROR("You must mount file system first\n");
        return -1;
    }
    Taken_handle handle(*m_search_handle);
    if (!handle.Valid()) {
        IFS_ERROR("There is no free search handle\n");
        return -1;
    }
    auto search = std::make_unique<_searcher_info_>();
    search->start_tm = *start;
    search->end_tm = *end;
    search->stream_type = stream;
    Rec_file_list& matches = search->rec_file_list;
    For_each_match(search.get(), [&matches](const _ifs_rec_file_& rec, bool is_running) {
        matches.push_back(rec);
        if (is_running) {
            matches.back().file_size = k_still_written;
        }
    });
    search->cur_pos = matches.begin();
    const int number = static_cast<int>(matches.size());
    _searcher_info_*& place = m_searcher_table[handle.Get()];
    place = search.release();
    IFS_TRACE("start time:" IFS_TM_FORMAT ", end time:" IFS_TM_FORMAT ", stream type:%d, number:%d\n",
              IFS_TM_ARGS(*start), IFS_TM_ARGS(*end), static_cast<int>(stream), number);
    return handle.Keep();
}

int CIpcFileSystem::Ifs_find_close(int handle)
{
    const auto found = m_searcher_table.find(handle);
    if (found != m_searcher_table.end()) {
        delete found->second;
        m_searcher_table.erase(found);
        m_search_handle->Ifsh_free(handle);
    }
    return 0;
}

int CIpcFileSystem::Ifs_find_get_count(int handle)
{
    const auto found = m_searcher_table.find(handle);
    return found != m_searcher_table.end() ? static_cast<int>(found->second->rec_file_list.size()) : 0;
}

int CIpcFileSystem::Ifs_find_next(int handle, int count, _ifs_rec_file_* out)
{
    const auto found = m_searcher_table.find(handle);
    if (found == m_searcher_table.end() || count < 1) {
        return 0;
    }
    Rec_file_list& list = found->second->rec_file_list;
    auto& cur_pos = found->second->cur_pos;
    if (cur_pos == list.end()) {
        IFS_ERROR("Get Over(%d)!\n", static_cast<int>(list.size()));
        return 0;
    }
    int n = 0;
    auto next = cur_pos; // should memory run out on the way, the search stays where it is
    while (n < count && next != list.end()) {
        Ifs_rec_file_info_copy(next, &out[n], true);
        if (out[n].file_size < 1) {
            const int state = Ifs_get_recording_file_info(next, &out[n]);
            if (state == IFS_FILE_GONE || state == IFS_FILE_UNREADABLE) {
                const auto gone = next++;
                if (gone == cur_pos) {
                    cur_pos = next;
                }
                list.erase(gone);
                continue;
            }
            if (state == IFS_FINISHED) {
                Ifs_rec_file_info_copy(next, &out[n], false);
            }
        }
        ++next;
        ++n;
    }
    cur_pos = next;
    IFS_TRACE("Find Number:%d\n", n);
    for (int i = 0; i < n && Ifs_log_on(IFS_DEBUG_DETAIL); ++i) {
        Ifs_print("\tstart time:" IFS_TM_FORMAT ", end time:" IFS_TM_FORMAT ", size:%d\n",
                  IFS_TM_ARGS(out[i].start_tm), IFS_TM_ARGS(out[i].end_tm), out[i].file_size);
    }
    return n;
}

int CIpcFileSystem::Ifs_get_recording_file_info(Rec_file_list::iterator& it, _ifs_rec_file_* out)
{
    for (const auto& [fd, file] : m_open_files.Of(File_use::recording)) {
        _ifs_rec_file_ rec;
        if (!Describe(file, REC_INFO_IDENTITY, &rec)) {
            IFS_ERROR("Irf_get_rec_info Failed\n");
            continue;
        }
        if (rec.stream_type == it->stream_type && Ifsm_tm_cmp(&rec.start_tm, &it->start_tm) == 0 &&
            Describe(file, REC_INFO_ALL, &rec)) {
            *out = rec;
            return IFS_STILL_WRITTEN;
        }
    }
    _rec_file_info_ info{};
    info.info_mask = REC_INFO_NAME;
    Ifs_rec_file_info_copy(it, &info.rec, true);
    CIpcRecFile file;
    if (file.Irf_open(Mount_dir(), &info, IRF_OPEN_PROBE) != 0) {
        IFS_ERROR("Irf_open Failed\n");
        return IFS_FILE_GONE;
    }
    if (!Describe(&file, REC_INFO_ALL, &info.rec)) {
        IFS_ERROR("Irf_get_rec_info Failed\n");
        return IFS_FILE_UNREADABLE;
    }
    *out = info.rec;
    return IFS_FINISHED;
}

int CIpcFileSystem::Ifs_get_rec_calendar(tm* start, tm* end, _ifs_stream_type_ stream, unsigned char* days)
{
    if (!Is_mounted()) {
        IFS_ERROR("You must mount file system first\n");
        return -1;
    }
    memset(days, 0, k_calendar_days);
    _searcher_info_ search{};
    search.start_tm = *start;
    search.end_tm = *end;
    search.stream_type = stream;
    For_each_match(&search,
                   [=](_ifs_rec_file_& rec, bool) { Ifs_calendar_calculate(&rec, days, start, end); });

    IFS_DETAIL("Calendar(stream type:%d)(From " IFS_TM_FORMAT " To " IFS_TM_FORMAT ")\n",
               static_cast<int>(stream), IFS_TM_ARGS(*start), IFS_TM_ARGS(*end));
    for (int day = 1; day <= k_calendar_days && Ifs_log_on(IFS_DEBUG_DETAIL); ++day) {
        Ifs_print("\tDay[%02d]:%d\n", day, days[day - 1]);
    }
    return 0;
}

int CIpcFileSystem::Ifs_get_latest_rec_time(tm* latest)
{
    if (!Is_mounted()) {
        IFS_ERROR("You must mount file system first\n");
        return IFS_NOT_MOUNTED;
    }
    *latest = {};
    int result = IFS_CATALOGUE_EMPTY;
    for (const auto& [stream, list] : m_catalogue.Lists()) {
        if (!list.empty() && Ifsm_tm_cmp(&list.back().end_tm, latest) > 0) {
            *latest = list.back().end_tm;
            result = 0;
        }
    }
    return result;
}
