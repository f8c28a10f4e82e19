/** The fragments of a recording, which hold its frames before it is finished, and lie in it for good. */
#ifndef CONTAINER_FRAGMENTS_H
#define CONTAINER_FRAGMENTS_H

#include <cstdint>

#include "container/file.h"
#include "container/parse.h"

namespace ifs_mp4
{

/** How far a walk over fragments has come. */
struct FragmentWalk {
    uint64_t begin = 0; /**< of the first one */
    uint64_t pos = 0;   /**< of the next one */
    uint32_t count = 0; /**< passed */
    /** Take of a first one that is torn the samples that are whole, and end behind it, at the file's end. */
    bool torn_too = false;
};

/** What a walk keeps of the fragments. */
enum class Take {
    description, /**< counts and lengths, in constant memory; of the tables the end is kept */
    tables
};

/**
 * Find the first fragment of a recording, and read what the file's head says of it, however damaged the head
 * is. A finished file hides both, and has them still.
 *
 * @param walk  gets the place
 * @return false: none, or refused
 */
bool find_recording(Source& source, ParsedMovie& movie, FragmentWalk& walk);

/** Add fragments to a movie, up to the first one that is torn or damaged. */
void walk_fragments(Source& source, Take take, ParsedMovie& movie, FragmentWalk& walk);

/**
 * Look for a video sample whose NAL units do not fill it.
 *
 * @param walk     in front of the first fragment
 * @param from_ms  decode time of the first sample that is looked at
 * @param offset   gets the sample's
 * @return whether there is one
 */
bool find_unsound(Source& source, FragmentWalk walk, uint64_t from_ms, uint64_t& offset);

/**
 * Read the fragment whose payload begins at an offset.
 * @return false: there is none, or it is damaged
 */
bool find_fragment(Source& source, uint64_t payload, Fragment& fragment);

} // namespace ifs_mp4

#endif
