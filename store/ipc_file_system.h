#ifndef IFS_STORE_IPC_FILE_SYSTEM_H
#define IFS_STORE_IPC_FILE_SYSTEM_H

#include <array>
#include <map>
#include <memory>
#include <string>

#include "recfile/rec_file.h"
#include "store/catalogue.h"
#include "store/handle_table.h"
#include "store/ifsdirectoryscaner.h"
#include "store/index_search.h"
#include "store/open_files.h"
#include "store/process_locks.h"
#include "store/searcher_info.h"
#include "util/mutex.h"

/** Why there is no latest recording. */
enum {
    IFS_CATALOGUE_EMPTY = -2,
    IFS_NOT_MOUNTED = -3,
};

/** What has become of a listed recording. */
enum {
    IFS_STILL_WRITTEN = 0,
    IFS_FINISHED = 1,
    IFS_FILE_GONE = 2,
    IFS_FILE_UNREADABLE = -1,
};

/**
 * The record store: where the card is mounted, the catalogue, and what is open.
 *
 * Callers hold the process-wide locks; the exported call of the same name says which, and the compiler's
 * analysis checks it. Those locks leave a few reads without the interface lock: the mount point, the
 * catalogue and the open files. Each of these has a guard of its own, which is held for one access and never
 * across I/O.
 *
 * Results are 0 (or a handle or a count) on success and -1 on failure unless said otherwise.
 */
class CIpcFileSystem
{
public:
    CIpcFileSystem();
    ~CIpcFileSystem();
    CIpcFileSystem(const CIpcFileSystem&) = delete;
    CIpcFileSystem& operator=(const CIpcFileSystem&) = delete;

    /* lifecycle.cpp */
    /** Mount the first partition of the whole-disk device dev on dir. */
    int Ifs_mount(const char* dev, const char* dir) REQUIRES(gIfs_interface_lock);
    int Ifs_umount() REQUIRES(gIfs_interface_lock);
    /** Format the card; refused while mounted. */
    int Ifs_format() REQUIRES(gIfs_interface_lock);
    /** Total and free bytes of the mounted file system; either pointer may be null. */
    int Ifs_get_fs_size(unsigned long long* total, unsigned long long* free);
    int Ifs_get_file_number(unsigned long* main_number, unsigned long* sub_number)
        REQUIRES(gIfs_interface_lock);

    /* index_file.cpp */
    /** Build the path of a stream's index file. */
    int Ifs_get_index_fn(_ifs_stream_type_ stream, std::string& fn) REQUIRES(gIfs_interface_lock);
    int Ifs_append_index_file(_ifs_stream_type_ stream, _ifs_rec_file_* rec) REQUIRES(gIfs_interface_lock);
    /** Replace the index file by one that holds list; without entries it is removed and the result is -1. */
    int Ifs_rewrite_index_file(_ifs_stream_type_ stream, Rec_file_list& list) REQUIRES(gIfs_interface_lock);
    /** Read the index file into list, sorted; a missing or damaged file gives no entry. @return 0 */
    int Ifs_load_index_file(_ifs_stream_type_ stream, Rec_file_list& list) REQUIRES(gIfs_interface_lock);

    /* rebuild.cpp */
    /** Recreate the catalogue from the card's directory and the index files. */
    int Ifs_build_rec_file_list() REQUIRES(gIfs_interface_lock);
    _scan_dir_operation_ Scan_record_file(const char* dir, const char* name, void* user)
        REQUIRES(gIfs_interface_lock);

    /* recording.cpp */
    int Ifs_create(tm* start, int video_system, int video_res, int width, int height, int frame_rate,
                   int audio_profile, SAMPLE_RATE_INDEX_E sample_rate_index, int audio_channel_conf,
                   int have_audio, _ifs_stream_type_ stream_type)
        REQUIRES(gIfs_interface_lock, gIfs_write_lock);
    int Ifs_write(int fd, char* data1, int len1, char* data2, int len2, _ifs_frame_type_ type,
                  unsigned long long pts) REQUIRES(gIfs_write_lock);
    /** Close a recording or a playback. @return 0 */
    int Ifs_close(int fd, tm* end) REQUIRES(gIfs_interface_lock, gIfs_write_lock, gIfs_read_lock);

    /* playback.cpp */
    int Ifs_open(tm* t, _ifs_stream_type_ stream) REQUIRES(gIfs_interface_lock, gIfs_read_lock);
    int Ifs_open(char* name) REQUIRES(gIfs_interface_lock, gIfs_read_lock);
    int Ifs_open(_ifs_rec_file_* rec) REQUIRES(gIfs_interface_lock, gIfs_read_lock);
    /** Find the recording that starts at t or, with nearest, the nearest one that started on that day. */
    int Ifs_find_record_file(tm* t, _ifs_stream_type_ stream, bool nearest, _rec_file_info_* out)
        REQUIRES(gIfs_interface_lock);
    int Ifs_stat(int fd, _ifs_rec_file_* rec) REQUIRES(gIfs_read_lock);
    int Ifs_read(int fd, char* buf, int size, int* payload_offset, int* payload_len, int* frame_offset,
                 int* frame_len, _ifs_frame_type_* frame_type, int* time) REQUIRES(gIfs_read_lock);
    int Ifs_read(int fd, char* buf, int size) REQUIRES(gIfs_read_lock);
    int Ifs_seek(int fd, long offset, int whence) REQUIRES(gIfs_read_lock);
    int Ifs_tseek(int fd, unsigned int t) REQUIRES(gIfs_read_lock);
    int Ifs_get_file_name(_ifs_rec_file_* rec, char* path);
    int Ifs_get_file_name(tm* t, _ifs_stream_type_ stream, char* path) REQUIRES(gIfs_read_lock);

