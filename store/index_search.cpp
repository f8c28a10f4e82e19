#include "store/index_search.h"

#include <algorithm>
#include <iterator>

void Index_search::Begin(Rec_file_list& list)
{
    m_entries.clear();
    m_entries.reserve(list.size());
    for (const _ifs_rec_file_& rec : list) {
        m_entries.push_back({Ifsm_tm_key(&rec.start_tm), false});
    }
    m_next = 0;
}

bool Index_search::Find(const tm& start)
{
    const Tm_key key = Ifsm_tm_key(&start);
    const auto end = m_entries.end();
    auto entry = m_entries.begin() + static_cast<std::ptrdiff_t>(m_next);
    // Directories hold runs of recordings in the order of their starts.
    const bool follows =
        m_next > 0 && entry != end && entry->start == key && !entry->found && std::prev(entry)->start != key;
    if (!follows) {
        entry = std::partition_point(m_entries.begin(), end, [&](const Entry& e) { return e.start < key; });
        entry = std::find_if(entry, end, [&](const Entry& e) { return !e.found || e.start != key; });
    }
    if (entry == end || entry->start != key) {
        return false;
    }
    entry->found = true;
    m_next = static_cast<size_t>(entry - m_entries.begin()) + 1;
    return true;
}

Rec_file_list Index_search::Take_found(Rec_file_list& list)
{
    Rec_file_list found;
    auto position = list.begin();
    for (const Entry& entry : m_entries) {
        const auto next = std::next(position);
        if (entry.found) {
            found.splice(found.end(), list, position);
        }
        position = next;
    }
    std::vector<Entry>().swap(m_entries);
    return found;
}
