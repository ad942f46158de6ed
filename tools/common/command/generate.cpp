// See generate.h.
#include "tools/common/command/generate.h"

#include "tools/common/command/completion.h"
#include "tools/common/command/manual.h"
#include "tools/common/command/outline.h"
#include "tools/common/command/streams.h"
#include "tools/common/command/written_file.h"

#include <filesystem>
#include <string_view>

#include <fmt/format.h>

namespace tools
{

namespace
{

namespace fs = std::filesystem;

bool writeFile(const fs::path &file, const std::string &text)
{
    try {
        fs::create_directories(file.parent_path());
        FileRules rules;
        rules.durable = false;
        writeWhole(file.string(), text, rules);
        return true;
    } catch (const std::exception &failure) {
        complain(fmt::format("{}\n", failure.what()));
        return false;
    }
}

bool writeAll(const OutlineVerb &outline, const std::string &version, const fs::path &share)
{
    const std::string &name = outline.path.front();
    bool good =
        writeFile(share / "bash-completion/completions" / name, bashCompletion(outline)) &&
        writeFile(share / "zsh/vendor-completions" / ("_" + name), zshCompletion(outline)) &&
        writeFile(share / "fish/vendor_completions.d" / (name + ".fish"), fishCompletion(outline));
    for (const OutlineVerb *verb : outline.all())
        good = good && writeFile(share / "man/man1" / (verb->name("-") + ".1"),
                                 manualPage(*verb, outline, version));
    return good;
}

} // namespace

bool generateWhenAsked(const CLI::App &program, const std::string &version, int argc, char **argv,
                       int &status)
{
    if (argc != 3 || std::string_view(argv[1]) != "--generate")
        return false;
    status = writeAll(outlineOf(program), version, argv[2]) ? 0 : 1;
    return true;
}

} // namespace tools
