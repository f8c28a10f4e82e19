#include "store/catalogue.h"

Catalogue::Catalogue()
{
    m_rec_file_list_table[IFS_STREAM_MAIN];
    m_rec_file_list_table[IFS_STREAM_SUB];
}

void Catalogue::Add(_ifs_stream_type_ stream, Rec_file_list& entry)
{
    const Mutex_holder held(m_guard);
    m_indexes[stream].Add(*Find_list(stream), entry);
}

void Catalogue::Remove(_ifs_stream_type_ stream, Rec_file_list::iterator position)
{
    const Mutex_holder held(m_guard);
    m_indexes[stream].Remove(*Find_list(stream), position);
}

void Catalogue::Replace(_ifs_stream_type_ stream, Rec_file_list list)
{
    Catalogue_index index;
    index.Sort(list);
    const Mutex_holder held(m_guard);
    Find_list(stream)->swap(list);
    std::swap(m_indexes[stream], index);
}

void Catalogue::Clear()
{
    Replace(IFS_STREAM_MAIN, {});
    Replace(IFS_STREAM_SUB, {});
}

Rec_file_list_table& Catalogue::Lists()
{
    May_read();
    return m_rec_file_list_table;
}

size_t Catalogue::Count(_ifs_stream_type_ stream)
{
    May_read();
    return Find_list(stream)->size();
}

bool Catalogue::Find_start(_ifs_stream_type_ stream, const tm& t, _ifs_rec_file_* out)
{
    const Mutex_holder held(m_guard);
    Rec_file_list* const list = Find_list(stream);
    if (list == nullptr) {
        return false;
    }
    const auto entry = m_indexes[stream].First_from(*list, t);
    if (entry == list->end() || Ifsm_tm_cmp(&entry->start_tm, &t) != 0) {
        return false;
    }
    *out = *entry;
    return true;
}

Rec_file_list* Catalogue::Find_list(_ifs_stream_type_ stream)
{
    const auto found = m_rec_file_list_table.find(stream);
    return found != m_rec_file_list_table.end() ? &found->second : nullptr;
}
