#include "container/tables.h"

#include <algorithm>
#include <bitset>
#include <limits>

namespace ifs_mp4
{
namespace
{

void append_anchors(std::vector<Anchor>& to, const std::vector<Anchor>& from, uint32_t first_sample)
{
    for (const Anchor& anchor : from) {
        if (to.empty() || to.back().offset_ms != anchor.offset_ms)
            to.push_back({first_sample + anchor.sample, anchor.offset_ms});
    }
}

void append_headers(std::vector<AdtsRun>& to, const std::vector<AdtsRun>& from, uint32_t first_sample)
{
    for (const AdtsRun& run : from) {
        if (to.empty() || !(to.back().header == run.header))
            to.push_back({first_sample + run.sample, run.header});
    }
}

/** Add samples to a track as a chunk, and as another behind each gap. */
void append_samples(const std::vector<Sample>& samples, const std::vector<Gap>& gaps, uint64_t offset,
                    Track& track)
{
    auto gap = gaps.begin();
    for (size_t i = 0; i < samples.size(); ++i) {
        bool behind_gap = gap != gaps.end() && gap->sample == i;
        if (behind_gap)
            offset += gap++->bytes;
        if (i == 0 || behind_gap)
            track.chunks.push_back({offset, 0});
        ++track.chunks.back().count;
        track.append(samples[i]);
        offset += samples[i].size;
    }
}

/** Hand each list of some tables but the order of writing, which is the last one, to a function. */
template <class AnyTables, class Function>
void each_list(AnyTables& tables, Function function)
{
    for (auto& track : tables.tracks) {
        function(track.sizes);
        function(track.durations);
        function(track.show_offsets);
        function(track.keys);
        function(track.chunks);
    }
    for (auto& anchors : tables.exact.anchors)
        function(anchors);
    function(tables.exact.headers);
}

/** Let entries begin with samples by their new numbers. @param renumbered  and how many there are, behind all
 */
template <class Entry>
void renumber(std::vector<Entry>& entries, const std::vector<uint32_t>& renumbered)
{
    size_t kept = 0;
    for (Entry entry : entries) {
        entry.sample = renumbered[entry.sample];
        if (entry.sample == renumbered.back())
            break;
        kept -= kept > 0 && entries[kept - 1].sample == entry.sample; // none of the one before is left
        entries[kept++] = entry;
    }
    entries.erase(entries.begin() + static_cast<ptrdiff_t>(kept), entries.end());
}

} // namespace

FrameOrder::FrameOrder(size_t frames, Bytes bits) : m_frames(frames), m_bits(std::move(bits))
{
    m_bits.resize((frames + 7) / 8);
    if (frames % 8 != 0)
        m_bits.back() = static_cast<uint8_t>(m_bits.back() & 0xff00 >> frames % 8);
}

void FrameOrder::push(int track)
{
    if (m_frames % 8 == 0)
        m_bits.push_back(0);
    m_bits.back() = static_cast<uint8_t>(m_bits.back() | track << (7 - m_frames % 8));
    ++m_frames;
}

void FrameOrder::clear()
{
    m_frames = 0;
    m_bits.clear();
}

size_t FrameOrder::pass(uint32_t (&left)[track_count]) const
{
    size_t frame = 0;
    for (; m_frames - frame >= 32; frame += 32) {
        auto audio = static_cast<uint32_t>(std::bitset<32>(be32(m_bits.data() + frame / 8)).count());
        if (audio > left[audio_track] || 32 - audio > left[video_track])
            break;
        left[audio_track] -= audio;
        left[video_track] -= 32 - audio;
    }
    for (; frame < m_frames && left[track(frame)] > 0; ++frame)
        --left[track(frame)];
    return frame;
}

void ExactTables::clear()
{
    for (auto& list : anchors)
        list.clear();
    headers.clear();
    order.clear();
}

uint64_t Fragment::payload_size(int track) const
{
    uint64_t size = 0;
    for (const Sample& sample : samples[track])
        size += sample.size;
    for (const Gap& gap : gaps[track])
        size += gap.bytes;
    return size;
}

void Fragment::keep(const std::vector<bool> (&kept)[track_count])
{
    FrameOrder order;
    size_t passed[track_count] = {};
    for (size_t frame = 0; frame < exact.order.size(); ++frame) {
        int track = exact.order.track(frame);
        size_t sample = passed[track]++;
        if (sample < kept[track].size() && kept[track][sample])
            order.push(track);
    }
    exact.order = std::move(order);
    for (int i = 0; i < track_count; ++i) {
        std::vector<uint32_t> renumbered;
        std::vector<Sample> left;
        for (size_t sample = 0; sample < samples[i].size(); ++sample) {
            auto number = static_cast<uint32_t>(left.size());
            renumbered.push_back(number);
            if (kept[i][sample])
                left.push_back(samples[i][sample]);
            else if (!gaps[i].empty() && gaps[i].back().sample == number)
                gaps[i].back().bytes += samples[i][sample].size;
            else
                gaps[i].push_back({number, samples[i][sample].size});
        }
        renumbered.push_back(static_cast<uint32_t>(left.size()));
        samples[i] = std::move(left);
        renumber(exact.anchors[i], renumbered);
        if (i == audio_track)
            renumber(exact.headers, renumbered);
    }
}

void Fragment::clear()
{
    for (auto& list : samples)
        list.clear();
    for (auto& list : gaps)
        list.clear();
    exact.clear();
    number = 0;
    check = {};
    bare_key = false;
}

void push_run(std::vector<Run>& runs, uint32_t value)
{
    if (!runs.empty() && runs.back().value == value)
        ++runs.back().count;
    else
        runs.push_back({1, value});
}

void Track::append(const Sample& sample)
{
    if (count == 0)
        start_time = sample.decode_time;
    else
        push_run(durations, static_cast<uint32_t>(sample.decode_time - last_time));
    push_run(show_offsets, static_cast<uint32_t>(sample.show_time - sample.decode_time));
    sizes.push_back(sample.size);
    if (sample.key)
        keys.push_back(count);
    last_time = sample.decode_time;
    ++count;
}

uint64_t Track::bytes(uint32_t sample, uint32_t samples) const
{
    if (sizes.empty())
        return uint64_t{samples} * constant_size;
    uint64_t sum = 0;
    for (uint32_t i = 0; i < samples; ++i)
        sum += sizes[sample + i];
    return sum;
}

void Tables::reserve()
{
    constexpr size_t samples = 16384;
    constexpr size_t fragments = 1024; // and samples of the first one, which a close then writes without more
    for (int i = 0; i < track_count; ++i) {
        tracks[i].sizes.reserve(samples);
        tracks[i].durations.reserve(samples);
        tracks[i].show_offsets.reserve(fragments);
        tracks[i].keys.reserve(fragments);
        tracks[i].chunks.reserve(fragments);
        exact.anchors[i].reserve(fragments);
    }
    exact.headers.reserve(fragments);
    exact.order.make_room(2 * samples);
}

std::array<size_t, Tables::list_count> Tables::list_sizes() const
{
    std::array<size_t, list_count> sizes = thinned;
    auto size = sizes.begin();
    each_list(*this, [&](const auto& list) { *size++ += list.size(); });
    *size += exact.order.size();
    return sizes;
}

uint64_t Tables::bytes() const
{
    const std::array<size_t, list_count> sizes = list_sizes();
    uint64_t total = sizes.back() / 8;
    auto size = sizes.begin();
    each_list(*this, [&](const auto& list) { total += uint64_t{*size++} * sizeof list[0]; });
    return total;
}

void Tables::thin_out()
{
    thinned = list_sizes();
    auto size = thinned.begin();
    each_list(*this, [&](auto& list) {
        list.erase(list.begin(), list.end() - (list.empty() ? 0 : 1));
        *size++ -= list.size();
    });
    exact.order.clear();
}

void Tables::reserve(const std::array<size_t, list_count>& sizes, uint64_t samples)
{
    auto size = sizes.begin();
    // One more for the last duration, which comes when the file is finished.
    each_list(*this, [&](auto& list) { list.reserve(*size++ + 1); });
    exact.order.make_room(*size);
    reserved_samples = samples;
}

void Tables::make_room(const Fragment& fragment)
{
    if (count() + fragment.count() <= reserved_samples)
        return;
    for (int i = 0; i < track_count; ++i) {
        size_t more = fragment.samples[i].size();
        make_room_in(tracks[i].sizes, more);
        make_room_in(tracks[i].durations, more);
        make_room_in(tracks[i].show_offsets, more);
        make_room_in(tracks[i].keys, more);
        make_room_in(tracks[i].chunks, 1 + fragment.gaps[i].size());
        make_room_in(exact.anchors[i], fragment.exact.anchors[i].size());
    }
    make_room_in(exact.headers, fragment.exact.headers.size());
    exact.order.make_room(fragment.exact.order.size());
}

void Tables::begin_at_zero()
{
    uint64_t begin = tracks[video_track].start_time;
    for (int i = 0; i < track_count && begin > 0; ++i) {
        uint64_t earlier = std::min(begin, tracks[i].start_time);
        tracks[i].start_time -= earlier;
        tracks[i].last_time -= earlier;
        if (exact.anchors[i].empty())
            exact.anchors[i].push_back({0, 0});
        for (Anchor& anchor : exact.anchors[i])
            anchor.offset_ms += static_cast<uint32_t>(earlier);
    }
}

void Tables::append(const Fragment& fragment, uint64_t payload_offset)
{
    append_headers(exact.headers, fragment.exact.headers, tracks[audio_track].count);
    for (int i = 0; i < track_count; ++i) {
        append_anchors(exact.anchors[i], fragment.exact.anchors[i], tracks[i].count);
        append_samples(fragment.samples[i], fragment.gaps[i], payload_offset, tracks[i]);
        payload_offset += fragment.payload_size(i);
    }
    for (size_t frame = 0; frame < fragment.exact.order.size(); ++frame)
        exact.order.push(fragment.exact.order.track(frame));
}

uint32_t Movie::frame_time_ms(int track) const
{
    if (track == video_track)
        return info.frame_rate > 0 && info.frame_rate <= 1000 ? 1000 / static_cast<uint32_t>(info.frame_rate)
                                                              : 40;
    constexpr uint32_t samples_per_frame = 1024;
    int index = adts.size > 0 ? adts.sample_rate_index() : info.audio_sample_rate_index;
    return samples_per_frame * 1000 / sample_rate_hz(index);
}

int Movie::duration_ms() const
{
    uint64_t end = 0;
    for (int i = 0; i < track_count; ++i) {
        if (tables.tracks[i].count > 0)
            end = std::max(end, tables.tracks[i].last_time + frame_time_ms(i));
    }
    return static_cast<int>(std::min<uint64_t>(end, std::numeric_limits<int>::max()));
}

uint64_t SampleClock::show_time_ms(uint32_t ahead) const
{
    uint64_t time = decode_time(ahead);
    auto offset = static_cast<int32_t>(m_show_offsets.value());
    bool before_zero = offset < 0 && time < uint64_t{0} - static_cast<uint64_t>(int64_t{offset});
    return before_zero ? 0 : m_track->to_ms(time + static_cast<uint64_t>(int64_t{offset}));
}

void SampleClock::skip(uint32_t count)
{
    while (count > 0) {
        uint32_t some = std::min(count, run());
        skip_alike(some);
        count -= some;
    }
}

TrackCursor::TrackCursor(const Track& track, const std::vector<Anchor>& anchors)
    : m_track(&track), m_anchors(&anchors), m_clock(track)
{
    skip_finished();
}

uint32_t TrackCursor::timestamp_ms() const
{
    uint32_t offset = m_anchors->empty() ? 0 : (*m_anchors)[m_anchor].offset_ms;
    return static_cast<uint32_t>(show_time_ms()) + offset;
}

uint64_t TrackCursor::chunk_end() const
{
    const Chunk& chunk = m_track->chunks[m_chunk];
    return chunk.offset +
           m_track->bytes(chunk_begin(), std::min(chunk.count, m_track->count - chunk_begin()));
}

bool TrackCursor::is_key() const
{
    const std::vector<uint32_t>& keys = m_track->keys;
    return m_track->all_keys || (m_key < keys.size() && keys[m_key] == m_sample);
}

void TrackCursor::next()
{
    m_clock.skip_alike(1);
    m_chunk_bytes += size();
    ++m_chunk_done;
    ++m_sample;
    skip_finished();
}

void TrackCursor::skip_to(uint32_t sample)
{
    uint32_t from = m_sample;
    place(std::min(sample, m_track->count));
    m_clock.skip(m_sample - from);
}

void TrackCursor::place(uint32_t sample)
{
    while (m_sample < sample && !at_end()) {
        uint32_t in_chunk = m_track->chunks[m_chunk].count;
        uint32_t count = std::min(sample - m_sample, in_chunk - m_chunk_done);
        m_chunk_done += count;
        if (m_chunk_done < in_chunk)
            m_chunk_bytes += m_track->bytes(m_sample, count);
        m_sample += count;
        skip_finished();
    }
}

template <class Function>
TrackCursor TrackCursor::find_first(Function reached) const
{
    uint64_t in_chunks = m_sample - m_chunk_done;
    for (size_t chunk = m_chunk; chunk < m_track->chunks.size(); ++chunk)
        in_chunks += m_track->chunks[chunk].count;
    auto end = static_cast<uint32_t>(std::min<uint64_t>(in_chunks, m_track->count));
    TrackCursor found = *this;
    uint32_t sample = m_sample;
    uint32_t count = 0;
    for (; sample < end; sample += count) {
        count = std::min(found.m_clock.run(), end - sample);
        if (reached(found.m_clock, count - 1))
            break;
        found.m_clock.skip_alike(count);
    }
    uint32_t ahead = 0;
    for (uint32_t behind = sample < end ? count - 1 : 0; ahead < behind;) {
        uint32_t middle = ahead + (behind - ahead) / 2;
        if (reached(found.m_clock, middle))
            behind = middle;
        else
            ahead = middle + 1;
    }
    found.m_clock.skip(ahead);
    found.place(sample + ahead);
    return found;
}

TrackCursor TrackCursor::find(uint64_t begin_ms, uint64_t distance_ms) const
{
    return find_first([=](const SampleClock& clock, uint32_t ahead) {
        return is_behind(clock.show_time_ms(ahead), begin_ms, distance_ms);
    });
}

TrackCursor TrackCursor::find_decoded(uint64_t time_ms) const
{
    return find_first(
        [=](const SampleClock& clock, uint32_t ahead) { return clock.decode_time_ms(ahead) >= time_ms; });
}

void TrackCursor::skip_finished()
{
    const std::vector<Chunk>& chunks = m_track->chunks;
    while (m_chunk < chunks.size() && m_chunk_done >= chunks[m_chunk].count) {
        ++m_chunk;
        m_chunk_done = 0;
        m_chunk_bytes = 0;
    }
    while (m_key < m_track->keys.size() && m_track->keys[m_key] < m_sample)
        ++m_key;
    follow(*m_anchors, m_anchor, m_sample);
}

} // namespace ifs_mp4
