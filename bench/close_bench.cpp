/** The end of a one-minute recording, on cards with more and more recordings. */
#include <unistd.h>

#include <memory>

#include "bench/bench.h"
#include "bench/card.h"
#include "bench/media.h"
#include "kt_mp4.h"

namespace bench
{
namespace
{

constexpr uint64_t MINUTE_US = 60 * SECOND_US;

/** The start of the next recording on any card, behind all that are catalogued. */
time_t Next_start()
{
    static time_t next = FIRST_START + 16000 * RECORDING_S;
    return next += 3600;
}

Run Close_ours(const std::string& folder, int recordings, const std::shared_ptr<Media>& media,
               uint64_t length_us)
{
    Make_full_card(folder, recordings, Order::CREATION, "");
    const auto card = std::make_shared<Card>(folder);
    card->Mount();
    card->Wait();
    return [card, media, length_us] {
        const int fd = Create_recording(Next_start());
        Write_frames(fd, *media, length_us);
        return Seconds([=] { Ifsi_close(fd, nullptr); });
    };
}

void Write_to_container(void* file, const Media& media)
{
    constexpr int KINDS[] = {KT_MP4_VIDEO_KEY, KT_MP4_VIDEO_OTHER, -1, KT_MP4_AUDIO};
    for (uint64_t lap_us = 0; lap_us < MINUTE_US; lap_us += media.Duration_us()) {
        for (const Frame& frame : media.frames) {
            const uint64_t pts_us = lap_us + frame.pts_us;
            Require(pts_us >= MINUTE_US ||
                        kt_mp4_write(file, KINDS[frame.type], frame.data, frame.length, nullptr, 0,
                                     static_cast<unsigned>(pts_us / 1000)) == 0,
                    "cannot write a frame");
        }
    }
}

/** What the container does for a close: the library asks it for a flush, to describe the file, and for the
 * end. */
Run Close_limit(const std::string& folder, const std::shared_ptr<Media>& media)
{
    Make_full_card(folder, 0, Order::CREATION, "");
    const auto card = std::make_shared<Card>(folder);
    card->Mount();
    card->Wait();
    return [=] {
        std::string path = card->Path("limit.mp4");
        void* file = kt_mp4_open(path.data(), 1920, 1080, FRAME_RATE, 2, SAMPLE_RATE_INDEX_16000, 1,
                                 KT_MP4_CREATE, 1, 320, 0);
        Require(file != nullptr, "cannot create a file");
        Write_to_container(file, *media);
        const double seconds = Seconds([=] {
            kt_mp4_flush(file);
            kt_mp4_close(file);
        });
        unlink(path.c_str());
        return seconds;
    };
}

} // namespace

void Register_close(const Folders& folders)
{
    const auto media = [=](const char* name) {
        return std::make_shared<Media>(Load_media(folders.media, name));
    };
    static int cards = 0;
    const auto folder = [=] { return folders.memory + "/close" + std::to_string(++cards); };
    for (const int recordings : {1000, 4000, 16000}) {
        Register(7, "close", Role::OURS, recordings, 10,
                 [=] { return Close_ours(folder(), recordings, media("main"), MINUTE_US); });
    }
    Register(7, "close", Role::LIMIT, 0, 10, [=] { return Close_limit(folder(), media("main")); });
    for (const unsigned minutes : {1u, 10u, 60u}) {
        Register(7, "close by length", Role::OURS, static_cast<int>(minutes), 1,
                 [=] { return Close_ours(folder(), 0, media("sub"), minutes * MINUTE_US); });
    }
}

} // namespace bench
