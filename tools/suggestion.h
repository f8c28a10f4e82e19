/** What a mistyped word was probably meant to be. */
#ifndef TOOLS_SUGGESTION_H
#define TOOLS_SUGGESTION_H

#include <string>
#include <vector>

/** The name next to a word: one that begins with it, or that few typing errors turn into it. Empty: none is
 * near. */
std::string closest_name(const std::string& word, const std::vector<std::string>& names);

#endif
