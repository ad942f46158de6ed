// Completion for shells: verbs, options, the words that an option takes, files.
#ifndef KEEL_TOOLS_COMMON_COMMAND_COMPLETION_H
#define KEEL_TOOLS_COMMON_COMMAND_COMPLETION_H

#include "tools/common/command/outline.h"

namespace tools
{

// Each returns the whole text of the file that the shell loads. They only read the outline.
[[nodiscard]] std::string bashCompletion(const OutlineVerb &program);
[[nodiscard]] std::string zshCompletion(const OutlineVerb &program);
[[nodiscard]] std::string fishCompletion(const OutlineVerb &program);

} // namespace tools

#endif
