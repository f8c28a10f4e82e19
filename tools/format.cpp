#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <dirent.h>
#include <future>
#include <iostream>
#include <unistd.h>

#include "ifs.h"
#include "tools/card.h"
#include "tools/commands.h"
#include "tools/progress.h"
#include "tools/size_text.h"

namespace
{

void ask(const std::string& card_path)
{
    if (!isatty(STDIN_FILENO) || !isatty(STDERR_FILENO))
        throw Failure(ExitCode::refused, "format erases the card at '" + card_path +
                                             "' and there is no terminal to ask at; give --yes to erase it");
    std::cerr << "This erases everything on the card at '" << card_path
              << "'. Type yes to go on: " << std::flush;
    std::string answer;
    if (!std::getline(std::cin, answer) || answer != "yes")
        throw Failure(ExitCode::refused, "the card was left as it is; answer yes to erase it");
}

/** Number of files and folders in the card's folder, which readdir() hides while it is not mounted. */
int64_t count_files(const std::string& folder)
{
    struct dirent64** entries = nullptr;
    const int count = scandir64(folder.c_str(), &entries, nullptr, nullptr);
    for (int i = 0; i < count; ++i)
        free(entries[i]);
    free(entries);
    return std::max(count - 2, 0); // "." and ".."
}

/** Format, and show how many of the card's files are erased meanwhile. @return as Ifsi_format() */
int format_with_progress(const std::string& folder)
{
    std::future<int> result = std::async(std::launch::async, Ifsi_format);
    const int64_t total = std::max<int64_t>(count_files(folder), 1);
    Progress progress("Formatting", total, piece_progress_text);
    while (result.wait_for(std::chrono::milliseconds(200)) != std::future_status::ready)
        progress.update(total - std::min(total, count_files(folder)));
    return result.get();
}

} // namespace

void format_card(const Context& context, bool yes)
{
    Card card(context.card_path);
    card.check_erasable();
    if (!yes)
        ask(context.card_path);
    if (format_with_progress(card.folder()) != 0)
        throw Failure(ExitCode::failed,
                      "the card at '" + context.card_path + "' cannot be formatted, files left on it: " +
                          std::to_string(count_files(card.folder())) + "; run again with -v to see why");
    card.mount();
    _ifs_system_info_ info = {};
    Ifsi_get_system_info(&info);
    if (context.json)
        context.results.write(nlohmann::json{{"card", context.card_path},
                                             {"total_bytes", info.fs_total_size},
                                             {"free_bytes", info.fs_free_size}});
    else
        context.results.write("Formatted the card at " + context.card_path + ": " +
                              size_text(info.fs_free_size) + " free.\n");
}
