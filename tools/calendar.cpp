#include <algorithm>
#include <array>
#include <cstdio>

#include "tools/card.h"
#include "tools/commands.h"
#include "tools/recordings.h"
#include "tools/time_text.h"

namespace
{

struct StreamMonth {
    std::array<bool, 31> days{}; /**< that hold footage */
    size_t recordings = 0;
};

/**
 * Mark every day that a recording holds footage of. The library's own calendar marks the days of its start
 * and its end, and one that ends at midnight holds nothing of the day which begins there.
 */
StreamMonth ask_card(_ifs_stream_type_ stream, const Month& month)
{
    StreamMonth result;
    for (const _ifs_rec_file_& recording : find_recordings(stream, month.first_s, month.last_s)) {
        const int64_t start_s = start_seconds(recording);
        const int64_t last_s = std::max(end_seconds(recording) - 1, start_s);
        if (last_s < month.first_s || start_s > month.last_s) // fields out of range compare otherwise
            continue;
        ++result.recordings;
        const int first_day = local_day(std::max(start_s, month.first_s));
        const int last_day = local_day(std::min(last_s, month.last_s));
        std::fill(result.days.begin() + first_day - 1, result.days.begin() + last_day, true);
    }
    return result;
}

nlohmann::json month_json(const StreamMonth& stream)
{
    nlohmann::json days = nlohmann::json::array();
    for (size_t day = 0; day < stream.days.size(); ++day) {
        if (stream.days[day])
            days.push_back(day + 1);
    }
    return {{"days", days}, {"recordings", stream.recordings}};
}

std::string heading(const Month& month)
{
    static const char* const names[] = {"January",   "February", "March",    "April",
                                        "May",       "June",     "July",     "August",
                                        "September", "October",  "November", "December"};
    std::string title = std::string(names[month.month - 1]) + " " + std::to_string(month.year);
    return std::string((48 - title.size()) / 2, ' ') + title +
           "\n\n   Mo     Tu     We     Th     Fr     Sa     Su\n";
}

/** Weeks below each other, Monday first; behind a day stands M, S or both. */
std::string draw_month(const Month& month, const StreamMonth& main, const StreamMonth& sub)
{
    std::string drawing = heading(month) + std::string(static_cast<size_t>(month.weekday) * 7, ' ');
    for (int day = 1; day <= month.days; ++day) {
        std::string marks = std::string(main.days[day - 1] ? "M" : "") + (sub.days[day - 1] ? "S" : "");
        bool week_ends = (month.weekday + day) % 7 == 0 || day == month.days;
        char cell[16];
        std::snprintf(cell, sizeof cell, week_ends ? "%5d%s\n" : "%5d%-2s", day, marks.c_str());
        drawing += cell;
    }
    return drawing + "\nM main stream: " + std::to_string(main.recordings) +
           " recordings, S sub stream: " + std::to_string(sub.recordings) + " recordings\n";
}

} // namespace

void show_calendar(const Context& context, const std::string& month_text)
{
    Month month = parse_month(month_text);
    Card card(context.card_path);
    card.mount();
    StreamMonth main = ask_card(IFS_STREAM_MAIN, month);
    StreamMonth sub = ask_card(IFS_STREAM_SUB, month);
    if (context.json)
        context.results.write(
            nlohmann::json{{"month", month_text}, {"main", month_json(main)}, {"sub", month_json(sub)}});
    else
        context.results.write(draw_month(month, main, sub));
}