    /* overlap.cpp */
    /** Delete the earliest-starting recording that is not being played, if there is one. @return 0 */
    int Ifs_overlap() REQUIRES(gIfs_interface_lock);
    /** Find the open file that holds a catalogue entry. @return its handle, or -1 */
    int Ifs_find_record_file(File_table& table, Rec_file_list::iterator& entry, _ifs_stream_type_ stream)
        REQUIRES(gIfs_interface_lock);

    /* search.cpp */
    int Ifs_find_open(tm* start, tm* end, _ifs_stream_type_ stream) REQUIRES(gIfs_interface_lock);
    /** @return 0 */
    int Ifs_find_close(int handle) REQUIRES(gIfs_interface_lock);
    int Ifs_find_get_count(int handle) REQUIRES(gIfs_interface_lock);
    int Ifs_find_next(int handle, int count, _ifs_rec_file_* out) REQUIRES(gIfs_interface_lock);
    int Ifs_get_rec_calendar(tm* start, tm* end, _ifs_stream_type_ stream, unsigned char* days)
        REQUIRES(gIfs_interface_lock);
    /** @return 0, IFS_CATALOGUE_EMPTY or IFS_NOT_MOUNTED */
    int Ifs_get_latest_rec_time(tm* latest) REQUIRES(gIfs_interface_lock);
    /** Describe a listed recording as it is now. @return IFS_STILL_WRITTEN to IFS_FILE_UNREADABLE */
    int Ifs_get_recording_file_info(Rec_file_list::iterator& it, _ifs_rec_file_* out)
        REQUIRES(gIfs_interface_lock);

private:
    /** Who holds the interface lock may read the mount point: nobody else changes it. */
    void May_read() const REQUIRES(gIfs_interface_lock) ASSERT_SHARED(m_mount_guard) {}
    const char* Mount_dir() REQUIRES(gIfs_interface_lock);
    bool Is_mounted() REQUIRES(gIfs_interface_lock) { return *Mount_dir() != '\0'; }
    void Set_mount_point(std::string dir) REQUIRES(gIfs_interface_lock);
    /** Whatever locks are held. @return whether the store is mounted, at a path that fits in */
    bool Copy_mount_point(char* path, size_t size) EXCLUDES(m_mount_guard);

    void Ifs_close(CIpcRecFile& file, int fd, tm* end) REQUIRES(gIfs_interface_lock);
    void Close_file(File_use use, int fd) REQUIRES(gIfs_interface_lock);
    bool Is_being_recorded(const char* name) REQUIRES(gIfs_interface_lock);
    void Empty_catalogue() REQUIRES(gIfs_interface_lock);
    bool Take_index(_ifs_stream_type_ stream) REQUIRES(gIfs_interface_lock);
    void Publish_found(_ifs_stream_type_ stream) REQUIRES(gIfs_interface_lock);
    Rec_file_list::iterator Overlap_candidate(_ifs_stream_type_ stream, Rec_file_list& list)
        REQUIRES(gIfs_interface_lock);
    template <typename Take>
    void For_each_match(_searcher_info_* search, Take take) REQUIRES(gIfs_interface_lock);
    template <typename Open_file>
    int Ifs_open(Open_file open_file) REQUIRES(gIfs_interface_lock);

    std::string m_mount_point GUARDED_BY(m_mount_guard); ///< empty while not mounted
    std::map<_ifs_stream_type_, int> m_overlap_count_table GUARDED_BY(gIfs_interface_lock);
    Catalogue m_catalogue;
    std::map<_ifs_stream_type_, int> m_unindexed_count_table GUARDED_BY(gIfs_interface_lock);
    Rec_file_list_table m_index_list_table GUARDED_BY(gIfs_interface_lock);
    Open_files m_open_files;
    CIfsHandle* m_file_handle GUARDED_BY(gIfs_interface_lock);                        ///< owned
    CIfsHandle* m_search_handle GUARDED_BY(gIfs_interface_lock);                      ///< owned
    std::map<int, _searcher_info_*> m_searcher_table GUARDED_BY(gIfs_interface_lock); ///< owned

    /* Of a rebuild, by stream; empty but during one. */
    std::array<Index_search, IFS_STREAMS> m_index_searches GUARDED_BY(gIfs_interface_lock);
    std::array<Rec_file_list, IFS_STREAMS> m_probed GUARDED_BY(gIfs_interface_lock); ///< what no index had
    std::string m_scanned_name GUARDED_BY(gIfs_interface_lock); ///< that it is looking at
    bool m_knows_whole_card GUARDED_BY(gIfs_interface_lock) =
        false; ///< memory sufficed for all that was found
    Mutex m_mount_guard;
};

#endif
