// Files that hold more than any camera records.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <new>

#include <malloc.h>
#include <unistd.h>

#include "tests/container/camera.h"

using namespace camera;

namespace
{

size_t heap_in_use = 0;
size_t heap_most = 0;

/** @return memory that it takes to open a file, bytes */
size_t memory_to_open(std::string path, int mode, bool opens)
{
    const size_t before = heap_most = heap_in_use;
    void* file = kt_mp4_open(&path[0], 0, 0, 0, 0, 0, 0, mode, 0, 320, 0);
    EXPECT_EQ(file != nullptr, opens);
    kt_mp4_close(file);
    return heap_most - before;
}

std::string be32(size_t value)
{
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>(value >> shift);
    return bytes;
}

/** A box that ends so many bytes behind its content. */
std::string box(const std::string& type, const std::string& content, size_t more = 0)
{
    return be32(8 + content.size() + more) + type + content;
}

/** A moov with one audio track of another writer; its tables go on for so many bytes behind it. */
std::string audio_moov(const std::string& tables, size_t more = 0)
{
    const std::string esds("\0\0\0\0\3\x19\0\0\0\4\x11\x40\x15\0\0\0\0\0\0\0\0\0\0\0\5\2\x15\x88", 28);
    const std::string stsd =
        box("stsd", be32(0) + be32(1) + box("mp4a", std::string(28, 0) + box("esds", esds)));
    const std::string mdhd = box("mdhd", be32(0) + be32(0) + be32(0) + be32(1000) + be32(0));
    const std::string minf = box("minf", box("stbl", stsd + tables, more), more);
    return box("moov", box("trak", box("mdia", mdhd + minf, more), more), more);
}

/** A fragment of audio samples without bytes; the samples behind its end are all 0. */
std::string empty_samples(size_t sequence, size_t samples, size_t more)
{
    const std::string uuid("\x8c\x1e\x52\x6b\x0f\xd3\x4a\x97\xa4\x2d\x91\x70\xe6\x3b\xc5\x02", 16);
    const std::string order = be32(samples) + std::string(samples / 8, 0);
    const std::string exact = box("uuid", uuid + be32(0) + be32(0) + be32(0) + order);
    const std::string start =
        box("tfhd", be32(0x020000) + be32(2)) + box("tfdt", std::string("\1", 1) + std::string(11, 0));
    const std::string trun =
        box("trun", be32(0x000301) + be32(samples) + std::string(8 * samples - more + 4, 0), more);
    return box("moof", box("mfhd", be32(0) + be32(sequence)) + exact + box("traf", start + trun, more), more);
}

} // namespace

void* operator new(size_t size)
{
    void* memory = malloc(size);
    if (!memory)
        throw std::bad_alloc();
    heap_in_use += malloc_usable_size(memory);
    heap_most = std::max(heap_most, heap_in_use);
    return memory;
}

void operator delete(void* memory) noexcept
{
    heap_in_use -= malloc_usable_size(memory);
    free(memory);
}

void operator delete(void* memory, size_t) noexcept
{
    operator delete(memory);
}

TEST(Limits, ALookAtAnyFileTakesAMebibyteAndWhatIsTooLargeIsNotPlayed)
{
    Folder folder;
    Mp4 recording(folder.file(), KT_MP4_CREATE);
    recording.write(shoot({1}));
    recording.flush();
    const std::string bytes = load(folder.file());
    recording.close();
    const size_t most = memory_to_open(folder.file(), KT_MP4_PROBE, true) + (1 << 20);
    const std::string head = bytes.substr(0, bytes.find("moof") - 4);
    constexpr size_t offsets = 16 << 20;
    const auto save_sparse = [&](const std::string& name, const std::string& start, size_t more) {
        save(folder.file(name), start);
        EXPECT_EQ(truncate(folder.file(name).c_str(), static_cast<off_t>(start.size() + more)), 0);
    };
    save_sparse("offsets",
                audio_moov(box("stsc", be32(0) + be32(1) + be32(1) + be32(1) + be32(1)) +
                               box("stsz", be32(0) + be32(1) + be32(offsets)) +
                               box("stco", be32(0) + be32(offsets), 4 * offsets),
                           4 * offsets),
                4 * offsets);
    save_sparse("samples", head + empty_samples(1, 8 << 20, 64 << 20), 64 << 20);
    for (const char* name : {"offsets", "samples"}) {
        EXPECT_LE(memory_to_open(folder.file(name), KT_MP4_PROBE, true), most) << name;
        EXPECT_LE(memory_to_open(folder.file(name), KT_MP4_READ, false), most) << name;
    }
    std::string fragments = head;
    for (size_t i = 1; i <= 1000; ++i)
        fragments += empty_samples(i, 1024, 0) + box("mdat", "");
    save(folder.file("fragments"), fragments);
    EXPECT_LE(memory_to_open(folder.file("fragments"), KT_MP4_PROBE, true), most);
    EXPECT_EQ(load(folder.file("fragments")), fragments) << "that takes memory";
}

TEST(Limits, SeekAmongManySamplesOfOneSizeIsQuick)
{
    Folder folder;
    constexpr size_t samples = 2000000000;
    save(folder.file(), audio_moov(box("stts", be32(0) + be32(1) + be32(samples) + be32(1)) +
                                   box("stsc", be32(0) + be32(1) + be32(1) + be32(samples) + be32(1)) +
                                   box("stsz", be32(0) + be32(1) + be32(samples)) +
                                   box("stco", be32(0) + be32(1) + be32(0))));
    ASSERT_EQ(truncate(folder.file().c_str(), samples), 0);
    Mp4 file(folder.file(), KT_MP4_READ);
    const std::clock_t begin = std::clock();
    EXPECT_EQ(file.seek(samples - 2), 0);
    EXPECT_LT(std::clock() - begin, CLOCKS_PER_SEC);
    EXPECT_EQ(file.read_all().size(), 2u);
}
