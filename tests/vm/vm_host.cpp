/**
 * A host for libifs on a real kernel: does the steps that its command line names, one after the other.
 *
 *     vm_host [fails] STEP ARGUMENT... [fails] STEP ARGUMENT...
 *
 * Each step prints "RESULT STEP KEY=VALUE..." to standard error; the library's messages go to standard
 * output. The run ends with status 1 at the first step that fails (after the word "fails": that succeeds),
 * with status 3 when a step lasts longer than the deadline. Times are seconds since 1970, streams 0 (main)
 * and 1 (sub), sizes bytes.
 *
 * The step "log" makes it mark what it does on a card whose writes are logged: a mark is a text in a sector
 * in front of the partition, which goes to the card past the kernel's cache, so that it lies in the log
 * between what was written before and after it. From then on sleeps are short. The step "old-kernel" lets no
 * space be reserved, as the FAT drivers of old kernels do.
 */
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "tests/vm/card_report.h"

namespace
{

using Args = std::vector<std::string>;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr char k_mount_point[] = "/card";
constexpr int k_largest_frame = 2 << 20;

std::atomic<int> g_step_number{0};
std::atomic<int> g_deadline_s{120};
std::atomic<const char*> g_step_name{""};
int g_playback = -1;
time_t g_playback_start = 0;

constexpr off_t k_mark_offset = 62 * 512;
int g_log = -1; ///< the disk, while its writes are logged
std::atomic<bool> g_reserves_nothing{false};

__attribute__((format(printf, 1, 2))) void Mark(const char* format, ...)
{
    alignas(512) static char sector[512];
    memset(sector, 0, sizeof sector);
    va_list values;
    va_start(values, format);
    vsnprintf(sector, sizeof sector, format, values);
    va_end(values);
    if (g_log >= 0 && pwrite(g_log, sector, sizeof sector, k_mark_offset) != sizeof sector) {
        perror("mark");
        _exit(2);
    }
}

__attribute__((format(printf, 1, 2))) void Report(const char* format, ...)
{
    char text[512];
    va_list values;
    va_start(values, format);
    vsnprintf(text, sizeof text, format, values);
    va_end(values);
    dprintf(STDERR_FILENO, "RESULT %s\n", text);
}

long long Elapsed_ms(Clock::time_point begin)
{
    return std::chrono::duration_cast<milliseconds>(Clock::now() - begin).count();
}

/** Ends the process when one step lasts too long: a call that hangs must not hang its judge. */
void Watch()
{
    int step = -1;
    for (Clock::time_point begin;; sleep(1)) {
        if (step != g_step_number) {
            step = g_step_number;
            begin = Clock::now();
        }
        if (Elapsed_ms(begin) > g_deadline_s * 1000LL) {
            Report("hang step=%s", g_step_name.load());
            _exit(3);
        }
    }
}

unsigned Number(const std::string& text)
{
    return static_cast<unsigned>(strtoul(text.c_str(), nullptr, 10));
}

_ifs_stream_type_ Stream(const std::string& text)
{
    return text == "0" ? IFS_STREAM_MAIN : IFS_STREAM_SUB;
}

int Create(time_t start_s, _ifs_stream_type_ stream, int width = 320)
{
    tm start = Utc_time(start_s);
    return Ifsi_create(&start, 1, 6, width, width * 3 / 4, 25, 1, SAMPLE_RATE_INDEX_44100, 1, 1, stream);
}

/** Write the frames, their times moved. @return how many were refused */
int Write(int fd, Frames& frames, uint64_t later_us = 0, milliseconds pause = milliseconds(0))
{
    int refused = 0;
    for (Footage_frame& frame : frames) {
        const int length = static_cast<int>(frame.bytes.size());
        const int first = length / 3; // in two pieces, as an encoder's ring buffer hands them out
        refused += Ifsi_write(fd, frame.bytes.data(), first, frame.bytes.data() + first, length - first,
                              frame.type, frame.pts_us + later_us) != 0;
        std::this_thread::sleep_for(pause);
    }
    return refused;
}

/* ---- Card ---- */

bool Mount(const Args&)
{
    Mark("phase rebuild");
    const Clock::time_point begin = Clock::now();
    if (Ifsi_mount(k_mount_point) != 0) {
        return false;
    }
    const long long call_ms = Elapsed_ms(begin);
    while (Ifsi_loading_rebuilding_index_file_flag() != 0) {
        usleep(1000);
    }
    const long long ready_ms = Elapsed_ms(begin);
    unsigned long main_files = 0;
    unsigned long sub_files = 0;
    Ifsi_get_file_number(&main_files, &sub_files);
    Mark("phase idle");
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    Report("mount call_ms=%lld ready_ms=%lld main=%lu sub=%lu peak_kib=%ld", call_ms, ready_ms, main_files,
           sub_files, usage.ru_maxrss);
    return true;
}

bool Format(const Args&)
{
    Mark("phase format");
    const Clock::time_point begin = Clock::now();
    const bool done = Ifsi_format() == 0;
    Mark("formatted");
    Report("format ms=%lld", Elapsed_ms(begin));
    return done;
}

bool Unmount(const Args&)
{
    Mark("phase unmount");
    return Ifsi_umount() == 0;
}

bool Info(const Args&)
{
    _ifs_system_info_ info;
    Ifsi_get_system_info(&info);
    Report("info have_card=%d formatted=%d dev_size=%llu total=%llu free=%llu full=%d", info.have_card,
           info.formatted, info.dev_size, info.fs_total_size, info.fs_free_size, Ifsi_is_full());
    return true;
}

bool Count(const Args&)
{
    unsigned long main_files = 0;
    unsigned long sub_files = 0;
    const bool counted = Ifsi_get_file_number(&main_files, &sub_files) == 0;
    Report("count main=%lu sub=%lu", main_files, sub_files);
    return counted;
}

/* ---- Recording ---- */

/** record START MAIN_FRAMES SUB_FRAMES: both streams at once, each in a thread of its own */
bool Record(const Args& args)
{
    int refused[2] = {-1, -1};
    size_t count[2] = {};
    const auto record = [&](_ifs_stream_type_ stream) {
        Frames frames = Load_frames(args[1 + stream]);
        count[stream] = frames.size();
        const int fd = Create(Number(args[0]), stream);
        if (fd > 0) {
            refused[stream] = Write(fd, frames);
            Ifsi_close(fd, nullptr);
        }
    };
    const Clock::time_point begin = Clock::now();
    std::thread sub(record, IFS_STREAM_SUB);
    record(IFS_STREAM_MAIN);
    sub.join();
    Report("record ms=%lld main=%zu sub=%zu refused_main=%d refused_sub=%d", Elapsed_ms(begin), count[0],
           count[1], refused[0], refused[1]);
    return refused[0] == 0 && refused[1] == 0;
}

/** record-for MS START FRAMES: the frames again and again, 200 a second, refused ones too */
bool Record_for(const Args& args)
{
    Frames frames = Load_frames(args[2]);
    const int fd = Create(Number(args[1]), IFS_STREAM_MAIN);
    Report("record-for fd=%d", fd);
    if (fd < 0) {
        return false;
    }
    const Clock::time_point begin = Clock::now();
    int refused = 0;
    int rounds = 0;
    for (; Elapsed_ms(begin) < Number(args[0]); ++rounds) {
        refused += Write(fd, frames, rounds * (frames.back().pts_us + 40000), milliseconds(5));
    }
    Ifsi_close(fd, nullptr);
    Report("record-for ms=%lld frames=%zu refused=%d", Elapsed_ms(begin), rounds * frames.size(), refused);
    return true;
}

/**
 * fill COUNT START SECONDS FRAMES: recordings of main and sub in turn, a pair each SECONDS. One that is
 * refused for want of space is tried again until the overlap has made room.
 */
bool Fill(const Args& args)
{
    Frames frames = Load_frames(args[3]);
    const int count = static_cast<int>(Number(args[0]));
    const Clock::time_point begin = Clock::now();
    int refused_creates = 0;
    int refused_frames = 0;
    long long slowest_create_ms = 0;
    for (int i = 0; i < count; ++i) {
        ++g_step_number; // the deadline is that of one recording
        const time_t start = Number(args[1]) + i / 2 * Number(args[2]);
        const Clock::time_point create = Clock::now();
        int fd;
        while ((fd = Create(start, Stream(std::to_string(i % 2)))) < 0) {
            ++refused_creates;
            if (Elapsed_ms(create) > 30000) {
                Report("fill done=%d refused_creates=%d", i, refused_creates);
                return false;
            }
            usleep(200000);
        }
        slowest_create_ms = std::max(slowest_create_ms, Elapsed_ms(create));
        refused_frames += Write(fd, frames);
        Ifsi_close(fd, nullptr);
    }
    Report("fill done=%d ms=%lld refused_creates=%d refused_frames=%d slowest_create_ms=%lld", count,
           Elapsed_ms(begin), refused_creates, refused_frames, slowest_create_ms);
    return refused_frames == 0;
}

/* ---- Playback ---- */

/** open STREAM START: the playback that the steps read-on, read-for and close use */
bool Open(const Args& args)
{
    g_playback_start = Number(args[1]);
    tm start = Utc_time(g_playback_start);
    g_playback = Ifsi_open_v2(&start, Stream(args[0]));
    return g_playback > 0;
}

/** read-on FRAMES: read to the end; each frame must be the one of the file, with its time */
bool Read_on(const Args& args)
{
    const Frames frames = Load_frames(args[0]);
    std::string buf(k_largest_frame, '\0');
    size_t read = 0;
    size_t different = 0;
    int result;
    for (;; ++read) {
        int payload_offset = 0, payload_len = 0, frame_offset = 0, frame_len = 0, time_s = 0;
        _ifs_frame_type_ type{};
        result = Ifsi_read(g_playback, &buf[0], k_largest_frame, &payload_offset, &payload_len, &frame_offset,
                           &frame_len, &type, &time_s);
        if (result <= 0 || read == frames.size()) {
            break;
        }
        const Footage_frame& frame = frames[read];
        const auto expected_s =
            g_playback_start + static_cast<time_t>((frame.pts_us - frames[0].pts_us) / 1000000);
        different += type != frame.type || time_s != expected_s ||
                     buf.compare(static_cast<size_t>(payload_offset), static_cast<size_t>(payload_len),
                                 frame.bytes) != 0;
    }
    Report("read-on frames=%zu of=%zu different=%zu last=%d", read, frames.size(), different, result);
    return result == 0 && read == frames.size() && different == 0;
}

/** read-for MS: read 200 frames a second, from the start again at each end, behind failures too */
bool Read_for(const Args& args)
{
    std::string buf(k_largest_frame, '\0');
    int failed = 0;
    int read = 0;
    Report("read-for fd=%d", g_playback);
    for (const Clock::time_point begin = Clock::now(); Elapsed_ms(begin) < Number(args[0]); usleep(5000)) {
        _ifs_frame_type_ type{};
        int time_s = 0;
        const int result = Ifsi_read_v2(g_playback, &buf[0], k_largest_frame, &type, &time_s);
        read += result > 0;
        failed += result < 0;
        if (result == 0) {
            Ifsi_tseek(g_playback, 0);
        }
    }
    Report("read-for frames=%d failed=%d", read, failed);
    return true;
}

/** play STREAM START FRAMES */
bool Play(const Args& args)
{
    if (!Open(args)) {
        return false;
    }
    const bool same = Read_on({args[2]});
    return Ifsi_close(g_playback, nullptr) == 0 && same;
}

/* ---- Queries ---- */

/** list STREAM FILE: a line for each recording that a search over all times finds: name, seconds, size */
bool List(const Args& args)
{
    tm from = Utc_time(0);
    tm to = Utc_time(0x7fffffff);
    const int search = Ifsi_find_open(&from, &to, Stream(args[0]));
    if (search < 0) {
        return false;
    }
    std::ofstream file(args[1]);
    _ifs_rec_file_ entry;
    int count = 0;
    for (; Ifsi_find_next(search, 1, &entry) == 1; ++count) {
        char path[128] = "";
        Ifsi_get_file_name(&entry, path);
        file << strrchr(path, '/') + 1 << ' ' << timegm(&entry.end_tm) - timegm(&entry.start_tm) << ' '
             << entry.file_size << '\n';
    }
    const int counted = Ifsi_find_get_count(search);
    Ifsi_find_close(search);
    Report("list stream=%s entries=%d", args[0].c_str(), count);
    return count == counted;
}

/* ---- What power cuts interrupt ---- */

/** A recording that is being made. */
struct Marked_recording {
    const Footage& footage;
    time_t start;
    _ifs_stream_type_ stream;
    int fd = -1;
    size_t frames = 0;
    size_t bytes = 0;

