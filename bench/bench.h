/** What the benchmarks inside one process share: their names, and the folders they work in. */
#ifndef BENCH_BENCH_H
#define BENCH_BENCH_H

#include <benchmark/benchmark.h>

#include <chrono>
#include <functional>
#include <string>

namespace bench
{

struct Folders {
    std::string media;  ///< elementary streams
    std::string memory; ///< for cards, on a file system in memory
    std::string disk;   ///< for large recordings
};

/** Who does the work of a row. */
enum class Role {
    OURS,
    PEER,
    LIMIT
};

/** Run does the work once. @return seconds that it took */
using Run = std::function<double()>;

/**
 * Register a benchmark "ROW/VARIANT/ROLE/SIZE".
 *
 * @param prepare  called before each repetition; what it returns is run, and goes when the repetition ends
 */
void Register(const std::string& row, const std::string& variant, Role role, int size, int iterations,
              const std::function<Run()>& prepare);

/** Seconds that a function takes. */
template <typename Function>
double Seconds(Function function)
{
    const auto begin = std::chrono::steady_clock::now();
    function();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

void Register_playback(const Folders& folders);
void Register_mount(const Folders& folders);
void Register_search(const Folders& folders);
void Register_close(const Folders& folders);
void Register_format(const Folders& folders);

} // namespace bench

#endif
