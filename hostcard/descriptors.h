/** Descriptors and folder listings that belong to the card. Safe from any thread, without a lock. */
#ifndef HOSTCARD_DESCRIPTORS_H
#define HOSTCARD_DESCRIPTORS_H

#include <dirent.h>
#include <string>

namespace hostcard
{

/** What a descriptor is open on. */
enum class Kind : unsigned char {
    none, /**< nothing of the card */
    disk,
    partition,
    file, /**< a file or folder of the file system */
    gone  /**< anything of a card that was ejected */
};

Kind kind_of(int fd);

/** Enter a descriptor. @return whether there is room for its number */
bool track(int fd, Kind kind);

/** Forget a descriptor, before it is closed: its number may be given out at once. @return what it was */
Kind untrack(int fd);

bool any_open(Kind kind);

/** Turn all descriptors into Gone. */
void orphan_descriptors();

/**
 * Open a listing that no folder of the machine holds.
 *
 * @param names  separated by blanks; "." and ".." are added
 * @return what opendir() returns; only the three calls below take it
 */
DIR* open_listing(const std::string& names);

bool is_listing(DIR* directory);
struct dirent* next_in_listing(DIR* directory);
void close_listing(DIR* directory);

} // namespace hostcard

#endif
