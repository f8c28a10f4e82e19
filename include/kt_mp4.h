/**
 * The container library that the host process provides to libifs.
 *
 * libifs writes and reads MP4 files only through these seven functions and leaves them undefined:
 * a host links libkt_mp4.a, or an implementation of its own that keeps the same contract.
 *
 * Times are milliseconds unless said otherwise. A handle may be used by one thread at a time,
 * except that kt_mp4_getinfo() may run beside any other call but kt_mp4_close() on the same handle.
 *
 * A call that fails sets errno: to one of the values that stand with it, to ENOMEM, or to what a system call
 * reported (EIO, EACCES, EROFS, ...).
 */
#ifndef KT_MP4_H
#define KT_MP4_H

#ifdef __cplusplus
extern "C" {
#endif

/** Sampling-rate index of AAC audio, as an AudioSpecificConfig and an ADTS header carry it. */
typedef enum SAMPLE_RATE_INDEX_E {
    SAMPLE_RATE_INDEX_96000 = 0,
    SAMPLE_RATE_INDEX_88200 = 1,
    SAMPLE_RATE_INDEX_64000 = 2,
    SAMPLE_RATE_INDEX_48000 = 3,
    SAMPLE_RATE_INDEX_44100 = 4,
    SAMPLE_RATE_INDEX_32000 = 5,
    SAMPLE_RATE_INDEX_24000 = 6,
    SAMPLE_RATE_INDEX_22050 = 7,
    SAMPLE_RATE_INDEX_16000 = 8,
    SAMPLE_RATE_INDEX_12000 = 9,
    SAMPLE_RATE_INDEX_11025 = 10,
    SAMPLE_RATE_INDEX_8000 = 11,
    SAMPLE_RATE_INDEX_7350 = 12
} SAMPLE_RATE_INDEX_E;

/** Modes of kt_mp4_open(); a mode with the bit KT_MP4_CREATE creates, any other with KT_MP4_READ reads. */
enum {
    KT_MP4_READ = 1,   /**< play an existing file from its first frame */
    KT_MP4_CREATE = 2, /**< make a new file; a path that exists is refused */
    /** Open an existing file for kt_mp4_getinfo() only, in at most 1 MiB of memory; reads no payload of a
       finished one. A file that cannot be read now (an I/O error, no free descriptor), or not by this
       version, opens too, with a description that is 0 but for the name: it may be a recording; do not delete
       it. */
    KT_MP4_PROBE = 4
};

/** Frame kinds of kt_mp4_write() and kt_mp4_read(). */
enum {
    KT_MP4_VIDEO_KEY = 0, /**< H.264 access unit with an IDR picture, Annex B, start codes of 3 or 4 bytes */
    KT_MP4_VIDEO_OTHER = 1, /**< any other H.264 access unit, Annex B */
    KT_MP4_AUDIO = 2        /**< one AAC access unit, raw or with an ADTS header */
};

/** Description of a file; 180 bytes on every platform. */
typedef struct kt_mfile_info_t {
    char name[144];              /**< file name without its folder, NUL-terminated, cut where it is longer */
    int width;                   /**< picture width, pixels */
    int height;                  /**< picture height, pixels */
    int frame_rate;              /**< frames per second */
    int firstpts;                /**< timestamp of the first frame, ms */
    int duration;                /**< length of the recording, ms, the last frame's own time included */
    int have_audio;              /**< nonzero when there is an audio track */
    int audio_profile;           /**< as given at create */
    int audio_sample_rate_index; /**< as given at create */
    int audio_channel_conf;      /**< as given at create */
} kt_mfile_info_t;

/**
 * Open a file for reading or probing, or create one.
 *
 * The seven picture and audio values describe a file to create; otherwise they are 0.
 * A created file stays at 0 bytes until the first key frame with its parameter sets arrives. It is locked
 * (flock) while it is written.
 *
 * An interrupted recording opens with all that reached the file as it was written; of what lies behind the
 * last sync, frames in damaged pieces of 64 KiB are left out. Opening finishes it, if the file can be read to
 * its end and written and nobody records into it; no frame in it is overwritten. KT_MP4_PROBE leaves a long
 * one to KT_MP4_READ. A file that is being recorded opens with what was flushed; a read at its end goes on
 * with what was flushed later. A file of 0 bytes opens as a recording without frames, its description 0 but
 * for the name.
 *
 * MP4 files of other writers open when they hold H.264 or AAC in a moov box with sample tables. Their other
 * tracks and their edit lists are passed over, and their key frames come with the parameter sets in front.
 *
 * @param path  full path; copied
 * @param frame_rate     frames per second, from 1 to 1000; with any other value the last frame lasts 40 ms
 * @param audio_profile  kept and given back. Raw frames count as AAC LC of the given rate and channels; the
 *                       values of ADTS headers replace all three.
 * @param mode  KT_MP4_READ, KT_MP4_CREATE or KT_MP4_PROBE
 * @param have_audio  0: audio frames are refused
 * @param reserved1,reserved2  320 and 0; ignored
 * @return a handle that kt_mp4_close() releases, or NULL: the path exists (EEXIST, create) or does not
 *         (ENOENT), it is no MP4 file or too damaged (EBADMSG), of another version or too large to be played
 *         (ENOTSUP), a null path or an unknown mode (EINVAL). A file whose probe fails with ENOMEM may be a
 *         recording; do not delete it.
 */
void* kt_mp4_open(char* path, int width, int height, int frame_rate, int audio_profile,
                  int audio_sample_rate_index, int audio_channel_conf, int mode, int have_audio,
                  int reserved1, int reserved2);

/**
 * Append one frame to a created file. The frame's bytes are data1 followed by data2; either may be empty.
 *
 * Frames in front of the first key frame that has its parameter sets (SPS and PPS) are dropped, with result
 * 0 and errno ENODATA. Frames are collected and written in one piece at each key frame, after 2 s or 1 MiB at
 * the latest, and made durable at least every 5 s of their own time.
 *
 * @param kind       KT_MP4_VIDEO_KEY, KT_MP4_VIDEO_OTHER or KT_MP4_AUDIO
 * @param timestamp  ms; may step back or wrap, and is given back exactly. Where it steps back for another
 *                   reason than B frames, the duration goes on as if a frame's time had passed.
 * @return 0, or negative: not a created file (EBADF), a bad argument or audio in a file without (EINVAL), no
 *         Annex B start code in front, not H.264 or not one AAC access unit (EILSEQ), the file would pass
 *         2 GiB - 1, its tables 32 MiB or the frame 256 MiB (EFBIG), the card is full (ENOSPC), another I/O
 * error. The frame is then refused; the file stays whole and takes the next frame. Collected frames that
 * could not be written are kept and tried again.
 */
int kt_mp4_write(void* handle, int kind, char* data1, int len1, char* data2, int len2,
                 unsigned int timestamp);

/**
 * Copy the next frame of a file opened for reading into buf, in the order in which the frames were written.
 * Video comes as Annex B with 4-byte start codes, audio as it was written.
 *
 * @param capacity  size of buf in bytes
 * @return the frame's length (> 0), 0 at the end of the file (kind and timestamp untouched), negative on
 *         failure (kind and timestamp untouched): the frame is larger than capacity (EMSGSIZE) or an I/O
 *         error (the position stays before it), a damaged frame (EBADMSG; the next one follows), not open
 *         for reading (EBADF), a bad argument (EINVAL)
 */
int kt_mp4_read(void* handle, int* kind, char* buf, int capacity, unsigned int* timestamp);

/**
 * Position a file opened for reading: the next kt_mp4_read() returns the first frame, of any kind and in
 * file order, whose time is at or after the offset. A caller that must decode the picture there seeks
 * earlier and reads on from a key frame.
 *
 * @param offset  ms from the first frame
 * @return 0, or negative: not open for reading (EBADF). An offset past the end leads to the end of the file.
 */
int kt_mp4_seek_read(void* handle, unsigned int offset);

/**
 * Describe a file. For one being written: what has been written so far, flushed or not. The duration never
 * shrinks and is never negative, whatever the timestamps do.
 *
 * @return 0, or -1 with *info untouched: a null argument (EINVAL)
 */
int kt_mp4_getinfo(void* handle, kt_mfile_info_t* info);

/**
 * Make all frames written so far durable. Harmless on a file opened for reading.
 *
 * @return 0, or negative: null handle (EBADF), the card is full (ENOSPC) or another I/O error (the frames
 *         are kept and tried again)
 */
int kt_mp4_flush(void* handle);

/**
 * Finalise a created file and release the handle, whatever the result.
 *
 * @return 0, or negative: null handle (EBADF), or the file could not be finalised (what was flushed is still
 *         playable): the card is full (ENOSPC) or another I/O error, of several the first
 */
int kt_mp4_close(void* handle);

#ifdef __cplusplus
}
#endif

#endif
