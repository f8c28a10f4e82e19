#include "tests/vm/card_report.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace
{

constexpr int k_largest_frame = 2 << 20;
constexpr int k_most_bad_reads = 3; // one behind the other
constexpr size_t k_most_missing = 1000;

struct Played {
    size_t frames = 0;
    size_t same = 0;
    size_t missing = 0;
    int bad = 0;
    unsigned long long video_ms = 0;
};

Played Play(_ifs_rec_file_& entry, const Footage& footage)
{
    static char buf[k_largest_frame];
    Played played;
    const time_t start = timegm(&entry.start_tm);
    const int fd = Ifsi_open(&entry);
    if (fd < 0) {
        played.bad = 1;
        return played;
    }
    for (int bad_reads = 0; bad_reads < k_most_bad_reads;) {
        int payload_offset = 0, payload_len = 0, frame_offset = 0, frame_len = 0, time_s = 0;
        _ifs_frame_type_ type{};
        const int result = Ifsi_read(fd, buf, sizeof buf, &payload_offset, &payload_len, &frame_offset,
                                     &frame_len, &type, &time_s);
        if (result == 0) {
            break;
        }
        if (result < 0) {
            ++bad_reads;
            ++played.bad;
            continue;
        }
        bad_reads = 0;
        ++played.frames;
        const std::string bytes(buf + payload_offset, static_cast<size_t>(payload_len));
        const size_t next = played.same + played.missing;
        for (size_t number = next; number <= next + k_most_missing; ++number) {
            const Footage_frame frame = footage.Frame(start, entry.stream_type, number);
            if (type == frame.type && bytes == frame.bytes) {
                ++played.same;
                played.missing += number - next;
                played.video_ms = type != IFS_FRAME_AUDIO ? frame.pts_us / 1000 : played.video_ms;
                break;
            }
        }
    }
    Ifsi_close(fd, nullptr);
    return played;
}

void Report_stream(_ifs_stream_type_ stream, const Footage& footage)
{
    tm from = Utc_time(0);
    tm to = Utc_time(0x7fffffff);
    const int search = Ifsi_find_open(&from, &to, stream);
    _ifs_rec_file_ entry;
    while (Ifsi_find_next(search, 1, &entry) == 1) {
        char path[128] = "";
        Ifsi_get_file_name(&entry, path);
        const Played played = Play(entry, footage);
        fprintf(stderr, "recording %s seconds=%lld frames=%zu same=%zu missing=%zu video_ms=%llu bad=%d\n",
                strrchr(path, '/') + 1,
                static_cast<long long>(timegm(&entry.end_tm) - timegm(&entry.start_tm)), played.frames,
                played.same, played.missing, played.video_ms, played.bad);
    }
    Ifsi_find_close(search);
}

} // namespace

int Report_card(const char* mount_point, const Footage& main_footage, const Footage& sub_footage)
{
    if (Ifsi_mount(mount_point) != 0) {
        fprintf(stderr, "not mounted\n");
        return 1;
    }
    unsigned long main_files = 0;
    unsigned long sub_files = 0;
    Ifsi_get_file_number(&main_files, &sub_files); // waits for the catalogue
    fprintf(stderr, "mounted main=%lu sub=%lu\n", main_files, sub_files);
    Report_stream(IFS_STREAM_MAIN, main_footage);
    Report_stream(IFS_STREAM_SUB, sub_footage);
    return Ifsi_umount() == 0 ? 0 : 1;
}
