/** What ifsctl prints for a call for help, and for a command line that it does not understand. */
#ifndef TOOLS_USAGE_H
#define TOOLS_USAGE_H

#include <string>

namespace CLI
{
class App;
class ParseError;
} // namespace CLI

/** Print the help of a command. @param topic  its name; empty: the help of ifsctl */
void show_help(const CLI::App& app, const std::string& topic);

/** What is wrong with a command line that could not be parsed, and what was meant or where help is. */
std::string usage_error(const CLI::App& app, const CLI::ParseError& error);

#endif
