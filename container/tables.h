/** Where the samples of a file lie and when they are shown: its sample tables, whole or of one fragment. */
#ifndef CONTAINER_TABLES_H
#define CONTAINER_TABLES_H

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "container/bytes.h"
#include "container/checks.h"
#include "container/frame.h"
#include "include/kt_mp4.h"

namespace ifs_mp4
{

enum TrackKind {
    video_track = 0,
    audio_track = 1,
    track_count = 2
};

/** From this sample of a track on, timestamp = composition time + offset (mod 2^32 ms). */
struct Anchor {
    uint32_t sample;
    uint32_t offset_ms;
};

/** From this audio sample on, frames had this header. */
struct AdtsRun {
    uint32_t sample = 0;
    AdtsHeader header;
};

/** The track of each frame in the order of writing, as a file has it: a bit a frame, the first in bit 7. */
class FrameOrder
{
public:
    FrameOrder() = default;
    /** @param bits  of that many frames, at least */
    FrameOrder(size_t frames, Bytes bits);

    size_t size() const { return m_frames; }
    const Bytes& bits() const { return m_bits; }
    int track(size_t frame) const { return m_bits[frame / 8] >> (7 - frame % 8) & 1; }
    void make_room(size_t frames) { make_room_in(m_bits, frames / 8 + 1); }
    void push(int track);
    void clear();
    /**
     * Pass the first frames, up to one of a track of which none is left to pass.
     * @return frames passed; left is then what was not
     */
    size_t pass(uint32_t (&left)[track_count]) const;

private:
    size_t m_frames = 0;
    Bytes m_bits; /**< 0 behind the last frame */
};

/** What the standard tables do not hold of a recording: exact timestamps, ADTS headers, order of writing. */
struct ExactTables {
    std::vector<Anchor> anchors[track_count];
    std::vector<AdtsRun> headers;
    FrameOrder order;

    AdtsHeader first_header() const { return headers.empty() ? AdtsHeader{} : headers.front().header; }
    void clear();
};

/** A sample of a fragment that is being collected, written or read; times in ms. */
struct Sample {
    uint32_t size;
    bool key;
    uint64_t decode_time;
    uint64_t show_time;
};

/** Bytes of the payload in front of a sample that no sample of the fragment is in any more. */
struct Gap {
    uint32_t sample;
    uint64_t bytes;
};

/** One fragment: its samples, whose payload is all video followed by all audio. */
struct Fragment {
    std::vector<Sample> samples[track_count];
    std::vector<Gap> gaps[track_count]; /**< ascending; the last can lie behind the last sample */
    uint32_t number = 0;                /**< as it was read, from 1 */
    ExactTables exact;
    Check check;           /**< as it was read */
    bool bare_key = false; /**< a key frame that is collected comes without its parameter sets */

    bool empty() const { return samples[video_track].empty() && samples[audio_track].empty(); }
    size_t count() const { return samples[video_track].size() + samples[audio_track].size(); }
    /** Bytes of a track's part of the payload. */
    uint64_t payload_size(int track) const;
    uint64_t payload_size() const { return payload_size(video_track) + payload_size(audio_track); }
    /** Drop the samples that are not to be kept, and leave gaps in their place. */
    void keep(const std::vector<bool> (&kept)[track_count]);
    void clear();
};

/** A value that count samples in a row share. */
struct Run {
    uint32_t count;
    uint32_t value;
};

/** Samples that lie one behind the other. */
struct Chunk {
    uint64_t offset;
    uint32_t count;
};

/** The samples of one track. Times are in units of 1/timescale s. */
struct Track {
    uint32_t timescale = 1000;
    uint32_t count = 0;
    uint64_t start_time = 0;     /**< decode time of the first sample */
    uint64_t last_time = 0;      /**< decode time of the last sample */
    std::vector<uint32_t> sizes; /**< empty when all samples have constant_size */
    uint32_t constant_size = 0;
    std::vector<Run> durations;
    std::vector<Run> show_offsets; /**< signed values: show time - decode time */
    std::vector<uint32_t> keys;    /**< key frames, ascending, the first sample is 0 */
    bool all_keys = false;
    std::vector<Chunk> chunks;

