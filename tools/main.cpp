#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <functional>

extern "C" {
#include <libavutil/log.h>
}

#include "ifs.h"
#include "tools/commands.h"
#include "tools/interrupt.h"
#include "tools/recordings.h"
#include "tools/usage.h"

namespace
{

constexpr const char* footer = R"(
Times are local, like 2026-03-05T10:00:00, or carry their zone, like
2026-03-05T10:00:00+01:00. A date alone stands for the beginning of that day,
after --to for its end.
Results go to standard output, everything else to standard error.

Exit codes:
    0  done
    1  the system failed (reading, writing, memory)
    2  wrong option, argument, time or size
    3  no card at the path, or another process uses it
    4  the card is not formatted
    5  the card is full
    6  the input or the recordings cannot be used: missing, damaged, not H.264,
       sound that is not AAC
    7  no recording at that time
    8  refused: answered no, something of that name exists, or it would lie on
       the card
    9  the check has found a problem
  130  interrupted; recordings were closed cleanly

Example:
  export IFS_CARD=card
  ifsctl create --size 8G
  ifsctl format --yes
  ifsctl record camera.mp4 --segment 60 --start 2026-03-05T10:00
  ifsctl play --at 2026-03-05T10:01:30 | ffplay -)";
constexpr const char* command_footer = "Options, times and exit codes that all commands share: ifsctl --help";

struct Options {
    std::string card_path;
    bool json = false;
    bool verbose = false;
    std::string size;
    bool yes = false;
    RecordOptions record;
    ListOptions list;
    std::string month;
    CheckOptions check;
    PlayOptions play;
    ExportOptions clip;
    std::string topic;
    std::function<ExitCode(const Context&)> command;
};

/** Add a command. @param notes  what its help says behind its options, each line with its end */
CLI::App* add_command(CLI::App& app, const char* name, const char* purpose, const std::string& notes = "")
{
    CLI::App* command = app.add_subcommand(name, purpose);
    command->group("Commands");
    command->footer(notes + command_footer);
    return command;
}

void define_card_commands(CLI::App& app, Options& options)
{
    CLI::App* create = add_command(app, "create", "Make a virtual card, a folder in place of a card");
    create->add_option("--size", options.size, "Its size, like 8G or 8GB")->required()->type_name("SIZE");
    create->callback([&options] {
        options.command = [&options](const Context& context) {
            create_card(context, options.size);
            return ExitCode::ok;
        };
    });
    CLI::App* format = add_command(app, "format", "Erase the card and prepare it for recordings");
    format->add_flag("--yes", options.yes, "Do not ask");
    format->callback([&options] {
        options.command = [&options](const Context& context) {
            format_card(context, options.yes);
            return ExitCode::ok;
        };
    });
    CLI::App* info = add_command(app, "info", "Describe the card");
    info->callback([&options] {
        options.command = [](const Context& context) {
            show_info(context);
            return ExitCode::ok;
        };
    });
}

void define_record(CLI::App& app, RecordOptions& options, Options& all)
{
    CLI::App* command = add_command(app, "record", "Record a file or a live stream",
                                    "The input is H.264, with AAC or no sound.\n"
                                    "When the card is full, its oldest recordings are deleted.\n");
    command->add_option("INPUT", options.input, "File or URL for the main stream")->required()->type_name("");
    command->add_option("--sub-input", options.sub_input, "File or URL for the sub stream")
        ->type_name("INPUT");
    command->add_option("--start", options.start, "Time of the first frame (default: now)")
        ->type_name("TIME");
    command->add_option("--segment", options.segment_s, "Length of a recording; cut at key frames")
        ->check(CLI::Range(1, 86400).description(""))
        ->type_name("SECONDS")
        ->capture_default_str();
    command->add_flag("--realtime", options.real_time, "Record as fast as the stream runs, not faster");
    command->callback(
        [&] { all.command = [&](const Context& context) { return record(context, options); }; });
}

void define_queries(CLI::App& app, Options& options)
{
    CLI::App* list = add_command(app, "list", "List recordings",
                                 "With --json, an array with start, end, duration_s, stream, size_bytes (of\n"
                                 "the file; null: no file), width, height, frame_rate, audio (null: none;\n"
                                 "else codec, profile, sample_rate_hz, channel_conf) and file of each.\n");
    list->add_option("--from", options.list.from, "Leave out what ends before")->type_name("TIME");
    list->add_option("--to", options.list.to, "Leave out what starts after")->type_name("TIME");
    list->add_option("--stream", options.list.stream, "main or sub (default: both)")->type_name("STREAM");
    list->callback([&options] {
        options.command = [&options](const Context& context) {
            list_recordings(context, options.list);
            return ExitCode::ok;
        };
    });
    CLI::App* calendar = add_command(app, "calendar", "Draw a month with the days that hold recordings");
    calendar->add_option("MONTH", options.month, "Month, like 2026-03")->required()->type_name("");
    calendar->callback([&options] {
        options.command = [&options](const Context& context) {
            show_calendar(context, options.month);
            return ExitCode::ok;
        };
    });
}

