// From what people call a piece to the name of its object, and back. The agent stores the piece P
// as an object of a filespace with the high-level name "/" and the low-level name "/P".
#ifndef KEEL_TOOLS_ARCA_PIECE_NAME_H
#define KEEL_TOOLS_ARCA_PIECE_NAME_H

#include "client/base/result.h"
#include "client/include/hoxapi.h"

#include <string>
#include <string_view>

namespace arca::tool
{

/// Where the agent stores when its option file names no VELO_FS.
constexpr const char *kAgentFilespace = "/lumoorc";

/// `badArgument` when a part is longer than a name may be.
Result<hoxObjName> objectName(std::string_view filespace, std::string_view piece);

/// "df_12_1" of "/lumoorc", "/", "/df_12_1"; with its high-level name when that is another one.
std::string pieceOf(const hoxObjName &name);
/// All three parts, as the messages of the client have them: "/lumoorc//df_12_1".
std::string pieceText(const hoxObjName &name);

} // namespace arca::tool

#endif
