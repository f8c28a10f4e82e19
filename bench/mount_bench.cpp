/** A mount: until the catalogue is built, with and without the index files. */
#include <fcntl.h>
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

constexpr size_t PROBE_BYTES = 4096;

/** The folder of a card with so many recordings, made at its first use. */
std::string Full_card(const Folders& folders, const std::string& kind, int recordings, Order order,
                      bool with_content)
{
    const std::string folder = folders.memory + "/" + kind + std::to_string(recordings);
    if (!std::filesystem::exists(folder)) {
        const std::string content =
            with_content ? Make_sample_recording(folder + ".content").file : std::string();
        Make_full_card(folder, recordings, order, content);
    }
    return folder;
}

double Mount_to_ready(const Card& card, int recordings)
{
    unsigned long found = 0;
    const double seconds = Seconds([&] {
        card.Mount();
        found = card.Wait();
    });
    Require(found == static_cast<unsigned long>(recordings), "the catalogue is not whole");
    card.Unmount();
    return seconds;
}

void Read_first_bytes(const Card& card, const std::vector<std::string>& names)
{
    std::array<char, PROBE_BYTES> buffer;
    for (const std::string& name : names) {
        const int fd = open(card.Path(name).c_str(), O_RDONLY);
        Require(fd >= 0 && read(fd, buffer.data(), buffer.size()) > 0, "cannot read a recording");
        close(fd);
    }
}

Run Intact(const std::string& folder, int recordings)
{
    const auto card = std::make_shared<Card>(folder);
    return [=] { return Mount_to_ready(*card, recordings); };
}

Run Intact_limit(const std::string& folder)
{
    const auto card = std::make_shared<Card>(folder);
    return [=] {
        card->Mount_without_library();
        const double seconds = Seconds([&] { card->Read_directory_and_indexes(); });
        card->Unmount_without_library();
        return seconds;
    };
}

/** Seconds a file of a mount that has to open each recording. */
Run Lost(const std::string& folder, int recordings)
{
    const auto card = std::make_shared<Card>(folder);
    return [=] {
        unlink(card->Path(MAIN_INDEX).c_str());
        unlink(card->Path(SUB_INDEX).c_str());
        return Mount_to_ready(*card, recordings) / recordings;
    };
}

Run Lost_limit(const std::string& folder, int recordings)
{
    const auto card = std::make_shared<Card>(folder);
    card->Mount();
    card->Wait();
    const std::vector<std::string> names = Recording_names(recordings);
    return [=] { return Seconds([&] { Read_first_bytes(*card, names); }) / recordings; };
}

} // namespace

void Register_mount(const Folders& folders)
{
    constexpr struct {
        const char* name;
        Order order;
    } ORDERS[] = {{"in order", Order::CREATION}, {"rotated", Order::ROTATED}, {"shuffled", Order::SHUFFLED}};
    for (const int recordings : {1000, 4000, 16000}) {
        for (const auto& kind : ORDERS) {
            const auto folder = [=] { return Full_card(folders, kind.name, recordings, kind.order, false); };
            Register("mount", kind.name, Role::OURS, recordings, 5,
                     [=] { return Intact(folder(), recordings); });
            Register("mount", kind.name, Role::LIMIT, recordings, 5, [=] { return Intact_limit(folder()); });
        }
        const auto folder = [=] { return Full_card(folders, "content", recordings, Order::CREATION, true); };
        Register("probe", "index lost", Role::OURS, recordings, 2,
                 [=] { return Lost(folder(), recordings); });
        Register("probe", "index lost", Role::LIMIT, recordings, 2,
                 [=] { return Lost_limit(folder(), recordings); });
    }
}

} // namespace bench
