#ifndef IFS_STORE_OPEN_FILES_H
#define IFS_STORE_OPEN_FILES_H

#include <array>
#include <map>
#include <memory>

#include "recfile/rec_file.h"
#include "store/limits.h"
#include "store/process_locks.h"
#include "util/mutex.h"

/** Record files by file handle. */
using File_table = std::map<int, CIpcRecFile*>;

enum class File_use {
    recording,
    playing
};

/**
 * The files that are open, by handle and use; owned.
 *
 * Guarded as the catalogue is: a change takes the interface lock and the guard, a read one of the two. A file
 * that was found stays valid behind the guard, because a close holds all three process-wide locks.
 */
class Open_files
{
public:
    /** Take a file over; with no memory for that it stays the caller's. */
    void Enter(File_use use, int fd, std::unique_ptr<CIpcRecFile>& file) REQUIRES(gIfs_interface_lock)
        EXCLUDES(m_guard);
    /** Give up a file, which must be there. */
    std::unique_ptr<CIpcRecFile> Remove(File_use use, int fd) REQUIRES(gIfs_interface_lock) EXCLUDES(m_guard);

    /** The table of that use, to be read only. */
    File_table& Of(File_use use) REQUIRES(gIfs_interface_lock);

    /* Whatever locks are held. */
    /** @return the file, or null when the handle has none of that use */
    CIpcRecFile* Find(File_use use, int fd) EXCLUDES(m_guard);
    /** Copy the files being recorded, in the order of their handles. @return how many there are */
    size_t Copy_recordings(std::array<CIpcRecFile*, IFS_FILE_HANDLES>& files) EXCLUDES(m_guard);

private:
    /** Who holds the interface lock may read: nobody else changes anything. */
    void May_read() const REQUIRES(gIfs_interface_lock) ASSERT_SHARED(m_guard) {}
    File_table& Table(File_use use) REQUIRES_SHARED(m_guard)
    {
        return use == File_use::recording ? m_recording_file_table : m_playing_file_table;
    }

    Mutex m_guard;
    File_table m_recording_file_table GUARDED_BY(m_guard);
    File_table m_playing_file_table GUARDED_BY(m_guard);
};

#endif
