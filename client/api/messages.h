// The texts of return codes.
#ifndef KEEL_CLIENT_API_MESSAGES_H
#define KEEL_CLIENT_API_MESSAGES_H

#include <cstdint>
#include <string>

namespace arca::api
{

/// "RBS2101E" and so on: the prefix, four digits, a severity letter (I, W, E or S).
std::string messageIdentifier(std::int16_t code);

/// An English sentence for any code; a general one for a code that is not ours.
std::string messageSentence(std::int16_t code);

/// Identifier and sentence in the language and the code set of the host's locale. Empty where that
/// is English, and where there is no catalogue, or none with this message.
std::string messageInHostLanguage(std::int16_t code);

} // namespace arca::api

#endif
