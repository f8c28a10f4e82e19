#include "interface/workers.h"

#include <pthread.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "interface/library_state.h"
#include "store/overlap_policy.h"
#include "util/log.h"

namespace
{

constexpr unsigned k_start_delay_s = 10;
constexpr unsigned k_period_us = 1000000;

} // namespace

bool Start_detached_thread(void* (*start)(void*), void* arg)
{
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) {
        return false;
    }
    pthread_attr_setscope(&attributes, PTHREAD_SCOPE_SYSTEM);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t thread;
    const bool runs = pthread_create(&thread, &attributes, start, arg) == 0;
    pthread_attr_destroy(&attributes);
    return runs;
}

int Ifst_create_detached_thread(void* (*start)(void*), void* arg)
{
    Start_detached_thread(start, arg);
    return 0;
}

// The mount took the interface lock in another thread; the analysis does not see that.
void* Build_rec_file_list_thread(void*) NO_THREAD_SAFETY_ANALYSIS
{
    IFS_TRACE_TIMED("Build record file list start...\n");
    IFS_FROM_STORE((void), Ifs_build_rec_file_list())
    IFS_TRACE_TIMED("Build record file list end!!!\n");
    Store_shared(gLoading_or_rebuilding_index_file, 0);
    pgIfs_interface_tl->Tl_unlock(nullptr);
    return nullptr;
}

void Rebuild_and_release()
{
    const auto named = [](void* arg) {
        prctl(PR_SET_NAME, "brflt");
        return Build_rec_file_list_thread(arg);
    };
    if (!Start_detached_thread(named, nullptr)) {
        Build_rec_file_list_thread(nullptr);
    }
}

void* Overlap_thread(void*)
{
    prctl(PR_SET_NAME, "overlap");
    sleep(k_start_delay_s);
    IFS_TRACE("overlap thread start...\n");
    Overlap_policy policy;
    for (;; usleep(k_period_us)) {
        if (!Load_shared(gIfs_overlap_flag)) {
            continue;
        }
        const Held_interface held;
        const unsigned max_files = Load_shared(gFs_max_file_number);
        const Overlap_policy::Answer answer = policy.Ask(*pgIpc_file_system, max_files);
        if (answer == Overlap_policy::Answer::size_unknown) {
            IFS_ERROR("Ifs_get_fs_size Failed\n");
        }
        if (answer != Overlap_policy::Answer::delete_oldest) {
            continue;
        }
        // Words of the camera, on which a limit beyond 2^31 shows negative.
        IFS_DETAIL("main:%ld, sub:%ld, max:%ld, free size:%lld\n",
                   static_cast<long>(Wrap_to_int32(policy.main_files)),
                   static_cast<long>(Wrap_to_int32(policy.sub_files)),
                   static_cast<long>(Wrap_to_int32(max_files)), static_cast<long long>(policy.free_bytes));
        IFS_FROM_STORE((void), Ifs_overlap())
    }
}
