#include <iostream>
#include <unistd.h>

#include "ifs.h"
#include "tools/card.h"
#include "tools/commands.h"
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

} // namespace

void format_card(const Context& context, bool yes)
{
    Card card(context.card_path);
    if (!yes)
        ask(context.card_path);
    if (isatty(STDERR_FILENO))
        std::cerr << "Formatting...\n";
    if (Ifsi_format() != 0)
        throw Failure(ExitCode::failed, "the card at '" + context.card_path +
                                            "' cannot be formatted; run again with -v to see why");
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
