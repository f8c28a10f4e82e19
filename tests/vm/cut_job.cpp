/**
 * cut_job DISK MAIN_FRAMES SUB_FRAMES STEP...: works on a card whose writes are logged, and marks in that log
 * what it does. Steps, START in seconds since 1970:
 *
 *     format | mount | unmount | sync
 *     record START COUNT SECONDS  COUNT pairs of recordings, main and sub at once, a minute apart
 *     interrupt START SECONDS     begin a pair and end the process without closing it
 *     overlap LIMIT               let the oldest recordings be deleted down to so many
 *     report                      see card_report.h
 *
 * A mark is a text in a sector in front of the partition. It goes to the card past the kernel's cache, so
 * that it lies in the log between what was written before and after it.
 */
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/vm/card_report.h"

namespace
{

constexpr char k_mount_point[] = "/card";
constexpr off_t k_mark_offset = 62 * 512;
constexpr long k_sleep_divisor = 100;

int g_disk = -1;

/** Put a text into the log. Safe before the disk is open: then there is nothing to log. */
__attribute__((format(printf, 1, 2))) void Mark(const char* format, ...)
{
    alignas(512) static char sector[512];
    memset(sector, 0, sizeof sector);
    va_list values;
    va_start(values, format);
    vsnprintf(sector, sizeof sector, format, values);
    va_end(values);
    if (g_disk >= 0 && pwrite(g_disk, sector, sizeof sector, k_mark_offset) != sizeof sector) {
        perror("mark");
        _exit(2);
    }
}

const char* Name_of(const char* path)
{
    const char* slash = strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

} // namespace

/* What the library and the container call is marked on the way, and sleeps are short. */
extern "C" {

int fdatasync(int fd)
{
    Mark("step sync");
    const int result = static_cast<int>(syscall(SYS_fdatasync, fd));
    Mark("step synced");
    return result;
}

int remove(const char* path)
{
    Mark("removing %s", Name_of(path));
    return unlink(path);
}

int usleep(useconds_t duration)
{
    const timespec pause = {0, static_cast<long>(duration) * (1000 / k_sleep_divisor)};
    return nanosleep(&pause, nullptr);
}

unsigned sleep(unsigned seconds)
{
    return usleep(seconds * 1000000u) == 0 ? 0 : seconds;
}
}

namespace
{

/** A recording that is being made. */
struct Recording {
    const Footage& footage;
    time_t start;
    _ifs_stream_type_ stream;
    int fd = -1;
    size_t frames = 0;
    size_t bytes = 0;

    bool Create()
    {
        tm start_tm = Utc_time(start);
        const bool main = stream == IFS_STREAM_MAIN;
        Mark("phase create");
        fd = Ifsi_create(&start_tm, 1, 6, main ? 320 : 160, main ? 240 : 120, 25, 1, SAMPLE_RATE_INDEX_44100,
                         1, 1, stream);
        Mark("phase record");
        return fd > 0;
    }
    /** Write the frames up to a time of the stream. */
    bool Write_until(uint64_t end_us)
    {
        for (;; ++frames) {
            Footage_frame frame = footage.Frame(start, stream, frames);
            if (frame.pts_us >= end_us) {
                return true;
            }
            if (frame.type != IFS_FRAME_AUDIO) {
                Mark("handed %lld %d %llu", static_cast<long long>(start), static_cast<int>(stream),
                     static_cast<unsigned long long>(frame.pts_us / 1000));
            }
            if (Ifsi_write(fd, frame.bytes.data(), static_cast<int>(frame.bytes.size()), nullptr, 0,
                           frame.type, frame.pts_us) != 0) {
                return false;
            }
            bytes += frame.bytes.size();
        }
    }
    void Close()
    {
        Mark("phase close");
        Ifsi_close(fd, nullptr);
        Mark("closed %lld %d %zu %zu", static_cast<long long>(start), static_cast<int>(stream), frames,
             bytes);
        Mark("phase idle");
    }
};

class Job
{
public:
    Job(const char* main_frames, const char* sub_frames) : m_main(main_frames), m_sub(sub_frames) {}

    bool Run(const std::string& step, char**& args)
    {
        if (step == "format") {
            Mark("phase format");
            const bool done = Ifsi_format() == 0;
            Mark("formatted");
            return done;
        }
        if (step == "mount") {
            return Mount();
        }
        if (step == "unmount") {
            Mark("phase unmount");
            return Ifsi_umount() == 0;
        }
        if (step == "sync") {
            sync();
            Mark("card synced");
            return true;
        }
        if (step == "report") {
            return Report_card(k_mount_point, m_main, m_sub) == 0;
        }
        if (step == "overlap") {
            return Overlap(static_cast<unsigned>(Number(args)));
        }
        const long start = Number(args);
        if (step == "interrupt") {
            Pair(start, Number(args), false);
            _exit(0);
        }
        const long count = Number(args);
        const long seconds = Number(args);
        bool done = step == "record";
        for (long i = 0; done && i < count; ++i) {
            done = Pair(start + 60 * i, seconds, true);
        }
        return done;
    }

private:
    static long Number(char**& args) { return *args != nullptr ? strtol(*args++, nullptr, 10) : 0; }

    static bool Mount()
    {
        Mark("phase rebuild");
        const bool done = Ifsi_mount(k_mount_point) == 0;
        unsigned long main_files = 0;
        unsigned long sub_files = 0;
        Ifsi_get_file_number(&main_files, &sub_files); // waits for the catalogue
        Mark("phase idle");
        return done;
    }

    /** The streams of a camera: frames of both, half a second of each at a time. */
    bool Pair(long start, long seconds, bool close)
    {
        Recording main{m_main, start, IFS_STREAM_MAIN};
        Recording sub{m_sub, start, IFS_STREAM_SUB};
        bool done = main.Create() && sub.Create();
        for (uint64_t us = 0; done && us <= static_cast<uint64_t>(seconds) * 1000000; us += 500000) {
            done = main.Write_until(us) && sub.Write_until(us);
        }
        if (close) {
            main.Close();
            sub.Close();
        }
        return done;
    }

    static bool Overlap(unsigned limit)
    {
        constexpr unsigned k_hysteresis = 20;
        Mark("phase overlap");
        gFs_max_file_number = limit + k_hysteresis;
        Ifsi_set_overlap(1);
        Ifsi_init();
        unsigned long main_files = 0;
        unsigned long sub_files = 0;
        do {
            usleep(1000000);
            Ifsi_get_file_number(&main_files, &sub_files);
        } while (main_files + sub_files >= limit);
        Ifsi_set_overlap(0);
        Mark("phase idle");
        return true;
    }

    Footage m_main;
    Footage m_sub;
};

} // namespace

int main(int argc, char** argv)
{
    if (argc < 5) {
        return 2;
    }
    setvbuf(stdout, nullptr, _IOLBF, 0);
    Ifsi_set_debug_level(IFS_DEBUG_ERROR | IFS_DEBUG_TRACE);
    if (strcmp(argv[1], "-") != 0) {
        g_disk = open(argv[1], O_RDWR | O_DIRECT | O_CLOEXEC);
    }
    Job job(argv[2], argv[3]);
    for (char** args = argv + 4; *args != nullptr;) {
        const std::string step = *args++;
        if (!job.Run(step, args)) {
            fprintf(stderr, "cut_job: %s failed\n", step.c_str());
            return 1;
        }
    }
    _exit(0); // the overlap worker goes on until the process ends
}
