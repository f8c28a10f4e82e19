/**
 * ifs: a camera's SD card as a store of timed audio/video recordings.
 *
 * One store per process exists from the moment libifs.so is loaded. Call order: Ifsi_init() once,
 * Ifsi_mount(), then recording, playback and query calls from any thread, Ifsi_umount().
 *
 * Times. Every struct tm is a broken-down UTC time; only tm_sec, tm_min, tm_hour, tm_mday, tm_mon and
 * tm_year are read. Seconds are 32-bit counts since 1970-01-01 00:00:00 UTC.
 *
 * Locks. Three locks order the calls: interface, write, read, always taken in this order. Each call
 * below names those it holds while it runs; it waits for every call that holds one of them. From a
 * successful Ifsi_mount() until the catalogue is built, the interface lock stays held.
 *
 * Results. Unless said otherwise 0 (or a handle or a count) is success and -1 failure, and pointers must
 * not be null. Diagnostics go to standard output, see gIfs_debug_level; they never change a result.
 * No C++ exception leaves a call: when memory runs out the call fails with -1, Ifsi_close() excepted.
 */
#ifndef IFS_H
#define IFS_H

#include <time.h>

#include "kt_mp4.h"

#define IFS_API __attribute__((visibility("default")))

/** Version of this interface, the number behind libifs.so. */
#define IFS_INTERFACE_VERSION 1

/* In C++ an enumeration holds every int only when its type is fixed, and a host may pass any value. */
#if defined(__cplusplus) && __cplusplus >= 201103L
#define IFS_ENUM_INT : int
#else
#define IFS_ENUM_INT
#endif

/* C89 and C++98 have no long long; their compilers do. */
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wlong-long"

