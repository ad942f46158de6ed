// See outline.h.
#include "tools/common/command/outline.h"

#include <algorithm>
#include <sstream>
#include <string_view>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace tools
{

namespace
{

void takeFooter(OutlineVerb &outline, const std::string &footer)
{
    constexpr std::string_view kExample = "Example: ";
    std::istringstream lines(footer);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(kExample))
            outline.examples.push_back(line.substr(kExample.size()));
        else if (!line.empty())
            outline.notes += line + "\n";
    }
}

OutlineVerb outlineBelow(const CLI::App &app, std::vector<std::string> path)
{
    OutlineVerb outline;
    path.push_back(app.get_name());
    outline.path = path;
    outline.help = app.get_description();
    takeFooter(outline, app.get_footer());
    const auto shown = [](const CLI::Option *option) { return !option->get_group().empty(); };
    for (const CLI::Option *option : app.get_options(shown))
        outline.options.push_back(outlineOf(*option));
    for (const CLI::App *verb : app.get_subcommands([](const CLI::App *) { return true; }))
        outline.verbs.push_back(outlineBelow(*verb, path));
    return outline;
}

} // namespace

std::vector<std::string> OutlineOption::words() const
{
    std::vector<std::string> words;
    std::istringstream parts(value);
    for (std::string part; std::getline(parts, part, '|');) {
        if (value.find('|') != std::string::npos &&
            part.find_first_not_of("abcdefghijklmnopqrstuvwxyz") == std::string::npos)
            words.push_back(part);
    }
    return words;
}

std::string OutlineVerb::name(const char *between) const
{
    std::string name;
    for (const std::string &part : path)
        name += (name.empty() ? "" : between) + part;
    return name;
}

std::vector<const OutlineVerb *> OutlineVerb::all() const
{
    std::vector<const OutlineVerb *> found = {this};
    for (const OutlineVerb &verb : verbs) {
        const auto below = verb.all();
        found.insert(found.end(), below.begin(), below.end());
    }
    return found;
}

OutlineOption outlineOf(const CLI::Option &option)
{
    OutlineOption outline;
    for (const std::string &name : option.get_snames())
        outline.names.push_back("-" + name);
    for (const std::string &name : option.get_lnames())
        outline.names.push_back("--" + name);
    if (outline.names.empty())
        outline.operand = option.get_name(true);
    else if (option.get_items_expected_max() != 0)
        outline.value = option.get_type_name();
    outline.help = option.get_description();
    if (!option.get_default_str().empty())
        outline.help += fmt::format(" (default: {})", option.get_default_str());
    outline.required = option.get_required();
    outline.repeated = option.get_items_expected_max() > 1;
    return outline;
}

OutlineVerb outlineOf(const CLI::App &program)
{
    return outlineBelow(program, {});
}

} // namespace tools
