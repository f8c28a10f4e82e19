#include "tools/check_recording.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <utility>

#include "container/fragments.h"
#include "container/layout.h"
#include "container/limits.h"
#include "container/parse.h"

namespace
{

using ifs_mp4::Box;
using ifs_mp4::Fd;
using ifs_mp4::fourcc;
using ifs_mp4::ParsedMovie;
using ifs_mp4::Source;
using ifs_mp4::TrackCursor;

/** What a power cut may cost. */
constexpr uint64_t power_cut_ms = 5000;

constexpr const char* track_names[] = {"video", "audio"};

std::string seconds_text(uint64_t ms)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.1f s", static_cast<double>(ms) / 1000);
    return text;
}

constexpr const char* unreadable = "it cannot be read";

/** What is wrong with a picture; null when its NAL units fill it exactly. */
const char* fault_in_picture(Source& source, const ParsedMovie& movie, uint64_t offset, uint64_t size)
{
    const size_t length_bytes = movie.nal_length_bytes();
    const uint64_t end = offset + size;
    while (offset < end) {
        if (end - offset < length_bytes)
            return "its NAL units do not fill it";
        const uint8_t* length = source.at(offset, length_bytes);
        if (!length)
            return unreadable;
        uint64_t nal_bytes = 0;
        for (size_t i = 0; i < length_bytes; ++i)
            nal_bytes = nal_bytes << 8 | length[i];
        offset += length_bytes;
        if (nal_bytes > end - offset || (nal_bytes == 0 && movie.recording))
            return "its NAL units do not fill it";
        const uint8_t* header = nal_bytes > 0 ? source.at(offset, 1) : length;
        if (!header)
            return unreadable;
        if (nal_bytes > 0 && (*header & 0x80) != 0)
            return "forbidden_zero_bit is set in a NAL unit";
        offset += nal_bytes;
    }
    return nullptr;
}

/** Walks the frames of a movie and keeps what is wrong with them. */
class FrameWalk
{
public:
    FrameWalk(Source& source, const ParsedMovie& movie, Inspection& inspection)
        : m_source(source), m_movie(movie), m_inspection(inspection)
    {
    }

    void run()
    {
        for (int track = 0; track < ifs_mp4::track_count; ++track)
            walk(track);
        if (m_movie.recording)
            check_order();
        const ifs_mp4::Track& video = m_movie.tables.tracks[ifs_mp4::video_track];
        bool begins_with_key = video.all_keys || (!video.keys.empty() && video.keys.front() == 0);
        if (video.count > 0 && !begins_with_key)
            add(finding::no_key_frame, "the first picture is no key frame");
    }

private:
    void walk(int track);
    const char* fault_at(int track, const TrackCursor& cursor);
    void check_order();

    void add(const FindingKind& kind, const std::string& sentence)
    {
        m_inspection.frame_findings.push_back({&kind, "", sentence});
    }

    Source& m_source;
    const ParsedMovie& m_movie;
    Inspection& m_inspection;
    std::vector<std::pair<uint64_t, uint64_t>> m_ranges; /**< begin and end of frames in a row */
    bool m_ascending = true;
};

const char* FrameWalk::fault_at(int track, const TrackCursor& cursor)
{
    const uint64_t file_size = m_source.size();
    if (cursor.offset() > file_size || cursor.size() > file_size - cursor.offset())
        return "it reaches past the end of the file";
    if (cursor.size() == 0)
        return m_movie.recording ? "it is empty" : nullptr;
    if (!m_ranges.empty() && m_ranges.back().second == cursor.offset())
        m_ranges.back().second += cursor.size();
    else
        m_ranges.emplace_back(cursor.offset(), cursor.offset() + cursor.size());
    return track == ifs_mp4::video_track ? fault_in_picture(m_source, m_movie, cursor.offset(), cursor.size())
                                         : nullptr;
}

void FrameWalk::walk(int track)
{
    const ifs_mp4::Track& samples = m_movie.tables.tracks[track];
    uint32_t bad = 0;
    std::string first;
    uint64_t end = 0;
    TrackCursor cursor(samples, m_movie.tables.exact.anchors[track]);
    const auto count_bad = [&](uint32_t frames, const char* fault) {
        if (bad == 0)
            first = "frame " + std::to_string(cursor.sample() + 1) + " at " +
                    seconds_text(cursor.show_time_ms()) + ": " + fault;
        bad += frames;
        m_inspection.damaged_at_ms =
            std::min(m_inspection.damaged_at_ms.value_or(UINT64_MAX), cursor.show_time_ms());
    };
    for (; !cursor.at_end(); cursor.next()) {
        if (const char* fault = fault_at(track, cursor))
            count_bad(1, fault);
        m_ascending = m_ascending && cursor.offset() >= end;
        end = cursor.offset() + cursor.size();
    }
    m_inspection.frames += cursor.sample();
    if (cursor.sample() < samples.count)
        count_bad(samples.count - cursor.sample(), "the sample table gives no offset");
    if (bad > 0)
        add(finding::frame_damaged, std::string("damaged ") + track_names[track] +
                                        " frames: " + std::to_string(bad) + " of " +
                                        std::to_string(samples.count) + ", the first is " + first);
}

