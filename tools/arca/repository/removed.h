// Removed pieces as they are shown to people and to programs.
#ifndef KEEL_TOOLS_ARCA_REPOSITORY_REMOVED_H
#define KEEL_TOOLS_ARCA_REPOSITORY_REMOVED_H

#include "client/store/space/node_space.h"
#include "tools/arca/command.h"

namespace arca::tool
{

/// Returns "df_12_1" of "/lumoorc", "/", "/df_12_1"; the whole name when the high-level name is not
/// "/".
std::string pieceOf(const store::ObjectName &name);
/// Returns true when `pattern` (* and ?) matches pieceOf(name) or, when the pattern has "//" in it,
/// the whole name. An empty pattern matches all. Throws UsageError as typedName() does.
bool isMeant(const store::ObjectName &name, const std::string &pattern);

/// Logs on, as logOn() does, and shows the removed pieces that match: a line each, or the fields
/// "objects", "count", "size" and "graceSeconds" of `result`. Errors: those of logOn(); notFound
/// when none matches a pattern; damaged, after all were shown, when the grace time cannot be read.
Result<void> listRemoved(const Command &command, const std::string &pattern, bool fromStandardInput,
                         Json &result);

} // namespace arca::tool

#endif
