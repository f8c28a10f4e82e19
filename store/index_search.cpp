#include "store/index_search.h"

#include <iterator>

void Index_search::Begin(Rec_file_list& list)
{
    m_starts.clear();
    m_found.clear();
    m_starts.reserve(list.size()); // both stay empty should memory run out
    m_found.reserve(list.size());
    for (const _ifs_rec_file_& rec : list) {
        m_starts.push_back(Ifsm_tm_key(&rec.start_tm));
    }
    m_found.assign(m_starts.size(), 0);
    m_next = 0;
}

size_t Index_search::First_not_before(const Tm_key& start) const
{
    // A bisection without a branch, which a processor could only guess.
    size_t first = 0;
    for (size_t count = m_starts.size(); count > 0;) {
        const size_t half = (count + 1) / 2;
        first += half * static_cast<size_t>(m_starts[first + half - 1] < start);
        count -= half;
    }
    return first;
}

bool Index_search::Find(const tm& start)
{
    const Tm_key key = Ifsm_tm_key(&start);
    const auto starts_then = [&](size_t i) { return i < m_starts.size() && m_starts[i] == key; };
    size_t i = m_next;
    // Directories hold runs of recordings in the order of their starts.
    const bool follows = i > 0 && starts_then(i) && !starts_then(i - 1) && !m_found[i];
    if (!follows) {
        i = First_not_before(key);
        while (starts_then(i) && m_found[i]) {
            ++i;
        }
        if (!starts_then(i)) {
            return false;
        }
    }
    m_found[i] = 1;
    m_next = i + 1;
    return true;
}

Rec_file_list Index_search::Take_found(Rec_file_list& list)
{
    Rec_file_list found;
    auto position = list.begin();
    for (const char is_found : m_found) {
        const auto next = std::next(position);
        if (is_found) {
            found.splice(found.end(), list, position);
        }
        position = next;
    }
    std::vector<Tm_key>().swap(m_starts);
    std::vector<char>().swap(m_found);
    return found;
}
