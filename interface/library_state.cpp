#include "interface/library_state.h"

#include "ifs.h"

unsigned int gIfs_debug_level = 0xFFFFFFFF;
int gScan_rec_file_flag = 1;
int gCard_fs_version = 2;
unsigned int gFs_max_file_number = 0;
int gHave_got_fs_size = 0;
int gLoading_or_rebuilding_index_file = 0;
int gIfs_demo_flag = 0;
int gIfs_file_type = 0;

unsigned char gIfs_overlap_flag = 1;

CIpcFileSystem* pgIpc_file_system = new CIpcFileSystem;
CIfsThreadLock* pgIfs_interface_tl = new CIfsThreadLock;
CIfsThreadLock* pgIfs_write_tl = new CIfsThreadLock;
CIfsThreadLock* pgIfs_read_tl = new CIfsThreadLock;

Held_locks::Held_locks(unsigned locks) : m_locks(locks)
{
    if (m_locks & LOCK_INTERFACE) {
        pgIfs_interface_tl->Tl_lock(nullptr);
    }
    if (m_locks & LOCK_WRITE) {
        pgIfs_write_tl->Tl_lock(nullptr);
    }
    if (m_locks & LOCK_READ) {
        pgIfs_read_tl->Tl_lock(nullptr);
    }
}

Held_locks::~Held_locks()
{
    if (m_locks & LOCK_READ) {
        pgIfs_read_tl->Tl_unlock(nullptr);
    }
    if (m_locks & LOCK_WRITE) {
        pgIfs_write_tl->Tl_unlock(nullptr);
    }
    if (m_locks & LOCK_INTERFACE) {
        pgIfs_interface_tl->Tl_unlock(nullptr);
    }
}
