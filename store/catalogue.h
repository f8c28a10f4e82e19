#ifndef IFS_STORE_CATALOGUE_H
#define IFS_STORE_CATALOGUE_H

#include <array>
#include <cstddef>

#include "store/catalogue_index.h"
#include "store/process_locks.h"
#include "store/rec_file_list.h"
#include "util/mutex.h"

constexpr size_t IFS_STREAMS = 2; ///< that a recording can be of: main and sub

/**
 * The finished recordings of each stream, in the order of their start.
 *
 * Only who holds the interface lock changes them, and takes the guard besides; so with that lock they can be
 * read without the guard, and without it with the guard. The guard is held for no longer than an entry or a
 * whole list takes to go in or out: lists are sorted before and freed behind.
 */
class Catalogue
{
public:
    Catalogue();

    /** Move the one element of entry to its place. Takes no memory that it cannot do without. */
    void Add(_ifs_stream_type_ stream, Rec_file_list& entry) REQUIRES(gIfs_interface_lock) EXCLUDES(m_guard);
    void Remove(_ifs_stream_type_ stream, Rec_file_list::iterator position) REQUIRES(gIfs_interface_lock)
        EXCLUDES(m_guard);
    /** Sort a list and put it in place of the stream's. */
    void Replace(_ifs_stream_type_ stream, Rec_file_list list) REQUIRES(gIfs_interface_lock)
        EXCLUDES(m_guard);
    void Clear() REQUIRES(gIfs_interface_lock) EXCLUDES(m_guard);

    /** All lists, to be read only. */
    Rec_file_list_table& Lists() REQUIRES(gIfs_interface_lock);
    size_t Count(_ifs_stream_type_ stream) REQUIRES(gIfs_interface_lock);

    /* Visit recordings of a stream in order, until visit answers false. */
    /** All of them; those that end before t may be left out. */
    template <typename Visit>
    void Walk_ends_from(_ifs_stream_type_ stream, const tm& t, Visit visit) REQUIRES(gIfs_interface_lock)
    {
        May_read();
        if (Rec_file_list* const list = Find_list(stream)) {
            m_indexes[stream].Walk_from(*list, t, visit);
        }
    }
    /** Those that do not start before t. */
    template <typename Visit>
    void Walk_starts_from(_ifs_stream_type_ stream, const tm& t, Visit visit) REQUIRES(gIfs_interface_lock)
    {
        May_read();
        if (Rec_file_list* const list = Find_list(stream)) {
            for (auto it = m_indexes[stream].First_from(*list, t); it != list->end() && visit(*it); ++it) {
            }
        }
    }

    /** Find the first recording that starts at t, whatever locks are held. */
    bool Find_start(_ifs_stream_type_ stream, const tm& t, _ifs_rec_file_* out) EXCLUDES(m_guard);

private:
    /** Who holds the interface lock may read: nobody else changes anything. */
    void May_read() const REQUIRES(gIfs_interface_lock) ASSERT_SHARED(m_guard) {}

    /** @return the stream's list, or null for a value that is no stream */
    Rec_file_list* Find_list(_ifs_stream_type_ stream) REQUIRES_SHARED(m_guard);

    Mutex m_guard;
    Rec_file_list_table m_rec_file_list_table GUARDED_BY(m_guard);          ///< always with both streams
    std::array<Catalogue_index, IFS_STREAMS> m_indexes GUARDED_BY(m_guard); ///< by stream
};

#endif
