#include "tools/media_input.h"

#include <algorithm>
#include <cmath>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
}

#include "tools/adts.h"
#include "tools/failure.h"
#include "tools/interrupt.h"

namespace
{

constexpr AVRational microseconds = {1, 1000000};

std::string error_text(int error)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(error, text, sizeof text);
    return text;
}

struct CloseInput {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
struct FreeFilter {
    void operator()(AVBSFContext* context) const { av_bsf_free(&context); }
};
struct FreePacket {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};

int stop_waiting(void*)
{
    return interrupted() ? 1 : 0;
}

/** Whether an Annex B access unit holds an IDR picture and the parameter sets to decode it. */
bool starts_decoding(const AVPacket& packet)
{
    constexpr unsigned needed = 1U << 5 | 1U << 7 | 1U << 8;
    unsigned found = 0;
    for (int i = 0; i + 3 < packet.size && (found & needed) != needed; ++i) {
        const uint8_t* bytes = packet.data + i;
        if (bytes[0] == 0 && bytes[1] == 0 && bytes[2] == 1)
            found |= 1U << (bytes[3] & 0x1F);
    }
    return (found & needed) == needed;
}

int sample_rate_index(int rate_hz)
{
    constexpr int rates_hz[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                22050, 16000, 12000, 11025, 8000,  7350};
    const int* found = std::find(std::begin(rates_hz), std::end(rates_hz), rate_hz);
    return found == std::end(rates_hz) ? -1 : static_cast<int>(found - rates_hz);
}

/** Parameters of an AAC stream, from its configuration or, where its frames carry them, from the demuxer. */
bool read_aac_parameters(const AVCodecParameters& codec, AacParameters* aac)
{
    if (codec.extradata_size > 0)
        return parse_audio_specific_config(codec.extradata, static_cast<size_t>(codec.extradata_size), aac);
    *aac = {sample_rate_index(codec.sample_rate), codec.ch_layout.nb_channels};
    return aac->sample_rate_index >= 0 && aac->channel_conf > 0 && aac->channel_conf <= 7;
}

} // namespace

struct MediaInput::Demuxer {
    std::unique_ptr<AVFormatContext, CloseInput> context;
    std::unique_ptr<AVBSFContext, FreeFilter> to_annex_b;
    std::unique_ptr<AVPacket, FreePacket> packet;
    AVStream* video = nullptr;
    AVStream* audio = nullptr;
};

MediaInput::MediaInput(const std::string& name) : m_name(name), m_demuxer(std::make_unique<Demuxer>())
{
    AVFormatContext* context = avformat_alloc_context();
    if (context)
        context->interrupt_callback.callback = stop_waiting;
    int error = context ? avformat_open_input(&context, name.c_str(), nullptr, nullptr) : AVERROR(ENOMEM);
    if (error < 0)
        reject("cannot be opened (" + error_text(error) + "); name a file with H.264 video");
    m_demuxer->context.reset(context);
    m_demuxer->packet.reset(av_packet_alloc());
    error = avformat_find_stream_info(context, nullptr);
    if (error < 0 || !m_demuxer->packet)
        reject("cannot be read (" + error_text(error) + "); name a file with H.264 video");
    find_video();
    find_audio();
}

MediaInput::~MediaInput() = default;

void MediaInput::reject(const std::string& why) const
{
    throw Failure(ExitCode::bad_media, "'" + m_name + "' " + why);
}

