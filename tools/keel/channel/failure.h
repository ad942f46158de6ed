// How a verb reports that it could not do its work: by throwing. main() prints one line on standard
// error and sets the exit status; destructors undo what is open. So no function of this program
// returns error values.
#ifndef KEEL_TOOLS_KEEL_CHANNEL_FAILURE_H
#define KEEL_TOOLS_KEEL_CHANNEL_FAILURE_H

#include <cstdint>
#include <stdexcept>
#include <string>

namespace keel
{

constexpr int kExitDone = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

/// The work could not be done; exit status 1. sbtCode() is the agent's code, 0 when it was not the
/// agent that refused; reason() is the storage client's, 0 when the agent tells none.
class Failure : public std::runtime_error
{
public:
    explicit Failure(const std::string &text, std::uint32_t sbtCode = 0, std::uint32_t reason = 0)
        : std::runtime_error(text), sbtCode_(sbtCode), reason_(reason)
    {
    }
    [[nodiscard]] std::uint32_t sbtCode() const { return sbtCode_; }
    [[nodiscard]] std::uint32_t reason() const { return reason_; }

private:
    std::uint32_t sbtCode_;
    std::uint32_t reason_;
};

/// The command line asks for something impossible, and nothing was begun; exit status 2.
class UsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

} // namespace keel

#endif
