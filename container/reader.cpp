#include "container/reader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "container/checks.h"
#include "container/failure.h"
#include "container/fragments.h"
#include "container/layout.h"
#include "container/limits.h"

namespace ifs_mp4
{
namespace
{

constexpr uint8_t start_code[] = {0, 0, 0, 1};
/** Fragments that are looked for before one frame is returned: no damage needs more, a prepared file may. */
constexpr uint32_t max_searches = 1000;

/** The parameter sets of a decoder configuration in Annex B; what is damaged is left out. */
Bytes parameter_sets_of(const Bytes& config)
{
    Bytes sets;
    size_t pos = 5;
    for (uint8_t count_mask : {0x1f, 0xff}) {
        int count = pos < config.size() ? config[pos++] & count_mask : 0;
        for (; count > 0; --count) {
            if (config.size() - pos < 2 || config.size() - pos - 2 < be16(config.data() + pos))
                return sets;
            size_t size = be16(config.data() + pos);
            put_bytes(sets, start_code, sizeof start_code);
            put_bytes(sets, config.data() + pos + 2, size);
            pos += 2 + size;
        }
    }
    return sets;
}

/** Steps through the NAL units of a sample. */
class NalWalk
{
public:
    NalWalk(const uint8_t* data, size_t size, size_t length_bytes)
        : m_data(data), m_left(size), m_length_bytes(length_bytes)
    {
    }

