#include <array>
#include <cstdio>

#include "tools/card.h"
#include "tools/commands.h"
#include "tools/recordings.h"
#include "tools/time_text.h"

namespace
{

struct StreamMonth {
    std::array<unsigned char, 31> days; /**< 1 where a recording starts or ends */
    size_t recordings;
};

StreamMonth ask_card(_ifs_stream_type_ stream, const Month& month)
{
    StreamMonth result = {};
    struct tm first = utc_tm(month.first_s);
    struct tm last = utc_tm(month.last_s);
    if (Ifsi_get_rec_calendar(&first, &last, stream, result.days.data()) != 0)
        throw Failure(ExitCode::failed, "the card gives no calendar; run again with -v to see why");
    result.recordings = find_recordings(stream, month.first_s, month.last_s).size();
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
