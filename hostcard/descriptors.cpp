#include "hostcard/descriptors.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace
{

using hostcard::Kind;

constexpr int descriptors_max = 65536;
std::atomic<Kind> kinds[descriptors_max];

struct Listing {
    std::atomic<bool> taken;
    char names[256];
    size_t next; // offset in names
    struct dirent entry;
};

Listing listings[16];

bool has_room(int fd)
{
    return fd >= 0 && fd < descriptors_max;
}

} // namespace

namespace hostcard
{

Kind kind_of(int fd)
{
    return has_room(fd) ? kinds[fd].load(std::memory_order_acquire) : Kind::none;
}

bool track(int fd, Kind kind)
{
    if (has_room(fd))
        kinds[fd].store(kind, std::memory_order_release);
    return has_room(fd);
}

Kind untrack(int fd)
{
    return has_room(fd) ? kinds[fd].exchange(Kind::none) : Kind::none;
}

bool any_open(Kind kind)
{
    for (const std::atomic<Kind>& entry : kinds)
        if (entry == kind)
            return true;
    return false;
}

void orphan_descriptors()
{
    for (std::atomic<Kind>& entry : kinds)
        if (entry != Kind::none)
            entry = Kind::gone;
}

DIR* open_listing(const std::string& names)
{
    for (Listing& listing : listings) {
        if (listing.taken.exchange(true))
            continue;
        snprintf(listing.names, sizeof listing.names, ". .. %s", names.c_str());
        listing.next = 0;
        return reinterpret_cast<DIR*>(&listing);
    }
    errno = EMFILE;
    return nullptr;
}

bool is_listing(DIR* directory)
{
    for (Listing& listing : listings)
        if (reinterpret_cast<DIR*>(&listing) == directory)
            return true;
    return false;
}

struct dirent* next_in_listing(DIR* directory)
{
    Listing& listing = *reinterpret_cast<Listing*>(directory);
    listing.next += strspn(listing.names + listing.next, " ");
    const char* const name = listing.names + listing.next;
    const size_t length = strcspn(name, " ");
    if (length == 0)
        return nullptr;
    listing.next += length;
    listing.entry = {};
    listing.entry.d_type = DT_UNKNOWN;
    memcpy(listing.entry.d_name, name, length);
    return &listing.entry;
}

void close_listing(DIR* directory)
{
    reinterpret_cast<Listing*>(directory)->taken = false;
}

} // namespace hostcard
