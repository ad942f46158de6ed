// The command line of both programs: how it is read, and how --help looks.
#ifndef KEEL_TOOLS_COMMON_COMMAND_LINE_H
#define KEEL_TOOLS_COMMON_COMMAND_LINE_H

#include <string>

namespace CLI
{
class App;
}

namespace tools
{

constexpr int kExitUsage = 2;

/// Before the verbs are added: they take it over. Long texts are folded beside the names of what
/// they are about; an option's default and the variable it comes from stand in its text.
void shapeHelp(CLI::App &program);

/// Reads the command line into what the verbs' options refer to. An empty value of an option or an
/// operand is wrong use, but of --description.
/// False when that was all: help, the version, what is generated (outline.h), or wrong use, which
/// has been said. Then `status` is the exit status.
bool readCommandLine(CLI::App &program, const std::string &version, int argc, char **argv,
                     int &status);

} // namespace tools

#endif
