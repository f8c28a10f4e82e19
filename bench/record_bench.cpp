/**
 * Records an elementary stream again and again, a file a minute, and tells the processor time that took.
 *
 * Usage: record_bench CARD_FOLDER VIDEO AUDIO MEGABYTES
 * VIDEO is H.264 Annex B at 25 frames per second with access unit delimiters, AUDIO is AAC in ADTS.
 */
#include <sys/resource.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "hostcard.h"
#include "ifs.h"

namespace
{

constexpr uint64_t FRAME_RATE = 25;
constexpr uint64_t SECOND_US = 1000000;
constexpr uint64_t FILE_US = 60 * SECOND_US;
constexpr uint64_t CARD_BYTES = 8ull << 30;
constexpr time_t FIRST_START = 1778328000;

using Bytes = std::vector<char>;

struct Frame {
    _ifs_frame_type_ type;
    char* data;
    int length;
    uint64_t pts_us;
};

struct Cpu_time {
    double user_s;
    double system_s;
};

void Require(bool condition, const char* what)
{
    if (!condition) {
        throw std::runtime_error(what);
    }
}

Bytes Read_file(const char* path)
{
    std::ifstream file(path, std::ios::binary);
    Require(file.is_open(), "cannot read an input file");
    return Bytes(std::istreambuf_iterator<char>(file), {});
}

/** Offsets of the 4-byte start codes of the access unit delimiters. */
std::vector<size_t> Access_units(const Bytes& stream)
{
    const std::string delimiter("\0\0\0\1\x09", 5);
    std::vector<size_t> offsets;
    auto at = stream.begin();
    while ((at = std::search(at, stream.end(), delimiter.begin(), delimiter.end())) != stream.end()) {
        offsets.push_back(static_cast<size_t>(at - stream.begin()));
        at += static_cast<std::ptrdiff_t>(delimiter.size());
    }
    return offsets;
}

bool Is_key_frame(const char* begin, const char* end)
{
    const std::string sequence_parameters("\0\0\0\1\x67", 5);
    return std::search(begin, end, sequence_parameters.begin(), sequence_parameters.end()) != end;
}

std::vector<Frame> Split_video(Bytes& stream)
{
    const std::vector<size_t> offsets = Access_units(stream);
    Require(!offsets.empty(), "no access unit delimiter in the video");
    std::vector<Frame> frames;
    for (size_t i = 0; i < offsets.size(); i++) {
        char* begin = stream.data() + offsets[i];
        char* end = stream.data() + (i + 1 < offsets.size() ? offsets[i + 1] : stream.size());
        frames.push_back({Is_key_frame(begin, end) ? IFS_FRAME_I : IFS_FRAME_P, begin,
                          static_cast<int>(end - begin), i * SECOND_US / FRAME_RATE});
    }
    return frames;
}

std::vector<Frame> Split_audio(Bytes& stream)
{
    constexpr size_t HEADER_BYTES = 7;
    constexpr uint64_t FRAME_US = 1024 * SECOND_US / 16000;
    std::vector<Frame> frames;
    for (size_t at = 0; at + HEADER_BYTES <= stream.size();) {
        const auto* header = reinterpret_cast<const unsigned char*>(&stream[at]);
        const size_t length = (header[3] & 3u) << 11 | header[4] << 3 | header[5] >> 5;
        Require(length >= HEADER_BYTES && length <= stream.size() - at, "the audio is not ADTS");
        frames.push_back({IFS_FRAME_AUDIO, &stream[at], static_cast<int>(length), frames.size() * FRAME_US});
        at += length;
    }
    return frames;
}

/** Both streams' frames in the order of their times; ends with the shorter stream. */
std::vector<Frame> Interleave(const std::vector<Frame>& video, const std::vector<Frame>& audio)
{
    std::vector<Frame> frames;
    const auto earlier = [](const Frame& a, const Frame& b) { return a.pts_us < b.pts_us; };
    std::merge(video.begin(), video.end(), audio.begin(), audio.end(), std::back_inserter(frames), earlier);
    return frames;
}

void Insert_formatted_card(const char* folder)
{
    Require(hostcard_create(folder, CARD_BYTES, 255, 63) == 0, "cannot create the card");
    Require(hostcard_insert(folder) == 0, "cannot insert the card");
    Require(Ifsi_format() == 0, "cannot format the card");
    Require(Ifsi_mount(hostcard_mount_point()) == 0, "cannot mount the card");
    unsigned long main_number, sub_number;
    Ifsi_get_file_number(&main_number, &sub_number); // waits for the catalogue
}

int Create(uint64_t pts_us)
{
    const time_t start = FIRST_START + static_cast<time_t>(pts_us / SECOND_US);
    tm start_tm;
    const int fd = Ifsi_create(gmtime_r(&start, &start_tm), 0, 0, 1920, 1080, FRAME_RATE, 2,
                               SAMPLE_RATE_INDEX_16000, 1, 1, IFS_STREAM_MAIN);
    Require(fd > 0, "cannot create a recording");
    return fd;
}

/** Record the frames in laps until so many bytes are written. @return frames written */
uint64_t Record(const std::vector<Frame>& frames, uint64_t bytes_wanted)
{
    const uint64_t lap_us = frames.back().pts_us + SECOND_US / FRAME_RATE;
    uint64_t written = 0, count = 0, file_start_us = 0;
    int fd = Create(0);
    for (uint64_t lap = 0; written < bytes_wanted; lap++) {
        for (const Frame& frame : frames) {
            const uint64_t pts_us = lap * lap_us + frame.pts_us;
            if (frame.type == IFS_FRAME_I && pts_us >= file_start_us + FILE_US) {
                Ifsi_close(fd, nullptr);
                fd = Create(pts_us);
                file_start_us = pts_us;
            }
            Require(Ifsi_write(fd, frame.data, frame.length, nullptr, 0, frame.type, pts_us) == 0,
                    "cannot write a frame");
            written += static_cast<uint64_t>(frame.length);
            count++;
        }
    }
    Ifsi_close(fd, nullptr);
    return count;
}

Cpu_time Cpu_time_used()
{
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& t) { return static_cast<double>(t.tv_sec) + t.tv_usec / 1e6; };
    return {seconds(usage.ru_utime), seconds(usage.ru_stime)};
}

void Run(const char* folder, const char* video_path, const char* audio_path, double megabytes)
{
    Bytes video = Read_file(video_path);
    Bytes audio = Read_file(audio_path);
    const std::vector<Frame> frames = Interleave(Split_video(video), Split_audio(audio));
    Ifsi_set_debug_level(0);
    Insert_formatted_card(folder);

    const Cpu_time begin = Cpu_time_used();
    const uint64_t count = Record(frames, static_cast<uint64_t>(megabytes * 1e6));
    const Cpu_time end = Cpu_time_used();

    Require(Ifsi_umount() == 0, "cannot unmount the card");
    std::printf("recording: user %.3f s, system %.3f s, %llu frames\n", end.user_s - begin.user_s,
                end.system_s - begin.system_s, static_cast<unsigned long long>(count));
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 5) {
        std::fprintf(stderr, "Usage: %s CARD_FOLDER VIDEO AUDIO MEGABYTES\n", argv[0]);
        return 2;
    }
    try {
        Run(argv[1], argv[2], argv[3], std::atof(argv[4]));
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "record_bench: %s\n", error.what());
        return 1;
    }
}
