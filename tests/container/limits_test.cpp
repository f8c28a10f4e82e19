// Files that hold more than any camera records.
#include <gtest/gtest.h>

#include <ctime>

#include <unistd.h>

#include "tests/container/camera.h"

using namespace camera;

namespace
{

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

} // namespace

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
