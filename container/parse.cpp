#include "container/parse.h"

#include <algorithm>
#include <limits>

#include "container/fields.h"
#include "container/limits.h"

namespace ifs_mp4
{
namespace
{

/** Reads a trak box of any writer into a Track. */
class TrackParser
{
public:
    TrackParser(Source& source, TableRoom& room, ParsedMovie& movie)
        : m_source(source), m_room(room), m_movie(movie)
    {
    }

    /** @return false when the box is damaged; a track of a kind that is not played is passed over */
    bool parse(const Box& trak);

private:
    /** What becomes of a box. */
    struct Place {
        uint32_t type;
        uint32_t parent;
        bool (TrackParser::*parse)(const Box& box);
    };
    static const Place places[];

    bool parse_children(const Box& parent);
    bool parse_mdhd(const Box& box);
    bool parse_stsd(const Box& box);
    bool parse_avc1(const Box& entry);
    bool parse_mp4a(const Box& entry);
    bool parse_esds(const Box& box);
    bool parse_durations(const Box& box);
    bool parse_show_offsets(const Box& box);
    bool parse_keys(const Box& box);
    bool parse_sizes(const Box& box);
    bool parse_offsets(const Box& box);
    bool parse_chunk_counts(const Box& box);
    bool fill_chunks();
    void describe(int track) const;

    struct ChunkCount {
        uint32_t first_chunk;
        uint32_t samples;
    };

