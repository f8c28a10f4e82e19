/** Sizes in bytes as people write them. */
#ifndef TOOLS_SIZE_TEXT_H
#define TOOLS_SIZE_TEXT_H

#include <string>

/**
 * Read a size: a whole number, alone or followed by K, M, G or T or KiB, MiB, ..., powers of 1024, or by KB,
 * MB, GB or TB, powers of 1000.
 *
 * Throws Failure (usage): not of this form, zero, or past 2^63.
 */
unsigned long long parse_size(const std::string& text);

/** Write a size with its unit, e.g. 7.5 GiB. */
std::string size_text(unsigned long long bytes);

#endif