    uint64_t to_ms(uint64_t time) const
    {
        return timescale == 1000 ? time : time / timescale * 1000 + time % timescale * 1000 / timescale;
    }
    uint32_t size(uint32_t sample) const { return sizes.empty() ? constant_size : sizes[sample]; }
    /** Bytes of some samples in a row. */
    uint64_t bytes(uint32_t sample, uint32_t samples) const;
    void append(const Sample& sample);
};

/** All samples of a file. */
struct Tables {
    static constexpr size_t list_count = 5 * track_count + track_count + 2;

    Track tracks[track_count];
    ExactTables exact;
    std::array<size_t, list_count> thinned{}; /**< entries that thin_out() dropped of each list */
    uint64_t reserved_samples = 0;            /**< that there is memory for */

    uint64_t count() const { return uint64_t{tracks[video_track].count} + tracks[audio_track].count; }
    /** Get the memory that a recording of some minutes needs. */
    void reserve();
    /** How long each list is, in an order of its own, what thin_out() dropped included. */
    std::array<size_t, list_count> list_sizes() const;
    /** Bytes that the lists take, what thin_out() dropped included. */
    uint64_t bytes() const;
    /** Keep of the lists only what append() looks at. */
    void thin_out();
    /** Get the memory for lists of these sizes and that many samples, no more. */
    void reserve(const std::array<size_t, list_count>& sizes, uint64_t samples);
    /** Get the memory that append() needs for a fragment; after it append() cannot fail. */
    void make_room(const Fragment& fragment);
    /** Let times count from the first picture, as a file with all samples in its moov has it. */
    void begin_at_zero();
    /** Add a fragment whose samples follow the last ones in time. */
    void append(const Fragment& fragment, uint64_t payload_offset);
};

/** What a file holds, apart from the payload. */
struct Movie {
    kt_mfile_info_t info{};
    std::string name;      /**< of the file */
    uint64_t identity = 0; /**< of the recording; 0: it carries no checksums */
    Tables tables;
    Bytes avc_config; /**< content of the avcC box */
    AdtsHeader adts;  /**< of the first audio frame; size 0: raw, or none yet */

    /** Time that the last frame of a track is taken to last, ms. */
    uint32_t frame_time_ms(int track) const;
    /** From the first frame to the end of the last one, ms. */
    int duration_ms() const;
};

/** Append to a list of runs. */
void push_run(std::vector<Run>& runs, uint32_t value);

/** Walks over a list of runs, sample by sample; 0 behind its end. */
class RunCursor
{
public:
    explicit RunCursor(const std::vector<Run>& runs) : m_runs(&runs) { skip_finished(); }
    uint32_t value() const { return m_run < m_runs->size() ? (*m_runs)[m_run].value : 0; }
    /** Samples that have the value, from this one on. */
    uint32_t left() const
    {
        return m_run < m_runs->size() ? (*m_runs)[m_run].count - m_done
                                      : std::numeric_limits<uint32_t>::max();
    }
    /** Step over samples, at most left(). */
    void skip(uint32_t count)
    {
        m_done += count;
        skip_finished();
    }

private:
    void skip_finished()
    {
        while (m_run < m_runs->size() && m_done >= (*m_runs)[m_run].count) {
            ++m_run;
            m_done = 0;
        }
    }

