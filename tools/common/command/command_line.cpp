// See command_line.h.
#include "tools/common/command/command_line.h"

#include "tools/common/command/doubtful_words.h"
#include "tools/common/command/generate.h"
#include "tools/common/command/outline.h"
#include "tools/common/command/streams.h"

#include <cstdio>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace tools
{

namespace
{

constexpr std::size_t kWidth = 100, kNameColumn = 30;

/// Returns the text in lines of at most `width`, where the words allow. An example stays one line,
/// so that it can be copied.
std::string folded(const std::string &text, std::size_t width)
{
    std::string result;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::size_t used = 0;
        for (std::string word; words >> word;) {
            const bool fits = used + 1 + word.size() <= width || line.starts_with("Example: ");
            result += used == 0 ? "" : fits ? " " : "\n";
            used = used != 0 && fits ? used + 1 + word.size() : word.size();
            result += word;
        }
        result += lines.eof() ? "" : "\n";
    }
    return result;
}

class Help : public CLI::Formatter
{
public:
    std::string make_option_opts(const CLI::Option *option) const override
    {
        const OutlineOption told = outlineOf(*option);
        return (told.value.empty() ? "" : " " + told.value) + (told.repeated ? " ..." : "") +
               (told.required && !told.names.empty() ? " REQUIRED" : "");
    }
    std::string make_option_desc(const CLI::Option *option) const override
    {
        return folded(outlineOf(*option).help, kWidth - kNameColumn);
    }
    std::string make_footer(const CLI::App *app) const override
    {
        return folded(app->get_footer(), kWidth) + "\n";
    }
};

/// An empty value is a variable of a script that was never set, and must not mean "every one". A
/// text for people alone may be empty.
void refuseEmptyValues(CLI::App &app)
{
    const CLI::Validator filled(
        [](std::string &value) { return std::string(value.empty() ? "it is empty" : ""); }, "");
    for (CLI::Option *option : app.get_options())
        if (option->get_items_expected_max() != 0 && !option->check_lname("description"))
            option->check(filled);
    for (CLI::App *verb : app.get_subcommands([](const CLI::App *) { return true; }))
        refuseEmptyValues(*verb);
}

} // namespace

Program::Program(const std::string &name, const std::string &help)
    : Program(std::make_unique<CLI::App>(help, name))
{
}

Program::Program(std::unique_ptr<CLI::App> app) : Verb(app.get()), owned_(std::move(app))
{
    // Set before the verbs are added: they inherit it.
    const auto help = std::make_shared<Help>();
    help->column_width(kNameColumn);
    owned_->formatter(help);
}

Program::~Program() = default;

bool Program::read(const std::string &version, int argc, char **argv, int &status)
{
    owned_->set_version_flag("--version", version);
    if (generateWhenAsked(*owned_, version, argc, argv, status))
        return false;
    refuseEmptyValues(*owned_);
    try {
        refuseDoubtfulWords(*owned_, argc, argv);
        owned_->parse(argc, argv);
        return true;
    } catch (const CLI::ParseError &error) {
        const bool asked = error.get_exit_code() == 0; // --help, --version
        status = asked ? owned_->exit(error) : kExitUsage;
        std::cout.flush();
        if (asked && (!std::cout || std::fflush(stdout) != 0 || std::ferror(stdout) != 0)) {
            status = kExitFailed;
            complain(fmt::format("{}: cannot write standard output\n", owned_->get_name()));
        }
        if (!asked)
            complain(fmt::format("{0}: {1} ({0} --help tells more)\n", owned_->get_name(),
                                 error.what()));
        return false;
    }
}

} // namespace tools
