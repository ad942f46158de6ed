// --timing of both programs: where the time of a job went. What is measured is the whole process's,
// from the moment the option was read.
#ifndef KEEL_TOOLS_TIMING_TIMING_H
#define KEEL_TOOLS_TIMING_TIMING_H

#include "tools/common/command/options.h"

#include <nlohmann/json.hpp>

#include <string>

namespace tools
{

/// Adds the option, which sets `asked` and switches measuring on when it is given.
void addTimingOption(tools::Verb verb, bool &asked);

/// Returns what was measured so far, for --json: calls and seconds of each category.
nlohmann::ordered_json timesJson();
/// Returns the same for people: a table with a line for each category, and its share of
/// `jobSeconds`. No moment of a thread is counted twice; with several threads the shares may add up
/// to more than 100 %.
std::string timesText(double jobSeconds);

} // namespace tools

#endif
