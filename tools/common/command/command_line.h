// The command line of both programs: how it is read, and how --help looks. For the program's first
// thread.
#ifndef KEEL_TOOLS_COMMON_COMMAND_COMMAND_LINE_H
#define KEEL_TOOLS_COMMON_COMMAND_COMMAND_LINE_H

#include "tools/common/command/options.h"

#include <memory>
#include <string>

namespace tools
{

constexpr int kExitFailed = 1, kExitUsage = 2;

/// The program, to which the verbs are added; it owns them and their options. --help folds long
/// texts and shows an option's default in its text.
class Program : public Verb
{
public:
    Program(const std::string &name, const std::string &help);
    ~Program();

    /// Reads the command line into the variables of the options and calls what onChosen() set for
    /// the chosen verb. An empty value of an option or an operand is wrong use, except for
    /// --description; so are the words of doubtful_words.h. Returns false when the program is to
    /// end with `status`: after --help, --version or --generate (generate.h), which fail with 1
    /// when their text cannot be written, and after wrong use (2), which was reported on standard
    /// error. Otherwise `status` is left as it is. Call it once.
    bool read(const std::string &version, int argc, char **argv, int &status);

private:
    explicit Program(std::unique_ptr<CLI::App> app);

    std::unique_ptr<CLI::App> owned_;
};

} // namespace tools

#endif
