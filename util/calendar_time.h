#ifndef IFS_UTIL_CALENDAR_TIME_H
#define IFS_UTIL_CALENDAR_TIME_H

#include <cstdint>
#include <ctime>

/**
 * Arithmetic on broken-down UTC times that no time zone ever enters, but for the two local conversions.
 *
 * Second counts are 32-bit and wrap on every host. Of a struct tm only the six calendar fields are read;
 * they are not checked against their ranges. All are reentrant and report nothing.
 */

/** Seconds since 1970 of a UTC time. Fields out of range add linearly. */
time_t Ifsm_mktime_abs(const tm* t);

/** Local time of the process at a UTC time; every field of *local is written. @return 0 */
int Ifsm_utc_to_local(const tm* utc, tm* local);

/** UTC time that a local time names, by the daylight saving in force now. @return 0 */
int Ifsm_local_to_utc(const tm* local, tm* utc);

/** Kept for the time seek, whose seconds are UTC already. @return seconds, unchanged */
time_t Ifsm_local_to_utc(int seconds);

/** Move *t by seconds (negative: back); all of *t is rewritten, normalised. @return 0 */
int Ifsm_utc_time_inc(tm* t, int seconds);

/** @return 1 when a is later than b, -1 when earlier, 0 when equal */
int Ifsm_tm_cmp(const tm* a, const tm* b);

/** What Ifsm_tm_cmp() compares, for a table that is searched: keys stand to each other as their times do. */
struct Tm_key {
    uint64_t month; ///< and year
    uint64_t clock; ///< and day
};
Tm_key Ifsm_tm_key(const tm* t);

inline bool operator<(const Tm_key& a, const Tm_key& b)
{
    return (a.month < b.month) | ((a.month == b.month) & (a.clock < b.clock));
}

inline bool operator==(const Tm_key& a, const Tm_key& b)
{
    return a.month == b.month && a.clock == b.clock;
}

/** As Ifsm_tm_cmp() on year, month and day alone. */
int Ifsm_cmp_date(const tm* a, const tm* b);

#endif
