#include "tools/card.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <sys/mount.h>
#include <thread>
#include <unistd.h>

#include "hostcard/hostcard.h"
#include "ifs.h"
#include "tools/failure.h"

namespace
{

void wait_for_catalogue()
{
    constexpr int polls_per_second = 100;
    for (int polls = 0; Ifsi_loading_rebuilding_index_file_flag() != 0; ++polls) {
        if (polls == polls_per_second && isatty(STDERR_FILENO))
            std::fputs("Reading the card's catalogue...\n", stderr);
        std::this_thread::sleep_for(std::chrono::milliseconds(1000 / polls_per_second));
    }
}

void check_access(const std::string& card_path, const std::string& part, int mode)
{
    if (access(part.c_str(), mode) != 0)
        throw Failure(ExitCode::failed, "the card at '" + card_path + "' cannot be written to ('" + part +
                                            "': " + strerror(errno) +
                                            "); change its permissions, or work on a copy");
}

} // namespace

Card::Card(const std::string& path) : m_path(path)
{
    if (hostcard_insert(path.c_str()) == 0)
        return;
    if (errno == EBUSY)
        throw Failure(ExitCode::no_card,
                      "the card at '" + path + "' is used by another process; wait until that has ended");
    std::string reason = errno == ENODEV ? "" : std::string(" (") + strerror(errno) + ")";
    throw Failure(ExitCode::no_card, "no card at '" + path + "'" + reason +
                                         "; make a virtual one there with 'create --size 8G'");
}

Card::~Card()
{
    if (m_mounted && Ifsi_umount() != 0)
        std::fputs("ifsctl: the card could not be unmounted; what was recorded is on it\n", stderr);
    if (m_files_mounted)
        umount(hostcard_mount_point());
    hostcard_eject();
}

bool Card::try_mount()
{
    m_mounted = Ifsi_mount(hostcard_mount_point()) == 0;
    if (m_mounted)
        wait_for_catalogue();
    return m_mounted;
}

void Card::mount()
{
    if (!try_mount())
        throw Failure(ExitCode::not_formatted,
                      "the card at '" + m_path +
                          "' holds no file system; format it with 'format', which erases it");
}

int Card::mount_files(bool read_only)
{
    unsigned long flags = MS_NOSUID | MS_NODEV | MS_NOATIME | (read_only ? MS_RDONLY : 0);
    m_files_mounted = ::mount("/dev/hd/sda1", hostcard_mount_point(), "vfat", flags, nullptr) == 0;
    return m_files_mounted ? 0 : errno;
}

void Card::check_writable() const
{
    check_access(m_path, folder(), W_OK | X_OK);
}

void Card::check_erasable() const
{
    check_writable();
    check_access(m_path, m_path + "/card.img", W_OK);
}

std::string Card::folder() const
{
    return hostcard_mount_point();
}

void check_not_on_card(const std::string& card_path, const std::string& file)
{
    std::error_code unresolved; // what cannot be resolved cannot be opened either, which is reported then
    const std::filesystem::path card = std::filesystem::weakly_canonical(card_path, unresolved);
    const std::filesystem::path path =
        std::filesystem::weakly_canonical(std::filesystem::absolute(file, unresolved), unresolved);
    if (!unresolved && std::mismatch(card.begin(), card.end(), path.begin(), path.end()).first == card.end())
        throw Failure(ExitCode::refused,
                      "'" + file +
                          "' lies in the card's own folder, which holds its recordings only; name a "
                          "file elsewhere");
}
