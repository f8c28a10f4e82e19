#include "container/verify.h"

#include <algorithm>

#include "container/checks.h"
#include "container/layout.h"
#include "container/limits.h"

namespace ifs_mp4
{
namespace
{

constexpr uint64_t box_header_bytes = 8;

/** Whether the last moov holds the samples of a movie, whose description it has. */
bool holds(Source& source, const Box& moov, const ParsedMovie& parsed, ParsedMovie& movie)
{
    movie.info = parsed.info;
    movie.avc_config = parsed.avc_config;
    movie.adts = parsed.adts;
    movie.tables.begin_at_zero();
    Bytes expected;
    put_final_moov(expected, movie, moov.begin - box_header_bytes);
    // Behind its size, and in front of the box with the name that the file had.
    uint64_t pos = moov.begin;
    for (size_t at = box_header_bytes; at < expected.size() - last_check_bytes;) {
        const size_t some = std::min(expected.size() - last_check_bytes - at, Source::window_bytes);
        const uint8_t* bytes = pos + some <= moov.end ? source.at(pos, some) : nullptr;
        if (!bytes || !std::equal(bytes, bytes + some, expected.data() + at))
            return false;
        at += some;
        pos += some;
    }
    return true;
}

} // namespace

Verification verify_recording(Source& source, const std::string& name, const Box& moov,
                              const ParsedMovie& parsed, const std::function<void(uint64_t)>& passed)
{
    Verification result;
    ParsedMovie movie;
    FragmentWalk walk;
    walk.name = name;
    walk.interrupted = true;
    for (Take take : {Take::description, Take::tables}) {
        if (!find_recording(source, movie, walk))
            return result;
        walk_fragments(
            source, take, movie, walk, take == Take::tables ? passed : [](uint64_t) {});
        if (movie.tables.bytes() > max_table_bytes)
            return result;
        walk.verified_from = 0;
    }
    result.has_checks = walk.identity != 0;
    if (!result.has_checks)
        return result;
    result.losses = walk.losses;
    if (moov.begin == 0) {
        auto unsynced = [&](const Loss& loss) { return loss.offset >= walk.durable_end; };
        result.losses.erase(std::remove_if(result.losses.begin(), result.losses.end(), unsynced),
                            result.losses.end());
        return result;
    }
    const auto duration_ms = static_cast<uint64_t>(parsed.info.duration);
    if (walk.pos < moov.begin - box_header_bytes && static_cast<uint64_t>(movie.duration_ms()) < duration_ms)
        result.losses.push_back({walk.pos, static_cast<uint64_t>(movie.duration_ms()), duration_ms});
    if (is_sealed(source, moov.begin - box_header_bytes, moov.end) && holds(source, moov, parsed, movie))
        result.losses.clear(); // they were left out when it was finished
    else
        result.tables_differ = result.losses.empty();
    return result;
}

} // namespace ifs_mp4
