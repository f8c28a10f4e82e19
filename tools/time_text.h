/**
 * Times as people write them, ISO 8601, and as the library takes them.
 * Times are milliseconds or seconds since 1970-01-01 00:00:00 UTC.
 */
#ifndef TOOLS_TIME_TEXT_H
#define TOOLS_TIME_TEXT_H

#include <cstdint>
#include <ctime>
#include <string>

/** Bounds of what the library can keep: 32-bit seconds. */
constexpr int64_t min_time_s = 0;
constexpr int64_t max_time_s = INT32_MAX;

/**
 * Read a time: YYYY-MM-DD, alone or followed by T or a blank and HH:MM[:SS[.fff]], then Z, +HH:MM, -HH:MM or
 * nothing for local time. A date alone is the beginning of its local day.
 *
 * Throws Failure (usage): not of this form, no such time or zone, a local time that occurs twice, or not in
 * 1970 to 2038.
 *
 * @return milliseconds
 */
int64_t parse_time(const std::string& text);

/** As parse_time(), for the end of a range: a date alone is the end of its day. */
int64_t parse_end_time(const std::string& text);

/** Whether a text that parse_time() takes is a date alone. */
bool is_date(const std::string& text);

/**
 * Read a length of time: a number of seconds, with s behind it or nothing, of minutes with m, or of hours
 * with h. Throws Failure (usage): not of this form, or 0.
 *
 * @return milliseconds, at least 1
 */
int64_t parse_duration(const std::string& text);

/** Write a time in local time with its zone, e.g. 2026-03-05T10:00:00+01:00. */
std::string time_text(int64_t seconds);

/** As time_text(), with milliseconds. */
std::string time_text_ms(int64_t milliseconds);

/** Write a length of time as H:MM:SS. */
std::string duration_text(int64_t seconds);

/** A calendar month of local time. */
struct Month {
    int year;
    int month;       /**< 1 to 12 */
    int days;        /**< 28 to 31 */
    int weekday;     /**< of its first day, 0 is Monday */
    int64_t first_s; /**< its first second */
    int64_t last_s;  /**< its last second */
};

/** Read a month, YYYY-MM. Throws Failure (usage) as parse_time() does. */
Month parse_month(const std::string& text);

/** Day of the month of local time, from 1. */
int local_day(int64_t seconds);

/** Break a time down as UTC, for the library. */
struct tm utc_tm(int64_t seconds);

/** The opposite of utc_tm(). */
int64_t utc_seconds(struct tm time);

#endif
