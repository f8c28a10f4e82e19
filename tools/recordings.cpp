#include "tools/recordings.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>
#include <sys/stat.h>

#include "hostcard/hostcard.h"
#include "tools/failure.h"
#include "tools/size_text.h"
#include "tools/time_text.h"

namespace
{

constexpr std::array<int, 13> sample_rates_hz = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                                 22050, 16000, 12000, 11025, 8000,  7350};

/** An open search; an open one would keep the card from being unmounted. */
class Search
{
public:
    Search(_ifs_stream_type_ stream, int64_t from_s, int64_t to_s)
    {
        struct tm from = utc_tm(from_s);
        struct tm to = utc_tm(to_s);
        m_handle = Ifsi_find_open(&from, &to, stream);
        if (m_handle < 0)
            throw Failure(ExitCode::failed, "the card cannot be searched; run again with -v to see why");
    }
    ~Search() { Ifsi_find_close(m_handle); }
    Search(const Search&) = delete;
    Search& operator=(const Search&) = delete;

    int next(_ifs_rec_file_* out, int count) { return Ifsi_find_next(m_handle, count, out); }

private:
    int m_handle;
};

int sample_rate_hz(const _ifs_rec_file_& recording)
{
    auto index = static_cast<size_t>(recording.audio_sample_rate_index);
    return index < sample_rates_hz.size() ? sample_rates_hz[index] : 0;
}

std::string audio_text(const _ifs_rec_file_& recording)
{
    if (!recording.have_audio)
        return "-";
    char text[48];
    std::snprintf(text, sizeof text, "AAC %g kHz, %d ch", sample_rate_hz(recording) / 1000.0,
                  recording.audio_channel_conf);
    return text;
}

/** Size of a recording's file; none when it is not there. The catalogue's is that before the last tables. */
std::optional<int64_t> file_bytes(const _ifs_rec_file_& recording)
{
    struct stat status = {};
    if (stat(file_path(recording).c_str(), &status) != 0)
        return std::nullopt;
    return status.st_size;
}

constexpr size_t columns_in_all = 9;
constexpr size_t gap = 2; // between columns
using Row = std::array<std::string, columns_in_all>;
using Widths = std::array<size_t, columns_in_all>; /**< 0: the column is left out */

/** Columns in the order in which they get room: start, length, file, stream, size and so on to the sound. */
constexpr size_t by_weight[columns_in_all] = {0, 2, 8, 3, 4, 1, 5, 6, 7};

Row table_row(const _ifs_rec_file_& recording)
{
    int64_t start_s = start_seconds(recording);
    int64_t end_s = end_seconds(recording);
    const std::optional<int64_t> size = file_bytes(recording);
    return {time_text(start_s),
            time_text(end_s),
            duration_text(end_s - start_s),
            stream_name(recording.stream_type),
            size ? size_text(static_cast<unsigned long long>(*size)) : "-",
            std::to_string(recording.width) + "x" + std::to_string(recording.height),
            std::to_string(recording.frame_rate) + " fps",
            audio_text(recording),
            file_name(recording)};
}

/** @param columns  to share; 0: no limit. The first column is always there. */
Widths fitting_widths(const std::vector<Row>& rows, size_t columns)
{
    Widths widths = {};
    size_t taken = 0;
    for (size_t column : by_weight) {
        size_t width = 0;
        for (const Row& row : rows)
            width = std::max(width, row[column].size());
        if (taken == 0 || columns == 0 || taken + width <= columns) {
            widths[column] = width;
            taken += width + gap;
        }
    }
    return widths;
}

std::string draw_row(const Row& row, const Widths& widths)
{
    std::string line;
    for (size_t column = 0; column < row.size(); ++column) {
        if (widths[column] > 0)
            line += row[column] + std::string(widths[column] - row[column].size() + gap, ' ');
    }
    return line.erase(line.find_last_not_of(' ') + 1) + "\n";
}

