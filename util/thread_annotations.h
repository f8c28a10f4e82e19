#ifndef IFS_UTIL_THREAD_ANNOTATIONS_H
#define IFS_UTIL_THREAD_ANNOTATIONS_H

/**
 * Who may touch what: clang++ checks these beside members and functions (-Wthread-safety), g++ skips them.
 *
 * A member GUARDED_BY a lock is read with the lock held, shared or not, and changed with it held alone. A
 * function REQUIRES locks of its caller, or takes them (ACQUIRE) or gives them back (RELEASE); a
 * SCOPED_CAPABILITY does the one when it is made and the other at its end.
 */
#ifdef __clang__
#define IFS_ANNOTATION(x) __attribute__((x))
#else
#define IFS_ANNOTATION(x)
#endif

#define CAPABILITY(kind) IFS_ANNOTATION(capability(kind))
#define SCOPED_CAPABILITY IFS_ANNOTATION(scoped_lockable)
#define GUARDED_BY(lock) IFS_ANNOTATION(guarded_by(lock))
#define REQUIRES(...) IFS_ANNOTATION(requires_capability(__VA_ARGS__))
#define REQUIRES_SHARED(...) IFS_ANNOTATION(requires_shared_capability(__VA_ARGS__))
#define ACQUIRE(...) IFS_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) IFS_ANNOTATION(release_capability(__VA_ARGS__))
#define EXCLUDES(...) IFS_ANNOTATION(locks_excluded(__VA_ARGS__))
/** From here on the caller counts as one who shares the lock. */
#define ASSERT_SHARED(lock) IFS_ANNOTATION(assert_shared_capability(lock))
/** The reason stands beside it. */
#define NO_THREAD_SAFETY_ANALYSIS IFS_ANNOTATION(no_thread_safety_analysis)

#endif
