#include <algorithm>
#include <iostream>

#include "tools/adts.h"
#include "tools/card.h"
#include "tools/commands.h"
#include "tools/footage.h"
#include "tools/interrupt.h"
#include "tools/output_file.h"
#include "tools/progress.h"
#include "tools/recordings.h"
#include "tools/time_text.h"

namespace
{

struct Played {
    int64_t first_ms = 0;
    int64_t last_ms = 0;
    unsigned long long frames = 0;
    unsigned long long bytes = 0;
};

/** Throws Failure (nothing_found): no recording covers the time; it names the nearest ones. */
void check_covered(_ifs_stream_type_ stream, int64_t time_s)
{
    if (!find_recordings(stream, time_s, time_s).empty())
        return;
    std::vector<_ifs_rec_file_> before = find_recordings(stream, min_time_s, time_s);
    std::vector<_ifs_rec_file_> after = find_recordings(stream, time_s, max_time_s);
    std::string nearest = before.empty() ? "" : span_text(before.back());
    if (!after.empty())
        nearest += (nearest.empty() ? "" : " and ") + span_text(after.front());
    throw Failure(ExitCode::nothing_found,
                  "no " + stream_name(stream) + " recording covers " + time_text(time_s) +
                      (nearest.empty() ? "; the card holds none" : "; the nearest: " + nearest));
}

class Player
{
public:
    Player(bool audio, OutputFile& output) : m_audio(audio), m_output(output) {}

    /** @return false: whoever reads the frames has enough of them */
    bool play(const Frame& frame, const _ifs_rec_file_& recording)
    {
        if ((m_audio && !write_adts_header(frame, recording)) || !write(frame.data, frame.size))
            return false;
        if (m_played.frames++ == 0)
            m_played.first_ms = frame.time_ms;
        m_played.last_ms = frame.time_ms;
        return true;
    }

    const Played& played() const { return m_played; }

private:
    bool write_adts_header(const Frame& frame, const _ifs_rec_file_& recording)
    {
        if (has_adts_header(frame.data, frame.size))
            return true;
        auto header =
            adts_header({recording.audio_sample_rate_index, recording.audio_channel_conf}, frame.size);
        return write(header.data(), header.size());
    }

    bool write(const void* data, size_t size)
    {
        m_played.bytes += size;
        return m_output.write(data, size);
    }

    bool m_audio;
    OutputFile& m_output;
    Played m_played;
};

void report(const Context& context, const PlayOptions& options, const Played& played)
{
    if (context.json) {
        context.results.write(nlohmann::json{{"output", options.output},
                                             {"stream", options.stream},
                                             {"kind", options.audio ? "audio" : "video"},
                                             {"from", time_text_ms(played.first_ms)},
                                             {"to", time_text_ms(played.last_ms)},
                                             {"frames", played.frames},
                                             {"size_bytes", played.bytes}});
        return;
    }
    std::string sentence = "Played " + std::to_string(played.frames) + (options.audio ? " audio" : " video") +
                           " frames from " + time_text_ms(played.first_ms) + " to " +
                           time_text_ms(played.last_ms) +
                           (options.output == "-" ? "" : " to " + options.output) + ".\n";
    if (options.output == "-")
        std::cerr << sentence;
    else
        context.results.write(sentence);
}

} // namespace

ExitCode play(const Context& context, const PlayOptions& options)
{
    int64_t at_ms = parse_time(options.at);
    _ifs_stream_type_ stream = parse_stream(options.stream);
    if (context.json && options.output == "-")
        throw Failure(ExitCode::usage,
                      "frames and JSON cannot share standard output; name a file with --output");
    if (options.output != "-")
        check_not_on_card(context.card_path, options.output);
    bool to_the_end = options.duration.empty();
    int64_t to_ms = max_time_s * 1000;
    if (!to_the_end)
        to_ms = std::min(to_ms, at_ms + parse_duration(options.duration));

    Card card(context.card_path);
    card.mount();
    check_covered(stream, at_ms / 1000);
    std::vector<_ifs_rec_file_> recordings = find_recordings(stream, at_ms / 1000, to_ms / 1000);
    int64_t end_ms = to_the_end ? end_seconds(recordings.back()) * 1000 : to_ms;
    Footage footage(std::move(recordings), at_ms, to_ms, open_for_play);
    OutputFile output(options.output, context.results.fd());
    Player player(options.audio, output);
    Progress progress("Playing", end_ms - at_ms);
    Frame frame = {};
    while (!interrupted() && footage.next(&frame)) {
        // A picture needs the key frame before it, sound does not.
        bool wanted = options.audio ? frame.type == IFS_FRAME_AUDIO && frame.time_ms >= at_ms
                                    : frame.type != IFS_FRAME_AUDIO;
        if (wanted && !player.play(frame, footage.recording()))
            return ExitCode::ok;
        progress.update(frame.time_ms - at_ms);
    }
    if (interrupted())
        return ExitCode::interrupted;
    if (player.played().frames == 0)
        throw Failure(ExitCode::nothing_found, "the footage at that time holds no " +
                                                   std::string(options.audio ? "sound" : "picture") +
                                                   "; list shows what each recording holds");
    output.finish();
    report(context, options, player.played());
    return ExitCode::ok;
}
