#include <cerrno>
#include <cstdio>
#include <cstring>

#include "hostcard/hostcard.h"
#include "ifs.h"
#include "tools/commands.h"
#include "tools/size_text.h"

void create_card(const Context& context, const std::string& size)
{
    // What card readers report for every card; the partition begins at the first multiple of it.
    constexpr unsigned heads = 255;
    constexpr unsigned sectors = 63;
    constexpr unsigned long long min_bytes = 512ULL * heads * sectors; // one cylinder
    constexpr unsigned long long max_bytes = 2ULL << 40;               // what 32-bit sector numbers reach
    constexpr unsigned long long useful_bytes = 512ULL << 20;

    unsigned long long bytes = parse_size(size);
    if (bytes < min_bytes || bytes > max_bytes)
        throw Failure(ExitCode::usage, "a card of " + size_text(bytes) +
                                           " cannot be formatted and used whole; choose a size of 8M to 2T");
    if (hostcard_create(context.card_path.c_str(), bytes, heads, sectors) != 0) {
        if (errno == EEXIST || errno == ENOTEMPTY)
            throw Failure(ExitCode::refused,
                          "'" + context.card_path + "' exists and is not empty; name a new folder");
        throw Failure(ExitCode::failed,
                      "cannot make a card at '" + context.card_path + "': " + std::strerror(errno));
    }
    if (bytes < useful_bytes)
        std::fprintf(
            stderr,
            "ifsctl: this card is small: below %d MiB free the oldest recordings are deleted, and a new one "
            "needs %d MiB\n",
            IFS_OVERLAP_FREE_MIB, IFS_CREATE_FREE_MIB);
    if (context.json)
        context.results.write(nlohmann::json{{"card", context.card_path}, {"size_bytes", bytes}});
    else
        context.results.write("Made a blank card of " + size_text(bytes) + " at " + context.card_path +
                              "; 'format' prepares it.\n");
}
