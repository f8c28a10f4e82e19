#include "scripts/witness_host/run.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <sys/stat.h>

#include "hostcard.h"
#include "ifs_legacy.h"
#include "scripts/witness_host/report.h"

namespace
{

constexpr int entries_max = 1024;

tm year(int year)
{
    tm t{};
    t.tm_year = year - 1900;
    return t;
}

void find_all(_ifs_stream_type_ stream, std::vector<_ifs_rec_file_>& entries)
{
    tm from = year(-1000), to = year(9000);
    const int search = Ifsi_find_open(&from, &to, stream);
    const size_t old = entries.size();
    entries.resize(old + entries_max);
    const int found = Ifsi_find_next(search, entries_max, entries.data() + old);
    entries.resize(old + static_cast<size_t>(std::max(found, 0)));
    Ifsi_find_close(search);
}

std::string settings_text()
{
    char text[160];
    std::snprintf(text, sizeof text,
                  "globals: scan %d, version %d, max %u, got size %d, loading %d, demo %d, type %d",
                  gScan_rec_file_flag, gCard_fs_version, gFs_max_file_number, gHave_got_fs_size,
                  gLoading_or_rebuilding_index_file, gIfs_demo_flag, gIfs_file_type);
    return text;
}

} // namespace

const Run::Operation Run::operations[] = {
    {"mount", 3, &Run::mount},
    {"umount", 2, &Run::umount},
    {"format", 1, &Run::format},
    {"is_full", 2, &Run::is_full},
    {"system_info", 2, &Run::system_info},
    {"init", 4, &Run::init},
    {"ticks", 7, &Run::ticks},
    {"limits", 4, &Run::limits},
    {"free_space", 4, &Run::free_space},
    {"settings", 2, &Run::settings},
    {"pull_card", 1, &Run::pull_card},
    {"list_devices", 1, &Run::list_devices},
    {"meddle", 3, &Run::meddle},
    {"mount_table", 1, &Run::mount_table},
    {"create", 9, &Run::create},
    {"write", 14, &Run::write},
    {"write_foreign", 3, &Run::write_foreign},
    {"write_much", 4, &Run::write_much},
    {"close", 10, &Run::close},
    {"record", 8, &Run::record_whole},
    {"open", 4, &Run::open},
    {"open_by_time", 10, &Run::open_by_time},
    {"open_much", 5, &Run::open_much},
    {"open_by_name", 4, &Run::open_by_name},
    {"stat", 4, &Run::stat},
    {"read", 8, &Run::read},
    {"read_all", 3, &Run::read_all},
    {"read_at_bound", 2, &Run::read_at_bound},
    {"read_standard", 2, &Run::read_standard},
    {"seek", 2, &Run::seek},
    {"tseek", 6, &Run::tseek},
    {"file_name", 5, &Run::file_name},
    {"find_open", 7, &Run::find_open},
    {"find_next", 8, &Run::find_next},
    {"find_close", 5, &Run::find_close},
    {"find_much", 4, &Run::find_much},
    {"calendar", 6, &Run::calendar},
    {"latest", 3, &Run::latest},
    {"transfer", 2, &Run::transfer},
};

Run::Run(uint64_t seed, const std::string& folder, const Features& features, bool show_calls)
    : m_random(seed), m_folder(folder), m_features(features), m_show_calls(show_calls),
      m_card(folder + "/card"), m_times(m_random), m_counts(HOSTCARD_CALLS)
{
    m_calm = !m_features.faults || m_random.chance(60);
    m_looks = m_random.chance(85);
    m_hoards = m_random.chance(15);
}

void Run::perform()
{
    prepare();
    const unsigned steps = 20 + m_random.below(70);
    for (unsigned i = 0; i < steps; i++) {
        std::printf("== %u ", i);
        step();
        if (m_looks)
            look();
        if (m_show_calls)
            say_calls();
        std::fflush(stdout);
    }
    finish();
}

