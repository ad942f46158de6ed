// A message source: what people write and translate.
//
//   # a comment
//   $prefix RBQ
//   $language EN_US
//   2503E The backup piece "%1$s" exists already.
//         A line that begins with a blank goes on with the text before it.
//
// A text has one line per sentence if need be; the pieces are joined by one blank. Inserts are
// %ARGUMENT$CONVERSION, "%%" is a percent sign, "\n" a new line and "\\" a backslash.
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

/// What is wrong with a source, with file and line in front.
struct SourceError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Reads and checks a source by itself. Throws SourceError.
MessageSource readMessageSource(const std::string &path);

/// Throws unless a translation has the same numbers, severities and inserts as the English source.
void compareWithEnglish(const MessageSource &english, const MessageSource &translation);

#endif