    Source& m_source;
    TableRoom& m_room;
    ParsedMovie& m_movie;
    Track m_track;
    uint64_t m_duration = 0;
    int m_kind = -1;
    std::vector<ChunkCount> m_chunk_counts;
};

bool TrackParser::parse(const Box& trak)
{
    m_track.all_keys = true;
    if (!parse_children(trak))
        return false;
    if (m_kind < 0 || m_movie.tables.tracks[m_kind].count > 0)
        return true;
    if (m_track.timescale == 0 || !fill_chunks())
        return false;
    m_track.start_time = m_movie.tables.tracks[m_kind].start_time;
    m_movie.tables.tracks[m_kind] = std::move(m_track);
    if (!m_movie.recording)
        describe(m_kind);
    return true;
}

/** Each box counts at its own place only, so that no file can lead deeper than this table. */
const TrackParser::Place TrackParser::places[] = {
    {fourcc("mdia"), fourcc("trak"), &TrackParser::parse_children},
    {fourcc("mdhd"), fourcc("mdia"), &TrackParser::parse_mdhd},
    {fourcc("minf"), fourcc("mdia"), &TrackParser::parse_children},
    {fourcc("stbl"), fourcc("minf"), &TrackParser::parse_children},
    {fourcc("stsd"), fourcc("stbl"), &TrackParser::parse_stsd},
    {fourcc("stts"), fourcc("stbl"), &TrackParser::parse_durations},
    {fourcc("ctts"), fourcc("stbl"), &TrackParser::parse_show_offsets},
    {fourcc("stss"), fourcc("stbl"), &TrackParser::parse_keys},
    {fourcc("stsz"), fourcc("stbl"), &TrackParser::parse_sizes},
    {fourcc("stco"), fourcc("stbl"), &TrackParser::parse_offsets},
    {fourcc("co64"), fourcc("stbl"), &TrackParser::parse_offsets},
    {fourcc("stsc"), fourcc("stbl"), &TrackParser::parse_chunk_counts},
};

bool TrackParser::parse_children(const Box& parent)
{
    return each_box(m_source, parent.begin, parent.end, [&](const Box& box) {
        for (const Place& place : places) {
            if (place.type == box.type && place.parent == parent.type)
                return (this->*place.parse)(box);
        }
        return true;
    });
}

bool TrackParser::parse_mdhd(const Box& box)
{
    Fields fields(m_source, box);
    bool wide = fields.u32() >> 24 == 1;
    fields.skip(wide ? 16 : 8);
    m_track.timescale = fields.u32();
    return fields.ok();
}

bool TrackParser::parse_stsd(const Box& box)
{
    Fields fields(m_source, box);
    fields.skip(8);
    uint64_t pos = fields.pos();
    Box entry;
    if (!fields.ok() || !next_box(m_source, pos, box.end, entry))
        return false;
    if (entry.type == fourcc("avc1") || entry.type == fourcc("avc3"))
        return parse_avc1(entry);
    return entry.type != fourcc("mp4a") || parse_mp4a(entry);
}

bool TrackParser::parse_avc1(const Box& entry)
{
    constexpr size_t fixed_bytes = 78;
    constexpr uint64_t max_config_bytes = 65536;
    Fields fields(m_source, entry);
    fields.skip(24);
    uint32_t size = fields.u32();
    fields.skip(fixed_bytes - 28);
    Box avcc;
    if (!fields.ok() || !find_box(m_source, fields.pos(), entry.end, fourcc("avcC"), avcc) ||
        avcc.size() > max_config_bytes)
        return false;
    Bytes config(static_cast<size_t>(avcc.size()));
    if (!m_source.read(avcc.begin, config.data(), config.size()))
        return false;
    if (m_movie.tables.tracks[video_track].count > 0)
        return true;
    m_kind = video_track;
    m_movie.avc_config = std::move(config);
    if (!m_movie.recording) {
        m_movie.info.width = static_cast<int>(size >> 16);
        m_movie.info.height = static_cast<int>(size & 0xffff);
    }
    return true;
}

bool TrackParser::parse_mp4a(const Box& entry)
{
    constexpr size_t fixed_bytes = 28;
    Fields fields(m_source, entry);
    fields.skip(fixed_bytes);
    Box esds;
    bool playable = fields.ok() && find_box(m_source, fields.pos(), entry.end, fourcc("esds"), esds);
    return !playable || parse_esds(esds);
}

/** Step into descriptors until the AudioSpecificConfig. */
bool TrackParser::parse_esds(const Box& box)
{
    constexpr uint32_t es_tag = 3, decoder_tag = 4, specific_tag = 5;
    Fields fields(m_source, box);
    fields.skip(4);
    uint32_t wanted = es_tag;
    while (fields.ok()) {
        uint32_t tag = fields.u8();
        uint32_t length_byte = 0x80;
        for (int i = 0; i < 4 && (length_byte & 0x80) != 0; ++i)
            length_byte = fields.u8();
        if (tag != wanted++)
            return true;
        if (tag == es_tag)
            fields.skip(3);
        if (tag == decoder_tag) {
            if (uint32_t object_type = fields.u8(); object_type != 0x40 && object_type != 0x67)
                return true;
            fields.skip(12);
        }
        if (tag == specific_tag)
            break;
    }
    uint32_t config = fields.u8() << 8;
    config |= fields.u8();
    if (!fields.ok())
        return false;
    m_kind = audio_track;
    if (!m_movie.recording) {
        m_movie.info.audio_profile = static_cast<int>(config >> 11);
        m_movie.info.audio_sample_rate_index = static_cast<int>(config >> 7 & 15);
        m_movie.info.audio_channel_conf = static_cast<int>(config >> 3 & 15);
    }
    return true;
}

bool TrackParser::parse_durations(const Box& box)
{
    auto read_run = [this](const uint8_t* entry) {
        Run run{be32(entry), be32(entry + 4)};
        m_duration += uint64_t{run.count} * run.value;
        return run;
    };
    Fields fields(m_source, box);
    fields.skip(4);
    m_duration = 0;
    uint32_t left = fields.list(m_track.durations, 8, m_room, read_run);
    fields.each(left, 8, read_run);
    return fields.ok();
}

bool TrackParser::parse_show_offsets(const Box& box)
{
    Fields fields(m_source, box);
    fields.skip(4);
    fields.list(m_track.show_offsets, 8, m_room, [](const uint8_t* entry) {
        return Run{be32(entry), be32(entry + 4)};
    });
    return fields.ok();
}

bool TrackParser::parse_keys(const Box& box)
{
    Fields fields(m_source, box);
    fields.skip(4);
    m_track.all_keys = false;
    fields.list(m_track.keys, m_room);
    for (uint32_t& key : m_track.keys)
        --key;
    return fields.ok() && std::is_sorted(m_track.keys.begin(), m_track.keys.end());
}

bool TrackParser::parse_sizes(const Box& box)
{
    Fields fields(m_source, box);
    fields.skip(4);
    m_track.constant_size = fields.u32();
    m_track.sizes.clear();
    if (m_track.constant_size > 0) {
        m_track.count = fields.u32();
        return fields.ok() && m_track.count <= m_source.size() / m_track.constant_size;
    }
    m_track.count = fields.list(m_track.sizes, m_room);
    m_track.count += static_cast<uint32_t>(m_track.sizes.size());
    return fields.ok();
}

bool TrackParser::parse_offsets(const Box& box)
{
    bool wide = box.type == fourcc("co64");
    Fields fields(m_source, box);
    fields.skip(4);
    fields.list(m_track.chunks, wide ? 8 : 4, m_room, [=](const uint8_t* entry) {
        return Chunk{wide ? be64(entry) : be32(entry), 0};
    });
    return fields.ok();
}

bool TrackParser::parse_chunk_counts(const Box& box)
{
    Fields fields(m_source, box);
    fields.skip(4);
    fields.list(m_chunk_counts, 12, m_room, [](const uint8_t* entry) {
        return ChunkCount{be32(entry), be32(entry + 4)};
    });
    return fields.ok();
}

bool TrackParser::fill_chunks()
{
    size_t entry = 0;
    for (size_t i = 0; i < m_track.chunks.size(); ++i) {
        while (entry + 1 < m_chunk_counts.size() && m_chunk_counts[entry + 1].first_chunk <= i + 1)
            ++entry;
        if (entry >= m_chunk_counts.size())
            return false;
        m_track.chunks[i].count = m_chunk_counts[entry].samples;
    }
    return true;
}

/** The description that only a file of our own carries. */
void TrackParser::describe(int kind) const
{
    const Track& track = m_movie.tables.tracks[kind];
    uint64_t duration_ms = std::min<uint64_t>(track.to_ms(m_duration), std::numeric_limits<int>::max());
    m_movie.info.duration = std::max(m_movie.info.duration, static_cast<int>(duration_ms));
    if (kind == audio_track)
        m_movie.info.have_audio = 1;
    else if (duration_ms > 0)
        m_movie.info.frame_rate = static_cast<int>(
            std::min<uint64_t>((uint64_t{track.count} * 1000 + duration_ms / 2) / duration_ms, 1000));
}

} // namespace

bool parse_info(Source& source, const Box& box, ParsedMovie& movie)
{
    Fields fields(source, behind_uuid(box));
    uint32_t version = fields.u32();
    movie.recording = true;
    movie.complete = fields.u32() == 1;
    for (auto field : info_fields)
        movie.info.*field = static_cast<int>(fields.u32());
    movie.info.duration = std::max(movie.info.duration, 0);
    movie.tables.tracks[audio_track].start_time = fields.u64();
    return version == layout_version && fields.ok();
}

bool parse_moov(Source& source, const Box& moov, bool info_only, ParsedMovie& movie)
{
    movie = {};
    Box info;
    uint64_t pos = moov.begin;
    while (!movie.recording && next_box(source, pos, moov.end, info)) {
        if (is_uuid(source, info, info_uuid) && !parse_info(source, info, movie))
            return false;
    }
    // Whatever the first one says of itself, the last one never lies there.
    movie.complete = movie.complete && moov.begin != first_moov_begin;
    if (movie.recording && (info_only || !movie.complete))
        return true;
    bool sound = each_box(source, moov.begin, moov.end, [&](const Box& box) {
        TableRoom room(max_table_bytes - movie.tables.bytes(), info_only);
        bool read = true;
        if (box.type == fourcc("trak"))
            read = TrackParser(source, room, movie).parse(box);
        else if (is_uuid(source, box, exact_uuid))
            read = parse_exact(source, box, room, movie.tables.exact);
        movie.refused = movie.refused || room.exceeded();
        return read;
    });
    movie.complete = true;
    movie.adts = movie.tables.exact.first_header();
    return sound && movie.tables.count() > 0;
}

} // namespace ifs_mp4
