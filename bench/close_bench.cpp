/** The end of a one-minute recording, on cards with more and more recordings. */
#include <unistd.h>

#include <memory>

#include "bench/bench.h"
#include "bench/card.h"
#include "bench/media.h"

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

/** What the container does when the library closes a recording: flush, describe, close. */
Run Close_limit(const std::string& folder, const std::shared_ptr<Media>& media)
{
    Make_full_card(folder, 0, Order::CREATION, "");
    const auto card = std::make_shared<Card>(folder);
    card->Mount();
    card->Wait();
    return [card, media] {
        const std::string path = card->Path("limit.mp4");
        void* file = Record_into_container(path, *media, MINUTE_US);
        const double seconds = Seconds([=] { End_in_container(file); });
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
        Register("close", "close", Role::OURS, recordings, 10,
                 [=] { return Close_ours(folder(), recordings, media("main"), MINUTE_US); });
    }
    Register("close", "close", Role::LIMIT, 0, 10, [=] { return Close_limit(folder(), media("main")); });
    for (const unsigned minutes : {1u, 10u, 60u}) {
        Register("close", "close by length", Role::OURS, static_cast<int>(minutes), 1,
                 [=] { return Close_ours(folder(), 0, media("sub"), minutes * MINUTE_US); });
    }
}

} // namespace bench
