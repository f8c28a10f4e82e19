#include "container/fragments.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "container/fields.h"
#include "container/layout.h"
#include "container/limits.h"

namespace ifs_mp4
{
namespace
{

constexpr uint64_t box_header_bytes = 8;

/** Bytes that are searched for the next fragment behind damage, and behind the head: some fragments'. */
constexpr uint64_t max_search_bytes = 16 << 20;
constexpr uint64_t max_first_search_bytes = 2 << 20;

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

bool parse_check(Source& source, const Box& box, TableRoom& room, Check& check)
{
    Fields fields(source, behind_uuid(box));
    check.identity = fields.u64();
    fields.skip(4); // the number, as in mfhd
    check.offset = fields.u32();
    check.durable_end = fields.u32();
    size_t name_bytes = fields.u8();
    const uint8_t* name = fields.bytes(name_bytes);
    check.name.assign(name, name + (name ? name_bytes : 0));
    check.config.resize(room.take(fields.u16(), 1));
    bool whole = source.read(fields.pos(), check.config.data(), check.config.size());
    fields.skip(check.config.size());
    fields.list(check.sums, room);
    return whole && fields.ok() && check.identity != 0;
}

/** @param refused  set when the fragment is too large */
bool parse_moof(Source& source, const Box& moof, Fragment& fragment, bool& refused)
{
    if (moof.size() > max_fragment_table_bytes) {
        refused = true;
        return false;
    }
    fragment.clear();
    TableRoom room(max_fragment_table_bytes);
    bool sound = each_box(source, moof.begin, moof.end, [&](const Box& box) {
        if (box.type == fourcc("mfhd")) {
            Fields fields(source, box);
            fields.skip(4);
            fragment.number = fields.u32();
        }
        if (box.type == fourcc("traf"))
            return parse_traf(source, box, room, fragment);
        if (is_uuid(source, box, check_uuid))
            return is_sealed(source, moof.begin - box_header_bytes, moof.end) &&
                   parse_check(source, box, room, fragment.check);
        return !is_uuid(source, box, exact_uuid) || parse_exact(source, box, room, fragment.exact);
    });
    refused = refused || room.exceeded();
    return sound && fragment.number > 0 && is_consistent(fragment);
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

/** Leave out the samples that are not whole in the file, or lie in damaged pieces. */
void keep_sound(Source& source, uint64_t payload, bool verified, Fragment& fragment, FragmentWalk& walk)
{
    std::vector<bool> pieces;
    if (verified)
        pieces = verify(source, fragment.check, payload, fragment.payload_size());
    auto is_damaged = [&](uint64_t pos) {
        return verified && !pieces[static_cast<size_t>(pos / piece_bytes - payload / piece_bytes)];
    };
    std::vector<bool> kept[track_count];
    Loss loss = {payload, UINT64_MAX, 0};
    uint64_t begin = payload;
    for (int i = 0; i < track_count; ++i) {
        for (const Sample& sample : fragment.samples[i]) {
            const uint64_t end = begin + sample.size;
            bool sound = end <= source.size();
            for (uint64_t pos = begin; sound && pos < end; pos = (pos / piece_bytes + 1) * piece_bytes)
                sound = !is_damaged(pos);
            if (!sound) {
                walk.left_out += std::min(end, source.size()) - std::min(begin, source.size());
                loss.begin_ms = std::min(loss.begin_ms, sample.decode_time);
                loss.end_ms = std::max(loss.end_ms, sample.decode_time);
            }
            kept[i].push_back(sound);
            begin = end;
        }
    }
    if (loss.begin_ms <= loss.end_ms)
        walk.losses.push_back(loss);
    fragment.keep(kept);
}

/** Whether a payload begins there: a moof that only has a damaged size leads elsewhere. */
bool is_mdat(Source& source, uint64_t pos)
{
    const uint8_t* header = source.at(pos, 8);
    return header && be32(header + 4) == fourcc("mdat");
}

uint64_t first_time(const Fragment& fragment)
{
    uint64_t first = UINT64_MAX;
    for (const auto& samples : fragment.samples)
        first = samples.empty() ? first : std::min(first, samples.front().decode_time);
    return first;
}

uint64_t last_time(const Tables& tables)
{
    return std::max(tables.tracks[video_track].last_time, tables.tracks[audio_track].last_time);
}

/** A fragment as it lies in the file. */
struct Placed {
    Fragment fragment;
    uint64_t payload = 0;
    uint64_t end = 0;
    bool whole = true;

    bool has_check() const { return fragment.check.identity != 0; }
};

/** Whether a fragment that lies at walk.pos and carries a check belongs there. */
bool is_next(const FragmentWalk& walk, const Fragment& fragment)
{
    const Check& check = fragment.check;
    const bool first = walk.identity == 0 && walk.count == 0;
    bool follows = walk.interrupted ? fragment.number > walk.count : fragment.number == walk.count + 1;
    if (first)
        follows = fragment.number == 1 || (follows && check.name == walk.name);
    return follows && check.offset == walk.pos && (walk.identity == 0 || check.identity == walk.identity);
}

/** Read the fragment at walk.pos. @return false: there is none, or it is damaged */
bool read_fragment(Source& source, const FragmentWalk& walk, Placed& placed, bool& refused)
{
    Fragment& fragment = placed.fragment;
    Box moof, mdat;
    bool too_large = false;
    placed.end = walk.pos;
    if (!next_box(source, placed.end, source.size(), moof) || moof.type != fourcc("moof"))
        return false;
    if (!parse_moof(source, moof, fragment, too_large)) {
        refused = refused || (too_large && is_mdat(source, moof.end));
        return false;
    }
    const uint64_t payload_bytes = fragment.payload_size();
    placed.payload = moof.end + box_header_bytes;
    if (placed.has_check()) { // it proves where the payload ends
        placed.end = placed.payload + payload_bytes;
        placed.whole = placed.end <= source.size();
        return is_next(walk, fragment) && fragment.check.sums.size() == most_pieces(payload_bytes) &&
               (placed.whole || walk.interrupted);
    }
    placed.whole = next_box(source, placed.end, source.size(), mdat) && mdat.type == fourcc("mdat") &&
                   mdat.size() == payload_bytes;
    placed.end = placed.whole ? placed.end : source.size();
    return walk.identity == 0 && fragment.number == walk.count + 1 &&
           (placed.whole || (walk.interrupted && walk.count == 0));
}

/** Go to what looks like a fragment behind walk.pos. @return false: there is none */
bool find_next(Source& source, FragmentWalk& walk)
{
    uint64_t pos = walk.pos;
    while (walk.interrupted && walk.search_left > 0) {
        --walk.search_left;
        const uint8_t* head = source.at(++pos, 16);
        if (!head)
            break;
        if (be32(head + 4) != fourcc("moof") || be32(head + 12) != fourcc("mfhd"))
            continue;
        // It may be read in vain.
        uint64_t bytes = std::min<uint64_t>(be32(head), max_fragment_table_bytes);
        walk.search_left -= std::min(walk.search_left, bytes);
        walk.left_out += pos - walk.pos;
        walk.pos = pos;
        return true;
    }
    return false;
}

void pass(const Placed& placed, FragmentWalk& walk)
{
    walk.pos = placed.end;
    walk.count = placed.fragment.number;
    if (!placed.has_check())
        return;
    walk.identity = placed.fragment.check.identity;
    walk.durable_end = placed.fragment.check.durable_end;
    if (walk.config.empty())
        walk.config = placed.fragment.check.config;
}

/**
 * Hand the fragments from walk.pos on, and where the payload of each begins, to a function, up to the file's
 * end, to damage that no way leads past, or to one of which it returns false.
 */
template <class Function>
void each_fragment(Source& source, ParsedMovie& movie, FragmentWalk& walk, Function function)
{
    for (bool searched = false;;) {
        Placed placed; // of its own: the largest lists of many together take more memory than any has
        Fragment& fragment = placed.fragment;
        if (!read_fragment(source, walk, placed, movie.refused)) {
            if (walk.identity == 0 || !find_next(source, walk))
                return;
            searched = true;
            continue;
        }
        if (std::exchange(searched, false))
            walk.losses.push_back({walk.pos, last_time(movie.tables), first_time(fragment)});
        const bool verified = placed.has_check() && walk.interrupted && placed.end > walk.verified_from;
        if (verified || !placed.whole)
            keep_sound(source, placed.payload, verified, fragment, walk);
        bool fits = placed.has_check() || !fragment.empty();
        for (int i = 0; i < track_count; ++i)
            fits = fits && continues(movie.tables.tracks[i], fragment.samples[i]);
        if (!fits || (!fragment.empty() && !function(fragment, placed.payload)))
            return;
        pass(placed, walk);
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
    return next_box(source, pos, source.size(), moof) && parse_moof(source, moof, fragment, refused) &&
           fragment.number == 1;
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
    const FragmentWalk unbegun;
    walk.count = unbegun.count;
    walk.identity = unbegun.identity;
    walk.durable_end = unbegun.durable_end;
    walk.left_out = unbegun.left_out;
    walk.losses.clear();
    walk.config.clear();
    walk.pos = first_moov_begin - box_header_bytes;
    bool found =
        next_box(source, walk.pos, source.size(), moov) && is_first_fragment(source, walk.pos, movie.refused);
    // Else the size of the moov is damaged.
    bool too_large = false; // what only looks like a fragment
    for (uint64_t pos = first_moov_begin; !found && !movie.refused && pos < max_start_bytes; ++pos) {
        if (!source.at(pos, 8))
            break;
        walk.pos = pos;
        found = is_first_fragment(source, pos, too_large);
    }
    // Or it is the first fragment itself.
    walk.pos = found ? walk.pos : first_moov_begin;
    walk.search_left = max_first_search_bytes;
    while (!found && !movie.refused && find_next(source, walk)) {
        Placed placed;
        found = read_fragment(source, walk, placed, too_large) && placed.has_check();
    }
    walk.search_left = max_search_bytes;
    walk.begin = walk.pos;
    return found;
}

void walk_fragments(Source& source, Take take, ParsedMovie& movie, FragmentWalk& walk,
                    const std::function<void(uint64_t)>& passed)
{
    each_fragment(source, movie, walk, [&](const Fragment& fragment, uint64_t payload) {
        append(fragment, payload, movie);
        if (take == Take::description)
            movie.tables.thin_out();
        passed(payload);
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
    bool too_large = false;
    Bytes before(static_cast<size_t>(std::min<uint64_t>(payload, max_start_bytes)));
    if (!source.read(payload - before.size(), before.data(), before.size()))
        return false;
    // Nothing points back to a moof box, but its size leads here.
    for (size_t size = 2 * box_header_bytes; size <= before.size(); ++size) {
        const uint8_t* box = before.data() + before.size() - size;
        if (be32(box + 4) != fourcc("moof") || be32(box) != size - box_header_bytes)
            continue;
        const Box moof{fourcc("moof"), payload - size + box_header_bytes, payload - box_header_bytes};
        const uint8_t* mdat = before.data() + before.size() - box_header_bytes;
        return be32(mdat + 4) == fourcc("mdat") && parse_moof(source, moof, fragment, too_large) &&
               fragment.payload_size() + box_header_bytes == be32(mdat);
    }
    return false;
}

} // namespace ifs_mp4
