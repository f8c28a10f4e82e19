#include "tools/check_index.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "container/file.h"
#include "tools/failure.h"
#include "tools/results.h"

namespace
{

using ifs_mp4::Fd;

constexpr char header[] = "system_index_v1";
constexpr size_t header_bytes = sizeof header - 1;
constexpr char item_start[] = "ITEM";
constexpr size_t item_start_bytes = sizeof item_start - 1;
constexpr size_t item_bytes = 128;

[[noreturn]] void fail(const char* doing, const std::string& path)
{
    throw Failure(ExitCode::failed, std::string("cannot ") + doing + " '" + path + "': " + strerror(errno));
}

/** Reads the fields of an item one behind the other, little-endian. */
class ItemReader
{
public:
    explicit ItemReader(const char* item) : m_next(item + item_start_bytes) {}

    void byte(unsigned char& value) { value = static_cast<unsigned char>(*m_next++); }
    void skip(size_t bytes) { m_next += bytes; }
    template <typename Word>
    void word(Word& value)
    {
        uint32_t bits = 0;
        for (int i = 0; i < 4; ++i)
            bits |= static_cast<uint32_t>(static_cast<unsigned char>(*m_next++)) << 8 * i;
        value = static_cast<Word>(static_cast<int32_t>(bits));
    }

private:
    const char* m_next;
};

/** Appends the fields of an item, as ItemReader reads them. */
class ItemWriter
{
public:
    explicit ItemWriter(std::string& out) : m_out(out) { m_out += item_start; }

    void byte(unsigned char value) { m_out += static_cast<char>(value); }
    void skip(size_t bytes) { m_out.append(bytes, '\0'); }
    template <typename Word>
    void word(Word value)
    {
        for (int i = 0; i < 4; ++i)
            byte(static_cast<unsigned char>(static_cast<uint32_t>(value) >> 8 * i));
    }

private:
    std::string& m_out;
};

template <typename Fields, typename Time>
void pass_time(Fields& fields, Time& time)
{
    fields.word(time.tm_sec);
    fields.word(time.tm_min);
    fields.word(time.tm_hour);
    fields.word(time.tm_mday);
    fields.word(time.tm_mon);
    fields.word(time.tm_year);
    fields.word(time.tm_wday);
    fields.word(time.tm_yday);
    fields.word(time.tm_isdst);
    fields.word(time.tm_gmtoff);
    fields.skip(4); // the camera's pointer to the zone's name
}

/** Hand each field of an entry to a reader or writer, in the order of the file. */
template <typename Fields, typename Entry>
void pass_entry(Fields& fields, Entry& entry)
{
    pass_time(fields, entry.start_tm);
    pass_time(fields, entry.end_tm);
    fields.byte(entry.video_res);
    fields.byte(entry.video_system);
    fields.byte(entry.frame_rate);
    fields.skip(1);
    fields.word(entry.stream_type);
    fields.word(entry.width);
    fields.word(entry.height);
    fields.word(entry.have_audio);
    fields.word(entry.audio_profile);
    fields.word(entry.audio_sample_rate_index);
    fields.word(entry.audio_channel_conf);
    fields.word(entry.file_size);
}

std::string read_file(int fd, const std::string& path)
{
    std::string bytes;
    char block[65536];
    ssize_t got = 0;
    while ((got = read(fd, block, sizeof block)) > 0)
        bytes.append(block, static_cast<size_t>(got));
    if (got < 0)
        fail("read", path);
    return bytes;
}

void write_durably(const std::string& path, const std::string& bytes)
{
    Fd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!fd)
        fail("create", path);
    if (!write_all(fd.get(), bytes.data(), bytes.size(), "'" + path + "'") || fsync(fd.get()) != 0 ||
        !fd.reset())
        fail("write", path);
}

} // namespace

std::string index_name(_ifs_stream_type_ stream)
{
    return stream == IFS_STREAM_MAIN ? "system_index_main" : "system_index_sub";
}

IndexFile read_index(const std::string& path)
{
    IndexFile index;
    Fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd && errno == ENOENT)
        return index;
    if (!fd)
        fail("open", path);
    index.exists = true;
    const std::string bytes = read_file(fd.get(), path);
    index.header_fits = bytes.compare(0, header_bytes, header) == 0;
    size_t pos = header_bytes;
    for (; pos + item_bytes <= bytes.size(); pos += item_bytes) {
        if (bytes.compare(pos, item_start_bytes, item_start) != 0) {
            ++index.damaged_items;
            continue;
        }
        ItemReader reader(bytes.data() + pos);
        pass_entry(reader, index.entries.emplace_back());
    }
    index.torn_bytes = bytes.size() > pos ? bytes.size() - pos : 0;
    return index;
}

std::string index_image(const std::vector<_ifs_rec_file_>& entries)
{
    std::string bytes = header;
    for (const _ifs_rec_file_& entry : entries) {
        ItemWriter writer(bytes);
        pass_entry(writer, entry);
    }
    return bytes;
}

void write_index(const std::string& path, const std::vector<_ifs_rec_file_>& entries)
{
    const std::string beside = path + ".new";
    try {
        write_durably(beside, index_image(entries));
        if (rename(beside.c_str(), path.c_str()) != 0)
            fail("rename to", path);
    } catch (const Failure&) {
        remove(beside.c_str());
        throw;
    }
    ifs_mp4::sync_folder(ifs_mp4::folder_of(path.c_str()));
}
