// See completion.h.
#include "tools/common/command/completion.h"

#include <algorithm>

#include <fmt/format.h>

namespace tools
{

namespace
{

std::string joined(const std::vector<std::string> &parts, const char *between)
{
    std::string text;
    for (const std::string &part : parts)
        text += (text.empty() ? "" : between) + part;
    return text;
}

std::string replaced(std::string text, const std::string &what, const std::string &by)
{
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size())
        text.replace(at, what.size(), by);
    return text;
}

/// Puts the text in single quotes for bash and zsh. fish, where a backslash escapes within quotes,
/// has fishQuoted().
std::string quoted(const std::string &text)
{
    return "'" + replaced(text, "'", "'\\''") + "'";
}

std::string fishQuoted(const std::string &text)
{
    return "'" + replaced(replaced(text, "\\", "\\\\"), "'", "\\'") + "'";
}

/// Returns the first line, for a menu.
std::string brief(const std::string &help)
{
    return help.substr(0, help.find('\n'));
}

/// Returns everything that may follow the verb: its verbs and options.
std::string offers(const OutlineVerb &verb)
{
    std::vector<std::string> words;
    for (const OutlineVerb &below : verb.verbs)
        words.push_back(below.path.back());
    for (const OutlineOption &option : verb.options)
        words.insert(words.end(), option.names.begin(), option.names.end());
    return joined(words, " ");
}

/// Returns the branches of a case for the word after an option that takes a value.
std::string bashValues(const OutlineVerb &verb)
{
    std::string text;
    for (const OutlineOption &option : verb.options) {
        if (option.value.empty() || option.names.empty())
            continue;
        std::vector<std::string> patterns;
        for (const std::string &name : option.names)
            patterns.push_back(quoted(verb.name(" ") + " " + name));
        const std::string words = joined(option.words(), " ");
        text +=
            fmt::format("    {})\n        {}\n        return ;;\n", joined(patterns, " | "),
                        option.takesFile() ? "compopt -o filenames\n        mapfile -t COMPREPLY "
                                             "< <(compgen -f -- \"$current\")"
                        : words.empty()    ? "COMPREPLY=()"
                                        : fmt::format("mapfile -t COMPREPLY < <(compgen -W {} -- "
                                                      "\"$current\")",
                                                      quoted(words)));
    }
    return text;
}

/// Escapes a text for _arguments, which takes brackets and colons for its own syntax.
std::string zshText(std::string text)
{
    for (const char *special : {"\\", "[", "]", ":"})
        text = replaced(text, special, std::string("\\") + special);
    return text;
}

std::string zshAction(const OutlineOption &option)
{
    const std::string words = joined(option.words(), " ");
    return option.takesFile() ? "_files" : words.empty() ? " " : "(" + words + ")";
}

std::string zshOption(const OutlineOption &option)
{
    if (option.names.empty())
        return fmt::format(" \\\n        {}",
                           quoted(fmt::format("{}:{}:{}", option.repeated ? "*" : "",
                                              zshText(option.operand), zshAction(option))));
    std::string text;
    for (const std::string &name : option.names) {
        std::string entry = name + "[" + zshText(brief(option.help)) + "]";
        if (!option.value.empty())
            entry += ":" + zshText(option.value) + ":" + zshAction(option);
        text += " \\\n        " + quoted("(" + joined(option.names, " ") + ")" + entry);
    }
    return text;
}

std::string zshFunction(const OutlineVerb &verb)
{
    std::string text = fmt::format("_{}() {{\n", verb.name("_"));
    std::string options;
    for (const OutlineOption &option : verb.options)
        options += zshOption(option);
    if (verb.verbs.empty())
        return text + fmt::format("    _arguments -s{}\n}}\n\n", options);
    text += "    local curcontext=\"$curcontext\" state line\n    local -a verbs\n    verbs=(\n";
    for (const OutlineVerb &below : verb.verbs)
        text += "        " + quoted(below.path.back() + ":" + zshText(brief(below.help))) + "\n";
    text += fmt::format("    )\n    _arguments -C{} \\\n        '1:verb:->verb' \\\n        "
                        "'*::argument:->argument'\n    case $state in\n    verb) _describe verb "
                        "verbs ;;\n    argument)\n        case $line[1] in\n",
                        options);
    for (const OutlineVerb &below : verb.verbs)
        text += fmt::format("        {}) _{} ;;\n", below.path.back(), below.name("_"));
    return text + "        esac ;;\n    esac\n}\n\n";
}

/// Returns the condition that the words so far lead to the verb and to none below it.
std::string fishCondition(const OutlineVerb &verb)
{
    std::string condition;
    for (std::size_t i = 1; i < verb.path.size(); ++i)
        condition += (i == 1 ? "" : "; and ") + ("__fish_seen_subcommand_from " + verb.path[i]);
    if (verb.path.size() == 1)
        return "__fish_use_subcommand";
    std::vector<std::string> below;
    for (const OutlineVerb &inner : verb.verbs)
        below.push_back(inner.path.back());
    if (!below.empty())
        condition += "; and not __fish_seen_subcommand_from " + joined(below, " ");
    return condition;
}

std::string fishOption(const OutlineOption &option)
{
    std::string text;
    for (const std::string &name : option.names)
        text += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
    if (option.value.empty())
        return text;
    if (option.takesFile())
        return text + " -r -F";
    const std::string words = joined(option.words(), " ");
    return text + " -x" + (words.empty() ? "" : " -a " + fishQuoted(words));
}

} // namespace

