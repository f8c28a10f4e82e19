/**
 * Records elementary streams again and again, a file a minute, and prints the processor time that took.
 *
 * Usage: record_bench CARD_FOLDER MEDIA_FOLDER MEGABYTES
 */
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <exception>

#include "bench/card.h"
#include "bench/media.h"

namespace
{

using namespace bench;

double Cpu_seconds()
{
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& t) { return static_cast<double>(t.tv_sec) + t.tv_usec / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void Run(const char* folder, const char* media_folder, double megabytes)
{
    constexpr uint64_t FILE_US = 60 * SECOND_US;
    const Media media = Load_media(media_folder, "main");
    Ifsi_set_debug_level(0);
    const Card card(folder);
    card.Mount();
    card.Wait();

    const double begin = Cpu_seconds();
    time_t start = FIRST_START;
    for (double written = 0; written < megabytes * 1e6; start += 60) {
        const int fd = Create_recording(start);
        written += static_cast<double>(Write_frames(fd, media, FILE_US).bytes);
        Ifsi_close(fd, nullptr);
    }
    std::printf("recording: %.4f s\n", Cpu_seconds() - begin);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "Usage: %s CARD_FOLDER MEDIA_FOLDER MEGABYTES\n", argv[0]);
        return 2;
    }
    try {
        Run(argv[1], argv[2], std::atof(argv[3]));
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "record_bench: %s\n", error.what());
        return 1;
    }
}
