#include <exception>
#include <iostream>
#include <optional>
#include <thread>

#include "tools/card.h"
#include "tools/commands.h"
#include "tools/interrupt.h"
#include "tools/recordings.h"
#include "tools/stream_recorder.h"
#include "tools/terminal.h"
#include "tools/time_text.h"

namespace
{

/**
 * On a full card the library deletes the oldest recordings, one a second from 10 s after its start. Wait for
 * that, like a camera that is switched on, for as long as there is something to delete.
 */
void wait_for_room()
{
    constexpr auto patience = std::chrono::minutes(2);
    auto deadline = std::chrono::steady_clock::now() + patience;
    unsigned long main_count = 0;
    unsigned long sub_count = 0;
    for (bool told = false; Ifsi_is_full() == 1; told = true) {
        Ifsi_get_file_number(&main_count, &sub_count);
        if (main_count + sub_count == 0 || interrupted() || std::chrono::steady_clock::now() > deadline)
            return;
        if (!told)
            std::cerr << "ifsctl: the card is full; waiting until the oldest recordings are deleted\n";
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
}

/** Run both streams to their end. @return what stopped the first of them that failed, or null */
std::exception_ptr run_streams(StreamRecorder& main, StreamRecorder* sub, RecordingSession& session,
                               int64_t main_duration_ms)
{
    auto run = [&session](StreamRecorder& stream, Progress* progress, std::exception_ptr& failure) {
        try {
            stream.run(progress);
        } catch (...) {
            failure = std::current_exception();
            session.stop = true;
        }
    };
    Progress progress("Recording", main_duration_ms);
    std::exception_ptr main_failure;
    std::exception_ptr sub_failure;
    std::thread sub_thread;
    if (sub)
        sub_thread = std::thread(run, std::ref(*sub), nullptr, std::ref(sub_failure));
    run(main, &progress, main_failure);
    if (sub_thread.joinable())
        sub_thread.join();
    return main_failure ? main_failure : sub_failure;
}

void report(const Context& context, const std::vector<_ifs_rec_file_>& recordings)
{
    if (context.json) {
        context.results.write(
            nlohmann::json{{"interrupted", interrupted()}, {"recordings", recordings_json(recordings)}});
        return;
    }
    if (interrupted())
        std::cerr << "ifsctl: stopped; the recordings are closed and on the card\n";
    context.results.write(recordings_table(recordings, terminal_columns(context.results.fd())));
}

int64_t now_ms()
{
    auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

} // namespace

ExitCode record(const Context& context, const RecordOptions& options)
{
    MediaInput main_input(options.input);
    std::optional<MediaInput> sub_input;
    if (!options.sub_input.empty())
        sub_input.emplace(options.sub_input);
    RecordingSession session{options.start.empty() ? now_ms() : parse_time(options.start),
                             static_cast<int64_t>(options.segment_s) * 1000,
                             options.real_time,
                             {},
                             {false}};

    Card card(context.card_path);
    card.check_writable();
    Ifsi_init();
    card.mount();
    StreamRecorder main(IFS_STREAM_MAIN, main_input, session);
    std::optional<StreamRecorder> sub;
    if (sub_input)
        sub.emplace(IFS_STREAM_SUB, *sub_input, session);
    main.check_start();
    if (sub)
        sub->check_start();
    wait_for_room();

    session.begin = std::chrono::steady_clock::now();
    std::exception_ptr failure = run_streams(main, sub ? &*sub : nullptr, session, main_input.duration_ms());
    std::vector<_ifs_rec_file_> recordings = main.recordings();
    if (sub) {
        std::vector<_ifs_rec_file_> sub_recordings = sub->recordings();
        recordings.insert(recordings.end(), sub_recordings.begin(), sub_recordings.end());
    }
    report(context, recordings);
    if (failure)
        std::rethrow_exception(failure);
    return interrupted() ? ExitCode::interrupted : ExitCode::ok;
}
