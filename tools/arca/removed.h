// Removed pieces as people and programs are told of them.
#ifndef KEEL_TOOLS_ARCA_REMOVED_H
#define KEEL_TOOLS_ARCA_REMOVED_H

#include "client/store/node_space.h"
#include "tools/arca/command.h"

namespace arca::tool
{

/// "df_12_1" of "/lumoorc", "/", "/df_12_1"; the whole name when the high level is another one.
std::string pieceOf(const store::ObjectName &name);
/// Returns true when `pattern` (* and ?) matches what people call the piece or, when it has "//" in
/// it, the whole name. An empty one matches all.
bool isMeant(const store::ObjectName &name, const std::string &pattern);

/// Shows the removed pieces that match: a line each, or the fields "objects", "count" and "size" of
/// `result`. Errors: notFound when none matches a pattern.
Result<void> listRemoved(const Command &command, const std::string &pattern, bool fromStandardInput,
                         Json &result);

} // namespace arca::tool

#endif
