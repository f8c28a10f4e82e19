/** What a mistyped word was probably meant to be. */
#ifndef TOOLS_SUGGESTION_H
#define TOOLS_SUGGESTION_H

#include <string>
#include <vector>

/** The name that a word was meant to be: one that begins with it, or differs by few letters. Empty: none. */
std::string closest_name(const std::string& word, const std::vector<std::string>& names);

#endif
