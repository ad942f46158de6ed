// See manual.h.
#include "tools/common/command/manual.h"

#include <algorithm>

#include <fmt/format.h>

namespace tools
{

namespace
{

/// Returns the text with nothing left that troff takes for an escape or a request, and every hyphen
/// as a minus sign that can be copied into a shell.
std::string escaped(const std::string &text)
{
    std::string result;
    bool lineBegins = true;
    for (const char character : text) {
        if (lineBegins && (character == '.' || character == '\''))
            result += "\\&";
        lineBegins = character == '\n';
        if (character == '\\')
            result += "\\e";
        else if (character == '-')
            result += "\\-";
        else
            result += character;
    }
    return result;
}

std::string bold(const std::string &text)
{
    return "\\fB" + escaped(text) + "\\fR";
}

std::string italic(const std::string &text)
{
    return "\\fI" + escaped(text) + "\\fR";
}

std::string sentence(std::string text)
{
    if (!text.empty() && text.front() >= 'a' && text.front() <= 'z')
        text.front() = static_cast<char>(text.front() - 'a' + 'A');
    return text;
}

std::string tagOf(const OutlineOption &option)
{
    if (option.names.empty())
        return italic(option.operand);
    std::string tag;
    for (const std::string &name : option.names)
        tag += (tag.empty() ? "" : ", ") + bold(name);
    return option.value.empty() ? tag : tag + " " + italic(option.value);
}

std::string synopsis(const OutlineVerb &verb)
{
    std::string text = ".SH SYNOPSIS\n" + bold(verb.name(" "));
    if (!verb.verbs.empty())
        return text + " " + italic("VERB") + " ...\n";
    for (const OutlineOption &option : verb.options) {
        if (option.required && !option.names.empty())
            text += " " + bold(option.names.back()) +
                    (option.value.empty() ? "" : " " + italic(option.value));
    }
    text += " [" + italic("OPTION") + "]...";
    for (const OutlineOption &option : verb.options) {
        if (option.names.empty())
            text += (option.required ? " " : " [") + italic(option.operand) +
                    (option.required ? "" : "]") + (option.repeated ? "..." : "");
    }
    return text + "\n";
}

std::string description(const OutlineVerb &verb)
{
    std::string help = sentence(verb.help);
    if (!help.empty() && help.back() != '.')
        help += '.';
    std::string text = ".SH DESCRIPTION\n" + escaped(help) + "\n";
    if (!verb.notes.empty())
        text += ".PP\n" + escaped(verb.notes);
    return text;
}

std::string entries(const OutlineVerb &verb)
{
    std::string text;
    if (!verb.verbs.empty())
        text += ".SH VERBS\n";
    for (const OutlineVerb &below : verb.verbs)
        text += ".TP\n" + bold(below.path.back()) + "\n" + escaped(sentence(below.help)) + ".\n";
    text += ".SH OPTIONS\n";
    for (const OutlineOption &option : verb.options)
        text += ".TP\n" + tagOf(option) + "\n" + escaped(sentence(option.help)) + ".\n";
    return text;
}

std::string examples(const OutlineVerb &verb)
{
    if (verb.examples.empty())
        return {};
    std::string text = ".SH EXAMPLES\n.nf\n";
    for (const std::string &example : verb.examples)
        text += escaped(example) + "\n";
    return text + ".fi\n";
}

std::string seeAlso(const OutlineVerb &verb, const OutlineVerb &program)
{
    std::vector<std::string> pages;
    for (const OutlineVerb *other : program.all()) {
        const std::vector<std::string> &path = other->path;
        const bool above = path.size() < verb.path.size() &&
                           std::equal(path.begin(), path.end(), verb.path.begin());
        const bool below = path.size() == verb.path.size() + 1 &&
                           std::equal(verb.path.begin(), verb.path.end(), path.begin());
        if (above || below)
            pages.push_back(".BR " + escaped(other->name("-")) + " (1)");
    }
    std::string lines;
    for (const std::string &page : pages)
        lines += page + (&page == &pages.back() ? "\n" : ",\n");
    return lines.empty() ? "" : ".SH \"SEE ALSO\"\n" + lines;
}

} // namespace

std::string manualPage(const OutlineVerb &verb, const OutlineVerb &program,
                       const std::string &version)
{
    std::string brief = verb.help.substr(0, verb.help.find('\n'));
    while (!brief.empty() && (brief.back() == '.' || brief.back() == ':'))
        brief.pop_back();
    if (!brief.empty() && brief.front() >= 'A' && brief.front() <= 'Z')
        brief.front() = static_cast<char>(brief.front() - 'A' + 'a');
    return fmt::format(".\\\" Made from the program's own help.\n.TH \"{0}\" 1 \"\" \"{1}\"\n"
                       ".SH NAME\n{0} \\- {2}\n",
                       escaped(verb.name("-")), escaped(version), escaped(brief)) +
           synopsis(verb) + description(verb) + entries(verb) + examples(verb) +
           ".SH \"EXIT STATUS\"\n0 done, 1 failed (the reason in one line), 2 wrong use.\n" +
           seeAlso(verb, program);
}

} // namespace tools