void MediaInput::find_video()
{
    AVFormatContext* context = m_demuxer->context.get();
    int index = av_find_best_stream(context, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (index < 0)
        reject("holds no video; name a file with H.264 video");
    AVStream* stream = m_demuxer->video = context->streams[index];
    if (stream->codecpar->codec_id != AV_CODEC_ID_H264)
        reject(std::string("holds ") + avcodec_get_name(stream->codecpar->codec_id) +
               " video; convert it to H.264, for instance with ffmpeg -c:v libx264");
    AVRational rate = av_guess_frame_rate(context, stream, nullptr);
    double frames_per_second = rate.num > 0 && rate.den > 0 ? av_q2d(rate) : 25;
    m_format.frame_rate = static_cast<int>(std::clamp(std::round(frames_per_second), 1.0, 255.0));
    m_format.width = stream->codecpar->width;
    m_format.height = stream->codecpar->height;

    AVBSFContext* filter = nullptr;
    const AVBitStreamFilter* kind = av_bsf_get_by_name("h264_mp4toannexb");
    if (!kind || av_bsf_alloc(kind, &filter) < 0)
        throw Failure(ExitCode::failed,
                      "this FFmpeg lacks the h264_mp4toannexb filter; install a complete one");
    m_demuxer->to_annex_b.reset(filter);
    filter->time_base_in = stream->time_base;
    if (avcodec_parameters_copy(filter->par_in, stream->codecpar) < 0 || av_bsf_init(filter) < 0)
        reject("holds H.264 without usable parameters; encode it again");
}

void MediaInput::find_audio()
{
    AVFormatContext* context = m_demuxer->context.get();
    int index = av_find_best_stream(context, AVMEDIA_TYPE_AUDIO, -1, m_demuxer->video->index, nullptr, 0);
    if (index < 0)
        return;
    const AVCodecParameters& codec = *context->streams[index]->codecpar;
    if (codec.codec_id != AV_CODEC_ID_AAC)
        reject(std::string("holds ") + avcodec_get_name(codec.codec_id) +
               " sound; convert it to AAC (ffmpeg -c:a aac) or leave it out (ffmpeg -an)");
    AacParameters aac = {};
    if (!read_aac_parameters(codec, &aac))
        reject("holds AAC of a kind that a card does not keep; encode it as AAC-LC (ffmpeg -c:a aac)");
    m_demuxer->audio = context->streams[index];
    m_format.have_audio = true;
    m_format.audio_profile = aac_lc_profile;
    m_format.audio_sample_rate_index = static_cast<SAMPLE_RATE_INDEX_E>(aac.sample_rate_index);
    m_format.audio_channel_conf = aac.channel_conf;
}

int64_t MediaInput::duration_ms() const
{
    int64_t duration_us = m_demuxer->context->duration;
    return duration_us == AV_NOPTS_VALUE ? 0 : duration_us / 1000;
}

bool MediaInput::next(MediaFrame* frame)
{
    while (!interrupted() && read_packet()) {
        int index = m_demuxer->packet->stream_index;
        bool taken = index == m_demuxer->video->index                       ? take_video(frame)
                     : m_demuxer->audio && index == m_demuxer->audio->index ? take_audio(frame)
                                                                            : false;
        if (taken)
            return true;
    }
    return false;
}

bool MediaInput::read_packet()
{
    av_packet_unref(m_demuxer->packet.get());
    int error = av_read_frame(m_demuxer->context.get(), m_demuxer->packet.get());
    if (error < 0 && error != AVERROR_EOF && error != AVERROR_EXIT)
        reject("cannot be read to its end (" + error_text(error) + "); what came before is recorded");
    return error == 0;
}

bool MediaInput::take_video(MediaFrame* frame)
{
    AVPacket* packet = m_demuxer->packet.get();
    if (av_bsf_send_packet(m_demuxer->to_annex_b.get(), packet) < 0 ||
        av_bsf_receive_packet(m_demuxer->to_annex_b.get(), packet) < 0)
        return false;
    int64_t timestamp = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
    int64_t time_us = timestamp == AV_NOPTS_VALUE // a bare H.264 stream carries no times
                          ? av_rescale(m_video_frames, 1000000, m_format.frame_rate)
                          : av_rescale_q(timestamp, m_demuxer->video->time_base, microseconds);
    ++m_video_frames;

    bool is_key = (packet->flags & AV_PKT_FLAG_KEY) != 0 && starts_decoding(*packet);
    if (!m_began && is_key) {
        m_began = true;
        m_origin_us = time_us;
    }
    if (!m_began || time_us < m_origin_us)
        return false;
    *frame = {is_key ? IFS_FRAME_I : IFS_FRAME_P, time_us - m_origin_us, packet->data,
              static_cast<size_t>(packet->size)};
    return true;
}

bool MediaInput::take_audio(MediaFrame* frame)
{
    const AVPacket& packet = *m_demuxer->packet;
    if (!m_began || packet.pts == AV_NOPTS_VALUE)
        return false;
    int64_t time_us = av_rescale_q(packet.pts, m_demuxer->audio->time_base, microseconds) - m_origin_us;
    if (time_us < 0)
        return false;
    *frame = {IFS_FRAME_AUDIO, time_us, packet.data, static_cast<size_t>(packet.size)};
    return true;
}
