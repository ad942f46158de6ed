// A new password from a person: typed twice without echo, or the first line of standard input.
#ifndef KEEL_TOOLS_ARCA_NEW_PASSWORD_H
#define KEEL_TOOLS_ARCA_NEW_PASSWORD_H

#include "client/base/result.h"

#include <string>

namespace arca::tool
{

/// 1 to 64 characters. `badArgument` when it is not, or when the two do not agree, or when there is
/// no terminal to ask on. The caller wipes it.
Result<std::string> newPassword(const std::string &node, bool fromStandardInput);

} // namespace arca::tool

#endif
