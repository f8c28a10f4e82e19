#include "scripts/witness_host/report.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/types.h>
#include <unistd.h>
#include <vector>

namespace
{

std::string read_file(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void say_hex(const std::string& bytes, size_t begin, size_t end)
{
    std::string hex;
    for (size_t i = begin; i < std::min(end, bytes.size()); i++) {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(bytes[i]));
        hex += digits;
    }
    say("    %s", hex.c_str());
}

/** A line for the first bytes of an index file and one for each item. */
void say_index(const std::string& bytes)
{
    constexpr size_t magic_bytes = 15, item_bytes = 128;
    say_hex(bytes, 0, magic_bytes);
    for (size_t at = magic_bytes; at < bytes.size(); at += item_bytes)
        say_hex(bytes, at, at + item_bytes);
}

void say_file(const std::filesystem::path& path)
{
    const std::string name = path.filename();
    if (!std::filesystem::is_regular_file(path)) {
        say("file %s: a folder", name.c_str());
        return;
    }
    const std::string bytes = read_file(path);
    say("file %s: %zu bytes, %016llx", name.c_str(), bytes.size(),
        static_cast<unsigned long long>(checksum(bytes.data(), bytes.size())));
    if (name.rfind("system_index", 0) == 0)
        say_index(bytes);
}

/** Checksum of the written blocks of a file from an offset on that are not all zero. */
uint64_t add_blocks(int fd, off64_t from, off64_t to, uint64_t sum)
{
    constexpr off64_t block_bytes = 4096;
    char block[block_bytes];
    for (off64_t at = from / block_bytes * block_bytes; at < to; at += block_bytes) {
        const ssize_t count = pread64(fd, block, sizeof block, at);
        if (count <= 0 || std::all_of(block, block + count, [](char c) { return c == 0; }))
            continue;
        sum = checksum(&at, sizeof at, sum);
        sum = checksum(block, static_cast<size_t>(count), sum);
    }
    return sum;
}

} // namespace

void say(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::printf("> ");
    std::vprintf(format, arguments);
    std::putchar('\n');
    va_end(arguments);
}

std::string text(const tm& t)
{
    char text[160];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d (%d %d %d %ld)", t.tm_year + 1900,
                  t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec, t.tm_wday, t.tm_yday, t.tm_isdst,
                  t.tm_gmtoff);
    return text;
}

std::string text(const _ifs_rec_file_& rec)
{
    char rest[200];
    std::snprintf(rest, sizeof rest, ", stream %d, %d %d, %d/s, %d x %d, audio %d %d %d %d, %d bytes",
                  static_cast<int>(rec.stream_type), rec.video_res, rec.video_system, rec.frame_rate,
                  rec.width, rec.height, rec.have_audio, rec.audio_profile, rec.audio_sample_rate_index,
                  rec.audio_channel_conf, rec.file_size);
    return text(rec.start_tm) + " to " + text(rec.end_tm) + rest;
}

void clear_pointer_and_padding(tm& t)
{
    tm clear;
    memset(&clear, 0, sizeof clear);
    for (int tm::*const field : {&tm::tm_sec, &tm::tm_min, &tm::tm_hour, &tm::tm_mday, &tm::tm_mon,
                                 &tm::tm_year, &tm::tm_wday, &tm::tm_yday, &tm::tm_isdst})
        clear.*field = t.*field;
    clear.tm_gmtoff = t.tm_gmtoff;
    memcpy(&t, &clear, sizeof t);
}

uint64_t checksum(const void* bytes, size_t size, uint64_t before)
{
    uint64_t sum = before;
    for (size_t i = 0; i < size; i++)
        sum = (sum ^ static_cast<const unsigned char*>(bytes)[i]) * 0x100000001b3;
    return sum;
}

void say_files(const std::string& folder)
{
    std::vector<std::filesystem::path> paths(std::filesystem::directory_iterator(folder),
                                             std::filesystem::directory_iterator{});
    std::sort(paths.begin(), paths.end());
    for (const std::filesystem::path& path : paths)
        say_file(path);
}

void say_image(const std::string& path)
{
    const int fd = open64(path.c_str(), O_RDONLY | O_CLOEXEC);
    uint64_t sum = checksum_of_nothing;
    for (off64_t end = 0;;) {
        const off64_t begin = lseek64(fd, end, SEEK_DATA);
        if (begin < 0)
            break;
        end = lseek64(fd, begin, SEEK_HOLE);
        sum = add_blocks(fd, begin, end, sum);
    }
    ::close(fd);
    say("image: %016llx", static_cast<unsigned long long>(sum));
}
