// How a verb says that it could not do its work.
//
// Whatever fails, wherever, ends the verb in the same way: what is open is undone by its
// destructor, one line goes to standard error, and the exit status tells. A thrown Failure does
// exactly that, so nothing in this program hands error values up by hand.
#ifndef KEEL_TOOLS_KEEL_FAILURE_H
#define KEEL_TOOLS_KEEL_FAILURE_H

#include <cstdint>
#include <stdexcept>
#include <string>

namespace keel
{

constexpr int kExitDone = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

/// The work could not be done. sbtCode is 0 when it was not the agent that refused.
class Failure : public std::runtime_error
{
public:
    explicit Failure(const std::string &text, std::uint32_t sbtCode = 0)
        : std::runtime_error(text), sbtCode_(sbtCode)
    {
    }
    [[nodiscard]] std::uint32_t sbtCode() const { return sbtCode_; }

private:
    std::uint32_t sbtCode_;
};

/// The command line asks for something that makes no sense; nothing was begun.
class UsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

} // namespace keel

#endif
