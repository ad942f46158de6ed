// The options of the storage client: where the repository is, which node this is, who keeps its
// password. They come from an option file; the option string of a session overrides them. Any
// thread may call these, each with Options of its own.
#ifndef KEEL_CLIENT_CONFIG_OPTIONS_H
#define KEEL_CLIENT_CONFIG_OPTIONS_H

#include "client/base/result.h"
#include "client/engine/packs/settings.h"

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
    std::string asNodeName; // the node whose objects are meant; empty: the node's own
    PasswordAccess passwordAccess = PasswordAccess::generate;
    std::string cache;       // directory of this host's caches, or "no"; empty: see cache_place.h
    engine::Settings engine; // how streams are stored
};

/// Sets one option; `keyword` in any case. After a failure the options are unchanged. Errors:
/// badOption and, for a repository, those of its address; the text says what is wrong, not where.
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
/// nothing. When an option is given twice the later one holds. Without a line an option has its
/// default. Errors: badOption, with file and line; for control characters in a value, too.
Result<Options> parseOptionText(std::string_view text, const std::string &file);

/// Reads and parses an option file, a regular file of at most 1 MiB. Errors: badOption, whatever
/// failed.
Result<Options> readOptionFile(const std::string &file);

/// Applies the option string of a session: "-option=value" each, separated by blanks. A '-' begins
/// an option only at the start or after a blank. After a failure the options before the wrong one
/// are set. Errors: badOption, whose text shows the string.
Result<void> applyOptionString(Options &options, std::string_view text);

/// Returns the name of this host's node: NODENAME, else the environment variable HOXO_NODE, else
/// the host name, cut to kMaxNodeName characters. Errors: badArgument when HOXO_NODE is longer;
/// badOption when the host has no name.
Result<std::string> nodeNameFor(const Options &options);

constexpr std::size_t kMaxNodeName = 64;

} // namespace arca::config

#endif