    /** @return false at the end, and where a NAL unit reaches past it */
    bool next(const uint8_t*& nal, size_t& size)
    {
        if (m_left < m_length_bytes)
            return false;
        size = 0;
        for (size_t i = 0; i < m_length_bytes; ++i)
            size = size << 8 | m_data[i];
        if (size > m_left - m_length_bytes)
            return false;
        nal = m_data + m_length_bytes;
        m_data = nal + size;
        m_left -= m_length_bytes + size;
        return true;
    }
    bool at_end() const { return m_left == 0; }

private:
    const uint8_t* m_data;
    size_t m_left;
    size_t m_length_bytes;
};

/** The decoder configuration of the parameter sets in a video sample of ours; empty: they are not in it. */
Bytes config_of(Source& source, uint64_t pos, uint64_t end)
{
    constexpr size_t max_sets = max_sps_count + max_pps_count;
    Bytes sets;
    std::vector<Nal> nals;
    while (end - pos > sizeof start_code) {
        const uint8_t* header = source.at(pos, sizeof start_code + 1);
        uint64_t size = header ? be32(header) : 0;
        pos += sizeof start_code;
        if (size == 0 || size > end - pos)
            break;
        int type = header[sizeof start_code] & 31;
        if (type == nal_sps || type == nal_pps) {
            if (size > max_parameter_set_bytes - sets.size() || nals.size() == max_sets)
                break;
            nals.push_back({sets.size(), static_cast<size_t>(size), type});
            sets.resize(sets.size() + static_cast<size_t>(size));
            if (!source.read(pos, &sets[nals.back().begin], nals.back().size))
                break;
        }
        pos += size;
    }
    return build_avc_config(Pieces(sets.data(), sets.size(), nullptr, 0), nals);
}

/** What the head of a recording repeats of the parameter sets. @param end  of what is taken for the head */
Bytes config_in_head(Source& source, uint64_t end)
{
    end = std::min<uint64_t>(end, max_start_bytes);
    for (uint64_t pos = first_moov_begin; pos < end; ++pos) {
        const uint8_t* header = source.at(pos, 8);
        Box avcc;
        if (!header || be32(header + 4) != fourcc("avcC") || !next_box(source, pos, end, avcc) ||
            avcc.size() > max_avc_config_bytes)
            continue;
        Bytes config(static_cast<size_t>(avcc.size()));
        return source.read(avcc.begin, config.data(), config.size()) ? config : Bytes();
    }
    return {};
}

/** Write the first box of a file anew where it is damaged. @return false: it is and cannot be written */
bool mend_ftyp(int fd, Source& source, const Movie& movie)
{
    Box ftyp;
    uint64_t pos = 0;
    if (next_box(source, pos, source.size(), ftyp) && ftyp.type == fourcc("ftyp") && pos == ftyp_bytes)
        return true;
    Bytes start;
    put_file_start(start, movie);
    return write_at(fd, start.data(), ftyp_bytes, 0);
}

} // namespace

std::unique_ptr<Reader> Reader::open(const char* path, bool info_only)
{
    Fd fd(::open(path, O_RDONLY | O_CLOEXEC));
    bool missing = !fd && (errno == ENOENT || errno == ENOTDIR);
    if (missing || (!fd && !info_only))
        return nullptr;
    std::unique_ptr<Reader> reader(new Reader(std::move(fd), info_only));
    if (reader->load(path))
        return reader;
    // What was not seen whole, or is not for this reader, must not be taken for damaged.
    bool failed = reader->m_source.failed() || reader->m_movie.refused;
    if (!info_only || !failed) {
        int error = reader->m_source.failed() ? reader->m_source.error() : failed ? ENOTSUP : EBADMSG;
        reader.reset();
        errno = error;
        return nullptr;
    }
    reader->m_movie = {};
    return reader;
}

Reader::Reader(Fd fd, bool info_only)
    : m_fd(std::move(fd)), m_info_only(info_only),
      m_source(m_fd.get()), m_cursors{TrackCursor(m_movie.tables.tracks[video_track],
                                                  m_movie.tables.exact.anchors[video_track]),
                                      TrackCursor(m_movie.tables.tracks[audio_track],
                                                  m_movie.tables.exact.anchors[audio_track])}
{
}

bool Reader::load(const char* path)
{
    if (!m_source.refresh())
        return false;
    if (m_source.size() == 0) // a recording that has not got a frame
        return true;
    if (!(load_complete() || recover(path)))
        return false;
    describe();
    return true;
}

bool Reader::load_complete()
{
    constexpr uint64_t moov_header_bytes = 8;
    Box moov;
    if (!find_box(m_source, 0, m_source.size(), fourcc("moov"), moov))
        return false;
    m_tables_begin = moov.begin - moov_header_bytes;
    m_tables_end = moov.end;
    return parse_moov(m_source, moov, m_info_only, m_movie) && m_movie.complete;
}

/** Find the frames of a recording that was not finished, and finish it if nobody else is about to. */
bool Reader::recover(const char* path)
{
    bool too_large = m_movie.refused; // the tables at its end
    m_walk.name = name_of(path);
    m_walk.interrupted = true;
    if (!find_recording(m_source, m_movie, m_walk)) {
        m_movie.refused = m_movie.refused || too_large;
        return false;
    }
    Fd writer(::open(path, O_RDWR | O_CLOEXEC));
    bool alone = writer && flock(writer.get(), LOCK_EX | LOCK_NB) == 0;
    bool live = writer && !alone && errno == EWOULDBLOCK;
    // Whoever recorded may have finished the file before the lock was ours.
    if (!m_source.refresh())
        return false;
    if (load_complete())
        return true;
    m_live = live;
    uint64_t file_end = m_source.size();
    m_source.limit(m_source.readable_end());
    if (!load_fragments(Take::description) ||
        (!m_live && leave_out_damage() && !load_fragments(Take::description)))
        return false;
    bool collected = (!m_info_only || alone) && collect_tables();
    if (!m_live)
        m_movie.tables.begin_at_zero();
    m_movie.info.duration = m_movie.duration_ms();
    if (!collected)
        return m_info_only;
    // What cannot be read now may well be readable later: the file then stays as it is.
    if (alone && !m_source.failed())
        finish(writer.get(), path, file_end);
    return true;
}

/** Take in what the file holds between its head and the first damage. @return false: no frames */
bool Reader::load_fragments(Take take)
{
    auto sizes = m_movie.tables.list_sizes();
    uint64_t samples = m_movie.tables.count();
    if (!find_recording(m_source, m_movie, m_walk))
        return false;
    if (take == Take::tables)
        m_movie.tables.reserve(sizes, samples);
    m_walk.interrupted = !m_live;
    walk_fragments(m_source, take, m_movie, m_walk);
    return m_movie.tables.count() > 0;
}

/**
 * Leave out what was not synced when the power went and did not all reach the card: the file's size can have
 * been faster than its bytes. @return whether there may be any
 */
bool Reader::leave_out_damage()
{
    if (m_walk.identity == 0)
        return drop_damaged_end();
    m_walk.verified_from = m_walk.durable_end;
    return true;
}

/** The same where there are no checksums: at the first picture that its NAL units do not fill. */
bool Reader::drop_damaged_end()
{
    constexpr uint64_t unsynced_ms = 6000;
    uint64_t last_ms = m_movie.tables.tracks[video_track].last_time;
    FragmentWalk walk = m_walk;
    walk.pos = walk.begin;
    walk.count = 0;
    uint64_t offset = 0;
    if (!find_unsound(m_source, walk, last_ms - std::min(last_ms, unsynced_ms), offset))
        return false;
    m_source.limit(offset);
    return true;
}

/** Take in the tables of what was described so far. @return false: they are too large */
bool Reader::collect_tables()
{
    uint64_t most = m_info_only ? max_probe_table_bytes : max_table_bytes;
    m_movie.refused = m_movie.refused || m_movie.tables.bytes() > most;
    return !m_movie.refused && load_fragments(Take::tables);
}

/** Finish the file. It has bytes that no frame is in, and may have space behind its end. */
void Reader::finish(int fd, const char* path, uint64_t file_end)
{
    const Track& video = m_movie.tables.tracks[video_track];
    if (video.count > 0)
        m_movie.avc_config =
            config_of(m_source, video.chunks[0].offset, video.chunks[0].offset + video.sizes[0]);
    if (m_movie.avc_config.empty())
        m_movie.avc_config = config_in_head(m_source, m_walk.begin);
    if (m_movie.avc_config.empty())
        m_movie.avc_config = m_walk.config;
    m_movie.name = m_walk.name;
    m_movie.identity = m_walk.identity;
    // The kernel would append behind that space and find the cluster chain and the size at odds.
    if (m_movie.avc_config.empty() || file_end > max_file_bytes ||
        ftruncate(fd, static_cast<off_t>(file_end)) != 0 || !mend_ftyp(fd, m_source, m_movie))
        return;
    if (reserve_space(fd, file_end + moov_bound(m_movie.tables, 0)))
        sync_folder(folder_of(path));
    finish_file(fd, m_movie, file_end);
}

void Reader::describe()
{
    rewind();
    int track = next_track();
    if (track < 0)
        return;
    m_first_time = m_cursors[track].show_time_ms();
    if (m_movie.recording)
        return;
    m_movie.info.firstpts = static_cast<int>(m_cursors[track].timestamp_ms());
    m_parameter_sets = parameter_sets_of(m_movie.avc_config);
}

void Reader::rewind()
{
    for (int i = 0; i < track_count; ++i)
        m_cursors[i] = TrackCursor(m_movie.tables.tracks[i], m_movie.tables.exact.anchors[i]);
    m_frame = 0;
    m_header = 0;
}

/** The track of the next frame, -1 at the end: in the order of writing, else of decoding. */
int Reader::next_track() const
{
    const FrameOrder& order = m_movie.tables.exact.order;
    const TrackCursor& video = m_cursors[video_track];
    const TrackCursor& audio = m_cursors[audio_track];
    if (video.at_end())
        return audio.at_end() ? -1 : static_cast<int>(audio_track);
    if (audio.at_end())
        return video_track;
    if (m_frame < order.size())
        return order.track(m_frame);
    return audio.decode_time_ms() < video.decode_time_ms() ? audio_track : video_track;
}

void Reader::step(int track)
{
    m_cursors[track].next();
    ++m_frame;
}

/** The track of the next frame that has bytes, those included that were recorded meanwhile; -1 at the end. */
int Reader::current_track()
{
    for (;;) {
        int track = next_track();
        if (track < 0 && grow())
            continue;
        if (track >= 0 && m_cursors[track].chunk() != m_checked[track].chunk)
            check_sizes(track);
        if (track < 0 || m_cursors[track].size() > 0)
            return track;
        step(track);
    }
}

/** Where what lies behind an offset begins: a chunk, or the tables. */
uint64_t Reader::chunk_limit(uint64_t offset) const
{
    uint64_t limit = offset < m_tables_begin ? m_tables_begin : m_source.size();
    for (const Track& track : m_movie.tables.tracks) {
        auto lies_behind = [](uint64_t begin, const Chunk& chunk) { return begin < chunk.offset; };
        auto next = std::upper_bound(track.chunks.begin(), track.chunks.end(), offset, lies_behind);
        if (next != track.chunks.end() && next->offset > offset)
            limit = std::min(limit, next->offset);
    }
    return limit;
}

/**
 * See whether the samples of a chunk end where they have to: one damaged size moves all that follow. Those of
 * a recording are then taken from their fragment. Chunks of other writers can have gaps between them.
 */
void Reader::check_sizes(int track)
{
    const TrackCursor& cursor = m_cursors[track];
    uint64_t end = cursor.chunk_end();
    uint64_t limit = chunk_limit(m_movie.tables.tracks[track].chunks[cursor.chunk()].offset);
    bool sound = end == limit || !m_movie.complete;
    if (!sound && m_movie.recording)
        sound = has_fragment_at(end, limit) || tables_are_proven() || restore_sizes(track);
    else if (!sound)
        sound = end < limit;
    m_checked[track] = {cursor.chunk(), sound};
}

/** Whether a fragment begins at pos whose payload begins at another offset. */
bool Reader::has_fragment_at(uint64_t pos, uint64_t payload)
{
    uint8_t moof[8];
    return m_source.read(pos, moof, sizeof moof) && be32(moof + 4) == fourcc("moof") &&
           pos + be32(moof) + sizeof moof == payload;
}

/** Whether the tables carry their checksum; samples between theirs were then left out when they were written.
 */
bool Reader::tables_are_proven()
{
    if (!m_proven)
        m_proven = is_sealed(m_source, m_tables_begin, m_tables_end);
    return *m_proven;
}

/** Take the sizes of a chunk's samples from their fragment. @return false: it is damaged */
bool Reader::restore_sizes(int track)
{
    Tables& tables = m_movie.tables;
    TrackCursor& cursor = m_cursors[track];
    const Chunk& chunk = tables.tracks[track].chunks[cursor.chunk()];
    std::vector<uint32_t>& sizes = tables.tracks[track].sizes;
    if (m_searches == 0 || chunk.count > sizes.size() || cursor.chunk_begin() > sizes.size() - chunk.count)
        return false;
    --m_searches;
    auto lies_before = [](const Chunk& pictures, uint64_t begin) { return pictures.offset < begin; };
    const std::vector<Chunk>& pictures = tables.tracks[video_track].chunks;
    auto next = std::lower_bound(pictures.begin(), pictures.end(), chunk.offset, lies_before);
    // A fragment's payload begins with its pictures, if it has any.
    uint64_t before = next == pictures.begin() ? chunk.offset : next[-1].offset;
    Fragment fragment;
    for (uint64_t payload : {chunk.offset, before}) {
        if (!find_fragment(m_source, payload, fragment))
            continue;
        const std::vector<Sample>& written = fragment.samples[track];
        uint64_t begin = payload + (track == audio_track ? fragment.payload_size(video_track) : 0);
        if (begin != chunk.offset || chunk.count > written.size())
            continue;
        for (size_t i = 0; i < chunk.count; ++i)
            sizes[cursor.chunk_begin() + i] = written[i].size;
        cursor.measure();
        return true;
    }
    return false;
}

/** Take in the fragments that were recorded since the last time. @return false: none */
bool Reader::grow()
{
    uint32_t known = m_walk.count;
    if (!m_live || !m_source.refresh())
        return false;
    size_t frame = m_frame;
    uint32_t samples[track_count] = {m_cursors[video_track].sample(), m_cursors[audio_track].sample()};
    walk_fragments(m_source, Take::tables, m_movie, m_walk);
    if (m_walk.count == known)
        return false;
    rewind();
    m_frame = frame;
    for (int i = 0; i < track_count; ++i)
        m_cursors[i].skip_to(samples[i]);
    std::lock_guard<std::mutex> lock(m_info_mutex);
    m_movie.info.duration = m_movie.duration_ms();
    return true;
}

int Reader::read(int& kind, char* buf, size_t capacity, uint32_t& timestamp)
{
    if (m_info_only)
        return failure(EBADF);
    m_searches = max_searches;
    int track = current_track();
    if (track < 0)
        return 0;
    const TrackCursor& cursor = m_cursors[track];
    bool lies_in_file =
        cursor.offset() <= m_source.size() && cursor.size() <= m_source.size() - cursor.offset();
    bool fits = cursor.size() <= capacity;
    // Among sizes of which one is wrong, a picture shows by its NAL units whether its own is right.
    bool sound = lies_in_file && (m_checked[track].sound || (track == video_track && fits));
    if (sound && !fits)
        return failure(EMSGSIZE);
    int length = 0;
    if (sound)
        length = track == audio_track ? read_audio(cursor, buf, capacity) : read_video(cursor, buf, capacity);
    if (length < 0)
        return length;
    if (length > 0) {
        timestamp = cursor.timestamp_ms();
        bool key = cursor.is_key();
        kind = track == audio_track ? KT_MP4_AUDIO : key ? KT_MP4_VIDEO_KEY : KT_MP4_VIDEO_OTHER;
    }
    step(track);
    return length > 0 ? length : failure(EBADMSG);
}

bool Reader::load_sample(const TrackCursor& cursor)
{
    if (m_sample.size() < cursor.size())
        m_sample.resize(cursor.size());
    return m_source.read(cursor.offset(), m_sample.data(), cursor.size());
}

/** @return length in buf, 0: the sample is damaged, -1 (errno): it cannot be read, or buf is too small */
int Reader::read_video(const TrackCursor& cursor, char* buf, size_t capacity)
{
    if (m_movie.recording)
        return read_own_video(cursor, reinterpret_cast<uint8_t*>(buf));
    if (!load_sample(cursor))
        return -1;
    const uint8_t* nal = nullptr;
    size_t size = 0;
    size_t total = 0;
    bool has_sps = false;
    NalWalk check(m_sample.data(), cursor.size(), m_movie.nal_length_bytes());
    while (check.next(nal, size)) {
        total += size > 0 ? sizeof start_code + size : 0;
        has_sps = has_sps || (size > 0 && (nal[0] & 31) == nal_sps);
    }
    if (!check.at_end() || total == 0)
        return 0;
    bool bare = cursor.is_key() && !has_sps && !m_parameter_sets.empty();
    if (total + (bare ? m_parameter_sets.size() : 0) > capacity)
        return failure(EMSGSIZE);
    char* out = buf;
    if (bare)
        out = std::copy(m_parameter_sets.begin(), m_parameter_sets.end(), out);
    NalWalk copy(m_sample.data(), cursor.size(), m_movie.nal_length_bytes());
    while (copy.next(nal, size)) {
        if (size > 0)
            out = std::copy(nal, nal + size, std::copy(std::begin(start_code), std::end(start_code), out));
    }
    return static_cast<int>(out - buf);
}

/** The frame is read where it goes: a length takes as many bytes as the start code that replaces it. */
int Reader::read_own_video(const TrackCursor& cursor, uint8_t* buf)
{
    if (!m_source.read(cursor.offset(), buf, cursor.size()))
        return -1;
    const uint8_t* nal = nullptr;
    size_t size = 0;
    NalWalk walk(buf, cursor.size(), sizeof start_code);
    while (walk.next(nal, size)) {
        if (size == 0)
            return 0;
        std::copy(std::begin(start_code), std::end(start_code), buf + (nal - buf) - sizeof start_code);
    }
    return walk.at_end() ? static_cast<int>(cursor.size()) : 0;
}

int Reader::read_audio(const TrackCursor& cursor, char* buf, size_t capacity)
{
    AdtsHeader none;
    const std::vector<AdtsRun>& headers = m_movie.tables.exact.headers;
    follow(headers, m_header, cursor.sample());
    const AdtsHeader& header = headers.empty() ? none : headers[m_header].header;
    if (cursor.size() + header.size > capacity)
        return failure(EMSGSIZE);
    auto* out = reinterpret_cast<uint8_t*>(buf);
    if (!m_source.read_on(cursor.offset(), out + header.size, cursor.size()))
        return -1;
    if (header.size > 0)
        header.rebuild(cursor.size(), out);
    return static_cast<int>(cursor.size() + header.size);
}

/** Pass the frames, in the order of decoding, that lie in front of the first of these. */
void Reader::pass_in_time(const TrackCursor (&targets)[track_count])
{
    const TrackCursor& video = targets[video_track];
    const TrackCursor& audio = targets[audio_track];
    bool audio_first = !audio.at_end() && (video.at_end() || audio.decode_time_ms() < video.decode_time_ms());
    int first = audio_first ? audio_track : video_track;
    int other = 1 - first;
    // Of equal times the video's comes first.
    uint64_t time = targets[first].decode_time_ms() + (audio_first ? 1 : 0);
    TrackCursor beside = targets[first].at_end() ? targets[other] : m_cursors[other].find_decoded(time);
    m_frame += targets[first].sample() - m_cursors[first].sample();
    m_frame += beside.sample() - m_cursors[other].sample();
    m_cursors[first] = targets[first];
    m_cursors[other] = beside;
}

bool Reader::seek(uint32_t offset_ms)
{
    if (m_info_only)
        return fail(EBADF);
    rewind();
    const TrackCursor targets[track_count] = {m_cursors[video_track].find(m_first_time, offset_ms),
                                              m_cursors[audio_track].find(m_first_time, offset_ms)};
    uint32_t left[track_count] = {targets[video_track].sample(), targets[audio_track].sample()};
    m_frame = m_movie.tables.exact.order.pass(left);
    for (int i = 0; i < track_count; ++i) {
        if (left[i] == 0)
            m_cursors[i] = targets[i];
        else
            m_cursors[i].skip_to(targets[i].sample() - left[i]);
    }
    int track = next_track();
    if (track >= 0 && left[track] > 0)
        pass_in_time(targets);
    return true;
}

kt_mfile_info_t Reader::info() const
{
    std::lock_guard<std::mutex> lock(m_info_mutex);
    return m_movie.info;
}

} // namespace ifs_mp4
