// --timing of both programs: where the time of a job went.
#ifndef KEEL_TOOLS_TIMING_TIMING_H
#define KEEL_TOOLS_TIMING_TIMING_H

#include "tools/common/options.h"

#include <nlohmann/json.hpp>

#include <string>

namespace tools
{

/// The option, which sets `asked` and switches measuring on.
void addTimingOption(tools::Verb verb, bool &asked);

/// What was measured so far, for --json: calls and seconds of each category.
nlohmann::ordered_json timesJson();
/// The same for people: a line for each, with its share of the whole job.
std::string timesText(double jobSeconds);

} // namespace tools

#endif
