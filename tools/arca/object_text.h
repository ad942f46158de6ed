// An object as people and programs are told of it.
#ifndef KEEL_TOOLS_ARCA_OBJECT_TEXT_H
#define KEEL_TOOLS_ARCA_OBJECT_TEXT_H

#include "agents/common/maint/mtquery.h"
#include "tools/arca/command.h"

namespace arca::tool
{

/// Everything that an answer tells, in place of what `row` told of another one: for many, one row
/// costs a third of a fresh one each.
void describe(Json &row, const dhoxBackupObject_t &object);

/// 16 hexadecimal digits.
std::string idText(std::uint64_t id);
/// `badArgument` when it is none.
Result<std::uint64_t> idFrom(const std::string &text);

std::string sizeText(std::uint64_t bytes);

} // namespace arca::tool

#endif
