#include "tools/suggestion.h"

#include <algorithm>

namespace
{

/** How many letters are missing, too many, wrong, or swapped with their neighbour. */
size_t typing_errors(const std::string& word, const std::string& name)
{
    std::vector<std::vector<size_t>> errors(word.size() + 1, std::vector<size_t>(name.size() + 1));
    for (size_t i = 0; i <= word.size(); ++i) {
        for (size_t j = 0; j <= name.size(); ++j) {
            if (i == 0 || j == 0) {
                errors[i][j] = i + j;
                continue;
            }
            const size_t wrong = word[i - 1] == name[j - 1] ? 0 : 1;
            errors[i][j] =
                std::min({errors[i - 1][j] + 1, errors[i][j - 1] + 1, errors[i - 1][j - 1] + wrong});
            if (i > 1 && j > 1 && word[i - 1] == name[j - 2] && word[i - 2] == name[j - 1])
                errors[i][j] = std::min(errors[i][j], errors[i - 2][j - 2] + 1);
        }
    }
    return errors[word.size()][name.size()];
}

} // namespace

std::string closest_name(const std::string& word, const std::vector<std::string>& names)
{
    std::string closest;
    size_t fewest = word.size();
    for (const std::string& name : names) {
        const size_t errors = name.compare(0, word.size(), word) == 0 ? 1 : typing_errors(word, name);
        if (errors < fewest && 2 * errors <= name.size()) {
            fewest = errors;
            closest = name;
        }
    }
    return closest;
}
