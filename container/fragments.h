/** The fragments of a recording, which hold its frames before it is finished, and lie in it for good. */
#ifndef CONTAINER_FRAGMENTS_H
#define CONTAINER_FRAGMENTS_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "container/file.h"
#include "container/parse.h"

namespace ifs_mp4
{

/** Frames that were left out, or a fragment that was not found. */
struct Loss {
    uint64_t offset;   /**< in the file, of what is lost or of what was found behind it */
    uint64_t begin_ms; /**< decode time of the first frame */
    uint64_t end_ms;   /**< of the last one, or of what was found behind it */
};

/** How a walk over fragments goes, and how far it has come. */
struct FragmentWalk {
    /**
     * Nobody records into the file any more: go on behind what is damaged, where checksums show what is not,
     * and take of a fragment that is torn the samples that are whole.
     */
    bool interrupted = false;
    /** With it: verify what lies behind, and leave out the samples that are damaged. */
    uint64_t verified_from = UINT64_MAX;
    std::string name; /**< the file's */

    uint64_t begin = 0;       /**< of the first one */
    uint64_t pos = 0;         /**< of the next one */
    uint32_t count = 0;       /**< number of the last one */
    uint64_t identity = 0;    /**< of the recording; 0: its fragments carry no checksums */
    uint64_t durable_end = 0; /**< how far the file was durable when the last one was written */
    uint64_t left_out = 0;    /**< bytes of payload that were passed over */
    std::vector<Loss> losses;
    Bytes config;             /**< decoder configuration of the first key frame that comes without it */
    uint64_t search_left = 0; /**< bytes that may still be looked at behind damage */
};

/** What a walk keeps of the fragments. */
enum class Take {
    description, /**< counts and lengths, in constant memory; of the tables the end is kept */
    tables
};

/**
 * Find the first fragment of a recording, and read what the file's head says of it, however damaged the head
 * is. A finished file hides both, and has them still. Where the first one is damaged, the next one is found
 * that carries this file's name.
 *
 * @param walk  gets the place; how it goes stays
 * @return false: none, or refused
 */
bool find_recording(Source& source, ParsedMovie& movie, FragmentWalk& walk);

/**
 * Add fragments to a movie, up to the file's end or to damage that no way leads past.
 *
 * @param passed  called with the walk's position behind each
 */
void walk_fragments(
    Source& source, Take take, ParsedMovie& movie, FragmentWalk& walk,
    const std::function<void(uint64_t)>& passed = [](uint64_t) {});

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
