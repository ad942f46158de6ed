// The command line of both programs: how it is read, and how --help looks.
#ifndef KEEL_TOOLS_COMMON_COMMAND_LINE_H
#define KEEL_TOOLS_COMMON_COMMAND_LINE_H

#include "tools/common/options.h"

#include <memory>
#include <string>

namespace tools
{

constexpr int kExitUsage = 2;

/// The program, to which the verbs are added. In its --help, and that of its verbs, long texts are
/// folded beside the names of what they are about; an option's default stands in its text.
class Program : public Verb
{
public:
    Program(const std::string &name, const std::string &help);
    ~Program();

    /// Reads the command line into what the verbs' options refer to. An empty value of an option or
    /// an operand is wrong use, but of --description.
    /// False when that was all: help, the version, what is generated (outline.h), or wrong use,
    /// which has been said. Then `status` is the exit status.
    bool read(const std::string &version, int argc, char **argv, int &status);

private:
    explicit Program(std::unique_ptr<CLI::App> app);

    std::unique_ptr<CLI::App> owned_;
};

} // namespace tools

#endif
