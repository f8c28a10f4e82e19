/** The footage of one stream as one run of frames, across recordings. */
#ifndef TOOLS_FOOTAGE_H
#define TOOLS_FOOTAGE_H

#include <vector>

#include "tools/frame_reader.h"

using OpenReader = std::unique_ptr<FrameReader> (*)(const _ifs_rec_file_&);

/**
 * Frames from the last key frame at or before a time on, up to another time. Gaps between recordings are
 * passed over; where two recordings overlap, the later one goes on where the earlier one ends. Every
 * recording begins with a key frame.
 */
class Footage
{
public:
    /**
     * @param recordings  of one stream, as a search from from_ms to to_ms gives them
     * @param to_ms       frames at or after this time are left out
     */
    Footage(std::vector<_ifs_rec_file_> recordings, int64_t from_ms, int64_t to_ms, OpenReader open_reader);

    /** Read the next frame; valid until the next call. Throws Failure (failed). @return false at the end */
    bool next(Frame* frame);

    /** The recording of the latest frame. */
    const _ifs_rec_file_& recording() const { return m_recordings[m_current]; }

private:
    bool open_current(Frame* frame);
    bool open_first(Frame* frame);

    std::vector<_ifs_rec_file_> m_recordings;
    int64_t m_from_ms;
    int64_t m_to_ms;
    OpenReader m_open_reader;
    size_t m_current = 0;
    bool m_began = false;
    int64_t m_newest_ms = 0; /**< of the video frames so far */
    std::unique_ptr<FrameReader> m_reader;
};

#endif
