// See doubtful_words.h.
#include "tools/common/command/doubtful_words.h"

#include "tools/common/text.h"

#include <span>
#include <string>
#include <string_view>

#include <CLI/CLI.hpp>

namespace tools
{

namespace
{

const CLI::Option *optionOf(const CLI::App &verb, const std::string &name)
{
    return verb.get_option_no_throw(name);
}

bool isFlag(const CLI::Option &option)
{
    return option.get_items_expected_max() == 0;
}

bool looksLikeOption(const CLI::App &verb, std::string_view word)
{
    if (word.size() < 2 || word.front() != '-')
        return false;
    return word[1] == '-' || optionOf(verb, std::string(word.substr(0, 2))) != nullptr;
}

/// Returns true when the value of the option that `word` names is the word behind it.
bool takesNextWord(const CLI::App &verb, std::string_view word)
{
    const std::size_t equals = word.find('=');
    const std::string_view value = equals == std::string_view::npos ? "" : word.substr(equals + 1);
    if (word.starts_with("--")) {
        const std::string name(word.substr(0, equals));
        const CLI::Option *option = optionOf(verb, name);
        if (option == nullptr)
            return false; // the library reports it
        if (isFlag(*option) && equals != std::string_view::npos)
            throw CLI::ValidationError(name, "it takes no value");
        if (equals != std::string_view::npos && value.empty())
            throw CLI::ValidationError(name, "nothing is behind its =");
        return !isFlag(*option) && equals == std::string_view::npos;
    }
    // Several flags may share a dash, and the last may be an option, with its value joined. Of
    // flags and a digit the library would make flags and an operand.
    for (std::size_t i = 1; i < word.size(); ++i) {
        const std::string name = {'-', word[i]};
        const CLI::Option *option = optionOf(verb, name);
        if (option == nullptr && i > 1 && word[i] >= '0' && word[i] <= '9')
            throw CLI::ValidationError(name, "there is no such option");
        if (option == nullptr)
            return false;
        const std::string_view rest = word.substr(i + 1);
        if (isFlag(*option) && rest.starts_with('='))
            throw CLI::ValidationError(name, "it takes no value");
        if (!isFlag(*option) && rest.starts_with('='))
            throw CLI::ValidationError(name, rest == "=" ? "nothing is behind its ="
                                                         : "its value is given without a =");
        if (!isFlag(*option))
            return rest.empty();
    }
    return false;
}

const CLI::App *verbOf(const CLI::App &app, const std::string &word)
{
    const auto named =
        app.get_subcommands([&](const CLI::App *verb) { return verb->check_name(word); });
    return named.empty() ? nullptr : named.front();
}

/// The library would take it for a list, and "[a,b]" for the names a and b.
void refuseList(const CLI::App &verb, const std::string &word)
{
    if (word.size() < 2 || word.front() != '[' || word.back() != ']')
        return;
    const auto several = verb.get_options([](const CLI::Option *option) {
        return option->get_positional() && option->get_allow_extra_args();
    });
    if (!several.empty())
        throw CLI::ValidationError(printable(word), "a name in square brackets cannot be told from "
                                                    "a list where several may be given");
}

/// The library would take it for the end of the verb, and drop it: a verb without the only operand
/// that it was given may mean everything.
void refuseEndOfVerb(const std::string &word)
{
    if (word == "++")
        throw CLI::ValidationError(word, "it is a name only behind --");
}

} // namespace

void refuseDoubtfulWords(const CLI::App &program, int argc, const char *const *argv)
{
    const CLI::App *verb = &program;
    const std::span words(argv, static_cast<std::size_t>(argc));
    bool operands = false;
    for (std::size_t i = 1; i < words.size(); ++i) {
        const std::string word = words[i];
        if (word == "--" || operands) {
            operands = true;
            refuseList(*verb, word);
            continue;
        }
        if (word.size() < 2 || word.front() != '-') {
            if (const CLI::App *inner = verbOf(*verb, word))
                verb = inner;
            refuseList(*verb, word);
            refuseEndOfVerb(word);
            continue;
        }
        if (!takesNextWord(*verb, word) || i + 1 == words.size())
            continue;
        const std::string value = words[++i];
        if (looksLikeOption(*verb, value))
            throw CLI::ValidationError(
                word, "its value is missing before " + printable(value) +
                          "; one that is meant to begin so is given as --option=VALUE");
    }
}

} // namespace tools
