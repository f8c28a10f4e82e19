#include "tools/time_text.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <regex>
#include <vector>

#include "tools/failure.h"

namespace
{

[[noreturn]] void reject(const std::string& text, const std::string& why)
{
    throw Failure(ExitCode::usage, "'" + text + "' " + why);
}

int number(const std::ssub_match& digits)
{
    return digits.matched ? std::stoi(digits) : 0;
}

/** Milliseconds of the digits behind a point. */
int fraction_ms(const std::ssub_match& digits)
{
    return digits.matched ? std::stoi((digits.str() + "00").substr(0, 3)) : 0;
}

/** Seconds of s, m or h; none of them is s. */
int unit_s(const std::string& unit)
{
    return unit == "h" ? 3600 : unit == "m" ? 60 : 1;
}

bool same_clock(const struct tm& a, const struct tm& b)
{
    return a.tm_year == b.tm_year && a.tm_mon == b.tm_mon && a.tm_mday == b.tm_mday &&
           a.tm_hour == b.tm_hour && a.tm_min == b.tm_min && a.tm_sec == b.tm_sec;
}

struct tm local_tm(int64_t seconds)
{
    time_t time = static_cast<time_t>(seconds);
    struct tm clock = {};
    localtime_r(&time, &clock);
    return clock;
}

std::string zone_text(const struct tm& clock)
{
    char text[48];
    const long offset_min = clock.tm_gmtoff / 60;
    const long distance_min = std::labs(offset_min);
    std::snprintf(text, sizeof text, "%c%02ld:%02ld", offset_min < 0 ? '-' : '+', distance_min / 60,
                  distance_min % 60);
    return text;
}

/** A day before and behind: no zone is as far from UTC, and no two changes of a clock as close. */
constexpr int64_t around_s[] = {-86400, 86400};

/** The instants at which the local clock shows a time: none where it skips it, two where it is set back. */
std::vector<int64_t> local_instants(const struct tm& clock)
{
    const int64_t as_utc = utc_seconds(clock);
    std::vector<int64_t> instants;
    for (int64_t distance_s : around_s) {
        const long offset_s = local_tm(as_utc + distance_s).tm_gmtoff;
        const int64_t seconds = as_utc - offset_s;
        if (local_tm(seconds).tm_gmtoff == offset_s && (instants.empty() || instants.front() != seconds))
            instants.push_back(seconds);
    }
    return instants;
}

/** First second of a local day, also where its midnight occurs twice, or not at all. */
int64_t day_start(const struct tm& date)
{
    const std::vector<int64_t> instants = local_instants(date);
    if (!instants.empty())
        return instants.front();
    const int64_t as_utc = utc_seconds(date);
    return as_utc - local_tm(as_utc + around_s[0]).tm_gmtoff;
}

/** Seconds east of UTC of a zone as it was written: Z, +HH:MM or +HHMM. */
int zone_offset(const std::string& text, const std::string& zone)
{
    if (zone == "Z")
        return 0;
    constexpr int farthest_min = 14 * 60;
    const int hours = std::stoi(zone.substr(1, 2));
    const int minutes = std::stoi(zone.substr(zone.size() - 2));
    if (minutes > 59 || hours * 60 + minutes > farthest_min)
        reject(text, "has a time zone that does not exist; zones are -14:00 to +14:00");
    return (zone[0] == '-' ? -60 : 60) * (hours * 60 + minutes);
}

/** @param clock  of no zone: local time */
int64_t one_local_instant(const std::string& text, const struct tm& clock)
{
    const std::vector<int64_t> instants = local_instants(clock);
    if (instants.empty())
        reject(text, "is skipped by the clock change of the local time zone; write it with a zone");
    if (instants.size() > 1)
        reject(text, "occurs twice, as the local clock is set back; write it with a zone, " + text +
                         zone_text(local_tm(instants[0])) + " or " + text + zone_text(local_tm(instants[1])));
    return instants.front();
}

void check_range(const std::string& text, int64_t seconds)
{
    if (seconds < min_time_s || seconds > max_time_s)
        reject(text, "is not between 1970-01-01 and 2038-01-19, the times that a card can hold");
}

std::string clock_text(const struct tm& clock, const char* fraction)
{
    char text[48];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d%s", clock.tm_year + 1900,
                  clock.tm_mon + 1, clock.tm_mday, clock.tm_hour, clock.tm_min, clock.tm_sec, fraction);
    return text + zone_text(clock);
}

} // namespace