void define_play(CLI::App& app, PlayOptions& options, Options& all)
{
    CLI::App* command = add_command(app, "play", "Write the frames from a time on",
                                    "Pictures are H.264 in Annex B, from the key frame before that time on;\n"
                                    "sound is AAC in ADTS.\n");
    command->add_option("--at", options.at, "Time to play from")->required()->type_name("TIME");
    command->add_option("--stream", options.stream, "main or sub")
        ->type_name("STREAM")
        ->capture_default_str();
    command->add_flag("--audio", options.audio, "The sound instead of the picture");
    command
        ->add_option("--duration", options.duration,
                     "How long to play, like 90, 10m or 1h\n(default: to the last frame)")
        ->type_name("LENGTH");
    command->add_option("--output", options.output, "File or named pipe, - for standard output")
        ->type_name("FILE")
        ->capture_default_str();
    command->callback([&] { all.command = [&](const Context& context) { return play(context, options); }; });
}

void define_export(CLI::App& app, ExportOptions& options, Options& all)
{
    CLI::App* command = add_command(app, "export", "Copy a time span into one MP4 file");
    command->add_option("--from", options.from, "Start; the clip begins at the key frame before it")
        ->required()
        ->type_name("TIME");
    command->add_option("--to", options.to, "End")->required()->type_name("TIME");
    command->add_option("--stream", options.stream, "main or sub")
        ->type_name("STREAM")
        ->capture_default_str();
    command->add_option("FILE", options.file, "MP4 file to make")->required()->type_name("");
    command->callback(
        [&] { all.command = [&](const Context& context) { return export_clip(context, options); }; });
}

void define_check(CLI::App& app, Options& options)
{
    CLI::App* command = add_command(app, "check", "Report what is wrong on the card, without changing it",
                                    check_footer() + "\n\n");
    command->add_flag("--repair", options.check.repair,
                      "Mend what can be mended without loss: finish\nrecordings, write new index files");
    command->add_flag("--data", options.check.data,
                      "Read all footage, too, and verify by its checksums\nthat it is what was written");
    command->callback([&options] {
        options.command = [&options](const Context& context) { return check_card(context, options.check); };
    });
}

void define_help(CLI::App& app, Options& options)
{
    CLI::App* command = add_command(app, "help", "Describe a command");
    command->add_option("COMMAND", options.topic, "Command to describe (default: the whole tool)")
        ->type_name("");
}

/** An empty value is a script's variable that was never set, not a wish for the default. */
void refuse_empty_values(CLI::App& app)
{
    const auto check = [](const std::string& value) { return value.empty() ? "its value is empty" : ""; };
    const auto has_value = [](const CLI::Option* option) { return option->get_items_expected_max() > 0; };
    for (CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
        for (CLI::Option* option : command->get_options(has_value))
            option->check(check);
}

void define_command_line(CLI::App& app, Options& options)
{
    app.get_formatter()->column_width(26);
    app.get_formatter()->label("SUBCOMMAND", "COMMAND");
    app.get_formatter()->label("Positionals", "Arguments");
    app.set_help_flag("-h,--help", "Show this text");
    app.set_version_flag("--version", IFSCTL_VERSION, "Show the version");
    app.add_option("--card", options.card_path, "Folder of the virtual card (default: $IFS_CARD)")
        ->type_name("FOLDER")
        ->option_text("FOLDER")
        ->envname("IFS_CARD");
    app.add_flag("--json", options.json, "Results as JSON");
    app.add_flag("-v,--verbose", options.verbose, "Show the library's messages, too");
    app.require_subcommand(0, 1);
    app.fallthrough();
    app.footer(footer);
    define_card_commands(app, options);
    define_record(app, options.record, options);
    define_queries(app, options);
    define_play(app, options.play, options);
    define_export(app, options.clip, options);
    define_check(app, options);
    define_help(app, options);
    refuse_empty_values(app);
}

ExitCode run(const Options& options)
{
    if (options.card_path.empty())
        throw Failure(ExitCode::usage, "no card is given; name its folder with --card or in IFS_CARD");
    Results results(options.verbose);
    watch_for_interrupt();
    if (!options.verbose)
        Ifsi_set_debug_level(0);
    av_log_set_level(options.verbose ? AV_LOG_WARNING : AV_LOG_QUIET);
    gFs_max_file_number = file_limit;
    return options.command(Context{options.card_path, options.json, results});
}

int run_command_line(int argc, char** argv)
{
    CLI::App app("Record, find, play and export on a card, the way a camera does.", "ifsctl");
    Options options;
    try {
        define_command_line(app, options);
        app.parse(argc, argv);
    } catch (const CLI::Success& help) {
        return app.exit(help);
    } catch (const CLI::ParseError& error) {
        throw Failure(ExitCode::usage, usage_error(app, error));
    }
    if (app.got_subcommand("help")) {
        show_help(app, options.topic);
        return static_cast<int>(ExitCode::ok);
    }
    if (!options.command)
        throw Failure(ExitCode::usage, "no command is given; see ifsctl --help");
    return static_cast<int>(run(options));
}

int report(ExitCode code, const char* sentence)
{
    std::fprintf(stderr, "ifsctl: %s\n", sentence);
    return static_cast<int>(code);
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return run_command_line(argc, argv);
    } catch (const Failure& failure) {
        return report(failure.code(), failure.what());
    } catch (const std::exception& error) {
        return report(ExitCode::failed, error.what());
    }
}
