/**
 * ifs_legacy: the older interface of the library, for applications that were written against it.
 *
 * Thirteen calls work: ten rec_*, which forward to the interface of ifs.h, and three fs_*. Their times, locks
 * and results are those of the calls they forward to. All others are placeholders, listed below: an
 * application that names them links, and a call of one ends its process.
 *
 * A stream is 0 for the main stream; any other value stands for the sub stream. Pointers must not be null.
 */
#ifndef IFS_LEGACY_H
#define IFS_LEGACY_H

#include <stdint.h>
#include <time.h>

#include "ifs.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Records, in the caller's memory. The library sets every byte; those without a meaning are 0. ---- */

/** All that is known about one recording. 4,496 bytes on the camera. */
typedef struct record_info_t {
    uint8_t reserved_1[12];
    struct tm start_tm; /**< start, UTC */
    struct tm end_tm;   /**< end, UTC */
    int32_t always_2;
    uint8_t reserved_2[8];
    int64_t file_size; /**< bytes */
    uint8_t reserved_3[4328];
    uint16_t width;      /**< pixels */
    uint16_t height;     /**< pixels */
    uint32_t frame_rate; /**< frames per second */
    int32_t stream;      /**< 0 main, 1 sub */
    int32_t have_audio;  /**< nonzero when there is an audio track */
    int32_t audio_profile;
    int32_t audio_sample_rate_index; /**< a SAMPLE_RATE_INDEX_E value */
    int32_t audio_channel_conf;
    int32_t file_kind; /**< 1: MP4, the only format of recordings */
    uint8_t reserved_4[16];
} record_info_t;

/** A search result: when a recording starts and what its pictures are. 60 bytes on the camera. */
typedef struct record {
    struct tm start_tm; /**< start, UTC */
    int32_t always_0;
    uint16_t width;      /**< pixels */
    uint16_t height;     /**< pixels */
    uint32_t frame_rate; /**< frames per second */
    int32_t stream;      /**< 0 main, 1 sub */
} record;

/** The rest of the same search result. 136 bytes on the camera. */
typedef struct record_stat_t {
    int32_t always_0[2];
    struct tm start_tm; /**< start, UTC */
    struct tm end_tm;   /**< end, UTC */
    int32_t always_4;
    int32_t reserved_1;
    int64_t file_size; /**< bytes */
    int32_t reserved_2;
    int32_t have_audio; /**< nonzero when there is an audio track */
    int32_t audio_profile;
    int32_t audio_sample_rate_index; /**< a SAMPLE_RATE_INDEX_E value */
    int32_t audio_channel_conf;
    int32_t file_kind; /**< 1: MP4, the only format of recordings */
} record_stat_t;

/* ---- Recordings ---- */

/**
 * Mark the days of a range on which the main stream has recordings, as Ifsi_get_rec_calendar() does.
 *
 * @param days  31 bytes of the caller
 * @return as Ifsi_get_rec_calendar()
 */
IFS_API int rec_get_calendar(struct tm* start, struct tm* end, unsigned char* days);

/**
 * Search a stream, as Ifsi_find_open() does.
 *
 * @param ignored  any value
 * @return a search handle that rec_find_close() releases, or -1
 */
IFS_API int rec_find_open(struct tm* start, struct tm* end, int ignored, int stream);

/** End a search. @return 0, also for an unknown handle */
IFS_API int rec_find_close(int handle);

/** Count the recordings that a search holds, fetched ones included. @return 0 for an unknown handle */
IFS_API int rec_find_getcounts(int handle);

/**
 * Fetch the next recordings of a search, in the order of their starts.
 *
 * @param records,stats  arrays of count elements; those behind the results stay untouched
 * @return results written to each array; 0 at the end and for an unknown handle; -1 for a count below 1
 *         or when memory runs out: nothing is written then, and the next call fetches the same results
 */
IFS_API int rec_find_next(int handle, record* records, record_stat_t* stats, int count);

/**
 * Give the full path of the recording that starts in a second, as Ifsi_get_file_name_v2() does.
 *
 * @param name  128 bytes of the caller
 * @return 0 or -1
 */
IFS_API int rec_get_file_name(struct tm* time, int stream, char* name);

/**
 * Open a recording by time for playback, as Ifsi_open_v2() does.
 *
 * @param ignored  any value
 * @return a playback handle that rec_close() releases, or -1
 */
IFS_API int rec_open(int ignored, struct tm* start, int stream);

/** End a recording or a playback, as Ifsi_close() does; end may be null. @return as Ifsi_close() */
IFS_API int rec_close(int handle, struct tm* end);

/**
 * Position a playback by time, as Ifsi_tseek() does.
 *
 * @param time     seconds since 1970
 * @param ignored  any value
 * @param out      receives 0, also when the call fails
 * @return 0 or -1
 */
