#include "tools/check_card.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <map>
#include <memory>
#include <optional>
#include <strings.h>
#include <sys/stat.h>

#include "tools/failure.h"
#include "tools/interrupt.h"
#include "tools/progress.h"
#include "tools/recordings.h"
#include "tools/time_text.h"

namespace
{

/** A host may end a recording by its own clock, which is not that of the frames. */
constexpr int64_t end_tolerance_s = 5;

void stop_if_interrupted()
{
    if (interrupted())
        throw Failure(ExitCode::interrupted, "stopped; the card is as it was");
}

uint64_t size_of(const std::string& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
}

std::vector<std::string> names_in(const std::string& folder)
{
    std::unique_ptr<DIR, int (*)(DIR*)> listing(opendir(folder.c_str()), closedir);
    if (!listing)
        throw Failure(ExitCode::failed, "cannot list '" + folder + "': " + strerror(errno));
    std::vector<std::string> names;
    while (const dirent* entry = readdir(listing.get()))
        names.emplace_back(entry->d_name);
    std::sort(names.begin(), names.end());
    return names;
}

bool are_digits(const std::string& text, size_t begin, size_t count)
{
    return text.find_first_not_of("0123456789", begin) >= begin + count;
}

int number(const std::string& text, size_t begin, size_t count)
{
    return std::atoi(text.substr(begin, count).c_str());
}

/** What the name of a recording carries; none where the library does not take it for one. */
std::optional<_ifs_rec_file_> parse_name(const std::string& name)
{
    bool fits = name.size() == 29 && name.compare(0, 3, "Rec") == 0 && name.find('.') == 25 &&
                name.compare(25, 4, ".mp4") == 0 && are_digits(name, 4, 8) && are_digits(name, 13, 6) &&
                are_digits(name, 20, 3) && (name[24] == 'M' || name[24] == 'S');
    if (!fits)
        return std::nullopt;
    _ifs_rec_file_ named = {};
    named.start_tm.tm_year = number(name, 4, 4) - 1900;
    named.start_tm.tm_mon = number(name, 8, 2) - 1;
    named.start_tm.tm_mday = number(name, 10, 2);
    named.start_tm.tm_hour = number(name, 13, 2);
    named.start_tm.tm_min = number(name, 15, 2);
    named.start_tm.tm_sec = number(name, 17, 2);
    named.video_res = static_cast<unsigned char>(number(name, 20, 2));
    named.video_system = static_cast<unsigned char>(number(name, 22, 1));
    named.stream_type = name[24] == 'M' ? IFS_STREAM_MAIN : IFS_STREAM_SUB;
    return named;
}

bool looks_like_a_recording(const std::string& name)
{
    constexpr long digits_of_date_and_time = 14;
    return strncasecmp(name.c_str(), "rec", 3) == 0 && std::count_if(name.begin(), name.end(), [](char c) {
                                                           return c >= '0' && c <= '9';
                                                       }) >= digits_of_date_and_time;
}

/** A start as the library compares it. */
using Start = std::array<int, 6>;

Start start_of(const _ifs_rec_file_& entry)
{
    const struct tm& start = entry.start_tm;
    return {start.tm_year, start.tm_mon, start.tm_mday, start.tm_hour, start.tm_min, start.tm_sec};
}

bool starts_before(const _ifs_rec_file_& a, const _ifs_rec_file_& b)
{
    return start_of(a) < start_of(b);
}

bool same_codes(const _ifs_rec_file_& a, const _ifs_rec_file_& b)
{
    return a.video_res == b.video_res && a.video_system == b.video_system;
}

/** A size as an entry holds it: 32 bits. */
int entry_size(uint64_t bytes)
{
    return static_cast<int32_t>(static_cast<uint32_t>(bytes));
}

/** The entry that the library makes for a file when the index has none. */
_ifs_rec_file_ entry_from_file(const RecordFile& file)
{
    const kt_mfile_info_t& info = file.inspection.info;
    _ifs_rec_file_ entry = file.named;
    entry.end_tm = entry.start_tm;
    if (info.duration > 0)
        entry.end_tm = utc_tm(start_seconds(entry) + info.duration / 1000);
    entry.frame_rate = static_cast<unsigned char>(info.frame_rate);
    entry.width = info.width;
    entry.height = info.height;
    entry.have_audio = info.have_audio;
    entry.audio_profile = info.audio_profile;
    entry.audio_sample_rate_index = info.audio_sample_rate_index;
    entry.audio_channel_conf = info.audio_channel_conf;
    entry.file_size = entry_size(file.inspection.size);
    return entry;
}

/** What is wrong in an entry, as the end of a sentence; empty when it fits its file. */
std::string differences(const RecordFile& file)
{
    const _ifs_rec_file_& told = *file.entry;
    const _ifs_rec_file_ found = entry_from_file(file);
    std::string text;
    const auto add = [&text](const std::string& name, const std::string& instead, const std::string& is) {
        text += (text.empty() ? "" : ", ") + name + " " + instead + " instead of " + is;
    };
    const auto compare = [&add](const char* name, int instead, int is) {
        if (instead != is)
            add(name, std::to_string(instead), std::to_string(is));
    };
    compare("stream", told.stream_type, found.stream_type);
    compare("resolution code", told.video_res, found.video_res);
    compare("video system", told.video_system, found.video_system);
    // A recording enters the index before its last sample tables are written.
    if (told.file_size != entry_size(file.inspection.frames_end))
        compare("size", told.file_size, found.file_size);
    if (!file.inspection.playable())
        return text;
    compare("frame rate", told.frame_rate, found.frame_rate);
    compare("width", told.width, found.width);
    compare("height", told.height, found.height);
    compare("sound", told.have_audio, found.have_audio);
    compare("audio profile", told.audio_profile, found.audio_profile);
    compare("audio sample rate index", told.audio_sample_rate_index, found.audio_sample_rate_index);
    compare("audio channels", told.audio_channel_conf, found.audio_channel_conf);
    if (std::abs(end_seconds(told) - end_seconds(found)) > end_tolerance_s)
        add("end", time_text(end_seconds(told)), time_text(end_seconds(found)));
    return text;
}

std::string time_in_recording(uint64_t ms)
{
    return std::to_string(ms / 1000) + "." + std::to_string(ms % 1000 / 100) + " s";
}

std::string losses_text(const std::vector<ifs_mp4::Loss>& losses)
{
    constexpr size_t most_named = 5;
    std::string text = "damaged";
    for (size_t i = 0; i < losses.size() && i < most_named; ++i) {
        const std::string begin = time_in_recording(losses[i].begin_ms);
        const std::string end = time_in_recording(losses[i].end_ms);
        text.append(i > 0 ? ", " : " ").append(begin == end ? "at " : "from ").append(begin);
        if (begin != end)
            text.append(" to ").append(end);
    }
    if (losses.size() > most_named)
        text.append(" and in ").append(std::to_string(losses.size() - most_named)).append(" more places");
    return text;
}

std::string played_text(const Inspection& inspection)
{
    std::string text = "it was not finished, " +
                       time_in_recording(static_cast<uint64_t>(inspection.info.duration)) + " of it play";
    if (inspection.torn_bytes > 0)
        text += ", " + std::to_string(inspection.torn_bytes) + " bytes are torn or damaged and left out";
    return text;
}

} // namespace

