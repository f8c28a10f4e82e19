#include "tools/card.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
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

std::string Card::folder() const
{
    return hostcard_mount_point();
}
