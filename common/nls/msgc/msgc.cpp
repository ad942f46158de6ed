// The message compiler, a tool of the build.
//
//   msgc catalogue ENGLISH SOURCE OUTPUT   checks SOURCE, against ENGLISH as well, and writes what
//                                          gencat reads
//   msgc types ENGLISH OUTPUT              writes the rows of the table of argument types
//   msgc texts ENGLISH OUTPUT              writes the rows of a table of texts without inserts
//
// The stored form of a message is drawn in nlsmsg.cpp and nlsinserts.cpp.
#include "common/nls/msgc/msgsource.h"
#include "common/nls/nlsinserts.h"

#include <cstdio>
#include <fstream>
#include <iostream>

namespace
{
constexpr char pseudoNull = 0x10;

std::string storedForm(const MessageSource &source, unsigned number, const MessageText &message)
{
    char identifier[32];
    std::snprintf(identifier, sizeof identifier, "%s%04u%c ", source.prefix.c_str(), number,
                  message.severity);
    std::string stored = identifier + message.text;
    if (message.inserts.empty())
        return stored;
    stored += pseudoNull;
    stored += static_cast<char>('0' + message.inserts.size());
    for (const auto &[argument, conversion] : message.inserts) {
        nlsConversion parsed{};
        nlsParseConversion(conversion, parsed);
        stored += static_cast<char>('0' + argument);
        stored += nlsKindOf(parsed);
        stored += conversion;
        stored += pseudoNull;
    }
    return stored;
}

std::string quoted(const std::string &text)
{
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            out += '\\';
        if (c == '\n')
            out += "\\n";
        else
            out += c;
    }
    return out + '"';
}

void writeCatalogue(const MessageSource &source, std::ostream &out)
{
    out << "$ codeset=UTF-8\n$set 1\n$quote \"\n";
    for (const auto &[number, message] : source.messages)
        out << number << ' ' << quoted(storedForm(source, number, message)) << '\n';
}

void writeTypes(const MessageSource &source, std::ostream &out)
{
    out << "// Generated from " << source.language << ": {number, conversions of the arguments},\n";
    for (const auto &[number, message] : source.messages) {
        std::string types;
        for (const auto &[argument, conversion] : message.inserts)
            types += (types.empty() ? "" : ",") + conversion;
        out << "{" << number << ", \"" << types << "\"},\n";
    }
}

void writeTexts(const MessageSource &source, std::ostream &out)
{
    out << "// Generated from " << source.language << ": {number, severity letter, text},\n";
    for (const auto &[number, message] : source.messages) {
        if (!message.inserts.empty())
            throw SourceError(source.path + ": a built-in text has no inserts");
        out << "{" << number << ", '" << message.severity << "', " << quoted(message.text)
            << "},\n";
    }
}

int run(int argc, char **argv)
{
    const std::string verb = argc > 1 ? argv[1] : "";
    const bool catalogue = verb == "catalogue" && argc == 5;
    if (!catalogue && !((verb == "types" || verb == "texts") && argc == 4)) {
        std::cerr
            << "usage: msgc catalogue ENGLISH SOURCE OUTPUT | msgc types|texts ENGLISH OUTPUT\n";
        return 2;
    }
    const MessageSource english = readMessageSource(argv[2]);
    std::ofstream out(argv[argc - 1]);
    if (catalogue) {
        const MessageSource source = readMessageSource(argv[3]);
        compareWithEnglish(english, source);
        writeCatalogue(source, out);
    } else if (verb == "types") {
        writeTypes(english, out);
    } else {
        writeTexts(english, out);
    }
    out.close();
    if (!out) {
        std::cerr << argv[argc - 1] << ": cannot be written\n";
        return 1;
    }
    return 0;
}
} // namespace

int main(int argc, char **argv)
{
    try {
        return run(argc, argv);
    } catch (const std::exception &error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
