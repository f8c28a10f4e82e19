#include "tests/interface/card_test.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace
{

const std::string k_parameter_sets = Bytes(R"(
    00 00 00 01 67 42 c0 0d da 05 07 ec 04 40 00 00 03 00 40 00 00 0c 83 c5 0a a8    # SPS, 320x240
    00 00 00 01 68 ce 0f c8                                                          # PPS
)");

std::string Read_at(const std::string& path, size_t offset, size_t bytes)
{
    std::ifstream file(path, std::ios::binary);
    std::string text(bytes, '\0');
    file.seekg(static_cast<std::streamoff>(offset));
    file.read(text.data(), static_cast<std::streamsize>(bytes));
    text.resize(static_cast<size_t>(file.gcount()));
    return text;
}

} // namespace

std::string Video_frame(bool key, size_t bytes)
{
    const std::string slice = Bytes(key ? "00 00 00 01 65" : "00 00 00 01 41") + std::string(bytes, '\x55');
    return key ? k_parameter_sets + slice : slice;
}

void CardTest::SetUp()
{
    std::string folder = testing::TempDir() + "ifs-card-XXXXXX";
    ASSERT_NE(mkdtemp(folder.data()), nullptr);
    m_folder = folder;
    Insert_blank();
    Ifsi_set_debug_level(IFS_DEBUG_ERROR);
    ASSERT_EQ(Ifsi_format(), 0);
    Mount();
}

void CardTest::TearDown()
{
    Ifsi_set_debug_level(0);
    hostcard_fail_none();
    EXPECT_EQ(Ifsi_umount(), 0) << "the test left something open";
    Ifsi_set_debug_level(0xFFFFFFFF);
    hostcard_eject();
    std::filesystem::remove_all(m_folder);
}

void CardTest::Insert_blank(unsigned long long bytes, unsigned heads, unsigned sectors)
{
    hostcard_eject();
    std::filesystem::remove_all(m_folder);
    ASSERT_EQ(hostcard_create(m_folder.c_str(), bytes, heads, sectors), 0);
    ASSERT_EQ(hostcard_insert(m_folder.c_str()), 0);
    hostcard_scale_sleep(0.001);
    m_files = hostcard_mount_point();
}

void CardTest::Mount()
{
    ASSERT_EQ(Ifsi_mount(m_files.c_str()), 0);
    Counts(); // waits for the catalogue
}

void CardTest::Remount()
{
    ASSERT_EQ(Ifsi_umount(), 0);
    Mount();
}

int CardTest::Create(tm start, int stream)
{
    return Ifsi_create(&start, 1, 6, 320, 240, 25, 2, SAMPLE_RATE_INDEX_8000, 1, 0,
                       static_cast<_ifs_stream_type_>(stream));
}

void CardTest::Write_seconds(int fd, int seconds)
{
    for (int second = 0; second < seconds; ++second) {
        std::string frame = Video_frame(second == 0);
        ASSERT_EQ(Ifsi_write(fd, frame.data(), static_cast<int>(frame.size()), nullptr, 0,
                             second == 0 ? IFS_FRAME_I : IFS_FRAME_P, second * 1000000ULL),
                  0);
    }
}

void CardTest::Record_until(tm start, tm end, int stream, int seconds)
{
    const int fd = Create(start, stream);
    EXPECT_GT(fd, 0);
    Write_seconds(fd, seconds);
    Ifsi_close(fd, &end);
}

std::string CardTest::Record(tm start, int seconds, int stream)
{
    tm end = start;
    end.tm_sec += seconds;
    Record_until(start, end, stream, seconds);
    char path[128];
    EXPECT_EQ(Ifsi_get_file_name_v2(&start, static_cast<_ifs_stream_type_>(stream), path), 0);
    return std::filesystem::path(path).filename();
}

int CardTest::Play(tm start, int stream)
{
    return Ifsi_open_v2(&start, static_cast<_ifs_stream_type_>(stream));
}

int CardTest::Find(int stream, tm from, tm to)
{
    return Ifsi_find_open(&from, &to, static_cast<_ifs_stream_type_>(stream));
}

std::vector<_ifs_rec_file_> CardTest::Search(int stream, tm from, tm to)
{
    const int search = Find(stream, from, to);
    std::vector<_ifs_rec_file_> found(static_cast<size_t>(Ifsi_find_get_count(search)) + 1);
    found.resize(static_cast<size_t>(Ifsi_find_next(search, static_cast<int>(found.size()), found.data())));
    Ifsi_find_close(search);
    return found;
}

std::string CardTest::Starts(int stream)
{
    std::string starts;
    for (const _ifs_rec_file_& rec : Search(stream)) {
        starts += (starts.empty() ? "" : " ") + Text(rec.start_tm).substr(11);
    }
    return starts;
}

std::string CardTest::Counts()
{
    unsigned long main_number = 0;
    unsigned long sub_number = 0;
    Ifsi_get_file_number(&main_number, &sub_number);
    return std::to_string(main_number) + " " + std::to_string(sub_number);
}

CardTest::Frame CardTest::Read(int fd, int capacity)
{
    Frame frame{0, IFS_FRAME_I, 0, std::string(static_cast<size_t>(capacity), '\xee')};
    frame.length = Ifsi_read_v2(fd, frame.bytes.data(), capacity, &frame.type, &frame.time);
    frame.bytes.resize(static_cast<size_t>(std::max(frame.length, 0)));
    return frame;
}

bool CardTest::Exists(const std::string& name)
{
    return std::filesystem::exists(m_files + "/" + name);
}

std::string CardTest::File(const std::string& name)
{
    return Read_at(m_files + "/" + name, 0, std::filesystem::file_size(m_files + "/" + name));
}

void CardTest::Put_file(const std::string& name, const std::string& bytes)
{
    std::ofstream(m_files + "/" + name, std::ios::binary) << bytes;
}

std::string CardTest::Image(size_t offset, size_t bytes)
{
    return Read_at(m_folder + "/card.img", offset, bytes);
}
