#include <algorithm>
#include <cstring>

#include "ifs_legacy.h"
#include "scripts/witness_host/report.h"
#include "scripts/witness_host/run.h"

namespace
{

constexpr int results_max = 64;

unsigned long long checksum_of(record* records, record_stat_t* stats, int count)
{
    uint64_t sum = checksum_of_nothing;
    for (int i = 0; i < count; i++) {
        for (tm* const t : {&records[i].start_tm, &stats[i].start_tm, &stats[i].end_tm})
            clear_pointer_and_padding(*t);
        sum = checksum(&records[i], sizeof records[i], sum);
        sum = checksum(&stats[i], sizeof stats[i], sum);
    }
    return sum;
}

} // namespace

void Run::find_open()
{
    tm from = some_time(), to = m_random.chance(30) ? from : some_time();
    if (m_random.chance(20))
        from.tm_year -= 1;
    if (m_random.chance(20))
        to.tm_year += 1;
    const _ifs_stream_type_ stream = some_stream();
    const int search =
        m_random.chance(80) ? Ifsi_find_open(&from, &to, stream) : rec_find_open(&from, &to, 3, stream);
    say("find open: %d, holds %d", search, Ifsi_find_get_count(search));
    if (search > 0)
        m_searches.push_back(search);
    if (m_hoards && m_random.chance(70)) {
        find_open();
        return;
    }
    if (m_random.chance(70))
        find_next();
    if (m_random.chance(m_hoards ? 10 : 60))
        find_close();
}

void Run::find_next()
{
    const int search = m_searches.empty() || m_random.chance(5) ? m_random.one_of({0, -1, 1, 8, 9})
                                                                : m_random.one_of(m_searches);
    const int count = m_random.one_of({1, 1, 2, 5, results_max, results_max, 0, -1});
    if (m_random.chance(70)) {
        std::vector<_ifs_rec_file_> found(results_max);
        const int result = Ifsi_find_next(search, count, found.data());
        say("find next %d, %d: %d", search, count, result);
        for (int i = 0; i < result; i++)
            say("  %s", text(found[static_cast<size_t>(i)]).c_str());
        return;
    }
    std::vector<record> records(results_max);
    std::vector<record_stat_t> stats(results_max);
    memset(static_cast<void*>(records.data()), 0x5A, records.size() * sizeof(record));
    memset(static_cast<void*>(stats.data()), 0x5A, stats.size() * sizeof(record_stat_t));
    const int result = rec_find_next(search, records.data(), stats.data(), count);
    say("find next (legacy) %d, %d: %d, %016llx, holds %d", search, count, result,
        checksum_of(records.data(), stats.data(), result), rec_find_getcounts(search));
}

void Run::find_close()
{
    if (m_searches.empty() || m_random.chance(5)) {
        say("find close: %d", Ifsi_find_close(m_random.one_of({0, -1, 3, 9, 100})));
        return;
    }
    const auto chosen = m_searches.begin() + m_random.below(static_cast<unsigned>(m_searches.size()));
    say("find close %d: %d", *chosen,
        m_random.chance(80) ? Ifsi_find_close(*chosen) : rec_find_close(*chosen));
    m_searches.erase(chosen);
}

/** Narrow searches, whose bounds lie where recordings start and end as a rule. */
void Run::find_much()
{
    Ifsi_set_debug_level(0);
    std::vector<_ifs_rec_file_> found(results_max);
    for (unsigned left = 40; left > 0; left--) {
        tm from = some_time(), to = Times::moved(from, m_random.one_of({0, 0, 1, 3600}));
        const int search = Ifsi_find_open(&from, &to, m_random.one_of({IFS_STREAM_MAIN, IFS_STREAM_SUB}));
        const int count = Ifsi_find_next(search, results_max, found.data());
        std::string all;
        for (int i = 0; i < count; i++)
            all += text(found[static_cast<size_t>(i)]);
        say("%s: %d, %d, %016llx", text(from).c_str(), Ifsi_find_get_count(search), count,
            static_cast<unsigned long long>(checksum(all.data(), all.size())));
        Ifsi_find_close(search);
    }
    Ifsi_set_debug_level(m_level);
}

void Run::calendar()
{
    tm from = some_time(), to = some_time();
    if (m_random.chance(60)) { // a month
        from.tm_mday = 1;
        from.tm_hour = from.tm_min = from.tm_sec = 0;
        to = from;
        to.tm_mday = 31;
        to.tm_hour = 23;
    }
    unsigned char days[32];
    memset(days, 7, sizeof days);
    const int result = m_random.chance(85) ? Ifsi_get_rec_calendar(&from, &to, some_stream(), days)
                                           : rec_get_calendar(&from, &to, days);
    std::string marks;
    for (const unsigned char day : days)
        marks += static_cast<char>('0' + day);
    say("calendar: %d, %s", result, marks.c_str());
}

void Run::latest()
{
    tm latest{};
    latest.tm_year = 7;
    const int result = Ifsi_get_latest_rec_time(&latest);
    say("latest: %d, %s", result, text(latest).c_str());
}

void Run::transfer()
{
    _ifs_rec_file_ rec = some_entry();
    record_info_t info;
    memset(&info, 0x5A, sizeof info);
    record result;
    record_stat_t stat;
    rec_transfer(&rec, &info);
    rec_transfer(&rec, &result);
    rec_transfer(&rec, &stat);
    clear_pointer_and_padding(info.start_tm);
    clear_pointer_and_padding(info.end_tm);
    say("transferred: %016llx, %016llx", static_cast<unsigned long long>(checksum(&info, sizeof info)),
        checksum_of(&result, &stat, 1));
}
