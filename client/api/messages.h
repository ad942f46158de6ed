// The texts of return codes.
#ifndef KEEL_CLIENT_API_MESSAGES_H
#define KEEL_CLIENT_API_MESSAGES_H

#include <cstdint>
#include <string>

namespace arca::api
{

/// "RBS2101E" and so on: the prefix, four digits, a severity letter (I, W, E or S).
std::string messageIdentifier(std::int16_t code);

/// A sentence for any code; a general one for a code that is not ours.
std::string messageSentence(std::int16_t code);

} // namespace arca::api

#endif
