#include <algorithm>
#include <array>

#include "tools/card.h"
#include "tools/commands.h"
#include "tools/recordings.h"
#include "tools/terminal.h"
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

/** @param cell  columns of a day */
std::string heading(const Month& month, size_t cell)
{
    static const char* const names[] = {"January",   "February", "March",    "April",
                                        "May",       "June",     "July",     "August",
                                        "September", "October",  "November", "December"};
    std::string title = std::string(names[month.month - 1]) + " " + std::to_string(month.year);
    std::string weekdays;
    for (const char* weekday : {"Mo", "Tu", "We", "Th", "Fr", "Sa", "Su"})
        weekdays += std::string(cell - 4, ' ') + weekday + "  ";
    return std::string((7 * cell - 1 - title.size()) / 2, ' ') + title + "\n\n" +
           weekdays.erase(weekdays.size() - 2) + "\n";
}

/** Weeks below each other, Monday first; behind a day stands M, S or both. */
std::string draw_month(const Month& month, const StreamMonth& main, const StreamMonth& sub, size_t columns)
{
    constexpr size_t wide_cell = 7;
    constexpr size_t narrow_cell = 5;
    const size_t cell = columns == 0 || columns >= 7 * wide_cell ? wide_cell : narrow_cell;
    std::string drawing = heading(month, cell) + std::string(static_cast<size_t>(month.weekday) * cell, ' ');
    for (int day = 1; day <= month.days; ++day) {
        std::string marks = std::string(main.days[day - 1] ? "M" : "") + (sub.days[day - 1] ? "S" : "");
        bool week_ends = (month.weekday + day) % 7 == 0 || day == month.days;
        marks.resize(week_ends ? marks.size() : 2, ' ');
        const std::string number = std::to_string(day);
        drawing.append(cell - 2 - number.size(), ' ').append(number).append(marks);
        drawing += week_ends ? "\n" : "";
    }
    return drawing + "\nM main stream: " + std::to_string(main.recordings) +
           " recordings\nS sub stream: " + std::to_string(sub.recordings) + " recordings\n";
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
        context.results.write(draw_month(month, main, sub, terminal_columns(context.results.fd())));
}
