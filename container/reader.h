/** A file that is played or described. */
#ifndef CONTAINER_READER_H
#define CONTAINER_READER_H

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>

#include "container/file.h"
#include "container/fragments.h"
#include "container/parse.h"
#include "container/tables.h"

namespace ifs_mp4
{

/** Reads one file: a recording, finished or not, or an MP4 file of another writer. */
class Reader
{
public:
    /**
     * Open a file. A recording that was interrupted is finished first, if the file can be written and nobody
     * records into it.
     *
     * @param info_only  for info() alone; a file that the system fails to read is then one without frames
     * @return null, errno says why: no such file, no frame in it that can be read (EBADMSG), an I/O error
     */
    static std::unique_ptr<Reader> open(const char* path, bool info_only);

    /** As kt_mp4_read(). */
    int read(int& kind, char* buf, size_t capacity, uint32_t& timestamp);
    /** As kt_mp4_seek_read(). */
    bool seek(uint32_t offset_ms);
    /** May run beside the other calls. */
    kt_mfile_info_t info() const;

private:
    Reader(Fd fd, bool info_only);
    bool load(const char* path);
    bool recover(const char* path);
    bool load_complete();
    bool load_fragments(Take take);
    bool leave_out_damage();
    bool drop_damaged_end();
    bool collect_tables();
    void finish(int fd, const char* path, uint64_t file_end);
    void describe();
    void rewind();
    int next_track() const;
    void step(int track);
    int current_track();
    uint64_t chunk_limit(uint64_t offset) const;
    void check_sizes(int track);
    bool has_fragment_at(uint64_t pos, uint64_t payload);
    bool tables_are_proven();
    bool restore_sizes(int track);
    bool grow();
    void pass_in_time(const TrackCursor (&targets)[track_count]);
    bool load_sample(const TrackCursor& cursor);
    int read_video(const TrackCursor& cursor, char* buf, size_t capacity);
    int read_own_video(const TrackCursor& cursor, uint8_t* buf);
    int read_audio(const TrackCursor& cursor, char* buf, size_t capacity);

    Fd m_fd;
    bool m_info_only;
    Source m_source;
    ParsedMovie m_movie;
    Bytes m_parameter_sets; /**< Annex B, for key frames that come without */
    bool m_live = false;    /**< somebody records into the file */
    FragmentWalk m_walk;

    TrackCursor m_cursors[track_count];
    size_t m_frame = 0;
    size_t m_header = 0; /**< index of the ADTS header that holds */
    uint64_t m_first_time = 0;
    uint64_t m_tables_begin = 0; /**< of a file that has all samples in its moov */
    uint64_t m_tables_end = 0;
    /** The chunk whose sizes were checked last, and whether they are right. */
    struct Checked {
        size_t chunk = SIZE_MAX;
        bool sound = true;
    };
    Checked m_checked[track_count];
    std::optional<bool> m_proven; /**< the tables, once somebody asked */
    uint32_t m_searches = 0;      /**< for fragments that this read may still make */
    Bytes m_sample;

    mutable std::mutex m_info_mutex; /**< guards duration of m_movie.info */
};

} // namespace ifs_mp4

#endif
