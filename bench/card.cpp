#include "bench/card.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include "bench/media.h"
#include "hostcard.h"
#include "ifs.h"

namespace bench
{
namespace
{

constexpr char INDEX_MAGIC[] = "system_index_v1";

/* A key frame of 16 x 16 pixels with its parameter sets. */
char picture[] = "\0\0\0\1\x67\x42\xc0\x0a\xd9\x1e\xc0\x44\0\0\3\0\4\0\0\3\0\x08\x3c\x48\x99\x20"
                 "\0\0\0\1\x68\xcb\x83\xcb\x20\0\0\1\x65\x88\x84\5\x7c\x98\xa0\0\x20\x5b\x80";

std::string Read(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

void Write(const std::string& path, const std::string& bytes)
{
    std::ofstream file(path, std::ios::binary);
    file << bytes;
    Require(file.flush().good(), "cannot write a file of the card");
}

/** Set the six calendar fields of a time in an index item. */
void Put_time(std::string& item, size_t offset, time_t time)
{
    tm parts;
    gmtime_r(&time, &parts);
    for (const int field :
         {parts.tm_sec, parts.tm_min, parts.tm_hour, parts.tm_mday, parts.tm_mon, parts.tm_year}) {
        for (int byte = 0; byte < 4; ++byte) {
            item[offset++] = static_cast<char>(static_cast<unsigned>(field) >> (8 * byte));
        }
    }
}

void Write_index(const std::string& path, std::string item, int recordings, bool sub)
{
    constexpr size_t START = 4, END = 48, STREAM = 96;
    std::string index = INDEX_MAGIC;
    item[STREAM] = sub ? 1 : 0;
    for (int i = 0; i < recordings / 2; ++i) {
        Put_time(item, START, FIRST_START + i * RECORDING_S);
        Put_time(item, END, FIRST_START + (i + 1) * RECORDING_S - 1);
        index += item;
    }
    Write(path, index);
}

std::vector<std::string> In_order(std::vector<std::string> names, Order order)
{
    if (order == Order::ROTATED) {
        std::rotate(names.begin(), names.begin() + static_cast<std::ptrdiff_t>(names.size() * 2 / 3),
                    names.end());
    } else if (order == Order::SHUFFLED) {
        std::shuffle(names.begin(), names.end(), std::mt19937(1));
    }
    return names;
}

std::vector<std::string> Listing(const std::string& folder)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.push_back(entry.path().filename());
    }
    return names;
}

/** Make files so that the folder lists them in this order. */
void Make_files(const std::string& folder, std::vector<std::string> names, const std::string& content)
{
    const std::vector<std::string> wanted = names;
    std::reverse(names.begin(), names.end()); // a file system in memory lists the newest first
    for (const std::string& name : names) {
        Write(folder + "/" + name, content);
    }
    if (Listing(folder) != wanted) {
        std::fprintf(
            stderr,
            "%s does not list the newest file first, so the directory's order is the file system's own\n",
            folder.c_str());
    }
}

void Read_whole(const std::string& path)
{
    static std::array<char, 65536> buffer;
    const int fd = open(path.c_str(), O_RDONLY);
    Require(fd >= 0, "cannot read an index file");
    while (read(fd, buffer.data(), buffer.size()) > 0) {
    }
    close(fd);
}

} // namespace

Card::Card(const std::string& folder, unsigned long long bytes)
{
    const bool blank = !std::filesystem::exists(folder);
    Require(!blank || hostcard_create(folder.c_str(), bytes, 255, 63) == 0, "cannot create the card");
    Require(hostcard_insert(folder.c_str()) == 0, "cannot insert the card");
    hostcard_scale_sleep(0);
    Require(!blank || Ifsi_format() == 0, "cannot format the card");
}

Card::~Card()
{
    Ifsi_umount();
    hostcard_eject();
}

void Card::Mount() const
{
    Require(Ifsi_mount(hostcard_mount_point()) == 0, "cannot mount the card");
}

void Card::Unmount() const
{
    Require(Ifsi_umount() == 0, "cannot unmount the card");
}

void Card::Mount_without_library() const
{
    Require(mount("/dev/hd/sda1", hostcard_mount_point(), "vfat", 0, nullptr) == 0, "cannot mount the card");
}

void Card::Unmount_without_library() const
{
    Require(umount(hostcard_mount_point()) == 0, "cannot unmount the card");
}

unsigned long Card::Wait() const
{
    unsigned long main_number = 0, sub_number = 0;
    Require(Ifsi_get_file_number(&main_number, &sub_number) == 0, "the card is not mounted");
    return main_number + sub_number;
}

std::string Card::Path(const std::string& name) const
{
    return std::string(hostcard_mount_point()) + "/" + name;
}

void Card::Read_directory_and_indexes() const
{
    DIR* directory = opendir(Path("").c_str());
    Require(directory != nullptr, "cannot list the card");
    while (readdir(directory) != nullptr) {
    }
    closedir(directory);
    Read_whole(Path(MAIN_INDEX));
    Read_whole(Path(SUB_INDEX));
}

size_t Search(time_t begin, time_t end)
{
    static std::array<_ifs_rec_file_, 100> portion;
    tm begin_tm, end_tm;
    const int handle = Ifsi_find_open(gmtime_r(&begin, &begin_tm), gmtime_r(&end, &end_tm), IFS_STREAM_MAIN);
    Require(handle > 0, "cannot search");
    size_t count = 0;
    while (const int got = Ifsi_find_next(handle, static_cast<int>(portion.size()), portion.data())) {
        count += static_cast<size_t>(got);
    }
    Ifsi_find_close(handle);
    return count;
}

std::vector<std::string> Recording_names(int recordings)
{
    std::vector<std::string> names;
    for (int i = 0; i < recordings / 2; ++i) {
        const time_t start = FIRST_START + i * RECORDING_S;
        tm parts;
        char name[32];
        strftime(name, sizeof name, "Rec_%Y%m%d_%H%M%S_000_", gmtime_r(&start, &parts));
        names.push_back(std::string(name) + "M.mp4");
        names.push_back(std::string(name) + "S.mp4");
    }
    return names;
}

Sample_recording Make_sample_recording(const std::string& folder)
{
    Card card(folder);
    card.Mount();
    const int fd = Create_recording(FIRST_START);
    for (uint64_t i = 0; i < 2 * FRAME_RATE; ++i) {
        Require(Ifsi_write(fd, picture, sizeof picture - 1, nullptr, 0, IFS_FRAME_I,
                           i * SECOND_US / FRAME_RATE) == 0,
                "cannot write a frame");
    }
    Ifsi_close(fd, nullptr);
    return {Read(card.Path(Recording_names(2).front())),
            Read(card.Path(MAIN_INDEX)).substr(sizeof INDEX_MAGIC - 1)};
}

void Make_full_card(const std::string& folder, int recordings, Order order, const std::string& content)
{
    const Sample_recording sample = Make_sample_recording(folder + ".sample");
    const Card card(folder);
    const std::string files = hostcard_mount_point();
    Make_files(files, In_order(Recording_names(recordings), order), content);
    Write_index(files + "/" + MAIN_INDEX, sample.index_item, recordings, false);
    Write_index(files + "/" + SUB_INDEX, sample.index_item, recordings, true);
}

} // namespace bench