#ifdef __cplusplus
extern "C" {
#endif

/** Stream of a recording. Messages call any other value "sub"; Ifsi_create() refuses it. */
typedef enum _ifs_stream_type_ IFS_ENUM_INT {
    IFS_STREAM_MAIN = 0,
    IFS_STREAM_SUB = 1
} _ifs_stream_type_;

/** Kind of an encoded frame. */
typedef enum _ifs_frame_type_ IFS_ENUM_INT {
    IFS_FRAME_I = 0,    /**< video key frame */
    IFS_FRAME_P = 1,    /**< other video frame */
    IFS_FRAME_AUDIO = 3 /**< audio frame */
} _ifs_frame_type_;

/** One recording, as the catalogue knows it. Copied by value. */
typedef struct _ifs_rec_file_ {
    struct tm start_tm;         /**< start, UTC */
    struct tm end_tm;           /**< end, UTC */
    unsigned char video_res;    /**< resolution code, 0 to 99 */
    unsigned char video_system; /**< video system code, 0 to 9 */
    unsigned char frame_rate;   /**< frames per second */
    _ifs_stream_type_ stream_type;
    int width;      /**< pixels */
    int height;     /**< pixels */
    int have_audio; /**< nonzero when there is an audio track */
    int audio_profile;
    int audio_sample_rate_index; /**< a SAMPLE_RATE_INDEX_E value */
    int audio_channel_conf;
    int file_size; /**< bytes */
} _ifs_rec_file_;

/** State of the card, see Ifsi_get_system_info(). Sizes are bytes, 0 when unknown. */
typedef struct _ifs_system_info_ {
    unsigned char have_card; /**< 1 when a card device was found */
    unsigned char formatted; /**< 1 when the store is mounted and knows its size */
    int fs_version;          /**< always 2 */
    int card_fs_version;     /**< 2, or 1 once a card with files of the older naming was mounted */
    unsigned long long dev_size;
    unsigned long long fs_total_size;
    unsigned long long fs_free_size;
} _ifs_system_info_;

/** Bits of gIfs_debug_level. */
enum {
    IFS_DEBUG_ERROR = 0x01,  /**< failures and refusals */
    IFS_DEBUG_TRACE = 0x02,  /**< progress, calls and their results */
    IFS_DEBUG_DETAIL = 0x04, /**< dumps of entries, container information and search results */
    IFS_DEBUG_LEGACY = 0x10  /**< notices of the legacy interface */
};

/* ---- Global state. A host may read and write these variables at any time, without a lock. ---- */

/** Mask of IFS_DEBUG_* bits: which messages are printed. Initially all. */
IFS_API extern unsigned int gIfs_debug_level;
/** Kept for hosts that set it; the library does not use it. Initially 1. */
IFS_API extern int gScan_rec_file_flag;
/** 2; a rebuild sets 1 when the card holds a file of the older naming. */
IFS_API extern int gCard_fs_version;
/** The overlap deletes from this number of recordings on, both streams together; 0 (initially): no limit. */
IFS_API extern unsigned int gFs_max_file_number;
/** 1 after the first successful query of the file system's size. */
IFS_API extern int gHave_got_fs_size;
/** 1 from a successful Ifsi_mount() until the catalogue is built. */
IFS_API extern int gLoading_or_rebuilding_index_file;
/** 1 selects the demo index files, see Ifsi_set_demo_flag(). */
IFS_API extern int gIfs_demo_flag;
/** File format of recordings; 0, MP4, is the only one. */
IFS_API extern int gIfs_file_type;
/** Boot code that Ifsi_format() writes into the partition's boot record. */
IFS_API extern const unsigned char gFat32_dummy_boot_code[448];

/* ---- Settings. None takes a lock. ---- */

/** Choose the messages to print, a mask of IFS_DEBUG_* bits; holds from the next message on. */
IFS_API void Ifsi_set_debug_level(unsigned int level);

/**
 * Switch the deletion of the oldest recordings on (nonzero) or off; initially on.
 * The overlap worker follows at its next tick, at most a second later.
 *
 * @return 0
 */
IFS_API int Ifsi_set_overlap(unsigned char enable);

/** Use index files with the suffix "_demo" from now on; call it before Ifsi_mount(). It cannot be undone. */
IFS_API void Ifsi_set_demo_flag(void);

/** Set gScan_rec_file_flag. */
IFS_API void Ifsi_set_scan_rec_file_flag(int flag);

/* ---- Card ---- */

/**
 * Print the version banner and start the overlap worker, which begins to work after 10 s. Call it once: each
 * further call starts one more worker.
 *
 * @return 0
 */
IFS_API int Ifsi_init(void);

/**
 * Mount the card's first partition as vfat and build the catalogue in the background.
 * Lock: interface; on success it stays held until the catalogue is built, so that every call that needs the
 * lock sees the whole catalogue. Mounting a mounted card again succeeds and builds the catalogue anew.
 *
 * @param mount_point  existing directory; copied
 * @return 0, or -1: no card device under /dev/hd/, or the system refused the mount
 */
IFS_API int Ifsi_mount(const char* mount_point);

/**
 * Unmount the card and empty the catalogue. Lock: interface.
 *
 * @return 0 (also when nothing is mounted), or -1: a playback, a recording or a search is open, or the
 *         system refused; the card then stays mounted
 */
IFS_API int Ifsi_umount(void);

/**
 * Erase the card: a partition table with one partition, and on it an empty FAT32 file system.
 * Lock: interface, for a minute or more.
 *
 * @return 0, or -1: mounted (nothing is touched), no card, or a write failed (the card may be partly written)
 */
IFS_API int Ifsi_format(void);

/** Free space on the card, MiB. */
enum {
    IFS_CREATE_FREE_MIB = 150, /**< a recording begins with more than this */
    IFS_WRITE_FREE_MIB = 100,  /**< and goes on with more than this */
    IFS_OVERLAP_FREE_MIB = 400 /**< below this the oldest recordings are deleted, one a second */
};

/**
 * Report whether space is short for a new recording. Lock: interface.
 *
 * @return 1: less than IFS_CREATE_FREE_MIB are free; 0: not less; -1: not known, for instance not mounted
 */
IFS_API int Ifsi_is_full(void);

/**
 * Describe the card. Lock: interface.
 *
 * @param info  filled; owned by the caller
 * @return 0
 */
IFS_API int Ifsi_get_system_info(_ifs_system_info_* info);

/**
 * Report whether the catalogue is being built. Takes no lock, so it can be polled meanwhile.
 *
 * @return 1 while it is being built, else 0
 */
IFS_API int Ifsi_loading_rebuilding_index_file_flag(void);

/* ---- Recording. File handles are 1 to 32, recordings and playbacks together. ---- */

/**
 * Begin a recording: an MP4 file named after its start, codes and stream. Locks: interface, write.
 *
 * @param start              start time, UTC; read only
 * @param video_system       video system code, 0 to 9
 * @param video_res          resolution code, 0 to 99
 * @param width,height       picture size, pixels
 * @param frame_rate         frames per second, 0 to 255
 * @param audio_profile,sample_rate_index,audio_channel_conf  of the AAC audio; passed to the container
 * @param have_audio         nonzero when audio frames will follow
 * @param stream_type        IFS_STREAM_MAIN or IFS_STREAM_SUB
 * @return a recording handle that Ifsi_close() releases, or -1: not mounted, card full
 *         (IFS_CREATE_FREE_MIB or less free), no free handle, or the file cannot be created (for instance,
 *         one of that name exists)
 */
IFS_API int Ifsi_create(struct tm* start, int video_system, int video_res, int width, int height,
                        int frame_rate, int audio_profile, SAMPLE_RATE_INDEX_E sample_rate_index,
                        int audio_channel_conf, int have_audio, _ifs_stream_type_ stream_type);

/**
 * Append one encoded frame to a recording. Lock: write; it waits for a create or close in progress and for
 * another write, never for a search, a rebuild or a playback read.
 *
 * The frame's bytes are data1 followed by data2; either may be empty (length 0).
 *
 * @param fd         recording handle
 * @param len1,len2  bytes
 * @param pts        presentation time in microseconds; kept with millisecond precision
 * @return 0, or -1: not a recording handle, unknown frame type, card full (IFS_WRITE_FREE_MIB or less free),
 *         or refused by the container. The recording stays open and takes the next frame.
 */
IFS_API int Ifsi_write(int fd, char* data1, int len1, char* data2, int len2, _ifs_frame_type_ type,
                       unsigned long long pts);

/**
 * End a recording or a playback. Locks: interface, write, read.
 *
 * A recording enters the catalogue and its stream's index file. An empty one is deleted, and so is one that
 * cannot be described.
 *
 * @param fd   file handle; an unknown one is reported and ignored
 * @param end  end time of the recording, UTC; null: its start plus its length, in whole seconds
 * @return 0
 */
IFS_API int Ifsi_close(int fd, struct tm* end);

/* ---- Playback ---- */

/**
 * Open a recording by its catalogue entry, from a search for instance. Locks: interface, read.
 *
 * @param rec  its start, stream, resolution code and video system give the file's name; read only
 * @return a playback handle that Ifsi_close() releases, or -1: not mounted, no free handle, no such file
 */
IFS_API int Ifsi_open(_ifs_rec_file_* rec);

/**
 * Open a recording by time. Locks: interface, read.
 *
 * Main stream: the recording that starts in this second. Sub stream: likewise, or else, of those that start
 * on the same day, one that covers the time, one that ends at it, or the next one to start, in this order.
 * Recordings still being written count. Playback begins at the first frame; see Ifsi_tseek().
 *
 * @return a playback handle that Ifsi_close() releases, or -1: not mounted, none found, no free handle
 */
IFS_API int Ifsi_open_v2(struct tm* start, _ifs_stream_type_ stream_type);

/**
 * Open a recording by its file name; a directory in front is ignored. Locks: interface, read.
 *
 * @return a playback handle that Ifsi_close() releases, or -1: not mounted, no free handle, no record file
 *         of that name on the card
 */
IFS_API int Ifsi_open_v3(char* file_name);

/**
 * Describe an open playback or recording as it is now. Lock: read.
 *
 * @param rec  filled on success; owned by the caller
 * @return 0, or -1: unknown handle, or the file cannot be described
 */
IFS_API int Ifsi_stat(int fd, _ifs_rec_file_* rec);

/**
 * Read the next frame, with its frame header in front. Lock: read.
 *
 * The payload begins at buf + 32, directly behind the header. Zeros fill it up to a multiple of 8 bytes.
 *
 * @param size            bytes of buf: at least 39 more than the largest frame
 * @param payload_offset  32
 * @param payload_len     bytes of the payload
 * @param frame_offset    where the header begins: 0 (key frame), 8 (other video) or 24 (audio)
 * @param frame_len       bytes from there to the end of the fill
 * @param frame_type      kind of the frame
 * @param time            time of the frame, seconds
 * @return frame_len; 0 at the end of the recording (outputs untouched); -1: not a playback handle, buffer
 *         too small, or the container failed
 */
IFS_API int Ifsi_read(int fd, char* buf, int size, int* payload_offset, int* payload_len, int* frame_offset,
                      int* frame_len, _ifs_frame_type_* frame_type, int* time);

/**
 * As Ifsi_read(), with the frame moved to the start of buf, header first.
 *
 * @return bytes of the header and the filled-up payload, 0 at the end, -1 on failure
 */
IFS_API int Ifsi_read_v2(int fd, char* buf, int size, _ifs_frame_type_* frame_type, int* time);

/**
 * Read the file's own bytes, for copying it out; independent of the frame position. Lock: read.
 *
 * @param size  bytes wanted
 * @return bytes read, 0 at the end of the file, -1: not a playback handle, or a read error
 */
IFS_API int Ifsi_read_standard(int fd, char* buf, int size);

/**
 * Position Ifsi_read_standard(), as lseek() does with 32-bit offsets. Lock: read.
 *
 * @param whence  SEEK_SET, SEEK_CUR or SEEK_END
 * @return the new offset, or -1
 */
IFS_API int Ifsi_seek(int fd, long offset, int whence);

/**
 * Position a playback: the next frame read is the first one at or after a time. Lock: read.
 *
 * @param time  seconds since 1970; a time before the start leads to the first frame
 * @return 0, or -1: not a playback handle, or the container failed
 */
IFS_API int Ifsi_tseek(int fd, unsigned int time);

/**
 * Give the full path of a catalogue entry's file. Takes no lock.
 *
 * @param name  128 bytes of the caller; a longer path is cut
 * @return 0, or -1 when not mounted
 */
IFS_API int Ifsi_get_file_name(_ifs_rec_file_* rec, char* name);

/**
 * Give the full path of the recording that starts in a second, finished or still being written. Lock: read.
 *
 * @param name  128 bytes of the caller; a longer path is cut
 * @return 0, or -1: not mounted, or none starts then
 */
IFS_API int Ifsi_get_file_name_v2(struct tm* time, _ifs_stream_type_ stream_type, char* name);

/* ---- Queries. Lock of each: interface. ---- */

/**
 * Give the end of the latest finished recording of either stream.
 *
 * @param latest  UTC; all zero when there is none, untouched when not mounted
 * @return 0, -2 when there is none, -3 when not mounted
 */
IFS_API int Ifsi_get_latest_rec_time(struct tm* latest);

/**
 * Search a stream for the recordings that overlap a time range, bounds included. Those still being written
 * count. The result is a snapshot; an open search keeps the card from being unmounted.
 *
 * @return a search handle, 1 to 8, that Ifsi_find_close() releases, or -1: not mounted, or 8 are open
 */
IFS_API int Ifsi_find_open(struct tm* start, struct tm* end, _ifs_stream_type_ stream);

/** End a search. @return 0, also for an unknown handle */
IFS_API int Ifsi_find_close(int handle);

/** Count the recordings that a search holds, fetched ones included. @return 0 for an unknown handle */
IFS_API int Ifsi_find_get_count(int handle);

/**
 * Fetch the next recordings of a search, in the order of their starts. Those that were being written are
 * described as they are now. One that no longer exists is left out.
 *
 * @param count  number of entries that fit in out
 * @return entries written to out; 0 at the end, for an unknown handle and for a count below 1
 */
IFS_API int Ifsi_find_next(int handle, int count, _ifs_rec_file_* out);

/**
 * Mark the local days of the month on which recordings start or end. What lies outside the range does not
 * count.
 *
 * @param start,end  range, UTC, bounds included; a month as a rule
 * @param days       31 bytes of the caller: days[i] becomes 1 for day i + 1, else 0
 * @return 0, or -1 when not mounted (days untouched)
 */
IFS_API int Ifsi_get_rec_calendar(struct tm* start, struct tm* end, _ifs_stream_type_ stream,
                                  unsigned char* days);

/**
 * Count the finished recordings of each stream.
 *
 * @return 0, or -1 when not mounted (both counts 0)
 */
IFS_API int Ifsi_get_file_number(unsigned long* main_number, unsigned long* sub_number);

/* ---- Mount table ---- */

struct mntent;

/**
 * Look up a directory or device in a mount table.
 *
 * @param name   mount directory, one trailing slash allowed, or device; at most 127 characters count
 * @param table  path of the table, or null for /proc/mounts
 * @return the entry, in the C library's static buffer until the next getmntent() of any thread, or null
 */
IFS_API struct mntent* find_mount_point(const char* name, const char* table);

#ifdef __cplusplus
}
#endif

#pragma GCC diagnostic pop

#endif
