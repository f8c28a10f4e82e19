/** Playing recordings, and opening a long one at a time. */
extern "C" {
#include <libavformat/avformat.h>
}

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <memory>

#include "bench/bench.h"
#include "bench/card.h"
#include "bench/media.h"

namespace bench
{
namespace
{

constexpr int FILES = 5; ///< of a minute each, 150 MB together
constexpr int MINUTE_S = 60;
constexpr time_t LONG_START = FIRST_START + 100000;

struct Close_format {
    void operator()(AVFormatContext* format) const { avformat_close_input(&format); }
};
using Format = std::unique_ptr<AVFormatContext, Close_format>;

double Cpu_seconds(const std::function<void()>& function)
{
    const auto used = [] {
        rusage usage;
        getrusage(RUSAGE_SELF, &usage);
        const auto seconds = [](const timeval& t) { return static_cast<double>(t.tv_sec) + t.tv_usec / 1e6; };
        return seconds(usage.ru_utime) + seconds(usage.ru_stime);
    };
    const double begin = used();
    function();
    return used() - begin;
}

std::string Name_of(time_t start)
{
    tm parts;
    char name[32];
    strftime(name, sizeof name, "Rec_%Y%m%d_%H%M%S_000_M.mp4", gmtime_r(&start, &parts));
    return name;
}

void Record(const Media& media, time_t start, int length_s)
{
    const int fd = Create_recording(start);
    Write_frames(fd, media, static_cast<uint64_t>(length_s) * SECOND_US);
    Ifsi_close(fd, nullptr);
}

/** A mounted card with the minutes to play and recordings of 1, 10, 30 and 60 minutes; made at first use. */
std::shared_ptr<Card> Card_with_recordings(const Folders& folders)
{
    const std::string folder = folders.disk + "/playback";
    const bool blank = !std::filesystem::exists(folder);
    auto card = std::make_shared<Card>(folder);
    card->Mount();
    card->Wait();
    if (blank) {
        const Media main = Load_media(folders.media, "main");
        for (int i = 0; i < FILES; ++i) {
            Record(main, FIRST_START + i * MINUTE_S, MINUTE_S);
        }
        const Media sub = Load_media(folders.media, "sub");
        for (const int minutes : {1, 10, 30, 60}) {
            Record(sub, LONG_START + minutes * 10000, minutes * MINUTE_S);
        }
    }
    return card;
}

void Play(time_t start)
{
    const int fd = Open_recording(start);
    while (Read_frame(fd) > 0) {
    }
    Ifsi_close(fd, nullptr);
}

void Play_all()
{
    for (int i = 0; i < FILES; ++i) {
        Play(FIRST_START + i * MINUTE_S);
    }
}

Format Open_format(const std::string& path)
{
    AVFormatContext* format = nullptr;
    Require(avformat_open_input(&format, path.c_str(), nullptr, nullptr) == 0,
            "libavformat cannot open a recording");
    return Format(format);
}

void Demux_all(const Card& card)
{
    const std::unique_ptr<AVPacket, void (*)(AVPacket*)> packet(av_packet_alloc(),
                                                                [](AVPacket* p) { av_packet_free(&p); });
    for (int i = 0; i < FILES; ++i) {
        const Format format = Open_format(card.Path(Name_of(FIRST_START + i * MINUTE_S)));
        while (av_read_frame(format.get(), packet.get()) == 0) {
            av_packet_unref(packet.get());
        }
    }
}

/** As cat does, into the same buffer again and again. */
void Read_all(const Card& card)
{
    static std::array<char, 131072> buffer;
    for (int i = 0; i < FILES; ++i) {
        const int fd = open(card.Path(Name_of(FIRST_START + i * MINUTE_S)).c_str(), O_RDONLY);
        Require(fd >= 0, "cannot read a recording");
        while (read(fd, buffer.data(), buffer.size()) > 0) {
        }
        close(fd);
    }
}

void Open_and_seek(time_t start, int target_s)
{
    const int fd = Open_recording(start);
    Require(Ifsi_tseek(fd, static_cast<unsigned>(start) + static_cast<unsigned>(target_s)) == 0,
            "cannot seek");
    Require(Read_frame(fd) > 0, "there is no frame");
    Ifsi_close(fd, nullptr);
}

void Open_and_seek_format(const std::string& path, int target_s)
{
    const std::unique_ptr<AVPacket, void (*)(AVPacket*)> packet(av_packet_alloc(),
                                                                [](AVPacket* p) { av_packet_free(&p); });
    const Format format = Open_format(path);
    Require(av_seek_frame(format.get(), -1, int64_t{target_s} * AV_TIME_BASE, AVSEEK_FLAG_BACKWARD) >= 0 &&
                av_read_frame(format.get(), packet.get()) == 0,
            "libavformat cannot seek");
}

} // namespace

void Register_playback(const Folders& folders)
{
    const auto card = [=] { return Card_with_recordings(folders); };
    const auto registered = [=](Role role, const std::function<void(const Card&)>& work) {
        Register("play", "play", role, 0, 3, [=]() -> Run {
            return [inserted = card(), work] { return Cpu_seconds([&] { work(*inserted); }); };
        });
    };
    registered(Role::OURS, [](const Card&) { Play_all(); });
    registered(Role::PEER, Demux_all);
    registered(Role::LIMIT, Read_all);
    for (const int minutes : {1, 10, 30, 60}) {
        const time_t start = LONG_START + minutes * 10000;
        const int target_s = minutes * MINUTE_S * 4 / 5;
        Register("play", "play by length", Role::OURS, minutes, 3, [=]() -> Run {
            return [inserted = card(), start] { return Cpu_seconds([&] { Play(start); }); };
        });
        Register("seek", "open and seek", Role::OURS, minutes, 50, [=]() -> Run {
            return [inserted = card(), start, target_s] {
                return Seconds([&] { Open_and_seek(start, target_s); });
            };
        });
        Register("seek", "open and seek", Role::PEER, minutes, 20, [=]() -> Run {
            return [inserted = card(), start, target_s] {
                const std::string path = inserted->Path(Name_of(start));
                return Seconds([&] { Open_and_seek_format(path, target_s); });
            };
        });
    }
}

} // namespace bench
