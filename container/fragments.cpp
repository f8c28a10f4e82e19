#include "container/fragments.h"

#include <algorithm>
#include <limits>

#include "container/fields.h"

namespace ifs_mp4
{
namespace
{

bool parse_run(Source& source, const Box& box, bool video, std::vector<Sample>& samples, uint64_t time)
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
    samples.reserve(count);
    fields.each(count, entry_bytes, [&](const uint8_t* entry) {
        bool key = video && be32(entry + 8) == key_sample_flags;
        uint32_t show_offset = video ? be32(entry + 12) : 0;
        samples.push_back({be32(entry + 4), key, time,
                           time + static_cast<uint64_t>(int64_t{static_cast<int32_t>(show_offset)})});
        time += be32(entry);
    });
    return fields.ok() && count > 0;
}

bool parse_traf(Source& source, const Box& traf, Fragment& fragment)
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
    return parse_run(source, trun, track == video_track, fragment.samples[track], decode_time);
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

/** @param sequence  the number that it has to have; 0: any */
bool parse_moof(Source& source, const Box& moof, uint32_t sequence, Fragment& fragment)
{
    fragment.clear();
    bool in_sequence = sequence == 0;
    bool sound = each_box(source, moof.begin, moof.end, [&](const Box& box) {
        if (box.type == fourcc("mfhd")) {
            Fields fields(source, box);
            fields.skip(4);
            in_sequence = in_sequence || fields.u32() == sequence;
        }
        if (box.type == fourcc("traf"))
            return parse_traf(source, box, fragment);
        return !is_uuid(source, box, exact_uuid) || parse_exact(source, box, fragment.exact);
    });
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

} // namespace

void walk_fragments(Source& source, ParsedMovie& movie, uint64_t& pos, uint32_t& count)
{
    Fragment fragment;
    Box moof, mdat;
    for (uint64_t next = pos;; pos = next) {
        bool whole = next_box(source, next, source.size(), moof) && moof.type == fourcc("moof") &&
                     next_box(source, next, source.size(), mdat) && mdat.type == fourcc("mdat");
        if (!whole || !parse_moof(source, moof, count + 1, fragment))
            return;
        bool fits = fragment.payload_size(video_track) + fragment.payload_size(audio_track) == mdat.size();
        for (int i = 0; i < track_count; ++i)
            fits = fits && continues(movie.tables.tracks[i], fragment.samples[i]);
        if (!fits)
            return;
        movie.tables.make_room(fragment);
        movie.tables.append(fragment, mdat.begin);
        movie.adts = movie.tables.exact.first_header();
        ++count;
    }
}

bool salvage_fragment(Source& source, ParsedMovie& movie, uint64_t pos)
{
    constexpr uint64_t mdat_header_bytes = 8;
    Fragment fragment;
    Box moof;
    if (!next_box(source, pos, source.size(), moof) || moof.type != fourcc("moof") ||
        !parse_moof(source, moof, 1, fragment))
        return false;
    uint64_t begin = pos + mdat_header_bytes;
    uint64_t end = begin;
    size_t whole[track_count] = {};
    for (int i = 0; i < track_count; ++i) {
        for (const Sample& sample : fragment.samples[i]) {
            end += sample.size;
            whole[i] += end <= source.size();
        }
    }
    fragment.keep(whole);
    if (fragment.empty())
        return false;
    movie.tables.make_room(fragment);
    movie.tables.append(fragment, begin);
    movie.adts = movie.tables.exact.first_header();
    return true;
}

bool find_fragment(Source& source, uint64_t payload, Fragment& fragment)
{
    constexpr size_t header_bytes = 8;
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
        return be32(mdat + 4) == fourcc("mdat") && parse_moof(source, moof, 0, fragment) &&
               fragment.payload_size(video_track) + fragment.payload_size(audio_track) + header_bytes ==
                   be32(mdat);
    }
    return false;
}

} // namespace ifs_mp4
