/**
 * Runs in a virtual camera and prints what a mount and a close take of its processor, and the least possible.
 *
 * Usage: target_guest clock TURNS | bare | limit RECORDINGS | mount RECORDINGS | close RECORDINGS
 * RECORDINGS is how many the card holds. All but "limit" leave the card unmounted.
 *
 * Each measurement is a line "RESULT NAME cpu_ns=N clock_ns=N" on standard error: the time in which the
 * processor worked for this process, in the kernel too, and the time that passed, waiting included.
 */
#include <dirent.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <stdexcept>
#include <string>

#include "ifs.h"

namespace
{

constexpr char k_device[] = "/dev/hd/sda1";
constexpr char k_mount_point[] = "/card";
constexpr unsigned long k_mount_flags = MS_NOSUID | MS_NODEV | MS_NOATIME | MS_NODIRATIME;
constexpr time_t k_first_start = 1893456000; // 2030-01-01, behind everything on the card
constexpr unsigned k_frame_ms = 40;
constexpr unsigned k_frames = 60 * 1000 / k_frame_ms;
constexpr unsigned k_key_frame_distance = 50;
constexpr size_t k_frame_bytes = 1000;
constexpr int k_rounds = 3;

void Require(bool condition, const char* what)
{
    if (!condition) {
        throw std::runtime_error(what);
    }
}

long long Now_ns(clockid_t clock)
{
    timespec now{};
    Require(clock_gettime(clock, &now) == 0, "there is no such clock");
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}

/** Do it and print what it took. */
void Measure(const char* name, const std::function<void()>& work)
{
    const long long clock_ns = Now_ns(CLOCK_MONOTONIC);
    const long long cpu_ns = Now_ns(CLOCK_PROCESS_CPUTIME_ID);
    work();
    const long long cpu_end_ns = Now_ns(CLOCK_PROCESS_CPUTIME_ID);
    const long long clock_end_ns = Now_ns(CLOCK_MONOTONIC);
    dprintf(STDERR_FILENO, "RESULT %s cpu_ns=%lld clock_ns=%lld\n", name, cpu_end_ns - cpu_ns,
            clock_end_ns - clock_ns);
}

/** Two instructions a turn, the second one in the branch's delay slot. */
void Loop(unsigned long turns)
{
    asm volatile(".set push\n.set noreorder\n1: bnez %0, 1b\naddiu %0, %0, -1\n.set pop" : "+r"(turns));
}

void Mount_to_ready(unsigned long recordings)
{
    Require(Ifsi_mount(k_mount_point) == 0, "cannot mount the card");
    unsigned long main_number, sub_number;
    Ifsi_get_file_number(&main_number, &sub_number); // waits for the catalogue without asking again and again
    Require(Ifsi_loading_rebuilding_index_file_flag() == 0, "the catalogue is not ready");
    Require(main_number + sub_number == recordings, "the catalogue is not the card's");
}

void Mount_plainly()
{
    Require(mount(k_device, k_mount_point, "vfat", k_mount_flags, "errors=continue") == 0, "mount failed");
}

void Read_directory(unsigned long recordings)
{
    DIR* const directory = opendir(k_mount_point);
    Require(directory != nullptr, "cannot open the directory");
    unsigned long entries = 0;
    while (readdir(directory) != nullptr) {
        ++entries;
    }
    closedir(directory);
    Require(entries > recordings, "cannot read the directory");
}

void Read_file(const char* path)
{
    static char buf[65536];
    const int fd = open(path, O_RDONLY);
    Require(fd >= 0, "cannot open a file");
    ssize_t length;
    while ((length = read(fd, buf, sizeof buf)) > 0) {
    }
    close(fd);
    Require(length == 0, "cannot read a file");
}

/** What a mount cannot do without: the same reading with plain calls. */
void Read_plainly(unsigned long recordings)
{
    Mount_plainly();
    Read_directory(recordings);
    Read_file("/card/system_index_main");
    Read_file("/card/system_index_sub");
}

/** An access unit whose slice is padded: to the library and the container only its bytes count. */
std::string Frame(bool key)
{
    using namespace std::string_literals;
    const std::string parameters =
        "\0\0\0\1\x67\x42\xc0\x0a\xd9\x1e\xc0\x44\0\0\3\0\4\0\0\3\0\x08\x3c\x48\x99\x20\0\0\0\1\x68\xcb\x83\xcb\x20"s;
    std::string frame = key ? parameters + "\0\0\0\1\x65\x88\x84"s : "\0\0\0\1\x41\x9a\x02"s;
    frame.resize(k_frame_bytes, '\x55');
    return frame;
}

/** Hand all frames of a recording of a minute to a call that returns 0 on success. */
void Write_minute(const std::function<int(std::string&, bool key, unsigned ms)>& write)
{
    std::string frames[] = {Frame(false), Frame(true)};
    for (unsigned i = 0; i < k_frames; ++i) {
        const bool key = i % k_key_frame_distance == 0;
        Require(write(frames[key], key, i * k_frame_ms) == 0, "a frame is refused");
    }
}

void Record_with_library(int minute)
{
    const time_t start_s = k_first_start + 60 * minute;
    tm start{};
    gmtime_r(&start_s, &start);
    const int fd = Ifsi_create(&start, 1, 6, 16, 16, 25, 2, SAMPLE_RATE_INDEX_8000, 1, 0, IFS_STREAM_MAIN);
    Require(fd > 0, "cannot create a recording");
    Write_minute([fd](std::string& frame, bool key, unsigned ms) {
        return Ifsi_write(fd, &frame[0], static_cast<int>(frame.size()), nullptr, 0,
                          key ? IFS_FRAME_I : IFS_FRAME_P, ms * 1000ULL);
    });
    Measure("close", [fd] { Require(Ifsi_close(fd, nullptr) == 0, "cannot close the recording"); });
}

void Record_with_container(int minute)
{
    std::string path = "/card/Made_by_the_container_" + std::to_string(minute) + ".mp4";
    void* const file =
        kt_mp4_open(&path[0], 16, 16, 25, 2, SAMPLE_RATE_INDEX_8000, 1, KT_MP4_CREATE, 0, 320, 0);
    Require(file != nullptr, "cannot create a file");
    Write_minute([file](std::string& frame, bool key, unsigned ms) {
        return kt_mp4_write(file, key ? KT_MP4_VIDEO_KEY : KT_MP4_VIDEO_OTHER, &frame[0],
                            static_cast<int>(frame.size()), nullptr, 0, ms);
    });
    Measure("container", [file] {
        Require(kt_mp4_flush(file) == 0, "cannot flush the file");
        Require(kt_mp4_close(file) == 0, "cannot finish the file");
    });
}

void Run(const std::string& work, unsigned long number)
{
    if (work == "clock") {
        Measure("clock", [=] { Loop(number); });
    } else if (work == "bare") {
        Measure("bare", [] { Mount_plainly(), Require(umount(k_mount_point) == 0, "umount failed"); });
    } else if (work == "limit") {
        Measure("limit", [=] { Read_plainly(number); });
    } else if (work == "mount") {
        Measure("mount", [=] { Mount_to_ready(number); });
    } else if (work == "close") {
        Mount_to_ready(number);
        for (int minute = 0; minute < k_rounds; ++minute) {
            Record_with_library(minute);
            Record_with_container(minute);
        }
    }
    Require(Ifsi_umount() == 0, "cannot unmount the card");
}

} // namespace

int main(int argc, char** argv)
{
    Ifsi_set_debug_level(0);
    try {
        Run(argc > 1 ? argv[1] : "", argc > 2 ? strtoul(argv[2], nullptr, 10) : 0);
        return 0;
    } catch (const std::exception& error) {
        fprintf(stderr, "target_guest: %s\n", error.what());
        return 1;
    }
}
