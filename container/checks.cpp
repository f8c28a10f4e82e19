#include "container/checks.h"

#include <algorithm>
#include <ctime>

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace ifs_mp4
{
namespace
{

uint32_t checksum(const uint8_t* data, size_t size)
{
    return XXH32(data, size, 0);
}

/** Sum up bytes of a file. @return false: they cannot be read */
bool sum_up(Source& source, uint64_t begin, uint64_t end, uint32_t& sum)
{
    uint8_t bytes[4096];
    XXH32_state_t state;
    XXH32_reset(&state, 0);
    while (begin < end) {
        auto some = static_cast<size_t>(std::min<uint64_t>(sizeof bytes, end - begin));
        if (!source.read(begin, bytes, some))
            return false;
        XXH32_update(&state, bytes, some);
        begin += some;
    }
    sum = XXH32_digest(&state);
    return true;
}

/** Where the piece ends that a byte of the file lies in, or a range before that. */
uint64_t piece_end(uint64_t offset, uint64_t end)
{
    return std::min(end, (offset / piece_bytes + 1) * piece_bytes);
}

} // namespace

uint64_t make_identity(const std::string& name, const Bytes& first_bytes)
{
    // A camera may start with the same clock and without entropy, but not twice with the same picture at the
    // same nanosecond since its start, under the same name.
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    auto nanoseconds = static_cast<uint64_t>(now.tv_sec) * 1000000000 + static_cast<uint64_t>(now.tv_nsec);
    uint64_t identity =
        XXH64(first_bytes.data(), first_bytes.size(), XXH64(name.data(), name.size(), nanoseconds));
    return identity != 0 ? identity : 1;
}

void seal(uint8_t* box, size_t size)
{
    store32(box + size - checksum_bytes, checksum(box, size - checksum_bytes));
}

void seal(uint8_t* box, size_t size, const uint8_t* payload, size_t payload_size, uint64_t payload_offset)
{
    uint8_t* sum = box + size - (most_pieces(payload_size) + 1) * checksum_bytes;
    const uint64_t end = payload_offset + payload_size;
    for (uint64_t begin = payload_offset, next; begin < end; begin = next, sum += checksum_bytes) {
        next = piece_end(begin, end);
        store32(sum, checksum(payload + (begin - payload_offset), static_cast<size_t>(next - begin)));
    }
    seal(box, size);
}

bool is_sealed(Source& source, uint64_t begin, uint64_t end)
{
    uint8_t stored[checksum_bytes];
    uint32_t sum = 0;
    return end - begin > sizeof stored && source.read(end - sizeof stored, stored, sizeof stored) &&
           sum_up(source, begin, end - sizeof stored, sum) && sum == be32(stored);
}

std::vector<bool> verify(Source& source, const Check& check, uint64_t payload, uint64_t size)
{
    std::vector<bool> sound;
    const uint64_t end = payload + size;
    for (uint64_t begin = payload, next; begin < end; begin = next) {
        next = piece_end(begin, end);
        uint32_t sum = 0;
        sound.push_back(sound.size() < check.sums.size() && sum_up(source, begin, next, sum) &&
                        sum == check.sums[sound.size()]);
    }
    return sound;
}

} // namespace ifs_mp4
