#include "tools/usage.h"

#include <CLI/CLI.hpp>
#include <cstdio>

#include "tools/failure.h"
#include "tools/suggestion.h"

namespace
{

/** The names of the commands. */
std::vector<std::string> command_names(const CLI::App& app)
{
    std::vector<std::string> names;
    for (const CLI::App* command : app.get_subcommands(nullptr))
        names.push_back(command->get_name());
    return names;
}

/** The sentence about a word that is not known: what was probably meant, or else where help is. */
std::string unknown_word(const std::string& kind, const std::string& word,
                         const std::vector<std::string>& known, const std::string& help)
{
    const std::string closest = closest_name(word, known);
    return "unknown " + kind + " '" + word + "'; " +
           (closest.empty() ? "see " + help : "did you mean '" + closest + "'?");
}

/** What may stand in the place of a word: the options if it is one, else the commands unless one is given. */
std::vector<std::string> expected_words(const CLI::App& app, const CLI::App* command, const std::string& word)
{
    if (word[0] != '-')
        return command == nullptr ? command_names(app) : std::vector<std::string>();
    std::vector<std::string> names;
    for (const CLI::App* level : {&app, command == nullptr ? &app : command})
        for (const CLI::Option* option : level->get_options())
            for (const std::string& name : option->get_lnames())
                names.push_back("--" + name);
    return names;
}

} // namespace

void show_help(const CLI::App& app, const std::string& topic)
{
    if (topic.empty()) {
        std::fputs(app.get_formatter()->make_help(&app, "ifsctl", CLI::AppFormatMode::Normal).c_str(),
                   stdout);
        return;
    }
    const std::vector<const CLI::App*> commands =
        app.get_subcommands([&topic](const CLI::App* command) { return command->get_name() == topic; });
    if (commands.empty())
        throw Failure(ExitCode::usage, unknown_word("command", topic, command_names(app), "ifsctl --help"));
    std::fputs(commands.front()->help("ifsctl").c_str(), stdout);
}

std::string usage_error(const CLI::App& app, const CLI::ParseError& error)
{
    const std::vector<CLI::App*> commands = app.get_subcommands();
    const CLI::App* command = commands.empty() ? nullptr : commands.front();
    const std::string help = command == nullptr ? "ifsctl --help" : "ifsctl help " + command->get_name();
    const std::vector<std::string> unknown = app.remaining(true);
    if (unknown.empty())
        return std::string(error.what()) + "; see " + help;
    const std::string word = unknown.front().substr(0, unknown.front().find('='));
    const char* kind = word[0] == '-' ? "option" : command == nullptr ? "command" : "argument";
    return unknown_word(kind, word, expected_words(app, command, word), help);
}
