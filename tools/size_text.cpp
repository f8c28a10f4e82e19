#include "tools/size_text.h"

#include <cstdio>
#include <regex>

#include "tools/failure.h"

unsigned long long parse_size(const std::string& text)
{
    static const std::regex form(R"((\d{1,15})(?:([KMGT])(i?B)?)?)", std::regex::icase);
    static const std::string units = "kmgt";
    std::smatch part;
    if (!std::regex_match(text, part, form) || std::stoull(part[1]) == 0)
        throw Failure(ExitCode::usage,
                      "'" + text + "' is no size; write a number with K, M, G or T, like 8G or 8GB");
    unsigned long long size = std::stoull(part[1]);
    const unsigned base =
        part[3].length() == 1 ? 1000 : 1024; // GB as cards are sold, G and GiB as they count
    size_t powers = part[2].length() ? units.find(static_cast<char>(part.str(2)[0] | 0x20)) + 1 : 0;
    while (powers-- > 0) {
        if (size >= 1ULL << 53)
            throw Failure(ExitCode::usage, "'" + text + "' is larger than any card; write a size like 8G");
        size *= base;
    }
    return size;
}

std::string size_text(unsigned long long bytes)
{
    if (bytes < 1024)
        return std::to_string(bytes) + " B";
    static const char* const units[] = {"KiB", "MiB", "GiB", "TiB"};
    double size = static_cast<double>(bytes) / 1024;
    size_t unit = 0;
    while (size >= 1023.95 && unit < 3) {
        size /= 1024;
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, "%.1f %s", size, units[unit]);
    return text;
}