CardCheck::CardCheck(const std::string& folder, bool data) : m_folder(folder)
{
    const std::vector<std::string> names = names_in(folder);
    for (const std::string& name : names)
        take_name(name, names);
    data ? verify() : inspect();
    read_indexes();
}

void CardCheck::inspect()
{
    Progress progress("Checking", static_cast<int64_t>(m_recordings.size()), piece_progress_text);
    int64_t done = 0;
    for (RecordFile& file : m_recordings) {
        stop_if_interrupted();
        file.inspection = inspect_recording(path_of(file.name));
        progress.update(++done);
    }
}

/** The same, and all footage; it takes as long as the card needs to hand it over. */
void CardCheck::verify()
{
    const auto begin = std::chrono::steady_clock::now();
    uint64_t total = 0;
    for (const RecordFile& file : m_recordings)
        total += size_of(path_of(file.name));
    Progress progress("Verifying", static_cast<int64_t>(std::max<uint64_t>(total, 1)), piece_progress_text);
    for (RecordFile& file : m_recordings) {
        file.inspection = inspect_recording(path_of(file.name), [&](uint64_t position) {
            stop_if_interrupted();
            progress.update(static_cast<int64_t>(m_verified_bytes + position));
        });
        stop_if_interrupted();
        m_verified_bytes += file.inspection.size;
        progress.update(static_cast<int64_t>(m_verified_bytes));
    }
    m_verified_seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

void CardCheck::take_name(const std::string& name, const std::vector<std::string>& names)
{
    const std::optional<_ifs_rec_file_> named = parse_name(name);
    if (!named) {
        if (looks_like_a_recording(name))
            m_name_findings.push_back(
                {&finding::near_name, name, "the library does not take it for a recording"});
        return;
    }
    const std::string right_name = file_name(*named);
    if (right_name == name) {
        m_recordings.push_back({name, *named, {}, nullptr});
        return;
    }
    const bool twin = std::binary_search(names.begin(), names.end(), right_name);
    m_name_findings.push_back(
        {&finding::wrong_name, name,
         "the library takes it for " + right_name +
             (twin ? " and lists that one twice" : ", does not find that, and the next mount deletes it")});
}

void CardCheck::read_indexes()
{
    for (RecordFile& file : m_recordings)
        file.entry = nullptr;
    for (Stream& stream : m_streams) {
        stream = {stream.type, read_index(path_of(index_name(stream.type))), {}, {}};
        match_entries(stream);
    }
}

/** Give each file its entry. The start alone makes a match; of several with one start, the codes first. */
void CardCheck::match_entries(Stream& stream)
{
    std::multimap<Start, RecordFile*> files;
    for (RecordFile& file : m_recordings) {
        if (file.named.stream_type == stream.type)
            files.emplace(start_of(file.named), &file);
    }
    const auto give = [&files](const _ifs_rec_file_& entry, bool codes_too) {
        auto [begin, end] = files.equal_range(start_of(entry));
        auto free = std::find_if(begin, end, [&](const auto& item) {
            return !item.second->entry && (!codes_too || same_codes(item.second->named, entry));
        });
        if (free == end)
            return false;
        free->second->entry = &entry;
        return true;
    };
    std::vector<const _ifs_rec_file_*> left;
    for (const _ifs_rec_file_& entry : stream.index.entries) {
        if (!give(entry, true))
            left.push_back(&entry);
    }
    for (const _ifs_rec_file_* entry : left) {
        if (!give(*entry, false))
            (files.count(start_of(*entry)) > 0 ? stream.duplicates : stream.strays).push_back(*entry);
    }
}

std::vector<Finding> CardCheck::findings() const
{
    std::vector<Finding> found = m_name_findings;
    for (const RecordFile& file : m_recordings) {
        judge_file(file, found);
        judge_entry(file, found);
    }
    for (const Stream& stream : m_streams)
        judge_index(stream, found);
    return found;
}

void CardCheck::judge_file(const RecordFile& file, std::vector<Finding>& found) const
{
    const Inspection& inspection = file.inspection;
    const bool listed = file.entry && stream_of(file).index.loads();
    const auto add = [&](const FindingKind& kind, const std::string& sentence) {
        found.push_back({&kind, file.name, sentence});
    };
    switch (inspection.state) {
    case RecordingState::finished:
        break;
    case RecordingState::interrupted:
        if (inspection.footage_lost)
            add(finding::footage_lost, played_text(inspection) + ", and whole fragments lie among these");
        else
            add(finding::interrupted, played_text(inspection));
        break;
    case RecordingState::empty:
        add(finding::empty, "it is empty");
        break;
    case RecordingState::stub:
        if (!listed) {
            add(finding::stub, "none of its frames is whole");
            break;
        }
        [[fallthrough]];
    case RecordingState::unreadable:
        if (inspection.read_failed) {
            add(finding::read_failed, "it cannot be read");
            break;
        }
        add(finding::unreadable, std::string("no frame of it can be read, ") +
                                     (listed || inspection.described ? "though the library lists it"
                                                                     : "the next mount deletes it"));
        break;
    }
    for (const Finding& one : inspection.frame_findings)
        add(*one.kind, one.sentence);
    if (!inspection.verification)
        return;
    if (!inspection.verification->has_checks)
        add(finding::no_checksums, "it carries no checksums, as it was made by older firmware");
    if (!inspection.verification->losses.empty())
        add(finding::data_damaged, losses_text(inspection.verification->losses));
    if (inspection.verification->tables_differ)
        add(finding::tables_differ, "its tables are not those of its footage");
}

void CardCheck::judge_entry(const RecordFile& file, std::vector<Finding>& found) const
{
    const RecordingState state = file.inspection.state;
    if (!stream_of(file).index.loads())
        return;
    if (!file.entry && state == RecordingState::finished)
        found.push_back({&finding::no_entry, file.name, "the index does not list it"});
    if (!file.entry || state == RecordingState::unreadable || state == RecordingState::stub)
        return;
    const std::string text = differences(file);
    if (!text.empty())
        found.push_back({&finding::entry_differs, file.name, "its index entry has " + text});
}

void CardCheck::judge_index(const Stream& stream, std::vector<Finding>& found) const
{
    const IndexFile& index = stream.index;
    const auto add = [&](const FindingKind& kind, const std::string& sentence) {
        found.push_back({&kind, index_name(stream.type), sentence});
    };
    if (!index.exists) {
        const auto finished =
            std::count_if(m_recordings.begin(), m_recordings.end(), [&](const RecordFile& file) {
                return file.named.stream_type == stream.type &&
                       file.inspection.state == RecordingState::finished;
            });
        if (finished > 0)
            add(finding::index_missing,
                "it is missing, but there are recordings: " + std::to_string(finished));
        return;
    }
    if (!index.header_fits) {
        add(finding::index_header, "its first 15 bytes are not those of an index");
        return;
    }
    if (index.damaged_items > 0)
        add(finding::index_item,
            "entries that do not begin with ITEM: " + std::to_string(index.damaged_items));
    if (index.torn_bytes > 0)
        add(finding::index_torn,
            "its last entry is torn, with bytes left: " + std::to_string(index.torn_bytes));
    if (!index.loads())
        return;
    if (!std::is_sorted(index.entries.begin(), index.entries.end(), starts_before))
        add(finding::index_order, "its entries are not in the order of their starts");
    for (const _ifs_rec_file_& entry : stream.duplicates)
        add(finding::index_duplicate, "it lists " + file_name(entry) + " more than once");
    for (const _ifs_rec_file_& entry : stream.strays)
        add(finding::no_file, "it lists " + file_name(entry) + ", which is not on the card");
}

/** @return whether the index is to list a file; entry is then what it is to hold */
bool CardCheck::mended_entry(const RecordFile& file, _ifs_rec_file_& entry) const
{
    const bool listed = file.entry && stream_of(file).index.loads();
    const RecordingState state = file.inspection.state;
    if (state == RecordingState::finished && !(listed && differences(file).empty())) {
        entry = entry_from_file(file);
        return true;
    }
    // The entry is all that keeps the next mount from deleting an unreadable file.
    const bool keep = state != RecordingState::empty && (listed || state == RecordingState::unreadable);
    if (!keep || !file.entry)
        return false;
    entry = *file.entry;
    return true;
}

std::vector<_ifs_rec_file_> CardCheck::mended_entries(const Stream& stream) const
{
    std::vector<_ifs_rec_file_> entries;
    _ifs_rec_file_ entry = {};
    for (const RecordFile& file : m_recordings) {
        if (file.named.stream_type == stream.type && mended_entry(file, entry))
            entries.push_back(entry);
    }
    std::stable_sort(entries.begin(), entries.end(), starts_before);
    return entries;
}

void CardCheck::repair()
{
    for (RecordFile& file : m_recordings) {
        if (file.inspection.state != RecordingState::interrupted || file.inspection.footage_lost)
            continue;
        finish_recording(path_of(file.name));
        file.inspection = inspect_recording(path_of(file.name));
    }
    for (const Stream& stream : m_streams) {
        const std::vector<_ifs_rec_file_> entries = mended_entries(stream);
        const IndexFile& index = stream.index;
        const bool fits = index.exists ? index.loads() && index_image(index.entries) == index_image(entries)
                                       : entries.empty();
        if (!fits)
            write_index(path_of(index_name(stream.type)), entries);
    }
    read_indexes();
}
