/**
 * Counts what does not depend on the machine's speed: allocations, calls and bytes to the card, heap, and,
 * when callgrind runs it, instructions.
 *
 * Usage: count_bench MEDIA_FOLDER WORK_FOLDER RESULTS calls|instructions|growth
 * RESULTS gets a line "NAME VALUE" a count. Instructions are counted by callgrind,
 * whose dumps have the same names.
 */
#include <malloc.h>
#include <unistd.h>
#include <valgrind/callgrind.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <memory>

#include "bench/card.h"
#include "bench/media.h"
#include "hostcard.h"
#include "ifs.h"

namespace
{

std::atomic<unsigned long> allocations;

} // namespace

// Defined by the executable, these stand before the C library's own in all of the process.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);

void* malloc(size_t size)
{
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(size);
}

void* calloc(size_t count, size_t size)
{
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(count, size);
}

void* realloc(void* block, size_t size)
{
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(block, size);
}
}

namespace
{

using namespace bench;

constexpr unsigned long long CARD_BYTES = 8ull << 30;
constexpr uint64_t MINUTE_US = 60 * SECOND_US;

struct Paths {
    std::string media;
    std::string work;

    std::string Fresh(const std::string& name) const
    {
        static int cards = 0;
        return work + "/" + name + std::to_string(++cards);
    }
};

class Results
{
public:
    explicit Results(const char* path) : m_file(path) {}
    void Put(const std::string& name, double value) { m_file << name << ' ' << value << std::endl; }

private:
    std::ofstream m_file;
};

std::unique_ptr<Card> Mounted(const std::string& folder)
{
    auto card = std::make_unique<Card>(folder, CARD_BYTES);
    card->Mount();
    card->Wait();
    return card;
}

/* ---- calls ---- */

/** Counted from a fifth of a recording on, when all buffers have been allocated. */
void Count_recording(const Paths& paths, Results& results)
{
    constexpr int MINUTES = 5;
    const Media media = Load_media(paths.media, "main");
    const auto card = Mounted(paths.Fresh("record"));
    const int fd = Create_recording(FIRST_START);
    Write_frames(fd, media, MINUTE_US);
    const unsigned long allocated = allocations;
    const unsigned written = hostcard_count(HOSTCARD_WRITE);
    const unsigned synced = hostcard_count(HOSTCARD_SYNC);
    const Written span = Write_frames(fd, media, MINUTES * MINUTE_US, MINUTE_US);
    results.Put("record/allocations", static_cast<double>(allocations - allocated));
    results.Put("record/writes a minute", (hostcard_count(HOSTCARD_WRITE) - written) / (MINUTES - 1.0));
    results.Put("record/syncs a minute", (hostcard_count(HOSTCARD_SYNC) - synced) / (MINUTES - 1.0));
    results.Put("record/frames", static_cast<double>(span.frames));
    Ifsi_close(fd, nullptr);
}

/** Bytes that the process writes, the library's messages included. */
double Bytes_written()
{
    std::ifstream io("/proc/self/io");
    std::string word;
    double bytes = 0;
    while (io >> word) {
        if (word == "wchar:") {
            io >> bytes;
        }
    }
    return bytes;
}

void Count_bytes(const Paths& paths, Results& results)
{
    const Media media = Load_media(paths.media, "main");
    const auto card = Mounted(paths.Fresh("bytes"));
    const double before = Bytes_written();
    const int fd = Create_recording(FIRST_START);
    const Written span = Write_frames(fd, media, MINUTE_US);
    Ifsi_close(fd, nullptr);
    results.Put("record/bytes written a byte", (Bytes_written() - before) / static_cast<double>(span.bytes));
}

/** @return frames read */
int Play(int fd)
{
    int frames = 0;
    while (Read_frame(fd) > 0) {
        ++frames;
    }
    return frames;
}

void Record(const Media& media, uint64_t length_us)
{
    const int fd = Create_recording(FIRST_START);
    Write_frames(fd, media, length_us);
    Ifsi_close(fd, nullptr);
}

void Count_playback(const Paths& paths, Results& results)
{
    const auto card = Mounted(paths.Fresh("play"));
    Record(Load_media(paths.media, "main"), MINUTE_US);
    const int fd = Open_recording(FIRST_START);
    const unsigned read = hostcard_count(HOSTCARD_READ);
    const int frames = Play(fd);
    results.Put("play/reads a frame", (hostcard_count(HOSTCARD_READ) - read) / static_cast<double>(frames));
    Ifsi_close(fd, nullptr);
}

void Count_probing(const Paths& paths, Results& results)
{
    constexpr int RECORDINGS = 200;
    constexpr struct {
        hostcard_call call;
        const char* name;
    } CALLS[] = {{HOSTCARD_OPEN, "opens"},
                 {HOSTCARD_READ, "reads"},
                 {HOSTCARD_STAT, "stats"},
                 {HOSTCARD_WRITE, "writes"}};
    const std::string folder = paths.Fresh("probe");
    Make_full_card(folder, RECORDINGS, Order::CREATION, Make_sample_recording(paths.Fresh("sample")).file);
    const Card card(folder, CARD_BYTES);
    unlink(card.Path("system_index_main").c_str());
    unlink(card.Path("system_index_sub").c_str());
    std::array<unsigned, std::size(CALLS)> before;
    std::transform(std::begin(CALLS), std::end(CALLS), before.begin(),
                   [](auto& c) { return hostcard_count(c.call); });
    card.Mount();
    Require(card.Wait() == RECORDINGS, "the catalogue is not whole");
    for (size_t i = 0; i < std::size(CALLS); ++i) {
        results.Put(std::string("probe/") + CALLS[i].name + " a file",
                    (hostcard_count(CALLS[i].call) - before[i]) / static_cast<double>(RECORDINGS));
    }
}

void Count_calls(const Paths& paths, Results& results)
{
    Count_recording(paths, results);
    Count_bytes(paths, results);
    Count_playback(paths, results);
    Count_probing(paths, results);
}

/* ---- instructions ---- */

/** Let callgrind dump what a function executes, on any thread. */
template <typename Function>
void Count_instructions(const std::string& name, Function function)
{
    CALLGRIND_START_INSTRUMENTATION;
    CALLGRIND_ZERO_STATS;
    function();
    CALLGRIND_DUMP_STATS_AT(name.c_str());
    CALLGRIND_STOP_INSTRUMENTATION;
}

void Write_instructions(const Paths& paths, Results& results)
{
    const Media media = Load_media(paths.media, "main");
    const auto card = Mounted(paths.Fresh("write"));
    const int fd = Create_recording(FIRST_START);
    Write_frames(fd, media, media.Duration_us());
    Written span{};
    Count_instructions("write",
                       [&] { span = Write_frames(fd, media, 2 * media.Duration_us(), media.Duration_us()); });
    results.Put("write/frames", static_cast<double>(span.frames));
    results.Put("write/bytes", static_cast<double>(span.bytes));
    Ifsi_close(fd, nullptr);
    const int playback = Open_recording(FIRST_START);
    int frames = 0;
    Count_instructions("play", [&] { frames = Play(playback); });
    results.Put("play/frames", frames);
    Ifsi_close(playback, nullptr);
}

void Mount_instructions(const Paths& paths)
{
    constexpr struct {
        const char* name;
        Order order;
    } ORDERS[] = {{"in order", Order::CREATION}, {"rotated", Order::ROTATED}, {"shuffled", Order::SHUFFLED}};
    for (const int recordings : {1000, 4000}) {
        const std::string size = "/" + std::to_string(recordings);
        for (const auto& [name, order] : ORDERS) {
            const std::string folder = paths.Fresh("mount");
            Make_full_card(folder, recordings, order, "");
            const Card card(folder, CARD_BYTES);
            Count_instructions(std::string("mount ") + name + size, [&] {
                card.Mount();
                card.Wait();
            });
            card.Unmount();
        }
    }
}

void Catalogue_instructions(const Paths& paths)
{
    const Media media = Load_media(paths.media, "sub");
    for (const int recordings : {1000, 4000}) {
        const std::string size = "/" + std::to_string(recordings);
        const std::string folder = paths.Fresh("catalogue");
        Make_full_card(folder, recordings, Order::CREATION, "");
        const auto card = Mounted(folder);
        const time_t span_s = recordings / 2 * RECORDING_S;
        Count_instructions("search an hour" + size,
                           [&] { Search(FIRST_START + span_s / 2, FIRST_START + span_s / 2 + 3600); });
        Count_instructions("search everything" + size, [&] { Search(FIRST_START, FIRST_START + span_s); });
        const int fd = Create_recording(FIRST_START + span_s);
        Write_frames(fd, media, MINUTE_US);
        Count_instructions("close" + size, [&] { Ifsi_close(fd, nullptr); });
        void* file = Record_into_container(card->Path("limit.mp4"), media, MINUTE_US);
        Count_instructions("close limit" + size, [&] { End_in_container(file); });
    }
}

void Open_instructions(const Paths& paths)
{
    const Media media = Load_media(paths.media, "sub");
    for (const int minutes : {1, 10}) {
        const auto card = Mounted(paths.Fresh("open"));
        Record(media, minutes * MINUTE_US);
        Count_instructions("open and seek/" + std::to_string(minutes), [&] {
            const int fd = Open_recording(FIRST_START);
            Ifsi_tseek(fd, static_cast<unsigned>(FIRST_START + minutes * 48));
            Ifsi_close(fd, nullptr);
        });
    }
}

void Count_all_instructions(const Paths& paths, Results& results)
{
    Write_instructions(paths, results);
    Mount_instructions(paths);
    Catalogue_instructions(paths);
    Open_instructions(paths);
}

/* ---- growth ---- */

size_t Heap_in_use()
{
    const struct mallinfo2 heap = mallinfo2();
    return heap.uordblks + heap.hblkhd;
}

void Record_many(const Media& media, int recordings, time_t start)
{
    constexpr uint64_t FRAMES = 100;
    for (int i = 0; i < recordings; ++i) {
        const int fd = Create_recording(start + i);
        Write_frames(fd, media, FRAMES * SECOND_US / FRAME_RATE);
        Ifsi_close(fd, nullptr);
    }
}

/** Heap with a full catalogue, and what a million frames in ten thousand recordings leave behind. */
void Count_growth(const Paths& paths, Results& results)
{
    constexpr int CATALOGUED = 16000;
    constexpr int ROUND = 5000;
    const std::string full = paths.Fresh("full");
    Make_full_card(full, CATALOGUED, Order::CREATION, "");
    {
        const Card card(full, CARD_BYTES);
        const size_t before = Heap_in_use();
        card.Mount();
        card.Wait();
        results.Put("heap/catalogue", static_cast<double>(Heap_in_use() - before));
    }
    const Media media = Load_media(paths.media, "tiny");
    const std::string folder = paths.Fresh("growth");
    std::array<size_t, 2> heap{};
    for (size_t round = 0; round < heap.size(); ++round) {
        {
            const auto card = Mounted(folder);
            Record_many(media, ROUND, FIRST_START + static_cast<time_t>(round) * ROUND);
        }
        heap[round] = Heap_in_use();
    }
    results.Put("heap/growth", static_cast<double>(heap[1]) - static_cast<double>(heap[0]));
}

void Run(char** argv)
{
    const Paths paths{argv[1], argv[2]};
    Results results(argv[3]);
    Ifsi_set_debug_level(0);
    Ifsi_set_overlap(0);
    if (strcmp(argv[4], "calls") == 0) {
        Count_calls(paths, results);
    } else if (strcmp(argv[4], "instructions") == 0) {
        Count_all_instructions(paths, results);
    } else {
        Count_growth(paths, results);
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 5) {
        std::fprintf(stderr, "Usage: %s MEDIA_FOLDER WORK_FOLDER RESULTS calls|instructions|growth\n",
                     argv[0]);
        return 2;
    }
    try {
        Run(argv);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "count_bench: %s\n", error.what());
        return 1;
    }
}
