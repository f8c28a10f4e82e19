#include "container/fragments.h"

#include <algorithm>
#include <limits>

#include "container/fields.h"
#include "container/layout.h"
#include "container/limits.h"

namespace ifs_mp4
{
namespace
{

static_assert(max_fragment_frames * (sizeof(Sample) + sizeof(Anchor) + sizeof(AdtsRun) + 1) <=
                      max_fragment_table_bytes &&
                  max_start_bytes <= max_fragment_table_bytes,
              "what the writer cuts is read");

bool parse_run(Source& source, const Box& box, bool video, uint64_t time, TableRoom& room,
               std::vector<Sample>& samples)
{
    Fields fields(source, box);
    uint32_t flags = fields.u32();
    if (flags != (video ? 1u << 24 | video_trun_flags : audio_trun_flags))
        return false;
    uint32_t count = fields.u32();
    fields.skip(4); // data offset: all video, then all audio
    size_t entry_bytes = video ? video_trun_entry_bytes : audio_trun_entry_bytes;
    if (!fields.ok() || count > fields.left() / entry_bytes)
        return false;
    samples.reserve(room.take(count, sizeof(Sample)));
    if (room.exceeded())
        return false;
    fields.each(count, entry_bytes, [&](const uint8_t* entry) {
        bool key = video && be32(entry + 8) == key_sample_flags;
        uint32_t show_offset = video ? be32(entry + 12) : 0;
        samples.push_back({be32(entry + 4), key, time,
                           time + static_cast<uint64_t>(int64_t{static_cast<int32_t>(show_offset)})});
        time += be32(entry);
    });
    return fields.ok() && count > 0;
}

bool parse_traf(Source& source, const Box& traf, TableRoom& room, Fragment& fragment)
{
    Box tfhd, tfdt, trun;
    if (!find_box(source, traf.begin, traf.end, fourcc("tfhd"), tfhd) ||
        !find_box(source, traf.begin, traf.end, fourcc("tfdt"), tfdt) ||
        !find_box(source, traf.begin, traf.end, fourcc("trun"), trun))
        return false;
    Fields header(source, tfhd);
    Fields time(source, tfdt);
    uint32_t flags = header.u32();
    uint32_t track = header.u32() - 1;
    time.skip(4);
    uint64_t decode_time = time.u64();
    if (!header.ok() || !time.ok() || flags != tfhd_flags || track >= track_count ||
        !fragment.samples[track].empty())
        return false;
    return parse_run(source, trun, track == video_track, decode_time, room, fragment.samples[track]);
}

template <class Entry>
bool lie_within(const std::vector<Entry>& ascending, const std::vector<Sample>& samples)
{
    return ascending.empty() || ascending.back().sample < samples.size();
}

/** Whether what a fragment says beside its samples is about them; else no table could hold it. */
bool is_consistent(const Fragment& fragment)
{
    const ExactTables& exact = fragment.exact;
    bool within = lie_within(exact.headers, fragment.samples[audio_track]);
    for (int i = 0; i < track_count; ++i)
        within = within && lie_within(exact.anchors[i], fragment.samples[i]);
    return within && exact.order.size() == fragment.count();
}

/**
 * @param sequence  the number that it has to have; 0: any
 * @param refused   set when the fragment is too large
 */
bool parse_moof(Source& source, const Box& moof, uint32_t sequence, Fragment& fragment, bool& refused)
{
    if (moof.size() > max_fragment_table_bytes) {
        refused = true;
        return false;
    }
    fragment.clear();
    TableRoom room(max_fragment_table_bytes);
    bool in_sequence = sequence == 0;
    bool sound = each_box(source, moof.begin, moof.end, [&](const Box& box) {
        if (box.type == fourcc("mfhd")) {
            Fields fields(source, box);
            fields.skip(4);
            in_sequence = in_sequence || fields.u32() == sequence;
        }
        if (box.type == fourcc("traf"))
            return parse_traf(source, box, room, fragment);
        return !is_uuid(source, box, exact_uuid) || parse_exact(source, box, room, fragment.exact);
    });
    refused = refused || room.exceeded();
    return sound && in_sequence && is_consistent(fragment);
}

/** Whether a fragment continues a track in time, as its tables can express it. */
bool continues(const Track& track, const std::vector<Sample>& samples)
{
    constexpr uint64_t max_step = std::numeric_limits<uint32_t>::max();
    if (samples.empty() || track.count == 0)
        return true;
    uint64_t time = samples.front().decode_time;
    return time >= track.last_time && time - track.last_time <= max_step;
}

/** Keep of a torn fragment the samples that are whole. */
void keep_whole(const Source& source, uint64_t payload, Fragment& fragment)
{
    size_t whole[track_count] = {};
    for (int i = 0; i < track_count; ++i) {
        for (const Sample& sample : fragment.samples[i]) {
            payload += sample.size;
            whole[i] += payload <= source.size();
        }
    }
    fragment.keep(whole);
}

/** Whether a payload begins there: a moof that only has a damaged size leads elsewhere. */
bool is_mdat(Source& source, uint64_t pos)
{
    const uint8_t* header = source.at(pos, 8);
    return header && be32(header + 4) == fourcc("mdat");
}

/**
 * Hand the fragments from walk.pos on, and where the payload of each begins, to a function, up to the first
 * one that is torn or damaged, or of which it returns false.
 */
template <class Function>
void each_fragment(Source& source, ParsedMovie& movie, FragmentWalk& walk, Function function)
{
    constexpr uint64_t mdat_header_bytes = 8;
    for (uint64_t next = walk.pos;; walk.pos = next) {
        Fragment fragment; // of its own: the largest lists of many together take more memory than any has
        Box moof, mdat;
        bool too_large = false;
        if (!next_box(source, next, source.size(), moof) || moof.type != fourcc("moof"))
            return;
        if (!parse_moof(source, moof, walk.count + 1, fragment, too_large)) {
            movie.refused = movie.refused || (too_large && is_mdat(source, moof.end));
            return;
        }
        bool whole = next_box(source, next, source.size(), mdat) && mdat.type == fourcc("mdat") &&
                     mdat.size() == fragment.payload_size();
        if (!whole) {
            if (walk.count > 0 || !walk.torn_too)
                return;
            mdat.begin = moof.end + mdat_header_bytes;
            keep_whole(source, mdat.begin, fragment);
            next = source.size();
        }
        bool fits = !fragment.empty();
        for (int i = 0; i < track_count; ++i)
            fits = fits && continues(movie.tables.tracks[i], fragment.samples[i]);
        if (!fits || !function(fragment, mdat.begin))
            return;
        ++walk.count;
    }
}

/** The timestamp of the first frame. */
uint32_t first_timestamp(const Fragment& first)
{
    // The order may speak of the other track only: of what is torn then nothing is left of it.
    const FrameOrder& order = first.exact.order;
    int track = order.size() > 0 ? order.track(0) : static_cast<int>(video_track);
    if (first.samples[track].empty())
        track = 1 - track;
    const std::vector<Anchor>& anchors = first.exact.anchors[track];
    uint32_t offset = anchors.empty() ? 0 : anchors.front().offset_ms;
    return static_cast<uint32_t>(first.samples[track].front().show_time) + offset;
}

void append(const Fragment& fragment, uint64_t payload, ParsedMovie& movie)
{
    if (movie.tables.count() == 0)
        movie.info.firstpts = static_cast<int>(first_timestamp(fragment));
    if (movie.tables.exact.headers.empty())
        movie.adts = fragment.exact.first_header();
    movie.tables.make_room(fragment);
    movie.tables.append(fragment, payload);
}

/** Whether the NAL units of a video sample of our own fill it. */
bool is_sound(Source& source, uint64_t pos, uint32_t size)
{
    constexpr size_t length_bytes = 4;
    uint64_t end = pos + size;
    while (end - pos > length_bytes) {
        const uint8_t* length = source.at(pos, length_bytes);
        if (!length || be32(length) == 0 || be32(length) > end - pos - length_bytes)
            return false;
        pos += length_bytes + be32(length);
    }
    return pos == end;
}

/** Whether the first fragment of a recording begins there. @param refused  set when it is too large */
bool is_first_fragment(Source& source, uint64_t pos, bool& refused)
{
    const uint8_t* mfhd = source.at(pos, 16);
    if (!mfhd || be32(mfhd + 4) != fourcc("moof") || be32(mfhd + 12) != fourcc("mfhd"))
        return false;
    Fragment fragment;
    Box moof;
    return next_box(source, pos, source.size(), moof) && parse_moof(source, moof, 1, fragment, refused);
}

/** Read what the head says of a recording, at its place. @return false: it is of another version */
bool read_head(Source& source, ParsedMovie& movie)
{
    constexpr uint32_t max_version = 255; // a larger one is damage
    Box info = {fourcc("uuid"), first_info_begin + 8, first_info_begin + info_bytes};
    bool marked = is_uuid(source, info, info_uuid);
    uint32_t version = Fields(source, behind_uuid(info)).u32();
    if (marked && version != layout_version && version <= max_version)
        return false;
    if (marked || version == layout_version)
        parse_info(source, info, movie);
    movie.tables = {}; // no samples in front of the fragments
    movie.recording = true;
    movie.complete = false;
    return true;
}

} // namespace

bool find_recording(Source& source, ParsedMovie& movie, FragmentWalk& walk)
{
    movie = {};
    movie.refused = !read_head(source, movie);
    if (movie.refused)
        return false;
    Box moov;
    walk.count = 0;
    walk.pos = first_moov_begin - 8;
    bool found =
        next_box(source, walk.pos, source.size(), moov) && is_first_fragment(source, walk.pos, movie.refused);
    // Else the size of the moov is damaged.
    bool too_large = false; // what only looks like a fragment
    for (uint64_t pos = first_moov_begin; !found && !movie.refused && pos < max_start_bytes; ++pos) {
        if (!source.at(pos, 8))
            return false;
        walk.pos = pos;
        found = is_first_fragment(source, pos, too_large);
    }
    walk.begin = walk.pos;
    return found;
}

void walk_fragments(Source& source, Take take, ParsedMovie& movie, FragmentWalk& walk)
{
    each_fragment(source, movie, walk, [&](const Fragment& fragment, uint64_t payload) {
        append(fragment, payload, movie);
        if (take == Take::description)
            movie.tables.thin_out();
        return true;
    });
}

bool find_unsound(Source& source, FragmentWalk walk, uint64_t from_ms, uint64_t& offset)
{
    ParsedMovie movie;
    bool sound = true;
    each_fragment(source, movie, walk, [&](const Fragment& fragment, uint64_t payload) {
        offset = payload;
        for (const Sample& sample : fragment.samples[video_track]) {
            sound = sample.decode_time < from_ms || is_sound(source, offset, sample.size);
            if (!sound)
                return false;
            offset += sample.size;
        }
        append(fragment, payload, movie);
        movie.tables.thin_out();
        return true;
    });
    return !sound;
}

bool find_fragment(Source& source, uint64_t payload, Fragment& fragment)
{
    constexpr size_t header_bytes = 8;
    bool too_large = false;
    Bytes before(static_cast<size_t>(std::min<uint64_t>(payload, max_start_bytes)));
    if (!source.read(payload - before.size(), before.data(), before.size()))
        return false;
    // Nothing points back to a moof box, but its size leads here.
    for (size_t size = 2 * header_bytes; size <= before.size(); ++size) {
        const uint8_t* box = before.data() + before.size() - size;
        if (be32(box + 4) != fourcc("moof") || be32(box) != size - header_bytes)
            continue;
        const Box moof{fourcc("moof"), payload - size + header_bytes, payload - header_bytes};
        const uint8_t* mdat = before.data() + before.size() - header_bytes;
        return be32(mdat + 4) == fourcc("mdat") && parse_moof(source, moof, 0, fragment, too_large) &&
               fragment.payload_size() + header_bytes == be32(mdat);
    }
    return false;
}

} // namespace ifs_mp4