/** Names the columns that were left out; empty when there are none. */
std::string left_out_text(const Row& headings, const Widths& widths)
{
    std::string names;
    for (size_t column = 0; column < headings.size(); ++column) {
        if (widths[column] == 0)
            names += (names.empty() ? "" : ", ") + headings[column];
    }
    return names.empty() ? "" : "Left out to fit: " + names + "; --json has them.\n";
}

} // namespace

std::vector<_ifs_rec_file_> find_recordings(_ifs_stream_type_ stream, int64_t from_s, int64_t to_s)
{
    Search search(stream, from_s, to_s);
    std::vector<_ifs_rec_file_> recordings;
    std::array<_ifs_rec_file_, 64> batch = {};
    for (int count = 0; (count = search.next(batch.data(), static_cast<int>(batch.size()))) > 0;)
        recordings.insert(recordings.end(), batch.begin(), batch.begin() + count);
    return recordings;
}

std::string stream_name(_ifs_stream_type_ stream)
{
    return stream == IFS_STREAM_MAIN ? "main" : "sub";
}

_ifs_stream_type_ parse_stream(const std::string& name)
{
    if (name == "main")
        return IFS_STREAM_MAIN;
    if (name == "sub")
        return IFS_STREAM_SUB;
    throw Failure(ExitCode::usage, "'" + name + "' is no stream; name main or sub");
}

int64_t start_seconds(const _ifs_rec_file_& recording)
{
    return utc_seconds(recording.start_tm);
}

int64_t end_seconds(const _ifs_rec_file_& recording)
{
    return utc_seconds(recording.end_tm);
}

std::string file_name(const _ifs_rec_file_& recording)
{
    // Ifsi_get_file_name() cuts a path at 127 characters, and a virtual card's folder may lie deep.
    const struct tm& start = recording.start_tm;
    char name[96];
    std::snprintf(name, sizeof name, "Rec_%04d%02d%02d_%02d%02d%02d_%02d%01d_%c.mp4", start.tm_year + 1900,
                  start.tm_mon + 1, start.tm_mday, start.tm_hour, start.tm_min, start.tm_sec,
                  recording.video_res, recording.video_system,
                  recording.stream_type == IFS_STREAM_MAIN ? 'M' : 'S');
    return name;
}

std::string file_path(const _ifs_rec_file_& recording)
{
    return std::string(hostcard_mount_point()) + "/" + file_name(recording);
}

std::string span_text(const _ifs_rec_file_& recording)
{
    return time_text(start_seconds(recording)) + " to " + time_text(end_seconds(recording));
}

std::string recordings_table(const std::vector<_ifs_rec_file_>& recordings, size_t columns)
{
    if (recordings.empty())
        return "No recordings.\n";
    std::vector<Row> rows = {
        {"START", "END", "LENGTH", "STREAM", "SIZE", "PICTURE", "RATE", "SOUND", "FILE"}};
    for (const _ifs_rec_file_& recording : recordings)
        rows.push_back(table_row(recording));
    const Widths widths = fitting_widths(rows, columns);
    std::string table;
    for (const Row& row : rows)
        table += draw_row(row, widths);
    return table + left_out_text(rows.front(), widths);
}

nlohmann::json recordings_json(const std::vector<_ifs_rec_file_>& recordings)
{
    nlohmann::json array = nlohmann::json::array();
    for (const _ifs_rec_file_& recording : recordings) {
        nlohmann::json audio;
        if (recording.have_audio)
            audio = {{"codec", "aac"},
                     {"profile", recording.audio_profile},
                     {"sample_rate_hz", sample_rate_hz(recording)},
                     {"channel_conf", recording.audio_channel_conf}};
        nlohmann::json size_or_null;
        if (const std::optional<int64_t> size = file_bytes(recording))
            size_or_null = *size;
        array.push_back({{"start", time_text(start_seconds(recording))},
                         {"end", time_text(end_seconds(recording))},
                         {"duration_s", end_seconds(recording) - start_seconds(recording)},
                         {"stream", stream_name(recording.stream_type)},
                         {"size_bytes", size_or_null},
                         {"width", recording.width},
                         {"height", recording.height},
                         {"frame_rate", recording.frame_rate},
                         {"audio", audio},
                         {"file", file_name(recording)}});
    }
    return array;
}
