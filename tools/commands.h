/** The commands of ifsctl, a source file each. Each throws Failure when it cannot do what was asked. */
#ifndef TOOLS_COMMANDS_H
#define TOOLS_COMMANDS_H

#include <string>

#include "tools/failure.h"
#include "tools/results.h"

/** What every command is given. */
struct Context {
    std::string card_path;
    bool json; /**< results as JSON */
    Results& results;
};

/** Make a virtual card. @param size  as parse_size() takes it */
void create_card(const Context& context, const std::string& size);

/** Erase the card. @param yes  do not ask */
void format_card(const Context& context, bool yes);

/** Describe the card. */
void show_info(const Context& context);

/** Times here and below are texts that parse_time() takes; an empty one is "now" or no bound. */
struct RecordOptions {
    std::string input;
    std::string sub_input; /**< empty: no sub stream */
    std::string start;
    unsigned segment_s = 60;
    bool real_time = false;
};

/** Record inputs. @return ok, or interrupted after a clean close */
ExitCode record(const Context& context, const RecordOptions& options);

struct ListOptions {
    std::string from;
    std::string to;
    std::string stream; /**< empty: both */
};

void list_recordings(const Context& context, const ListOptions& options);

/** Draw a month. @param month  as parse_month() takes it */
void show_calendar(const Context& context, const std::string& month);

struct PlayOptions {
    std::string at;
    std::string stream = "main";
    bool audio = false;
    std::string duration; /**< as parse_duration() takes it; empty: to the end of the footage */
    std::string output = "-";
};

/** @return ok or interrupted */
ExitCode play(const Context& context, const PlayOptions& options);

struct CheckOptions {
    bool repair = false; /**< mend what can be mended */
    bool data = false;   /**< read all footage and verify it */
};

/** Report what is wrong on the card. @return ok or problem */
ExitCode check_card(const Context& context, const CheckOptions& options);

/** The part of the command's help on its findings and results. */
std::string check_footer();

struct ExportOptions {
    std::string from;
    std::string to;
    std::string stream = "main";
    std::string file;
};

/** @return ok or interrupted */
ExitCode export_clip(const Context& context, const ExportOptions& options);

#endif
