#include <boost/bind/bind.hpp>

#include <cstring>

#include "store/ipc_file_system.h"
#include "util/calendar_time.h"
#include "util/log.h"

namespace
{

constexpr _ifs_stream_type_ k_streams[] = {IFS_STREAM_MAIN, IFS_STREAM_SUB};

bool Is_older_naming(const char* name)
{
    return strstr(name, ".data") != nullptr && strncmp(name, "CH", 2) == 0;
}

} // namespace

int CIpcFileSystem::Ifs_build_rec_file_list()
{
    if (!Is_mounted()) {
        IFS_ERROR("You must mount file system first\n");
        return -1;
    }
    Empty_catalogue();
    m_knows_whole_card = true;
    for (const _ifs_stream_type_ stream : k_streams) {
        m_knows_whole_card &= Take_index(stream);
    }
    const auto scan = boost::bind(&CIpcFileSystem::Scan_record_file, this, boost::placeholders::_1,
                                  boost::placeholders::_2, boost::placeholders::_3);
    // A reference to the callback takes no memory.
    Ifsdc_scan_directory(Mount_dir(), boost::cref(scan), nullptr);
    for (const _ifs_stream_type_ stream : k_streams) {
        Publish_found(stream);
    }
    for (auto& [stream, left_over] : m_index_list_table) {
        const int unindexed = m_unindexed_count_table[stream];
        if (!m_knows_whole_card || (unindexed == 0 && left_over.empty())) {
            continue;
        }
        IFS_TRACE("Rewrite index file(%d, %d, %d)\n", static_cast<int>(stream), unindexed,
                  static_cast<int>(left_over.size()));
        Ifs_rewrite_index_file(stream, m_catalogue.Lists()[stream]);
    }
    unsigned long main_number = 0;
    unsigned long sub_number = 0;
    Ifs_get_file_number(&main_number, &sub_number);
    IFS_TRACE("Number of main stream record file:%d\n", static_cast<int>(main_number));
    IFS_TRACE("Number of sub stream record file:%d\n", static_cast<int>(sub_number));
    return 0;
}

_scan_dir_operation_ CIpcFileSystem::Scan_record_file(const char*, const char* name, void*)
try {
    _rec_file_info_ named{};
    named.info_mask = REC_INFO_NAME;
    m_scanned_name = name; // in the memory of the last one
    if (CIpcRecFile::SIrf_get_rec_info(m_scanned_name, &named) != 0) {
        if (Is_older_naming(name)) {
            Store_shared(gCard_fs_version, 1);
        }
        return SCAN_DIR_CONTINUE;
    }
    if (Is_being_recorded(name)) { // it enters the catalogue when it is closed
        return SCAN_DIR_CONTINUE;
    }
    const _ifs_stream_type_ stream = named.rec.stream_type;
    if (m_index_searches[stream].Find(named.rec.start_tm)) {
        return SCAN_DIR_CONTINUE;
    }
    IFS_TRACE_TIMED("%s\n", name);
    CIpcRecFile file;
    if (file.Irf_open(Mount_dir(), name, IRF_OPEN_PROBE) != 0) {
        IFS_ERROR("Remove file1(%s)\n", name);
        CIpcRecFile::SIrf_remove_file(Mount_dir(), name);
        return SCAN_DIR_CONTINUE;
    }
    IFS_TRACE_TIMED("%s\n", name);
    _rec_file_info_ probed{};
    probed.info_mask = REC_INFO_ALL;
    if (file.Irf_get_rec_info(&probed) != 0) {
        file.Irf_close();
        IFS_ERROR("Remove file2(%s)\n", name);
        CIpcRecFile::SIrf_remove_file(Mount_dir(), name);
        return SCAN_DIR_CONTINUE;
    }
    IFS_TRACE_TIMED("%s\n", name);
    if (probed.rec.file_size == 0) {
        IFS_ERROR("Remove file3(%s)\n", name);
        CIpcRecFile::SIrf_remove_file(Mount_dir(), name);
        return SCAN_DIR_CONTINUE;
    }
    ++m_unindexed_count_table[stream];
    m_probed[stream].push_back(probed.rec);
    return SCAN_DIR_CONTINUE;
} catch (const std::bad_alloc&) {
    IFS_ERROR("No memory for record file(%s)\n", name);
    m_knows_whole_card = false;
    return SCAN_DIR_CONTINUE;
}

/**
 * Load a stream's index and prepare the search for what the scan will find in it. Without the memory for that
 * the stream has no index, and its files are probed.
 *
 * @return whether memory sufficed
 */
bool CIpcFileSystem::Take_index(_ifs_stream_type_ stream)
try {
    m_unindexed_count_table[stream] = 0;
    Rec_file_list& list = m_index_list_table[stream];
    Rec_file_list loaded;
    Ifs_load_index_file(stream, loaded);
    m_index_searches[stream].Begin(loaded);
    list.swap(loaded);
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

bool CIpcFileSystem::Is_being_recorded(const char* name)
{
    for (const auto& [fd, file] : m_open_files.Of(File_use::recording)) {
        std::string recorded;
        file->Irf_get_media_fn(recorded);
        if (recorded == name) {
            return true;
        }
    }
    return false;
}

/**
 * Put the index entries whose files the scan has found into the catalogue, in front of the recordings that it
 * probed. So of those that start in the same second the index entries come first, in the index's order.
 */
void CIpcFileSystem::Publish_found(_ifs_stream_type_ stream)
{
    Rec_file_list found;
    const auto index_list = m_index_list_table.find(stream);
    if (index_list != m_index_list_table.end()) {
        found = m_index_searches[stream].Take_found(index_list->second);
    }
    for (_ifs_rec_file_& rec : found) {
        rec.stream_type = stream; // whatever a damaged item says
    }
    found.splice(found.end(), m_probed[stream]);
    m_catalogue.Replace(stream, std::move(found));
}

void CIpcFileSystem::Empty_catalogue()
{
    m_catalogue.Clear();
    m_unindexed_count_table.clear();
    m_index_list_table.clear();
    m_overlap_count_table.clear();
}