/** The frames of a recording of ours lie one behind the other, and the order of writing is given for each. */
void FrameWalk::check_order()
{
    std::sort(m_ranges.begin(), m_ranges.end());
    if (!m_ranges.empty())
        m_inspection.frames_end = m_ranges.back().second;
    const auto overlaps = [](const auto& a, const auto& b) { return b.first < a.second; };
    if (!m_ascending)
        add(finding::frame_order, "a frame lies in the file before the one that it follows");
    else if (std::adjacent_find(m_ranges.begin(), m_ranges.end(), overlaps) != m_ranges.end())
        add(finding::frame_order, "two frames share bytes of the file");
    else if (m_movie.tables.exact.order.size() != m_movie.tables.count())
        add(finding::frame_order, "the order of writing is not given for every frame");
}

/** Times of the fragments that begin behind an offset, ms; first is the larger one without any. */
struct Times {
    uint64_t first = UINT64_MAX;
    uint64_t last = 0;
};

Times fragment_times(Source& source, uint64_t begin)
{
    Times times;
    for (; begin + ifs_mp4::fragment_head_bytes <= source.size(); ++begin) {
        const uint8_t* head = source.at(begin, ifs_mp4::fragment_head_bytes);
        if (!head)
            break;
        if (const auto time = ifs_mp4::fragment_time(head)) {
            times.first = std::min(times.first, *time);
            times.last = std::max(times.last, *time);
        }
    }
    return times;
}

bool begins_like_a_recording(Source& source)
{
    ifs_mp4::Bytes start;
    ifs_mp4::put_file_start(start, ifs_mp4::Movie());
    const auto size = static_cast<size_t>(std::min<uint64_t>(source.size(), ifs_mp4::ftyp_bytes));
    const uint8_t* found = source.at(0, size);
    return found && std::equal(found, found + size, start.begin());
}

/** @param info_only  as a mount reads it, its description alone */
bool load_finished(Source& source, bool info_only, ParsedMovie& movie, Box& moov)
{
    return find_box(source, 0, source.size(), fourcc("moov"), moov) &&
           parse_moov(source, moov, info_only, movie) && movie.complete;
}

/** Collect the fragments of a recording. @return where the last that plays ends, 0 without one */
uint64_t load_fragments(Source& source, const std::string& name, ParsedMovie& movie, uint64_t& left_out)
{
    ifs_mp4::FragmentWalk walk;
    walk.name = name;
    walk.interrupted = true;
    for (ifs_mp4::Take take : {ifs_mp4::Take::description, ifs_mp4::Take::tables}) {
        if (movie.tables.bytes() > ifs_mp4::max_table_bytes || !find_recording(source, movie, walk))
            return 0;
        walk_fragments(source, take, movie, walk);
        walk.verified_from = walk.durable_end;
    }
    left_out = walk.left_out;
    movie.info.duration = movie.duration_ms();
    return movie.tables.count() > 0 ? walk.pos : 0;
}

/** What lies behind the last whole fragment. */
void look_behind(Source& source, uint64_t begin, Inspection& inspection)
{
    Box last;
    uint64_t pos = begin;
    if (next_box(source, pos, source.size(), last) && last.type == fourcc("moov") && pos == source.size())
        return; // whole, it only is not shown yet
    inspection.torn_bytes += source.size() - begin;
    const Times times = fragment_times(source, begin);
    const uint64_t played_ms = std::min(times.first, static_cast<uint64_t>(inspection.info.duration));
    inspection.footage_lost = times.last > played_ms && times.last - played_ms > power_cut_ms;
}

void inspect_movie(Source& source, const std::string& name, const std::function<void(uint64_t)>& verified,
                   Inspection& inspection)
{
    ParsedMovie movie;
    Box moov;
    uint64_t fragments_end = 0;
    inspection.described = load_finished(source, true, movie, moov);
    if (load_finished(source, false, movie, moov))
        inspection.state = RecordingState::finished;
    else if ((fragments_end = load_fragments(source, name, movie, inspection.torn_bytes)) > 0)
        inspection.state = RecordingState::interrupted;
    else
        movie = {};
    inspection.info = movie.info;
    if (inspection.playable())
        FrameWalk(source, movie, inspection).run();
    if (verified && inspection.playable() && movie.recording)
        inspection.verification = verify_recording(
            source, name, inspection.state == RecordingState::finished ? moov : Box(), movie, verified);
    if (inspection.state == RecordingState::finished)
        return;
    look_behind(source, fragments_end, inspection);
    if (!inspection.playable() && !inspection.described && !inspection.footage_lost && !source.failed() &&
        begins_like_a_recording(source))
        inspection.state = RecordingState::stub;
}

bool is_regular(const std::string& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

} // namespace

const char* state_name(RecordingState state)
{
    constexpr const char* names[] = {"finished", "interrupted", "stub", "empty", "unreadable"};
    return names[static_cast<size_t>(state)];
}

Inspection inspect_recording(const std::string& path, const std::function<void(uint64_t)>& verified)
{
    Inspection inspection;
    if (!is_regular(path)) // a named pipe would not even open
        return inspection;
    Fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    Source source(fd.get());
    inspection.read_failed = !fd || !source.refresh();
    if (inspection.read_failed)
        return inspection;
    inspection.size = source.size();
    if (source.size() == 0)
        inspection.state = RecordingState::empty;
    else
        inspect_movie(source, ifs_mp4::name_of(path.c_str()), verified, inspection);
    inspection.read_failed = source.failed();
    return inspection;
}

void finish_recording(const std::string& path)
{
    std::string name = path;
    // A mount's way of opening it would be content with a description, whatever the tables behind it are.
    if (void* file = kt_mp4_open(name.data(), 0, 0, 0, 0, 0, 0, KT_MP4_READ, 0, 0, 0))
        kt_mp4_close(file);
}
