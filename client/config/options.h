// The options of the storage client: where the repository is, who we are, who keeps the password.
// They come from an option file and may be overridden by the option string of a session.
#ifndef KEEL_CLIENT_CONFIG_OPTIONS_H
#define KEEL_CLIENT_CONFIG_OPTIONS_H

#include "client/base/result.h"
#include "client/engine/settings.h"

#include <string>
#include <string_view>

namespace arca::config
{

enum class PasswordAccess {
    prompt,   // the application supplies the password
    generate, // the client made one and keeps it
};

struct Options {
    std::string file;       // the option file they came from
    std::string repository; // as written; empty: none was named
    std::string nodeName;   // empty: none was named
    std::string asNodeName; // whose objects are meant; empty: the node's own
    PasswordAccess passwordAccess = PasswordAccess::generate;
    std::string cache;       // directory of this host's caches, or "no"; empty: see cache_place.h
    engine::Settings engine; // how streams are stored
};

/// Sets one option. `keyword` in any case. The error says what is wrong, not where.
Result<void> setOption(Options &options, std::string_view keyword, std::string_view value);

/// Parses the content of an option file:
///
///   * a comment
///   REPOSITORY      file:///srv/arca/repository
///   NODENAME        dbhost1
///   PASSWORDACCESS  generate
///
/// One option a line: a keyword in any case, blanks, the value to the end of the line, which may be
/// put in double quotes. A line that is empty or begins with an asterisk (after blanks) says
/// nothing. When an option is given twice the later holds. `badOption` names file and line.
Result<Options> parseOptionText(std::string_view text, const std::string &file);

/// Reads and parses an option file, a regular file of at most 1 MiB. `badOption`.
Result<Options> readOptionFile(const std::string &file);

/// Applies the option string of a session: "-option=value" each, separated by blanks. A '-' begins
/// an option only at the start or after a blank. `badOption` shows the string.
Result<void> applyOptionString(Options &options, std::string_view text);

/// The name this host goes by: NODENAME, else the environment's HOXO_NODE, else the host name.
Result<std::string> nodeNameFor(const Options &options);

constexpr std::size_t kMaxNodeName = 64;

} // namespace arca::config

#endif
