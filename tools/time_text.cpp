#include "tools/time_text.h"

#include <cstdio>
#include <cstdlib>
#include <regex>

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

bool same_clock(const struct tm& a, const struct tm& b)
{
    return a.tm_year == b.tm_year && a.tm_mon == b.tm_mon && a.tm_mday == b.tm_mday &&
           a.tm_hour == b.tm_hour && a.tm_min == b.tm_min && a.tm_sec == b.tm_sec;
}

int64_t local_seconds(struct tm clock)
{
    clock.tm_isdst = -1;
    return mktime(&clock);
}

struct tm local_tm(int64_t seconds)
{
    time_t time = static_cast<time_t>(seconds);
    struct tm clock = {};
    localtime_r(&time, &clock);
    return clock;
}

/** Seconds east of UTC of a zone as it was written: Z, +HH:MM or +HHMM. */
int zone_offset(const std::string& zone)
{
    if (zone == "Z")
        return 0;
    int hours = std::stoi(zone.substr(1, 2));
    int minutes = std::stoi(zone.substr(zone.size() - 2));
    return (zone[0] == '-' ? -60 : 60) * (hours * 60 + minutes);
}

void check_range(const std::string& text, int64_t seconds)
{
    if (seconds < min_time_s || seconds > max_time_s)
        reject(text, "lies outside of 1970-01-01 to 2038-01-19, the times that a card can hold");
}

std::string clock_text(const struct tm& clock, const char* fraction)
{
    char text[64];
    long offset_min = clock.tm_gmtoff / 60;
    long distance_min = std::labs(offset_min);
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d%s%c%02ld:%02ld", clock.tm_year + 1900,
                  clock.tm_mon + 1, clock.tm_mday, clock.tm_hour, clock.tm_min, clock.tm_sec, fraction,
                  offset_min < 0 ? '-' : '+', distance_min / 60, distance_min % 60);
    return text;
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

    int64_t seconds = 0;
    if (part[8].matched) {
        seconds = utc_seconds(clock) - zone_offset(part[8]);
    } else {
        seconds = local_seconds(clock);
        if (!same_clock(clock, local_tm(seconds)))
            reject(text, "is skipped by the clock change of the local time zone; write it with a zone");
    }
    check_range(text, seconds);
    int milliseconds = part[7].matched ? std::stoi((part[7].str() + "00").substr(0, 3)) : 0;
    return seconds * 1000 + milliseconds;
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
    month.first_s = local_seconds(clock);
    month.weekday = (local_tm(month.first_s).tm_wday + 6) % 7;
    ++clock.tm_mon;
    month.last_s = local_seconds(clock) - 1;
    month.days = local_tm(month.last_s).tm_mday;
    check_range(text, month.first_s);
    check_range(text, month.last_s);
    return month;
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
