// A message source: what people write and translate.
//
//   # a comment
//   $prefix RBQ
//   $language EN_US
//   2503E The backup piece "%1$s" exists already.
//         A line that begins with a blank continues the text before it.
//
// Continued lines are joined by one blank. Inserts are %ARGUMENT$CONVERSION, with arguments 1 to 32
// and all of them shown; "%%" is a percent sign, "\n" a new line and "\\" a backslash. Numbers are
// 1 to 32767, texts at most 3,500 bytes of UTF-8. Used by the build only.
#ifndef KEEL_COMMON_NLS_MSGC_MSGSOURCE_H
#define KEEL_COMMON_NLS_MSGC_MSGSOURCE_H

#include <map>
#include <stdexcept>
#include <string>

struct MessageText {
    char severity;
    std::string text;                        // inserts as the byte 0x11 and '0' + argument
    std::map<unsigned, std::string> inserts; // argument to printf-style conversion
    unsigned line;
};

struct MessageSource {
    std::string path;
    std::string prefix;
    std::string language;
    std::map<unsigned, MessageText> messages;
};

/// Says what is wrong with a source: the file comes first, then the line where there is one.
struct SourceError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Reads a source and checks it without reference to any other. Throws SourceError at the first
/// fault, also when the file cannot be opened.
MessageSource readMessageSource(const std::string &path);

/// Throws SourceError unless the translation has the prefix of the English source and the same
/// numbers, severities and inserts.
void compareWithEnglish(const MessageSource &english, const MessageSource &translation);

#endif