void Run::prepare()
{
    setenv(
        "TZ",
        m_random.one_of({"UTC0", "CET-1CEST,M3.5.0,M10.5.0/3", "EST5EDT,M3.2.0,M11.1.0", "IST-5:30", "X12"}),
        1);
    tzset();
    const std::string scratch = m_folder + "/scratch";
    ::mkdir(scratch.c_str(), 0777);
    const unsigned long long bytes =
        m_random.one_of({1000000000ULL, 1000000000ULL, 2000000000ULL, 2000000000ULL, 8000000000ULL,
                         550000000ULL, 400000000ULL, 20000000ULL});
    const unsigned heads = m_random.one_of({255u, 255u, 16u, 64u}),
                   sectors = m_random.one_of({63u, 63u, 32u});
    if (hostcard_create(m_card.c_str(), bytes, heads, sectors) != 0)
        std::perror("hostcard_create");
    insert();
    if (m_random.chance(30))
        m_level = m_random.one_of({0u, 1u, 2u, 4u, 0x11u});
    Ifsi_set_debug_level(m_level);
    say("format: %d", Ifsi_format());
    m_files = hostcard_mount_point();
    m_population = std::make_unique<Population>(m_files, scratch, m_features, m_times, m_random);
    m_population->fill();
    if (m_random.chance(95))
        mount();
    look();
}

void Run::insert()
{
    if (hostcard_insert(m_card.c_str()) != 0)
        std::perror("hostcard_insert");
    hostcard_scale_sleep(0.5); // so that sleeps become those of clock.h
}

void Run::step()
{
    unsigned total = 0;
    for (const Operation& operation : operations)
        total += operation.weight;
    unsigned chosen = m_random.below(total);
    const Operation* operation = operations;
    for (; chosen >= operation->weight; operation++)
        chosen -= operation->weight;
    std::printf("%s\n", operation->name);
    const bool broken = !m_calm && m_random.chance(12) && break_a_call();
    (this->*operation->perform)();
    if (broken)
        hostcard_fail_none();
}

bool Run::break_a_call()
{
    const auto call = static_cast<hostcard_call>(m_random.below(HOSTCARD_CALLS));
    const unsigned nth = m_random.one_of({1u, 1u, 1u, 2u, 3u, 1 + m_random.below(20)});
    const bool moves = call == HOSTCARD_READ || call == HOSTCARD_WRITE;
    const int error = moves && m_random.chance(30) ? 0 : m_random.one_of({EIO, EIO, ENOSPC, EBUSY});
    const int once = m_random.chance(30);
    if (call == HOSTCARD_SYNC && !m_features.syncs)
        return false;
    say("fault: call %d from %u on, error %d, once %d", static_cast<int>(call), nth, error, once);
    hostcard_fail(call, nth, error, once);
    return true;
}

void Run::look()
{
    Ifsi_set_debug_level(0);
    say_changes(catalogue());
    Ifsi_set_debug_level(m_level);
}

std::vector<std::string> Run::catalogue()
{
    m_entries.clear();
    find_all(IFS_STREAM_MAIN, m_entries);
    find_all(IFS_STREAM_SUB, m_entries);
    std::vector<std::string> lines;
    for (const _ifs_rec_file_& rec : m_entries)
        lines.push_back(text(rec));
    unsigned long main_number = 7, sub_number = 7;
    const int counted = Ifsi_get_file_number(&main_number, &sub_number);
    tm latest = year(1970);
    const int found = Ifsi_get_latest_rec_time(&latest);
    lines.push_back("counts: " + std::to_string(counted) + ", " + std::to_string(main_number) + ", " +
                    std::to_string(sub_number) + ", latest: " + std::to_string(found) + ", " + text(latest));
    lines.push_back(settings_text());
    return lines;
}

/** Print the lines in which the catalogue differs from the last look, those gone and those new. */
void Run::say_changes(const std::vector<std::string>& lines)
{
    const auto begins = std::mismatch(m_seen.begin(), m_seen.end(), lines.begin(), lines.end());
    const auto ends = std::mismatch(m_seen.rbegin(), std::make_reverse_iterator(begins.first), lines.rbegin(),
                                    std::make_reverse_iterator(begins.second));
    for (auto line = begins.first; line != ends.first.base(); ++line)
        say("- %s", line->c_str());
    for (auto line = begins.second; line != ends.second.base(); ++line)
        say("+ %s", line->c_str());
    m_seen = lines;
}