std::string bashCompletion(const OutlineVerb &program)
{
    const std::string &name = program.path.front();
    std::string verbs;
    std::string values;
    std::string choices;
    for (const OutlineVerb *verb : program.all()) {
        if (verb->path.size() > 1)
            verbs += (verbs.empty() ? "" : " | ") + quoted(verb->name(" "));
        values += bashValues(*verb);
        choices +=
            fmt::format("    {}) offered={} ;;\n", quoted(verb->name(" ")), quoted(offers(*verb)));
    }
    return fmt::format(R"(# bash completion of {0}
_{0}() {{
    local current=${{COMP_WORDS[COMP_CWORD]}} before=${{COMP_WORDS[COMP_CWORD-1]}}
    local verb={0} offered= i
    for ((i = 1; i < COMP_CWORD; i++)); do
        case "$verb ${{COMP_WORDS[i]}}" in
        {1}) verb="$verb ${{COMP_WORDS[i]}}" ;;
        esac
    done
    case "$verb $before" in
{2}    esac
    case $verb in
{3}    esac
    mapfile -t COMPREPLY < <(compgen -W "$offered" -- "$current")
}}
complete -o bashdefault -o default -F _{0} {0}
)",
                       name, verbs, values, choices);
}

std::string zshCompletion(const OutlineVerb &program)
{
    const std::string &name = program.path.front();
    std::string text = fmt::format("#compdef {}\n\n", name);
    for (const OutlineVerb *verb : program.all())
        text += zshFunction(*verb);
    return text + fmt::format("_{} \"$@\"\n", name);
}

std::string fishCompletion(const OutlineVerb &program)
{
    const std::string &name = program.path.front();
    std::string text = fmt::format("# fish completion of {0}\ncomplete -c {0} -f\n", name);
    for (const OutlineVerb *verb : program.all()) {
        const std::string condition = fishQuoted(fishCondition(*verb));
        for (const OutlineVerb &below : verb->verbs)
            text += fmt::format("complete -c {} -n {} -a {} -d {}\n", name, condition,
                                below.path.back(), fishQuoted(brief(below.help)));
        for (const OutlineOption &option : verb->options) {
            if (!option.names.empty())
                text += fmt::format("complete -c {} -n {}{} -d {}\n", name, condition,
                                    fishOption(option), fishQuoted(brief(option.help)));
        }
    }
    return text;
}

} // namespace tools
