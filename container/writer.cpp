#include "container/writer.h"

#include <algorithm>
#include <limits>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "container/failure.h"
#include "container/layout.h"
#include "container/limits.h"

namespace ifs_mp4
{
namespace
{

constexpr uint64_t max_fragment_ms = 2000;
/** Room for the headers of a fragment, and of the file in front of the first one. */
constexpr size_t header_room = max_start_bytes;
/** No more than this may be lost, so the frames go to the card as long as there is time to write them. */
constexpr uint64_t max_unsynced_ms = 5000;
constexpr uint64_t sync_time_ms = 250;
/** Space is reserved in steps of this, and for at least this much more than has to be. */
constexpr uint64_t reserve_step_bytes = 2 << 20;
constexpr uint64_t spare_bytes = 256 << 10;
/** A track whose clock jumped follows the other one unless that leaves a longer gap. */
constexpr uint64_t max_rejoin_gap_ms = 10000;
constexpr size_t length_bytes = 4;

int32_t distance_ms(uint32_t from, uint32_t to)
{
    return static_cast<int32_t>(to - from);
}

bool has_nal(const std::vector<Nal>& nals, int type)
{
    return std::any_of(nals.begin(), nals.end(), [type](const Nal& nal) { return nal.type == type; });
}

/** Drop a frame in front of the parameter sets. It is not refused, but errno says that nothing is written. */
bool drop()
{
    errno = ENODATA;
    return true;
}

} // namespace

std::unique_ptr<Writer> Writer::create(const char* path, const kt_mfile_info_t& info)
{
    std::unique_ptr<Writer> writer(new Writer(Fd(), path, info));
    writer->m_fd = Fd(open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (!writer->m_fd)
        return nullptr;
    // Keeps readers from taking the file for an interrupted one; no harm where the file system has no locks.
    flock(writer->m_fd.get(), LOCK_EX | LOCK_NB);
    return writer;
}

Writer::Writer(Fd fd, const char* path, const kt_mfile_info_t& info)
    : m_fd(std::move(fd)), m_folder(folder_of(path))
{
    m_movie.info = info;
    m_movie.name = name_of(path);
    m_payload.resize(header_room);
    m_headers.reserve(header_room); // a first fragment must not need memory at the close
    m_movie.tables.reserve();
}

bool Writer::write(int kind, const Pieces& frame, uint32_t timestamp)
{
    switch (kind) {
    case KT_MP4_VIDEO_KEY:
    case KT_MP4_VIDEO_OTHER:
        return write_video(kind == KT_MP4_VIDEO_KEY, frame, timestamp);
    case KT_MP4_AUDIO:
        return write_audio(frame, timestamp);
    default:
        return fail(EINVAL);
    }
}

bool Writer::write_video(bool key, const Pieces& frame, uint32_t timestamp)
{
    if (!split_access_unit(frame, m_nals))
        return fail(EILSEQ);
    if (!m_started && !(key && start(frame, timestamp)))
        return drop();
    size_t size = 0;
    for (const Nal& nal : m_nals)
        size += length_bytes + nal.size;
    uint64_t time = place(video_track, timestamp, !key && is_reordered(frame, m_nals));
    if (!prepare(size, time, key))
        return false;
    make_room(size, 0);
    for (const Nal& nal : m_nals) {
        put32(m_payload, static_cast<uint32_t>(nal.size));
        frame.append_to(m_payload, nal.begin, nal.size);
    }
    append(video_track, static_cast<uint32_t>(size), key, timestamp, time);
    m_fragment.bare_key =
        m_fragment.bare_key || (key && !(has_nal(m_nals, nal_sps) && has_nal(m_nals, nal_pps)));
    return true;
}

bool Writer::write_audio(const Pieces& frame, uint32_t timestamp)
{
    AdtsHeader header;
    if (!m_movie.info.have_audio)
        return fail(EINVAL);
    if (!parse_adts(frame, header))
        return fail(EILSEQ);
    if (!m_started)
        return drop();
    size_t size = frame.size() - header.size;
    uint64_t time = place(audio_track, timestamp, false);
    if (!prepare(size, time, false))
        return false;
    make_room(0, size);
    if (!m_clocks[audio_track].started)
        m_movie.adts = header;
    frame.append_to(m_audio, header.size, size);
    std::vector<AdtsRun>& headers = m_fragment.exact.headers;
    if (headers.empty() || !(headers.back().header == header))
        headers.push_back({static_cast<uint32_t>(m_fragment.samples[audio_track].size()), header});
    append(audio_track, static_cast<uint32_t>(size), false, timestamp, time);
    return true;
}

/** Begin with this key frame if it has its parameter sets. */
bool Writer::start(const Pieces& frame, uint32_t timestamp)
{
    m_movie.avc_config = build_avc_config(frame, m_nals);
    if (m_movie.avc_config.empty())
        return false;
    constexpr size_t identifying_bytes = 4096;
    m_headers.clear();
    frame.append_to(m_headers, 0, std::min(frame.size(), identifying_bytes));
    m_movie.identity = make_identity(m_movie.name, m_headers);
    std::lock_guard<std::mutex> lock(m_info_mutex);
    m_movie.info.firstpts = static_cast<int>(timestamp);
    m_started = true;
    return true;
}

/**
 * The time of a frame. It follows the timestamps, the wrap at 2^32 included. Where they step back for another
 * reason than the order of B frames, the track goes on without a gap, beside the other one if that jumped.
 */
uint64_t Writer::place(int track, uint32_t timestamp, bool reordered) const
{
    const Clock& own = m_clocks[track];
    const Clock& other = m_clocks[1 - track];
    if (own.started) {
        int64_t time = static_cast<int64_t>(own.last_time) + distance_ms(own.last_timestamp, timestamp);
        if (time >= static_cast<int64_t>(reordered ? m_key_time + 1 : own.last_time))
            return static_cast<uint64_t>(time);
    }
    if (other.started) {
        int64_t beside = static_cast<int64_t>(other.last_time) + distance_ms(other.last_timestamp, timestamp);
        bool forward = beside >= static_cast<int64_t>(own.newest_time);
        if (forward && (!own.started || static_cast<uint64_t>(beside) <= own.newest_time + max_rejoin_gap_ms))
            return static_cast<uint64_t>(beside);
    }
    return own.started ? own.newest_time + m_movie.frame_time_ms(track) : 0;
}

/** Make place for a frame in the file's size and in the fragment, which is written if it has to end here. */
bool Writer::prepare(size_t size, uint64_t time, bool key)
{
    size_t collected = m_payload.size() + m_audio.size() - header_room;
    if (size > max_frame_bytes)
        return fail(EFBIG);
    uint64_t table_bytes = moov_bound(m_movie.tables, m_fragment.count() + 1);
    if (table_bytes > max_table_bytes ||
        m_file_end + 2 * header_room + collected + size + table_bytes > max_file_bytes)
        return fail(EFBIG);
    if (m_fragment.empty())
        return true;
    uint64_t step = std::max(time, m_newest_time) - m_newest_time;
    bool due = m_newest_time + step + std::max(step, sync_time_ms) >= m_synced_time + max_unsynced_ms;
    bool full = key || time >= m_fragment_time + max_fragment_ms || collected + size > max_fragment_bytes ||
                m_fragment.count() >= max_fragment_frames;
    if (!full && !due)
        return true;
    return cut() && (!due || sync());
}

/** Get the memory for a frame; until append() returns nothing can fail. */
void Writer::make_room(size_t video_bytes, size_t audio_bytes)
{
    size_t first = m_payload.capacity() < max_fragment_bytes ? max_fragment_bytes : 0;
    make_room_in(m_payload, std::max(video_bytes, first));
    make_room_in(m_audio, audio_bytes);
    make_room_in(m_fragment.exact.headers, 1);
    m_fragment.exact.order.make_room(1);
    for (int i = 0; i < track_count; ++i) {
        make_room_in(m_fragment.samples[i], 1);
        make_room_in(m_fragment.exact.anchors[i], 1);
    }
}

void Writer::append(int track, uint32_t size, bool key, uint32_t timestamp, uint64_t time)
{
    if (m_fragment.empty())
        m_fragment_time = time;
    uint32_t offset = timestamp - static_cast<uint32_t>(time);
    std::vector<Anchor>& anchors = m_fragment.exact.anchors[track];
    std::vector<Sample>& samples = m_fragment.samples[track];
    if (anchors.empty() || anchors.back().offset_ms != offset)
        anchors.push_back({static_cast<uint32_t>(samples.size()), offset});
    samples.push_back({size, key, time, time});
    m_fragment.exact.order.push(track);

    Clock& clock = m_clocks[track];
    clock = {true, timestamp, time, std::max(clock.newest_time, time)};
    if (key)
        m_key_time = time;
    m_newest_time = std::max(m_newest_time, time);
    uint64_t end = 0;
    for (int i = 0; i < track_count; ++i) {
        if (m_clocks[i].started)
            end = std::max(end, m_clocks[i].newest_time + m_movie.frame_time_ms(i));
    }
    std::lock_guard<std::mutex> lock(m_info_mutex);
    m_movie.info.duration = static_cast<int>(std::min<uint64_t>(end, std::numeric_limits<int>::max()));
}

/** Frames are decoded in the order of writing, at the times at which a frame is shown. */
void Writer::set_decode_times(int track)
{
    std::vector<Sample>& samples = m_fragment.samples[track];
    for (Sample& sample : samples)
        sample.decode_time = sample.show_time;
    auto earlier = [](const Sample& a, const Sample& b) { return a.show_time < b.show_time; };
    if (std::is_sorted(samples.begin(), samples.end(), earlier) &&
        (samples.empty() || samples.front().show_time >= m_decoded[track]))
        return;
    m_times.clear();
    for (const Sample& sample : samples)
        m_times.push_back(std::max(sample.show_time, m_decoded[track]));
    std::sort(m_times.begin(), m_times.end());
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i].decode_time = m_times[i];
}

/** Write the collected fragment. On failure it stays collected and the file is as before. */
bool Writer::cut()
{
    if (m_fragment.empty())
        return true;
    for (int i = 0; i < track_count; ++i)
        set_decode_times(i);
    m_movie.tables.make_room(m_fragment);
    if (!write_fragment())
        return false;
    m_movie.tables.append(m_fragment, m_file_end - m_payload.size() - m_audio.size() + header_room);
    for (int i = 0; i < track_count; ++i) {
        if (!m_fragment.samples[i].empty())
            m_decoded[i] = m_fragment.samples[i].back().decode_time;
    }
    ++m_fragments;
    m_unsynced = true;
    m_fragment.clear();
    m_payload.resize(header_room);
    m_audio.clear();
    return true;
}

bool Writer::write_fragment()
{
    size_t video_end = m_payload.size();
    put_bytes(m_payload, m_audio.data(), m_audio.size());
    m_headers.clear();
    if (m_file_end == 0)
        put_file_start(m_headers, m_movie);
    put_fragment_start(m_headers, m_fragment, m_movie,
                       {m_fragments + 1, m_file_end + m_headers.size(), m_synced_end},
                       m_payload.data() + header_room);
    size_t begin = header_room - m_headers.size();
    std::copy(m_headers.begin(), m_headers.end(), m_payload.begin() + static_cast<ptrdiff_t>(begin));
    size_t size = m_payload.size() - begin;
    secure(m_file_end + size);
    bool written = write_at(m_fd.get(), m_payload.data() + begin, size, m_file_end);
    m_payload.resize(video_end);
    if (written)
        m_file_end += size;
    else
        discard_from(m_fd.get(), m_file_end);
    return written;
}

/** Have space up to end. */
bool Writer::reserve(uint64_t end)
{
    if (end > m_reserved_end && reserve_space(m_fd.get(), end + reserve_step_bytes))
        m_reserved_end = end + reserve_step_bytes;
    return end <= m_reserved_end;
}

/** Make the allocation durable before a write up to end. */
void Writer::secure(uint64_t end)
{
    if (end <= m_secured_end || !reserve(end + spare_bytes))
        return;
    sync_folder(m_folder);
    m_secured_end = m_reserved_end;
}

/**
 * Make durable what was written. A size must not reach the card before the allocation of all that it counts,
 * or a power cut leaves clusters in the file that are free for the next one. So what will probably be written
 * until the next sync is reserved before this one. Where that is not possible, the allocation gets a sync.
 */
bool Writer::sync()
{
    if (m_file_end > m_secured_end)
        sync_folder(m_folder);
    reserve(m_file_end + 2 * (m_file_end - m_synced_end) + spare_bytes);
    if (fdatasync(m_fd.get()) != 0)
        return false;
    m_secured_end = std::max(m_reserved_end, m_file_end);
    m_synced_end = m_file_end;
    m_synced_time = m_newest_time;
    m_unsynced = false;
    return true;
}

bool Writer::flush()
{
    return cut() && (!m_unsynced || sync());
}

bool Writer::close()
{
    int error = cut() ? 0 : errno;
    if (m_file_end > 0) {
        secure(m_file_end + moov_bound(m_movie.tables, 0));
        if (!finish_file(m_fd.get(), m_movie, m_file_end) && error == 0)
            error = errno;
    }
    if (!m_fd.reset() && error == 0)
        error = errno;
    return error == 0 || fail(error);
}

kt_mfile_info_t Writer::info() const
{
    std::lock_guard<std::mutex> lock(m_info_mutex);
    return m_movie.info;
}

} // namespace ifs_mp4
