#include "util/calendar_time.h"

#include <climits>

#include "util/wrap.h"

namespace
{

/* Minus the days from the formula's origin to 1970-01-01, in seconds modulo 2^32. */
constexpr int32_t k_seconds_to_1970 = static_cast<int32_t>(0x86B1BF80u);

int Compare(int a, int b)
{
    return a > b ? 1 : a < b ? -1 : 0;
}

/** A number that orders as the two do, the first before the second. */
uint64_t Pair(int32_t first, int32_t second)
{
    constexpr uint32_t k_sign = 0x80000000u;
    return static_cast<uint64_t>(static_cast<uint32_t>(first) ^ k_sign) << 32 |
           (static_cast<uint32_t>(second) ^ k_sign);
}

int32_t Seconds_of_day(const tm* t)
{
    return Wrap_add(Wrap_add(Wrap_mul(t->tm_min, 60), Wrap_mul(t->tm_hour, 3600)), t->tm_sec);
}

} // namespace

time_t Ifsm_mktime_abs(const tm* t)
{
    int32_t month = Wrap_sub(t->tm_mon, 1);
    int32_t year = Wrap_add(t->tm_year, 1900);
    if (month <= 0) { // January and February count as months 11 and 12 of the year before
        month = Wrap_add(t->tm_mon, 11);
        year = Wrap_add(t->tm_year, 1899);
    }
    int32_t days = Wrap_mul(year, 365);
    days = Wrap_add(days, year / 4);
    days = Wrap_sub(days, year / 100);
    days = Wrap_add(days, year / 400);
    days = Wrap_add(days, Wrap_mul(367, month) / 12);
    days = Wrap_add(days, t->tm_mday);
    const int32_t hours = Wrap_add(Wrap_mul(days, 24), t->tm_hour);
    const int32_t minutes = Wrap_add(Wrap_mul(hours, 60), t->tm_min);
    const int32_t seconds = Wrap_add(Wrap_mul(minutes, 60), t->tm_sec);
    return Wrap_add(seconds, k_seconds_to_1970);
}

int Ifsm_utc_to_local(const tm* utc, tm* local)
{
    const time_t seconds = Ifsm_mktime_abs(utc);
    localtime_r(&seconds, local);
    return 0;
}

int Ifsm_local_to_utc(const tm* local, tm* utc)
{
    const time_t now = time(nullptr);
    tm work{};
    localtime_r(&now, &work);
    work.tm_sec = local->tm_sec;
    work.tm_min = local->tm_min;
    work.tm_hour = local->tm_hour;
    work.tm_mday = local->tm_mday;
    work.tm_mon = local->tm_mon;
    work.tm_year = local->tm_year;
    time_t seconds = mktime(&work);
    if (seconds < INT32_MIN || seconds > INT32_MAX) { // what a 32-bit mktime() answers
        seconds = -1;
    }
    gmtime_r(&seconds, utc);
    return 0;
}

time_t Ifsm_local_to_utc(int seconds)
{
    const time_t wide = seconds;
    tm work{};
    gmtime_r(&wide, &work);
    return Ifsm_mktime_abs(&work);
}

int Ifsm_utc_time_inc(tm* t, int seconds)
{
    const time_t moved = Wrap_add(static_cast<int32_t>(Ifsm_mktime_abs(t)), seconds);
    gmtime_r(&moved, t);
    return 0;
}

int Ifsm_tm_cmp(const tm* a, const tm* b)
{
    const int order = Ifsm_cmp_date(a, b);
    return order != 0 ? order : Compare(Seconds_of_day(a), Seconds_of_day(b));
}

Tm_key Ifsm_tm_key(const tm* t)
{
    return {Pair(t->tm_year, t->tm_mon), Pair(t->tm_mday, Seconds_of_day(t))};
}

int Ifsm_cmp_date(const tm* a, const tm* b)
{
    if (const int order = Compare(a->tm_year, b->tm_year)) {
        return order;
    }
    if (const int order = Compare(a->tm_mon, b->tm_mon)) {
        return order;
    }
    return Compare(a->tm_mday, b->tm_mday);
}
