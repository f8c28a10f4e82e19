#include "store/ipc_file_system.h"
#include "store/limits.h"
#include "util/calendar_time.h"
#include "util/log.h"

int CIpcFileSystem::Ifs_find_record_file(File_table& table, Rec_file_list::iterator& entry,
                                         _ifs_stream_type_ stream)
{
    for (const auto& [fd, file] : table) {
        _rec_file_info_ info{};
        info.info_mask = REC_INFO_IDENTITY;
        if (file->Irf_get_rec_info(&info, false) == 0 && info.rec.stream_type == stream &&
            Ifsm_tm_cmp(&info.rec.start_tm, &entry->start_tm) == 0) {
            return fd;
        }
    }
    return m_file_handle->Ifsh_get_invalid_handle();
}

/** Find the stream's earliest recording that is not being played. @return its position, or the list's end */
Rec_file_list::iterator CIpcFileSystem::Overlap_candidate(_ifs_stream_type_ stream, Rec_file_list& list)
{
    for (auto entry = list.begin(); entry != list.end(); ++entry) {
        const int playing = Ifs_find_record_file(m_open_files.Of(File_use::playing), entry, stream);
        if (!m_file_handle->Ifsh_valid_handle(playing)) {
            Ifs_print_rec_file_info("overlap earliest file", 0, entry);
            return entry;
        }
        Ifs_print_rec_file_info("overlap playing file", 0, entry);
    }
    return list.end();
}

int CIpcFileSystem::Ifs_overlap()
{
    std::map<_ifs_stream_type_, Rec_file_list::iterator> candidates;
    for (auto& [stream, list] : m_catalogue.Lists()) {
        const auto candidate = Overlap_candidate(stream, list);
        if (candidate != list.end()) {
            candidates[stream] = candidate;
        }
    }
    if (candidates.empty()) {
        IFS_ERROR("No file to remove\n");
        return 0;
    }
    auto chosen = candidates.begin();
    for (auto other = std::next(chosen); other != candidates.end(); ++other) {
        if (Ifsm_tm_cmp(&chosen->second->start_tm, &other->second->start_tm) == 1) {
            chosen = other;
        }
    }
    auto [stream, position] = *chosen;
    int& removed = m_overlap_count_table[stream];
    _rec_file_info_ info{};
    info.info_mask = REC_INFO_NAME;
    Ifs_rec_file_info_copy(position, &info.rec, true);
    std::string name;
    if (CIpcRecFile::SIrf_build_media_fn(name, &info) == 0) {
        IFS_TRACE("remove file(%s)\n", name.c_str());
        CIpcRecFile::SIrf_remove_file(Mount_dir(), name.c_str());
    } else {
        IFS_ERROR("SIrf_build_media_fn Failed\n");
    }
    m_catalogue.Remove(stream, position);
    ++removed;
    if (removed >= IFS_OVERLAP_REWRITE_COUNT) {
        removed = 0;
        Ifs_rewrite_index_file(stream, m_catalogue.Lists()[stream]);
    }
    return 0;
}