void Run::say_calls()
{
    static constexpr const char* names[HOSTCARD_CALLS] = {
        "open",    "close", "read",   "write",  "seek",       "truncate", "sync",         "stat",  "remove",
        "opendir", "mount", "umount", "statfs", "get_size64", "get_size", "get_geometry", "reread"};
    for (unsigned call = 0; call < HOSTCARD_CALLS; call++) {
        const unsigned count = hostcard_count(static_cast<hostcard_call>(call));
        if (count > m_counts[call])
            say("uses %s: %u", names[call], count - m_counts[call]);
        m_counts[call] = count;
    }
}

void Run::finish()
{
    std::printf("== end\n");
    look();
    const bool abandons = m_random.chance(20);
    for (const Handle& handle : m_handles)
        if (handle.open && !abandons)
            say("close %d: %d", handle.fd, Ifsi_close(handle.fd, nullptr));
    for (const int search : m_searches)
        Ifsi_find_close(search);
    look();
    say("umount: %d", Ifsi_umount());
    hostcard_eject();
    say_files(m_card + "/files");
    say_image(m_card + "/card.img");
    if (m_random.chance(5))
        end_in_placeholder();
}

void Run::end_in_placeholder()
{
#define WITNESS_PLACEHOLDER(name) name,
    static constexpr void (*placeholders[])(void) = {IFS_LEGACY_REC_PLACEHOLDERS(WITNESS_PLACEHOLDER)
                                                         IFS_LEGACY_FS_PLACEHOLDERS(WITNESS_PLACEHOLDER)};
#undef WITNESS_PLACEHOLDER
    placeholders[m_random.below(sizeof placeholders / sizeof placeholders[0])]();
}

tm Run::some_start()
{
    const std::vector<tm>& put = m_population->starts();
    if (!m_starts.empty() && (put.empty() || m_random.chance(50)))
        return m_random.one_of(m_starts);
    return put.empty() ? m_times.any() : m_random.one_of(put);
}

tm Run::some_time()
{
    const unsigned kind = m_random.below(100);
    if (kind < 30)
        return m_times.any();
    if (kind < 55)
        return some_start();
    if (m_entries.empty())
        return m_times.any();
    const _ifs_rec_file_& rec = m_random.one_of(m_entries);
    return Times::moved(m_random.chance(50) ? rec.start_tm : rec.end_tm,
                        m_random.one_of({0, 0, 1, -1, 5, -5, 3600}));
}

_ifs_stream_type_ Run::some_stream()
{
    const unsigned kind = m_random.below(100);
    return static_cast<_ifs_stream_type_>(kind < 56 ? 0 : kind < 97 ? 1 : kind < 99 ? 2 : -1);
}

std::vector<Run::Handle> Run::open_handles(bool writes) const
{
    std::vector<Handle> fitting;
    for (const Handle& handle : m_handles)
        if (handle.open && handle.writes == writes)
            fitting.push_back(handle);
    return fitting;
}

Run::Handle Run::some_handle(bool writes)
{
    if (open_handles(writes).empty() && m_random.chance(80))
        writes ? create() : open();
    const std::vector<Handle> fitting = open_handles(writes);
    if (!fitting.empty() && !m_random.chance(6))
        return m_random.one_of(fitting);
    if (!m_handles.empty() && m_random.chance(50))
        return m_random.one_of(m_handles);
    Handle stranger;
    stranger.fd = m_random.one_of({0, -1, 1, 2, 7, 32, 33, 40, 1000, -100});
    stranger.start = m_times.any();
    return stranger;
}

Run::Handle* Run::entry_of(int fd)
{
    for (Handle& handle : m_handles)
        if (handle.fd == fd && handle.open)
            return &handle;
    return nullptr;
}

tm Run::some_end(const tm& start, int seconds)
{
    return !m_entries.empty() && m_random.chance(20) ? m_random.one_of(m_entries).end_tm
                                                     : m_times.end_of(start, seconds);
}

_ifs_rec_file_ Run::some_entry()
{
    _ifs_rec_file_ rec{};
    if (!m_entries.empty())
        rec = m_random.one_of(m_entries);
    if (m_entries.empty() || m_random.chance(10)) {
        rec.start_tm = some_start();
        rec.video_res = static_cast<unsigned char>(m_random.one_of({6, 0, 200}));
        rec.video_system = static_cast<unsigned char>(m_random.one_of({1, 15}));
        rec.stream_type = some_stream();
    }
    return rec;
}
