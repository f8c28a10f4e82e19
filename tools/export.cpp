#include <cerrno>

#include "kt_mp4.h"
#include "tools/card.h"
#include "tools/commands.h"
#include "tools/container_error.h"
#include "tools/footage.h"
#include "tools/interrupt.h"
#include "tools/output_file.h"
#include "tools/progress.h"
#include "tools/recordings.h"
#include "tools/time_text.h"

namespace
{

/** What one MP4 file has to have in common. */
bool same_format(const _ifs_rec_file_& a, const _ifs_rec_file_& b)
{
    return a.width == b.width && a.height == b.height && a.have_audio == b.have_audio &&
           a.audio_profile == b.audio_profile && a.audio_sample_rate_index == b.audio_sample_rate_index &&
           a.audio_channel_conf == b.audio_channel_conf;
}

std::vector<_ifs_rec_file_> find_footage(_ifs_stream_type_ stream, int64_t from_ms, int64_t to_ms)
{
    std::vector<_ifs_rec_file_> recordings = find_recordings(stream, from_ms / 1000, (to_ms - 1) / 1000);
    if (recordings.empty())
        throw Failure(ExitCode::nothing_found, "the card holds no " + stream_name(stream) +
                                                   " recording of that time; list shows what there is");
    for (const _ifs_rec_file_& recording : recordings) {
        if (!same_format(recording, recordings.front()))
            throw Failure(ExitCode::bad_media, "picture or sound changes its format at " +
                                                   time_text(start_seconds(recording)) +
                                                   "; export the parts before and after it one by one");
    }
    return recordings;
}

/** The clip being written. */
class Clip
{
public:
    Clip(std::string path, const std::string& name, const _ifs_rec_file_& format)
        : m_container(kt_mp4_open(path.data(), format.width, format.height, format.frame_rate,
                                  format.audio_profile, format.audio_sample_rate_index,
                                  format.audio_channel_conf, KT_MP4_CREATE, format.have_audio, 320, 0))
    {
        if (!m_container)
            throw Failure(ExitCode::failed, "cannot create '" + name + "': " + container_error_text(errno));
    }
    ~Clip()
    {
        if (m_container)
            kt_mp4_close(m_container);
    }
    Clip(const Clip&) = delete;
    Clip& operator=(const Clip&) = delete;

    void write(const Frame& frame)
    {
        if (m_frames == 0)
            m_first_ms = frame.time_ms;
        int kind = frame.type == IFS_FRAME_I       ? KT_MP4_VIDEO_KEY
                   : frame.type == IFS_FRAME_AUDIO ? KT_MP4_AUDIO
                                                   : KT_MP4_VIDEO_OTHER;
        char* data = reinterpret_cast<char*>(const_cast<uint8_t*>(frame.data));
        errno = 0;
        if (kt_mp4_write(m_container, kind, data, static_cast<int>(frame.size), nullptr, 0,
                         static_cast<unsigned>(frame.time_ms - m_first_ms)) < 0)
            fail(errno);
        if (errno == ENODATA) // dropped in front of the parameter sets
            return;
        ++m_frames;
        m_last_ms = frame.time_ms;
        m_bytes += frame.size;
    }

    void finish()
    {
        void* container = m_container;
        m_container = nullptr;
        if (kt_mp4_close(container) < 0)
            fail(errno);
        if (m_frames == 0)
            fail(ENODATA);
    }

    int64_t first_ms() const { return m_first_ms; }
    int64_t last_ms() const { return m_last_ms; }
    unsigned long long bytes() const { return m_bytes; }

private:
    [[noreturn]] static void fail(int error)
    {
        throw Failure(ExitCode::failed, "the clip cannot be written: " + container_error_text(error));
    }

    void* m_container;
    unsigned long long m_frames = 0;
    unsigned long long m_bytes = 0;
    int64_t m_first_ms = 0;
    int64_t m_last_ms = 0;
};

void report(const Context& context, const ExportOptions& options, const Clip& clip,
            const std::vector<std::string>& used)
{
    if (context.json) {
        context.results.write(nlohmann::json{{"file", options.file},
                                             {"stream", options.stream},
                                             {"from", time_text_ms(clip.first_ms())},
                                             {"to", time_text_ms(clip.last_ms())},
                                             {"media_bytes", clip.bytes()},
                                             {"recordings", used}});
        return;
    }
    context.results.write("Exported " + time_text_ms(clip.first_ms()) + " to " +
                          time_text_ms(clip.last_ms()) + " out of " + std::to_string(used.size()) +
                          (used.size() == 1 ? " recording to " : " recordings to ") + options.file + ".\n");
}

} // namespace

ExitCode export_clip(const Context& context, const ExportOptions& options)
{
    int64_t from_ms = parse_time(options.from);
    int64_t to_ms = parse_end_time(options.to);
    _ifs_stream_type_ stream = parse_stream(options.stream);
    if (to_ms <= from_ms)
        throw Failure(ExitCode::usage, "--to must be later than --from");
    check_not_on_card(context.card_path, options.file);
    PartFile file(options.file);

    Card card(context.card_path);
    card.mount();
    std::vector<_ifs_rec_file_> recordings = find_footage(stream, from_ms, to_ms);
    Clip clip(file.part_path(), options.file, recordings.front());
    Footage footage(std::move(recordings), from_ms, to_ms, open_for_copy);
    Progress progress("Exporting", to_ms - from_ms);
    std::vector<std::string> used;
    Frame frame = {};
    while (!interrupted() && footage.next(&frame)) {
        clip.write(frame);
        std::string name = file_name(footage.recording());
        if (used.empty() || used.back() != name)
            used.push_back(name);
        progress.update(frame.time_ms - from_ms);
    }
    if (interrupted())
        return ExitCode::interrupted;
    if (used.empty())
        throw Failure(ExitCode::nothing_found,
                      "the recordings hold no picture of that time; list shows what there is");
    clip.finish();
    file.keep();
    report(context, options, clip, used);
    return ExitCode::ok;
}