    const std::vector<Run>* m_runs;
    size_t m_run = 0;
    uint32_t m_done = 0;
};

/** The times of a sample; walks over the samples of a track. */
class SampleClock
{
public:
    explicit SampleClock(const Track& track)
        : m_track(&track), m_durations(track.durations), m_show_offsets(track.show_offsets),
          m_decode_time(track.start_time)
    {
    }
    /** When the sample is decoded that is so many samples ahead, fewer than run(), ms. */
    uint64_t decode_time_ms(uint32_t ahead = 0) const { return m_track->to_ms(decode_time(ahead)); }
    /** When it is shown. */
    uint64_t show_time_ms(uint32_t ahead = 0) const;
    /** Samples, from this one on, whose times are even and ascend; there may be fewer in the track. */
    uint32_t run() const { return std::min(m_durations.left(), m_show_offsets.left()); }
    /** Step over samples, at most run(). */
    void skip_alike(uint32_t count)
    {
        m_decode_time += uint64_t{count} * m_durations.value();
        m_durations.skip(count);
        m_show_offsets.skip(count);
    }
    void skip(uint32_t count);

private:
    uint64_t decode_time(uint32_t ahead) const
    {
        return m_decode_time + uint64_t{ahead} * m_durations.value();
    }

    const Track* m_track;
    RunCursor m_durations;
    RunCursor m_show_offsets;
    uint64_t m_decode_time;
};

/** Whether a time lies that far behind another. */
inline bool is_behind(uint64_t time, uint64_t begin, uint64_t distance)
{
    return time >= begin && time - begin >= distance;
}

/** Walks over the samples of a track, which does not change meanwhile. */
class TrackCursor
{
public:
    TrackCursor(const Track& track, const std::vector<Anchor>& anchors);

    bool at_end() const { return m_sample >= m_track->count || m_chunk >= m_track->chunks.size(); }
    uint32_t sample() const { return m_sample; }
    uint32_t size() const { return m_track->size(m_sample); }
    uint64_t offset() const { return m_track->chunks[m_chunk].offset + m_chunk_bytes; }
    uint64_t decode_time_ms() const { return m_clock.decode_time_ms(); }
    /** When the sample is shown, ms. */
    uint64_t show_time_ms() const { return m_clock.show_time_ms(); }
    uint32_t timestamp_ms() const;
    /** The chunk that the sample lies in, its first sample, and where its last one ends. */
    size_t chunk() const { return m_chunk; }
    uint32_t chunk_begin() const { return m_sample - m_chunk_done; }
    uint64_t chunk_end() const;
    /** Take in other sizes of the chunk's samples. */
    void measure() { m_chunk_bytes = m_track->bytes(chunk_begin(), m_chunk_done); }
    bool is_key() const;
    /** Step to the next sample; not at the end. */
    void next();
    /** Step to a sample that lies behind this one, or to the end. */
    void skip_to(uint32_t sample);
    /** @return at the first sample, from this one on, that is shown so far behind begin, or at the end */
    TrackCursor find(uint64_t begin_ms, uint64_t distance_ms) const;
    /** The same for the first sample that is decoded at a time or later. */
    TrackCursor find_decoded(uint64_t time_ms) const;

private:
    /** Find the first sample of which a function of the clock and a number of samples ahead is true. */
    template <class Function>
    TrackCursor find_first(Function reached) const;
    /** Step to a sample as skip_to(), but for its times. */
    void place(uint32_t sample);
    void skip_finished();

    const Track* m_track;
    const std::vector<Anchor>* m_anchors;
    SampleClock m_clock;
    uint32_t m_sample = 0;
    size_t m_chunk = 0;
    uint32_t m_chunk_done = 0;
    uint64_t m_chunk_bytes = 0;
    size_t m_key = 0;
    size_t m_anchor = 0;
};

/** The entry that holds for a sample: the last one that begins at or before it; walks on from entry. */
template <class Entry>
void follow(const std::vector<Entry>& entries, size_t& entry, uint32_t sample)
{
    while (entry + 1 < entries.size() && entries[entry + 1].sample <= sample)
        ++entry;
}

} // namespace ifs_mp4

#endif
