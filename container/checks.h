/**
 * Checksums by which footage proves itself: a fragment carries one of its own boxes and one of each 64 KiB of
 * the file that its payload touches. They find rot and tearing, not forgery.
 */
#ifndef CONTAINER_CHECKS_H
#define CONTAINER_CHECKS_H

#include <cstdint>
#include <string>
#include <vector>

#include "container/bytes.h"
#include "container/file.h"

namespace ifs_mp4
{

/** A cluster of a card: what is lost of it is lost as a whole. */
constexpr uint64_t piece_bytes = 65536;
constexpr size_t checksum_bytes = 4;

/** Pieces that so many bytes touch at most, wherever they lie. */
constexpr size_t most_pieces(uint64_t bytes)
{
    return static_cast<size_t>((bytes + piece_bytes - 2) / piece_bytes) + 1;
}

/** What the box "check" of a fragment says. */
struct Check {
    uint64_t identity = 0;      /**< of the recording, not 0; 0: the fragment has no such box */
    uint64_t offset = 0;        /**< of the fragment in the file */
    uint64_t durable_end = 0;   /**< how far the file was durable when the fragment was written */
    std::string name;           /**< the file's, as it was made */
    Bytes config;               /**< content of avcC where a key frame comes without it, else empty */
    std::vector<uint32_t> sums; /**< of the pieces of the payload, and zeros */
};

/** An identity for a recording that begins with these bytes now. Never 0. */
uint64_t make_identity(const std::string& name, const Bytes& first_bytes);

/** Store the checksum of a box in its last bytes. */
void seal(uint8_t* box, size_t size);

/** Store the checksums of a payload in front of those bytes, and then seal. */
void seal(uint8_t* box, size_t size, const uint8_t* payload, size_t payload_size, uint64_t payload_offset);

/** Whether the last bytes of a range hold the checksum of the others. */
bool is_sealed(Source& source, uint64_t begin, uint64_t end);

/** For each piece of a payload of that size whether it is as it was written. */
std::vector<bool> verify(Source& source, const Check& check, uint64_t payload, uint64_t size);

} // namespace ifs_mp4

#endif
