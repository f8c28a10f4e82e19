#ifndef IFS_STORE_IPC_FILE_SYSTEM_H
#define IFS_STORE_IPC_FILE_SYSTEM_H

#include <array>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "recfile/rec_file.h"
#include "store/catalogue.h"
#include "store/catalogue_index.h"
#include "store/handle_table.h"
#include "store/ifsdirectoryscaner.h"
#include "store/index_search.h"
#include "store/searcher_info.h"

constexpr size_t IFS_STREAMS = 2; ///< that a recording can be of: main and sub

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

/** Open record files by file handle, owned by the store. */
using File_table = std::map<int, CIpcRecFile*>;

/**
 * The record store: where the card is mounted, the catalogue, and what is open.
 *
 * Callers hold the process-wide locks; the exported call of the same name says which. Those locks leave a few
 * reads without the interface lock: the mount point, the catalogue and the tables of open files. So whoever
 * changes one of these, and whoever reads one without the interface lock, does it under m_table_guard, which
 * is held for that access only and never across I/O.
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
    int Ifs_mount(const char* dev, const char* dir);
    int Ifs_umount();
    /** Format the card; refused while mounted. */
    int Ifs_format();
    /** Total and free bytes of the mounted file system; either pointer may be null. */
    int Ifs_get_fs_size(unsigned long long* total, unsigned long long* free);
    int Ifs_get_file_number(unsigned long* main_number, unsigned long* sub_number);

    /* index_file.cpp */
    /** Build the path of a stream's index file. */
    int Ifs_get_index_fn(_ifs_stream_type_ stream, std::string& fn);
    int Ifs_append_index_file(_ifs_stream_type_ stream, _ifs_rec_file_* rec);
    /** Replace the index file by one that holds list; without entries it is removed and the result is -1. */
    int Ifs_rewrite_index_file(_ifs_stream_type_ stream, Rec_file_list& list);
    /** Read the index file into list, sorted; one that is missing or damaged anywhere gives none. @return 0
     */
    int Ifs_load_index_file(_ifs_stream_type_ stream, Rec_file_list& list);

    /* rebuild.cpp */
    /** Recreate the catalogue from the card's directory and the index files. */
    int Ifs_build_rec_file_list();
    _scan_dir_operation_ Scan_record_file(const char* dir, const char* name, void* user);

    /* recording.cpp */
    int Ifs_create(tm* start, int video_system, int video_res, int width, int height, int frame_rate,
                   int audio_profile, SAMPLE_RATE_INDEX_E sample_rate_index, int audio_channel_conf,
                   int have_audio, _ifs_stream_type_ stream_type);
    int Ifs_write(int fd, char* data1, int len1, char* data2, int len2, _ifs_frame_type_ type,
                  unsigned long long pts);
    /** Close a recording or a playback. @return 0 */
    int Ifs_close(int fd, tm* end);

    /* playback.cpp */
    int Ifs_open(tm* t, _ifs_stream_type_ stream);
    int Ifs_open(char* name);
    int Ifs_open(_ifs_rec_file_* rec);
    /** Find the recording that starts at t or, with nearest, the nearest one that started on that day. */
    int Ifs_find_record_file(tm* t, _ifs_stream_type_ stream, bool nearest, _rec_file_info_* out);
    int Ifs_stat(int fd, _ifs_rec_file_* rec);
    int Ifs_read(int fd, char* buf, int size, int* payload_offset, int* payload_len, int* frame_offset,
                 int* frame_len, _ifs_frame_type_* frame_type, int* time);
    int Ifs_read(int fd, char* buf, int size);
    int Ifs_seek(int fd, long offset, int whence);
    int Ifs_tseek(int fd, unsigned int t);
    int Ifs_get_file_name(_ifs_rec_file_* rec, char* path);
    int Ifs_get_file_name(tm* t, _ifs_stream_type_ stream, char* path);

    /* overlap.cpp */
    /** Delete the earliest-starting recording that is not being played, if there is one. @return 0 */
    int Ifs_overlap();
    /** Find the open file that holds a catalogue entry. @return its handle, or -1 */
    int Ifs_find_record_file(File_table& table, Rec_file_list::iterator& entry, _ifs_stream_type_ stream);

    /* search.cpp */
    int Ifs_find_open(tm* start, tm* end, _ifs_stream_type_ stream);
    /** @return 0 */
    int Ifs_find_close(int handle);
    int Ifs_find_get_count(int handle);
    int Ifs_find_next(int handle, int count, _ifs_rec_file_* out);
    int Ifs_get_rec_calendar(tm* start, tm* end, _ifs_stream_type_ stream, unsigned char* days);
    /** @return 0, IFS_CATALOGUE_EMPTY or IFS_NOT_MOUNTED */
    int Ifs_get_latest_rec_time(tm* latest);
    /** Describe a listed recording as it is now. @return its state, IFS_STILL_WRITTEN to IFS_FILE_UNREADABLE
     */
    int Ifs_get_recording_file_info(Rec_file_list::iterator& it, _ifs_rec_file_* out);

