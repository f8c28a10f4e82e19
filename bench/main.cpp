/**
 * The benchmarks that run inside one process.
 *
 * Usage: ifs_bench MEDIA_FOLDER MEMORY_FOLDER DISK_FOLDER [OPTION OF GOOGLE BENCHMARK]...
 */
#include <cstdio>
#include <exception>

#include "bench/bench.h"
#include "ifs.h"

namespace bench
{

void Register(const std::string& row, const std::string& variant, Role role, int size, int iterations,
              const std::function<Run()>& prepare)
{
    constexpr const char* ROLES[] = {"ours", "peer", "limit"};
    const std::string name =
        row + "/" + variant + "/" + ROLES[static_cast<int>(role)] + "/" + std::to_string(size);
    benchmark::RegisterBenchmark(name.c_str(),
                                 [prepare](benchmark::State& state) {
                                     try {
                                         const Run run = prepare();
                                         run(); // the first one warms caches
                                         for ([[maybe_unused]] auto _ : state) {
                                             state.SetIterationTime(run());
                                         }
                                     } catch (const std::exception& error) {
                                         state.SkipWithError(error.what());
                                     }
                                 })
        ->UseManualTime()
        ->Iterations(iterations);
}

} // namespace bench

int main(int argc, char** argv)
{
    if (argc < 4) {
        std::fprintf(stderr, "Usage: %s MEDIA_FOLDER MEMORY_FOLDER DISK_FOLDER [OPTION]...\n", argv[0]);
        return 2;
    }
    const bench::Folders folders{argv[1], argv[2], argv[3]};
    Ifsi_set_debug_level(0);
    Ifsi_set_overlap(0);
    bench::Register_playback(folders);
    bench::Register_mount(folders);
    bench::Register_search(folders);
    bench::Register_close(folders);
    bench::Register_format(folders);
    argv[3] = argv[0];
    argc -= 3;
    argv += 3;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
