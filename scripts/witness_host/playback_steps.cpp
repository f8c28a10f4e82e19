#include <climits>
#include <cstring>

#include "ifs_legacy.h"
#include "scripts/witness_host/report.h"
#include "scripts/witness_host/run.h"

namespace
{

constexpr int buffer_bytes = 1 << 16;
constexpr int head_bytes = 39; // that a buffer holds beside the frame

char* buffer()
{
    static char bytes[buffer_bytes];
    return bytes;
}

void say_record(const char* what, const void* record, size_t size)
{
    say("%s: %016llx", what, static_cast<unsigned long long>(checksum(record, size)));
}

} // namespace

void Run::opened(int fd, const tm& start, bool legacy)
{
    say("open%s: %d", legacy ? " (legacy)" : "", fd);
    if (fd > 0)
        m_handles.push_back({fd, false, true, start, 0, 0});
}

void Run::open()
{
    for (int left = m_hoards ? m_random.between(1, 12) : 1; left > 0; left--) {
        _ifs_rec_file_ rec = some_entry();
        opened(Ifsi_open(&rec), rec.start_tm, false);
    }
}

void Run::open_by_time()
{
    tm t = some_time();
    const _ifs_stream_type_ stream = some_stream();
    const bool legacy = m_random.chance(15);
    opened(legacy ? rec_open(m_random.between(0, 1), &t, stream) : Ifsi_open_v2(&t, stream), t, legacy);
    if (m_random.chance(60))
        stat();
}

/** Look which recording a time leads to, without keeping it open. */
void Run::open_much()
{
    Ifsi_set_debug_level(0);
    for (unsigned left = 30; left > 0; left--) {
        tm t = some_time();
        const int fd = Ifsi_open_v2(&t, m_random.chance(80) ? IFS_STREAM_SUB : IFS_STREAM_MAIN);
        say("open %s: %d", text(t).c_str(), fd);
        if (fd > 0)
            Ifsi_close(fd, nullptr);
    }
    Ifsi_set_debug_level(m_level);
}

void Run::open_by_name()
{
    const std::vector<std::string>& names = m_population->names();
    std::string name = names.empty() ? "Rec_20260509_120000_061_M.mp4" : m_random.one_of(names);
    const unsigned kind = m_random.below(10);
    if (kind < 4)
        name.insert(0, m_random.one_of({m_files + "/", std::string("/nowhere/"), std::string("./x/")}));
    else if (kind == 4)
        name = damaged(name, m_random);
    const tm start = some_start();
    opened(Ifsi_open_v3(name.data()), start, false);
}

void Run::stat()
{
    const int fd = some_handle(m_random.chance(30)).fd;
    _ifs_rec_file_ rec{};
    rec.file_size = -7;
    const int result = Ifsi_stat(fd, &rec);
    say("stat %d: %d, %s", fd, result, text(rec).c_str());
    if (!m_random.chance(30))
        return;
    record_info_t info;
    memset(&info, 0x5A, sizeof info);
    const int old_result = rec_stat(fd, &info);
    clear_pointer_and_padding(info.start_tm);
    clear_pointer_and_padding(info.end_tm);
    say("legacy stat: %d", old_result);
    say_record("record", &info, sizeof info);
}

/** Read a frame and print it. @return the call's result */
int Run::read_one(int fd, int size, bool moved)
{
    int payload_offset = -7, payload_len = -7, frame_offset = -7, frame_len = -7, time = -7;
    auto type = static_cast<_ifs_frame_type_>(-7);
    memset(buffer(), 0x5A, 4096);
    const int result = moved ? Ifsi_read_v2(fd, buffer(), size, &type, &time)
                             : Ifsi_read(fd, buffer(), size, &payload_offset, &payload_len, &frame_offset,
                                         &frame_len, &type, &time);
    const char* const frame = buffer() + (frame_offset > 0 ? frame_offset : 0);
    say("read %d: %d, %d %d %d %d, type %d, time %d, %016llx", fd, result, payload_offset, payload_len,
        frame_offset, frame_len, static_cast<int>(type), time,
        static_cast<unsigned long long>(result > 0 ? checksum(frame, static_cast<size_t>(result)) : 0));
    return result;
}

void Run::read()
{
    const int fd = some_handle(false).fd;
    const int size = m_random.chance(85) ? buffer_bytes : m_random.one_of({0, -1, 38, 39, 40, 60, 120});
    const bool moved = m_random.chance(30);
    for (unsigned left = 1 + m_random.below(4); left > 0; left--)
        if (read_one(fd, size, moved) <= 0)
            return;
}

void Run::read_all()
{
    const int fd = some_handle(false).fd;
    for (unsigned left = 200; left > 0; left--)
        if (read_one(fd, buffer_bytes, false) <= 0)
            return;
}

void Run::read_at_bound()
{
    const Handle handle = some_handle(false);
    say("tseek: %d", Ifsi_tseek(handle.fd, 0));
    const int frame_bytes = read_one(handle.fd, buffer_bytes, false);
    Ifsi_tseek(handle.fd, 0);
    for (const int size : {frame_bytes, frame_bytes + m_random.between(-8, 8), frame_bytes + head_bytes})
        read_one(handle.fd, size, false);
}

void Run::read_standard()
{
    const int fd = some_handle(m_random.chance(10)).fd;
    const int size = m_random.one_of({1, 16, 500, 4000, 0});
    const int result = Ifsi_read_standard(fd, buffer(), size);
    say("read standard %d: %d, %016llx", fd, result,
        static_cast<unsigned long long>(result > 0 ? checksum(buffer(), static_cast<size_t>(result)) : 0));
}

void Run::seek()
{
    const int fd = some_handle(m_random.chance(10)).fd;
    const long offset = m_random.one_of({0L, 10L, -10L, 100000L, 0x7FFFFFFFL, 0x100000005L, -1L});
    say("seek %d: %d", fd, Ifsi_seek(fd, offset, m_random.between(0, 3)));
}

void Run::tseek()
{
    Handle handle = some_handle(m_random.chance(10));
    const auto start = static_cast<unsigned>(timegm(&handle.start));
    const unsigned time = m_random.chance(80)
                              ? start + static_cast<unsigned>(m_random.between(-3, 15))
                              : m_random.one_of({0u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu, start + 5000000});
    if (m_random.chance(85)) {
        say("tseek %d: %d", handle.fd, Ifsi_tseek(handle.fd, time));
    } else {
        int out = -7;
        const int result = rec_tseek(handle.fd, time, 5, &out);
        say("tseek (legacy) %d: %d, %d", handle.fd, result, out);
    }
    if (m_random.chance(60))
        read_one(handle.fd, buffer_bytes, false);
}

void Run::file_name()
{
    char path[128] = "untouched";
    if (m_random.chance(40)) {
        _ifs_rec_file_ rec = some_entry();
        const int result = Ifsi_get_file_name(&rec, path);
        say("file name: %d, %s", result, path);
        return;
    }
    tm t = some_time();
    const _ifs_stream_type_ stream = some_stream();
    const int result =
        m_random.chance(20) ? rec_get_file_name(&t, stream, path) : Ifsi_get_file_name_v2(&t, stream, path);
    say("file name by time: %d, %s", result, path);
}