private:
    /* open_files.cpp: the guarded state */
    std::string Mount_point() const;
    /** @return whether the store is mounted, at a path that fits in */
    bool Copy_mount_point(char* path, size_t size) const;
    void Set_mount_point(std::string dir);
    void Empty_catalogue();
    void Forget_everything();
    void Add_to_catalogue(_ifs_stream_type_ stream, const _ifs_rec_file_& rec);
    void Add_sorted(_ifs_stream_type_ stream, Rec_file_list& entry);
    void Put_in_front_of_catalogue(_ifs_stream_type_ stream, Rec_file_list& recordings);
    void Remove_from_catalogue(_ifs_stream_type_ stream, Rec_file_list::iterator position);
    void Sort_catalogue(_ifs_stream_type_ stream);
    void Enter_file(File_table& table, int fd, std::unique_ptr<CIpcRecFile>& file);
    std::unique_ptr<CIpcRecFile> Remove_file(File_table& table, int fd);
    CIpcRecFile* Find_file(const File_table& table, int fd) const;
    std::vector<CIpcRecFile*> Recordings() const;
    bool Find_catalogued(const tm* start, _ifs_stream_type_ stream, _ifs_rec_file_* out) const;

    void Ifs_close(CIpcRecFile& file, int fd, tm* end);
    void Close_file(File_table& table, int fd);
    bool Is_mounted() const { return !m_mount_point.empty(); }
    bool Is_being_recorded(const char* name) const;
    void Take_index(_ifs_stream_type_ stream);
    void Move_found_to_catalogue(_ifs_stream_type_ stream, Rec_file_list& list);
    Rec_file_list::iterator Overlap_candidate(_ifs_stream_type_ stream, Rec_file_list& list);
    template <typename Take_catalogued, typename Take_running>
    void For_each_match(_searcher_info_* search, Take_catalogued take_catalogued, Take_running take_running);
    template <typename Open_file>
    int Ifs_open(Open_file open_file);

    std::string m_mount_point; ///< empty while not mounted
    std::map<_ifs_stream_type_, int> m_overlap_count_table;
    Rec_file_list_table m_rec_file_list_table;
    std::array<Catalogue_index, IFS_STREAMS> m_catalogue_indexes; ///< by stream
    std::map<_ifs_stream_type_, int> m_unindexed_count_table;
    Rec_file_list_table m_index_list_table;
    File_table m_recording_file_table;                      ///< owned
    File_table m_playing_file_table;                        ///< owned
    CIfsHandle* m_file_handle;                              ///< owned
    CIfsHandle* m_search_handle;                            ///< owned
    std::map<int, _searcher_info_*> m_searcher_table;       ///< owned
    std::string m_scanned_name;                             ///< that a rebuild is looking at
    std::array<Index_search, IFS_STREAMS> m_index_searches; ///< by stream, empty but during a rebuild
    bool m_knows_whole_card = false; ///< memory sufficed for all that the last rebuild found
    mutable std::mutex m_table_guard;
};

#endif
