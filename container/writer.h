/** A recording that is being written. */
#ifndef CONTAINER_WRITER_H
#define CONTAINER_WRITER_H

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "container/file.h"
#include "container/frame.h"
#include "container/tables.h"

namespace ifs_mp4
{

/**
 * Writes one recording. Frames are collected in memory until a fragment of them goes to the file in one
 * write. A fragment that cannot be written is kept and tried again with the next frame, which is refused as
 * long as that fails.
 */
class Writer
{
public:
    /** @return null, errno says why: the file exists, or cannot be made */
    static std::unique_ptr<Writer> create(const char* path, const kt_mfile_info_t& info);

    /** As kt_mp4_write(); so are the reasons in errno of all that returns false. */
    bool write(int kind, const Pieces& frame, uint32_t timestamp);
    /** Write what was collected and make all durable. */
    bool flush();
    /** End the recording; no other call may follow. */
    bool close();
    /** May run beside the other calls. */
    kt_mfile_info_t info() const;

private:
    /** The clock of a track: how its timestamps became times of the movie, in ms from its first frame. */
    struct Clock {
        bool started = false;
        uint32_t last_timestamp = 0;
        uint64_t last_time = 0;
        uint64_t newest_time = 0;
    };

    Writer(Fd fd, const char* path, const kt_mfile_info_t& info);
    bool write_video(bool key, const Pieces& frame, uint32_t timestamp);
    bool write_audio(const Pieces& frame, uint32_t timestamp);
    bool start(const Pieces& frame, uint32_t timestamp);
    uint64_t place(int track, uint32_t timestamp, bool reordered) const;
    bool prepare(size_t size, uint64_t time, bool key);
    void append(int track, uint32_t size, bool key, uint32_t timestamp, uint64_t time);
    void make_room(size_t video_bytes, size_t audio_bytes);
    void set_decode_times(int track);
    bool cut();
    bool write_fragment();
    bool reserve(uint64_t end);
    void secure(uint64_t end);
    bool sync();

    Fd m_fd;
    std::string m_folder; /**< that the file lies in */
    Movie m_movie;
    bool m_started = false;
    Clock m_clocks[track_count];
    uint64_t m_key_time = 0;
    uint64_t m_newest_time = 0;
    uint64_t m_synced_time = 0;
    bool m_unsynced = false;

    Fragment m_fragment;
    uint64_t m_fragment_time = 0;         /**< of its first frame */
    uint64_t m_decoded[track_count] = {}; /**< decode time of the last sample written */
    uint32_t m_fragments = 0;
    uint64_t m_file_end = 0;
    uint64_t m_synced_end = 0;   /**< m_file_end at the last sync */
    uint64_t m_reserved_end = 0; /**< the file has space up to there */
    uint64_t m_secured_end = 0;  /**< and that is durable up to there */
    Bytes m_payload;             /**< room for a fragment's headers, then its video */
    Bytes m_audio;
    Bytes m_headers;
    std::vector<Nal> m_nals;
    std::vector<uint64_t> m_times; /**< for set_decode_times() */

    mutable std::mutex m_info_mutex; /**< guards firstpts and duration of m_movie.info */
};

} // namespace ifs_mp4

#endif
