/** Searches and the calendar, beside SQLite with the same recordings in memory. */
#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <vector>

#include "bench/bench.h"
#include "bench/card.h"
#include "bench/media.h"
#include "ifs.h"

namespace bench
{
namespace
{

struct Range {
    time_t begin;
    time_t end;
};

/** The ranges for both: all this long, within the catalogue's time, none aligned to a recording. */
std::vector<Range> Ranges(int recordings, time_t length_s)
{
    const time_t span_s = recordings / 2 * RECORDING_S;
    if (length_s >= span_s) {
        return {{FIRST_START, FIRST_START + span_s}};
    }
    std::mt19937 random(1);
    std::vector<Range> ranges(64);
    for (Range& range : ranges) {
        range.begin = FIRST_START + static_cast<time_t>(random() % static_cast<unsigned>(span_s - length_s));
        range.end = range.begin + length_s;
    }
    return ranges;
}

unsigned Calendar(const Range& range)
{
    tm begin, end;
    std::array<unsigned char, 31> days;
    Require(Ifsi_get_rec_calendar(gmtime_r(&range.begin, &begin), gmtime_r(&range.end, &end), IFS_STREAM_MAIN,
                                  days.data()) == 0,
            "no calendar");
    return static_cast<unsigned>(std::count(days.begin(), days.end(), 1));
}

/** The recordings in a table; times are seconds, as nobody would keep a struct tm in columns. */
class Database
{
public:
    explicit Database(int recordings)
    {
        Require(sqlite3_open(":memory:", &m_database) == SQLITE_OK, "cannot open the database");
        Execute("CREATE TABLE recording (stream INT, start INT, end INT, video_res INT, video_system INT, "
                "frame_rate INT,"
                " width INT, height INT, have_audio INT, audio_profile INT, audio_rate INT, audio_channels "
                "INT, size INT)");
        Execute("CREATE INDEX by_start ON recording (stream, start)");
        Fill(recordings);
        // No recording is longer than RECORDING_S, so those that reach into a range begin at most that much
        // before it.
        m_search = Prepare(
            "SELECT * FROM recording WHERE stream = ?1 AND start BETWEEN ?2 - ?4 AND ?3 AND end >= ?2 "
            "ORDER BY start");
        m_calendar = Prepare("SELECT strftime('%d', start, 'unixepoch', 'localtime') FROM recording "
                             "WHERE stream = ?1 AND start BETWEEN ?2 AND ?3 UNION "
                             "SELECT strftime('%d', end, 'unixepoch', 'localtime') FROM recording "
                             "WHERE stream = ?1 AND start BETWEEN ?2 - ?4 AND ?3 AND end BETWEEN ?2 AND ?3");
    }
    ~Database()
    {
        sqlite3_finalize(m_search);
        sqlite3_finalize(m_calendar);
        sqlite3_close(m_database);
    }
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    size_t Search(const Range& range)
    {
        static std::array<_ifs_rec_file_, 100> portion;
        return Step_through(m_search, range, [this](size_t row) { Get_row(portion[row % portion.size()]); });
    }

    unsigned Calendar(const Range& range)
    {
        std::array<unsigned char, 31> days{};
        Step_through(m_calendar, range, [&](size_t) {
            const int day = std::atoi(reinterpret_cast<const char*>(sqlite3_column_text(m_calendar, 0)));
            days.at(static_cast<size_t>(day - 1)) = 1;
        });
        return static_cast<unsigned>(std::count(days.begin(), days.end(), 1));
    }

private:
    void Execute(const char* statement)
    {
        Require(sqlite3_exec(m_database, statement, nullptr, nullptr, nullptr) == SQLITE_OK,
                sqlite3_errmsg(m_database));
    }

    sqlite3_stmt* Prepare(const char* text)
    {
        sqlite3_stmt* statement = nullptr;
        Require(sqlite3_prepare_v2(m_database, text, -1, &statement, nullptr) == SQLITE_OK,
                sqlite3_errmsg(m_database));
        return statement;
    }

