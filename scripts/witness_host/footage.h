/** Frames and recordings to put on a card. */
#ifndef SCRIPTS_WITNESS_HOST_FOOTAGE_H
#define SCRIPTS_WITNESS_HOST_FOOTAGE_H

#include <string>
#include <vector>

#include "scripts/witness_host/random.h"

/** An H.264 access unit of about so many bytes, a key frame with its parameter sets or another. */
std::string picture(bool key, size_t bytes);
/** A raw AAC access unit. */
std::string sound(size_t bytes);

/** Bytes of a record file. */
struct Footage {
    std::string bytes;
    int seconds;
    int width, height, frame_rate; ///< of its pictures
    int have_audio;
};

/**
 * Make recordings of different lengths and kinds, finished and interrupted, with the container library.
 *
 * @param folder  for files that are gone afterwards
 */
std::vector<Footage> make_footage(const std::string& folder, Random& random);

#endif