IFS_API int rec_tseek(int handle, unsigned int time, int ignored, int* out);

/**
 * Describe an open playback or recording as it is now.
 *
 * @param info  filled on success, untouched on failure
 * @return 0, or -1: unknown handle, or the file cannot be described
 */
IFS_API int rec_stat(int handle, record_info_t* info);

/* ---- Card ---- */

/**
 * Find the card's whole-disk device. Takes no lock; works mounted or not.
 *
 * @param device  12 bytes of the caller: receives the path, e.g. "/dev/hd/sda"
 * @param count   receives 1
 * @return 0, or -1: there is no card (outputs untouched)
 */
IFS_API int fs_probe(char* device, int* count);

/** @return 3 */
IFS_API int fs_getgrp(void);

/** @return 0 */
IFS_API int fs_earliest(void);

/* ---- Placeholders. Each prints a notice if IFS_DEBUG_LEGACY is set, and calls exit(1). ---- */

/* clang-format off */

/** The rec_* placeholders; the list is expanded to entry(name) for each. */
#define IFS_LEGACY_REC_PLACEHOLDERS(entry)                                                                   \
    entry(rec_init) entry(rec_exit) entry(rec_bringup_deamon) entry(rec_shutdown_deamon)                     \
    entry(rec_lockdisk) entry(rec_unlockdisk) entry(rec_set_period) entry(rec_is_inited) entry(rec_read)     \
    entry(rec_read_r) entry(rec_write) entry(rec_getcurkframe) entry(rec_getnextkframe)                      \
    entry(rec_getprekframe) entry(rec_ltell) entry(rec_ttell) entry(rec_lseek) entry(rec_chmod)              \
    entry(rec_insertalarm) entry(rec_find_prev) entry(rec_find_reset) entry(rec_find_toend)                  \
    entry(rec_find_channel_next) entry(rec_find_channel_prev) entry(rec_find_channel_getcounts)              \
    entry(rec_find_channel_reset) entry(rec_find_channel_toend) entry(rec_delete) entry(rec_overlap)         \
    entry(rec_setoverlap) entry(rec_clear_exphandle)

/** The fs_* placeholders. */
#define IFS_LEGACY_FS_PLACEHOLDERS(entry)                                                                    \
    entry(fs_system) entry(fs_version) entry(fs_isblockfull) entry(fs_changeblock) entry(fs_init)            \
    entry(fs_exit) entry(fs_lockdisk) entry(fs_unlockdisk) entry(fs_format) entry(fs_mount)                  \
    entry(fs_umount) entry(fs_ismounted) entry(fs_chk) entry(fs_devname) entry(fs_diskid)                    \
    entry(fs_opendisk) entry(fs_datazone_init) entry(fs_datazone_exit) entry(fs_datazone_is_inited)          \
    entry(fs_disk_is_inited) entry(fs_closedisk) entry(fs_cleardisk) entry(fs_chkdata)                       \
    entry(fs_getdiskinfo) entry(fs_isdiskfull) entry(fs_isalldiskfull) entry(fs_timenotify)                  \
    entry(fs_smart_get_size) entry(fs_smart_check_sleep_mode) entry(fs_smart_identify_is_available)          \
    entry(fs_smart_identify_parse) entry(fs_smart_is_available) entry(fs_smart_status)                       \
    entry(fs_smart_read_data) entry(fs_smart_parse) entry(fs_smart_parse_attributes)                         \
    entry(fs_smart_self_test) entry(fs_open) entry(fs_close) entry(fs_read) entry(fs_read_r)                 \
    entry(fs_write) entry(fs_getcurkframe) entry(fs_getnextkframe) entry(fs_getprekframe) entry(fs_ltell)    \
    entry(fs_ttell) entry(fs_lseek) entry(fs_tseek) entry(fs_chmod) entry(fs_stat) entry(fs_insertalarm)     \
    entry(fs_adddisk) entry(fs_removedisk) entry(fs_getdisk) entry(fs_find) entry(fs_delete)                 \
    entry(fs_clear) entry(fs_access) entry(fs_clear_exphandle)

/* clang-format on */

#define IFS_DECLARE_PLACEHOLDER(name) IFS_API void name(void) __attribute__((noreturn));
IFS_LEGACY_REC_PLACEHOLDERS(IFS_DECLARE_PLACEHOLDER)
IFS_LEGACY_FS_PLACEHOLDERS(IFS_DECLARE_PLACEHOLDER)
#undef IFS_DECLARE_PLACEHOLDER

#ifdef __cplusplus
}

/* ---- Conversion of a catalogue entry into each record; C++ only. ---- */

IFS_API void rec_transfer(_ifs_rec_file_* entry, record_info_t* info);
IFS_API void rec_transfer(_ifs_rec_file_* entry, record* result);
IFS_API void rec_transfer(_ifs_rec_file_* entry, record_stat_t* stat);
#endif

#endif