    void Fill(int recordings)
    {
        sqlite3_stmt* insert =
            Prepare("INSERT INTO recording VALUES (?, ?, ?, 0, 0, 25, 1920, 1080, 1, 2, 8, 1, 1000000)");
        Execute("BEGIN");
        for (int i = 0; i < recordings; ++i) {
            const time_t start = FIRST_START + i / 2 * RECORDING_S;
            sqlite3_bind_int(insert, 1, i % 2);
            sqlite3_bind_int64(insert, 2, start);
            sqlite3_bind_int64(insert, 3, start + RECORDING_S - 1);
            sqlite3_step(insert);
            sqlite3_reset(insert);
        }
        Execute("COMMIT");
        sqlite3_finalize(insert);
        Execute("ANALYZE");
    }

    template <typename Take_row>
    size_t Step_through(sqlite3_stmt* statement, const Range& range, Take_row take_row)
    {
        sqlite3_bind_int(statement, 1, IFS_STREAM_MAIN);
        sqlite3_bind_int64(statement, 2, range.begin);
        sqlite3_bind_int64(statement, 3, range.end);
        sqlite3_bind_int64(statement, 4, RECORDING_S);
        size_t count = 0;
        while (sqlite3_step(statement) == SQLITE_ROW) {
            take_row(count++);
        }
        sqlite3_reset(statement);
        return count;
    }

    void Get_row(_ifs_rec_file_& rec) const
    {
        const auto column = [this](int i) { return sqlite3_column_int(m_search, i); };
        const time_t start = sqlite3_column_int64(m_search, 1);
        const time_t end = sqlite3_column_int64(m_search, 2);
        rec.stream_type = static_cast<_ifs_stream_type_>(column(0));
        gmtime_r(&start, &rec.start_tm);
        gmtime_r(&end, &rec.end_tm);
        rec.video_res = static_cast<unsigned char>(column(3));
        rec.video_system = static_cast<unsigned char>(column(4));
        rec.frame_rate = static_cast<unsigned char>(column(5));
        rec.width = column(6);
        rec.height = column(7);
        rec.have_audio = column(8);
        rec.audio_profile = column(9);
        rec.audio_sample_rate_index = column(10);
        rec.audio_channel_conf = column(11);
        rec.file_size = column(12);
    }

    sqlite3* m_database = nullptr;
    sqlite3_stmt* m_search = nullptr;
    sqlite3_stmt* m_calendar = nullptr;
};

/** Runs work on all ranges. @return its seconds a range */
template <typename Work>
double A_range(const std::vector<Range>& ranges, Work work)
{
    return Seconds([&] {
               for (const Range& range : ranges) {
                   benchmark::DoNotOptimize(work(range));
               }
           }) /
           static_cast<double>(ranges.size());
}

struct Kind {
    const char* name;
    time_t length_s;
    bool calendar;
};

void Register_kind(const Folders& folders, const Kind& kind, int recordings)
{
    const std::vector<Range> ranges = Ranges(recordings, kind.length_s);
    const int iterations = ranges.size() > 1 ? 20 : 10;
    Register("search", kind.name, Role::OURS, recordings, iterations, [=]() -> Run {
        const std::string folder = folders.memory + "/search" + std::to_string(recordings);
        if (!std::filesystem::exists(folder)) {
            Make_full_card(folder, recordings, Order::CREATION, "");
        }
        const auto card = std::make_shared<Card>(folder);
        card->Mount();
        card->Wait();
        Database peer(recordings);
        const Range& first = ranges.front();
        Require(Search(first.begin, first.end) == peer.Search(first) &&
                    Calendar(first) == peer.Calendar(first),
                "the results differ");
        return [card, ranges, kind] {
            return kind.calendar
                       ? A_range(ranges, Calendar)
                       : A_range(ranges, [](const Range& range) { return Search(range.begin, range.end); });
        };
    });
    Register("search", kind.name, Role::PEER, recordings, iterations, [=]() -> Run {
        const auto database = std::make_shared<Database>(recordings);
        return [=] {
            return kind.calendar
                       ? A_range(ranges, [&](const Range& range) { return database->Calendar(range); })
                       : A_range(ranges, [&](const Range& range) { return database->Search(range); });
        };
    });
}

} // namespace

void Register_search(const Folders& folders)
{
    constexpr time_t EVERYTHING = 1000000000;
    constexpr Kind KINDS[] = {{"an hour", 3600, false},
                              {"a day", 86400, false},
                              {"everything", EVERYTHING, false},
                              {"calendar of a month", EVERYTHING, true}};
    for (const Kind& kind : KINDS) {
        for (const int recordings : {1000, 4000, 16000}) {
            Register_kind(folders, kind, recordings);
        }
    }
}

} // namespace bench
