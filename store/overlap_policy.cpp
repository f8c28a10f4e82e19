#include "store/overlap_policy.h"

#include "store/ipc_file_system.h"
#include "store/limits.h"

Overlap_policy::Answer Overlap_policy::Ask(CIpcFileSystem& store, unsigned max_files)
{
    if (max_files != 0 && Too_many_files(store, max_files)) {
        return Answer::delete_oldest;
    }
    if (store.Ifs_get_fs_size(nullptr, &free_bytes) != 0) {
        return Answer::size_unknown;
    }
    return free_bytes < IFS_OVERLAP_FREE_LIMIT ? Answer::delete_oldest : Answer::keep;
}

bool Overlap_policy::Too_many_files(CIpcFileSystem& store, unsigned max_files)
{
    unsigned long main_number = 0;
    unsigned long sub_number = 0;
    store.Ifs_get_file_number(&main_number, &sub_number);
    main_files = static_cast<unsigned>(main_number);
    sub_files = static_cast<unsigned>(sub_number);
    const unsigned total = main_files + sub_files;
    const bool goes_on =
        m_by_count && max_files > IFS_OVERLAP_HYSTERESIS && total >= max_files - IFS_OVERLAP_HYSTERESIS;
    m_by_count = total >= max_files || goes_on;
    return m_by_count;
}