int64_t parse_time(const std::string& text)
{
    static const std::regex form(R"((\d{4})-(\d\d)-(\d\d)(?:[T ](\d\d):(\d\d)(?::(\d\d)(?:\.(\d{1,3})\d*)?)?)"
                                 R"((Z|[+-]\d\d:?\d\d)?)?)");
    std::smatch part;
    if (!std::regex_match(text, part, form))
        reject(text, "is no time; write it like 2026-03-05T10:00:00 (local) or 2026-03-05T10:00:00+01:00");

    struct tm clock = {};
    clock.tm_year = number(part[1]) - 1900;
    clock.tm_mon = number(part[2]) - 1;
    clock.tm_mday = number(part[3]);
    clock.tm_hour = number(part[4]);
    clock.tm_min = number(part[5]);
    clock.tm_sec = number(part[6]);
    if (!same_clock(clock, utc_tm(utc_seconds(clock))))
        reject(text, "names a day or an hour that does not exist; correct it");

    const int64_t seconds = part[8].matched ? utc_seconds(clock) - zone_offset(text, part[8])
                            : is_date(text) ? day_start(clock)
                                            : one_local_instant(text, clock);
    check_range(text, seconds);
    return seconds * 1000 + fraction_ms(part[7]);
}

bool is_date(const std::string& text)
{
    return text.size() == std::char_traits<char>::length("2026-03-05");
}

int64_t parse_end_time(const std::string& text)
{
    const int64_t time_ms = parse_time(text);
    if (!is_date(text))
        return time_ms;
    const struct tm date = local_tm(time_ms / 1000);
    struct tm next_day = {};
    next_day.tm_year = date.tm_year;
    next_day.tm_mon = date.tm_mon;
    next_day.tm_mday = date.tm_mday + 1;
    return std::min(day_start(next_day), max_time_s + 1) * 1000;
}

int64_t parse_duration(const std::string& text)
{
    static const std::regex form(R"((\d{1,9})(?:\.(\d{1,3})\d*)?([smh]?))");
    std::smatch part;
    int64_t duration_ms = 0;
    if (std::regex_match(text, part, form))
        duration_ms = (std::stoll(part[1]) * 1000 + fraction_ms(part[2])) * unit_s(part[3]);
    if (duration_ms == 0)
        reject(text, "is no length of time; write a number above 0, in seconds, or like 10m or 1h");
    return duration_ms;
}

std::string time_text(int64_t seconds)
{
    return clock_text(local_tm(seconds), "");
}

std::string time_text_ms(int64_t milliseconds)
{
    char fraction[8];
    std::snprintf(fraction, sizeof fraction, ".%03d", static_cast<int>(milliseconds % 1000));
    return clock_text(local_tm(milliseconds / 1000), fraction);
}

std::string duration_text(int64_t seconds)
{
    char text[48];
    std::snprintf(text, sizeof text, "%lld:%02d:%02d", static_cast<long long>(seconds / 3600),
                  static_cast<int>(seconds / 60 % 60), static_cast<int>(seconds % 60));
    return text;
}

Month parse_month(const std::string& text)
{
    static const std::regex form(R"((\d{4})-(\d\d))");
    std::smatch part;
    if (!std::regex_match(text, part, form))
        reject(text, "is no month; write it like 2026-03");
    Month month = {};
    month.year = number(part[1]);
    month.month = number(part[2]);
    if (month.month < 1 || month.month > 12)
        reject(text, "is no month; months are 01 to 12");

    struct tm clock = {};
    clock.tm_year = month.year - 1900;
    clock.tm_mon = month.month - 1;
    clock.tm_mday = 1;
    month.first_s = day_start(clock);
    month.weekday = (local_tm(month.first_s).tm_wday + 6) % 7;
    ++clock.tm_mon;
    month.last_s = day_start(clock) - 1;
    month.days = local_day(month.last_s);
    check_range(text, month.first_s);
    check_range(text, month.last_s);
    return month;
}

int local_day(int64_t seconds)
{
    return local_tm(seconds).tm_mday;
}

struct tm utc_tm(int64_t seconds)
{
    time_t time = static_cast<time_t>(seconds);
    struct tm clock = {};
    gmtime_r(&time, &clock);
    return clock;
}

int64_t utc_seconds(struct tm time)
{
    return timegm(&time);
}
