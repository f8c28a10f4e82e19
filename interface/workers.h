#ifndef IFS_INTERFACE_WORKERS_H
#define IFS_INTERFACE_WORKERS_H

/** Start a detached thread of system scope. @return whether it runs */
bool Start_detached_thread(void* (*start)(void*), void* arg);

/** As Start_detached_thread(), a failure not reported. @return 0 */
int Ifst_create_detached_thread(void* (*start)(void*), void* arg);

/** Build the catalogue, clear the loading flag, release the mount's interface lock. @return null */
void* Build_rec_file_list_thread(void*);

/** Do that on a worker of its own or, when none can be started, in the calling thread. */
void Rebuild_and_release();

/** Delete, once a second while space or file slots are short, the oldest recording. Does not return. */
void* Overlap_thread(void*);

#endif
