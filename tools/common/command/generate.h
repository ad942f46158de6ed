// What a program writes about itself when it is packaged: completions and manual.
#ifndef KEEL_TOOLS_COMMON_COMMAND_GENERATE_H
#define KEEL_TOOLS_COMMON_COMMAND_GENERATE_H

#include <string>

namespace CLI
{
class App;
} // namespace CLI

namespace tools
{

/// When the command line is "--generate DIRECTORY", writes the completions (bash, zsh, fish) and
/// the manual (man/man1) of the program there, in the layout of a prefix's share directory, and
/// returns true. `status` is the exit status then; a failure was reported on standard error, and
/// files written before it stay. Nothing is synced.
bool generateWhenAsked(const CLI::App &program, const std::string &version, int argc, char **argv,
                       int &status);

} // namespace tools

#endif