    bool Create()
    {
        Mark("phase create");
        fd = ::Create(start, stream, stream == IFS_STREAM_MAIN ? 320 : 160);
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

/** The streams of a camera: frames of both, half a second of each at a time. */
bool Record_pair(const Footage& main_footage, const Footage& sub_footage, time_t start, unsigned seconds,
                 bool close)
{
    ++g_step_number; // the deadline is that of one pair
    Marked_recording main{main_footage, start, IFS_STREAM_MAIN};
    Marked_recording sub{sub_footage, start, IFS_STREAM_SUB};
    bool done = main.Create() && sub.Create();
    for (uint64_t us = 0; done && us <= seconds * 1000000ULL; us += 500000) {
        done = main.Write_until(us) && sub.Write_until(us);
    }
    if (close) {
        main.Close();
        sub.Close();
    }
    return done;
}

/** pairs MAIN_FRAMES SUB_FRAMES START COUNT SECONDS: pairs of main and sub recordings, a minute apart */
bool Pairs(const Args& args)
{
    const Footage main(args[0]);
    const Footage sub(args[1]);
    bool done = true;
    for (unsigned i = 0; done && i < Number(args[3]); ++i) {
        done = Record_pair(main, sub, Number(args[2]) + 60 * i, Number(args[4]), true);
    }
    return done;
}

/** interrupt MAIN_FRAMES SUB_FRAMES START SECONDS: begin a pair and end the process without closing it */
bool Interrupt(const Args& args)
{
    Record_pair(Footage(args[0]), Footage(args[1]), Number(args[2]), Number(args[3]), false);
    _exit(0);
}

/** overlap-to COUNT: have the oldest recordings deleted until fewer are left */
bool Overlap_to(const Args& args)
{
    constexpr unsigned k_hysteresis = 20;
    Mark("phase overlap");
    gFs_max_file_number = Number(args[0]) + k_hysteresis;
    Ifsi_set_overlap(1);
    Ifsi_init();
    unsigned long main_files = 0;
    unsigned long sub_files = 0;
    do {
        usleep(1000000);
        Ifsi_get_file_number(&main_files, &sub_files);
    } while (main_files + sub_files >= Number(args[0]));
    Ifsi_set_overlap(0);
    Mark("phase idle");
    return true;
}

/** report MAIN_FRAMES SUB_FRAMES: see card_report.h */
bool Report_what_is_there(const Args& args)
{
    return Report_card(k_mount_point, Footage(args[0]), Footage(args[1])) == 0;
}

bool Sync(const Args&)
{
    sync();
    Mark("card synced");
    return true;
}

/** log DISK */
bool Log(const Args& args)
{
    g_log = open(args[0].c_str(), O_RDWR | O_DIRECT | O_CLOEXEC);
    return g_log >= 0;
}

struct Step {
    size_t args;
    std::function<bool(const Args&)> run;
};

const std::map<std::string, Step> k_steps = {
    {"format", {0, Format}},
    {"mount", {0, Mount}},
    {"info", {0, Info}},
    {"count", {0, Count}},
    {"record", {3, Record}},
    {"record-for", {3, Record_for}},
    {"fill", {4, Fill}},
    {"open", {2, Open}},
    {"read-on", {1, Read_on}},
    {"read-for", {1, Read_for}},
    {"play", {3, Play}},
    {"list", {2, List}},
    {"init", {0, [](const Args&) { return Ifsi_init() == 0; }}},
    {"unmount", {0, Unmount}},
    {"log", {1, Log}},
    {"old-kernel", {0, [](const Args&) { return g_reserves_nothing = true; }}},
    {"pairs", {5, Pairs}},
    {"interrupt", {4, Interrupt}},
    {"overlap-to", {1, Overlap_to}},
    {"report", {2, Report_what_is_there}},
    {"sync", {0, Sync}},
    {"close", {0, [](const Args&) { return Ifsi_close(g_playback, nullptr) == 0; }}},
    {"seek", {1, [](const Args& args) { return Ifsi_tseek(g_playback, Number(args[0])) == 0; }}},
    {"overlap", {1, [](const Args& args) { return Ifsi_set_overlap(args[0] != "0") == 0; }}},
    {"limit", {1, [](const Args& args) { return (gFs_max_file_number = Number(args[0])) != 0; }}},
    {"deadline",
     {1, [](const Args& args) { return (g_deadline_s = static_cast<int>(Number(args[0]))) != 0; }}},
    {"sh", {1, [](const Args& args) { return system(args[0].c_str()) == 0; }}},
};

} // namespace

/* While writes are logged, calls of the library and the container are marked, and sleeps are short. */
extern "C" {

int fdatasync(int fd)
{
    Mark("step sync");
    const int result = static_cast<int>(syscall(SYS_fdatasync, fd));
    Mark("step synced");
    return result;
}

int fallocate(int fd, int mode, off_t offset, off_t length)
{
    if (g_reserves_nothing) {
        errno = EOPNOTSUPP;
        return -1;
    }
    using Function = int (*)(int, int, off_t, off_t);
    static const auto next = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "fallocate"));
    return next(fd, mode, offset, length);
}

int remove(const char* path)
{
    const char* slash = strrchr(path, '/');
    Mark("removing %s", slash != nullptr ? slash + 1 : path);
    return unlink(path);
}

int usleep(useconds_t duration)
{
    const useconds_t shown = g_log >= 0 ? duration / 100 : duration;
    const timespec pause = {static_cast<time_t>(shown / 1000000), static_cast<long>(shown % 1000000) * 1000};
    return nanosleep(&pause, nullptr);
}

unsigned sleep(unsigned seconds)
{
    return usleep(seconds * 1000000u) == 0 ? 0 : seconds;
}
}

int main(int argc, char** argv)
{
    setvbuf(stdout, nullptr, _IOLBF, 0);
    Ifsi_set_debug_level(IFS_DEBUG_ERROR | IFS_DEBUG_TRACE);
    std::thread(Watch).detach();
    const Args words(argv + 1, argv + argc);
    for (size_t at = 0; at < words.size();) {
        const bool must_fail = words[at] == "fails";
        at += must_fail;
        const auto step = at < words.size() ? k_steps.find(words[at]) : k_steps.end();
        if (step == k_steps.end() || words.size() - ++at < step->second.args) {
            Report("usage at=%zu", at);
            return 2;
        }
        g_step_name = step->first.c_str();
        ++g_step_number;
        const Args args(words.begin() + static_cast<ptrdiff_t>(at),
                        words.begin() + static_cast<ptrdiff_t>(at + step->second.args));
        if (step->second.run(args) == must_fail) {
            Report("%s step=%s", must_fail ? "succeeded" : "failed", step->first.c_str());
            return 1;
        }
        at += args.size();
    }
    _exit(0); // the workers go on until the process ends
}
