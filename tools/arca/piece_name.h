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

/// The filespace that the agent uses when its option file names no VELO_FS.
constexpr const char *kAgentFilespace = "/lumoorc";

/// A name or pattern as people type it.
struct TypedName {
    std::string filespace; ///< empty: only the piece was named
    std::string piece;
};
/// Takes a full name, "/lumoorc//df_12_1" as messages and arca show have it, or the name of a piece
/// apart. A text without "//", or without a slash at its beginning, is the name of a piece. Throws
/// UsageError when the full name has no filespace, or no piece.
TypedName typedName(const std::string &text);

/// Returns the name of the object. A filespace without a slash at its beginning gets one. Throws
/// UsageError when a part is longer than a name may be, or has a NUL.
hoxObjName objectName(std::string_view filespace, std::string_view piece);

/// Returns "df_12_1" of "/lumoorc", "/", "/df_12_1"; when the high-level name is not "/", that and
/// the low-level name.
std::string pieceOf(const hoxObjName &name);
/// Returns all three parts, as the client's messages have them: "/lumoorc//df_12_1". Neither is
/// made printable.
std::string pieceText(const hoxObjName &name);

} // namespace arca::tool

#endif
