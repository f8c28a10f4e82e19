/** One stream on its way to the card. */
#ifndef TOOLS_STREAM_RECORDER_H
#define TOOLS_STREAM_RECORDER_H

#include <atomic>
#include <chrono>
#include <vector>

#include "ifs.h"
#include "tools/media_input.h"
#include "tools/progress.h"

/** What the streams of a recording session have in common. */
struct RecordingSession {
    int64_t start_ms;   /**< time of each input's first frame */
    int64_t segment_ms; /**< a recording ends at the first key frame after this length */
    bool in_real_time;  /**< wait for each frame's time */
    std::chrono::steady_clock::time_point begin;
    std::atomic<bool> stop; /**< set to end the streams */
};

/**
 * Cuts an input at key frames into recordings. A recording starts at the whole second in which its first
 * frame was taken, its timestamps count from there.
 */
class StreamRecorder
{
public:
    /** The three must outlive the object. */
    StreamRecorder(_ifs_stream_type_ stream, MediaInput& input, RecordingSession& session);
    ~StreamRecorder();
    StreamRecorder(const StreamRecorder&) = delete;
    StreamRecorder& operator=(const StreamRecorder&) = delete;

    /** Throws Failure (refused) when the first recording is on the card already. */
    void check_start() const;

    /**
     * Record until the input or the session ends, and close the last recording, also before it throws.
     * Throws Failure: card_full, refused (a recording of that start exists), bad_media, failed.
     *
     * @param progress  kept up to date; may be null
     */
    void run(Progress* progress);

    /** The recordings made, as the card describes them. Call it when run() has returned. */
    std::vector<_ifs_rec_file_> recordings() const;

private:
    void record_frames(Progress* progress);
    void wait_for_time(int64_t time_us) const;
    void begin_recording(int64_t time_us);
    void write(const MediaFrame& frame, int64_t time_us);
    void close(struct tm* end);
    _ifs_rec_file_ entry(int64_t start_s) const;

    _ifs_stream_type_ m_stream;
    MediaInput& m_input;
    RecordingSession& m_session;
    int m_fd = -1;
    int64_t m_cut_us = 0;        /**< the next key frame from this time on begins a recording */
    int64_t m_next_audio_us = 0; /**< earliest timestamp of the next audio frame of the recording */
    std::vector<int64_t> m_starts_s;
};

#endif
