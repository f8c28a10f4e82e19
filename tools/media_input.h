/** A file or stream that someone else encoded, as frames to record. */
#ifndef TOOLS_MEDIA_INPUT_H
#define TOOLS_MEDIA_INPUT_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "ifs.h"

struct MediaFormat {
    int width;
    int height;
    int frame_rate; /**< frames per second, rounded */
    bool have_audio;
    int audio_profile; /**< these three as in an ADTS header */
    SAMPLE_RATE_INDEX_E audio_sample_rate_index;
    int audio_channel_conf;
};

struct MediaFrame {
    _ifs_frame_type_ type;
    int64_t time_us; /**< from the first frame */
    const uint8_t* data;
    size_t size;
};

/**
 * The H.264 and AAC of an input. Its first frame is the first key frame that brings its parameter sets; what
 * comes before is left out. Used by one thread.
 */
class MediaInput
{
public:
    /** Open an input, a path or a URL. Throws Failure (bad_media), which says what is wrong with it. */
    explicit MediaInput(const std::string& name);
    ~MediaInput();

    const MediaFormat& format() const { return m_format; }

    /** Length in ms, 0 when it is not known. */
    int64_t duration_ms() const;

    /**
     * Read the next frame. Throws Failure (bad_media).
     *
     * @param frame  its data are valid until the next call
     * @return false at the end, and when the user has asked to stop
     */
    bool next(MediaFrame* frame);

private:
    struct Demuxer;

    void find_video();
    void find_audio();
    bool read_packet();
    bool take_video(MediaFrame* frame);
    bool take_audio(MediaFrame* frame);
    [[noreturn]] void reject(const std::string& why) const;

    std::string m_name;
    MediaFormat m_format = {};
    std::unique_ptr<Demuxer> m_demuxer;
    bool m_began = false;
    int64_t m_origin_us = 0;
    int64_t m_video_frames = 0;
};

#endif
