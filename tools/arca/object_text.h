// An object as it is shown to people and to programs.
#ifndef KEEL_TOOLS_ARCA_OBJECT_TEXT_H
#define KEEL_TOOLS_ARCA_OBJECT_TEXT_H

#include "agents/common/maint/mtquery.h"
#include "tools/arca/command.h"

namespace arca::tool
{

/// Fills `row` with everything that an answer says of an object, replacing the fields of the object
/// before: for many objects, filling one row again costs a third of making a new one for each.
void describe(Json &row, const dhoxBackupObject_t &object);

/// Returns 16 hexadecimal digits.
std::string idText(std::uint64_t id);
/// Returns the identifier from 1 to 16 hexadecimal digits in any case. Throws UsageError.
std::uint64_t idFrom(const std::string &text);

/// Returns "1.25 GiB", "812 bytes".
std::string sizeText(std::uint64_t bytes);

} // namespace arca::tool

#endif
