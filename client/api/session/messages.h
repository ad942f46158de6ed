// The texts of return codes. Any thread, with or without a set-up; throws std::bad_alloc.
#ifndef KEEL_CLIENT_API_SESSION_MESSAGES_H
#define KEEL_CLIENT_API_SESSION_MESSAGES_H

#include <cstdint>
#include <string>

namespace arca::api
{

/// The number of a text that no return code has: what HOX_RC_NO_MEMORY means when the system
/// refuses a thread. The functions below take it like a code.
constexpr std::int16_t kNoThreadText = 103;

/// Returns the prefix, four digits and a severity letter (I, W, E or S), as "RBS2101E". Of a code
/// that is not ours the last four digits and E.
std::string messageIdentifier(std::int16_t code);

/// Returns an English sentence for any code; a general one for a code that is not ours.
std::string messageSentence(std::int16_t code);

/// Returns identifier and sentence in the language and the code set of the host's locale, which it
/// does not change. Empty when that is English, or no catalogue has this message.
std::string messageInHostLanguage(std::int16_t code);

} // namespace arca::api

#endif
