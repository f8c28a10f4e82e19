/** Frames out of one recording, with the times at which they were taken. */
#ifndef TOOLS_FRAME_READER_H
#define TOOLS_FRAME_READER_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "ifs.h"

struct Frame {
    _ifs_frame_type_ type;
    int64_t time_ms;     /**< since 1970 */
    const uint8_t* data; /**< video in Annex B, audio raw or with ADTS; valid until the reader's next call */
    size_t size;
};

class FrameReader
{
public:
    virtual ~FrameReader() = default;

    /** Read the next frame. Throws Failure (failed). @return false at the end of the recording */
    virtual bool next(Frame* frame) = 0;

    /** Go to the first frame at or after a time, or up to a second later. Throws Failure (failed). */
    virtual void seek(int64_t time_s) = 0;
};

/**
 * Open a recording the way a camera's player does, through the library, which gives the time of an audio
 * frame in whole seconds only. So such a frame gets the time of the picture before it.
 *
 * Throws Failure (failed).
 */
std::unique_ptr<FrameReader> open_for_play(const _ifs_rec_file_& recording);

/**
 * Open a recording through its container, for audio times that are exact. The library keeps it open too, so
 * that it stays on the card. Throws Failure (failed).
 */
std::unique_ptr<FrameReader> open_for_copy(const _ifs_rec_file_& recording);

/** Read on to the first key frame at or after a time. @return false when there is none */
bool read_key_frame_after(FrameReader& reader, int64_t time_ms, Frame* frame);

/**
 * Read the last key frame at or before a time, or the recording's first one when there is none.
 *
 * @param start_s  the recording's start
 * @return false when the recording has no key frame
 */
bool read_key_frame_before(FrameReader& reader, int64_t start_s, int64_t time_ms, Frame* frame);

#endif
