// How work on several threads ends: the first failure of any of them, kept for the caller's thread.
// Guarded by its owner's mutex. A failure stays for good.
#ifndef KEEL_CLIENT_ENGINE_PACKS_OUTCOME_H
#define KEEL_CLIENT_ENGINE_PACKS_OUTCOME_H

#include "client/base/result.h"

#include <exception>
#include <new>
#include <optional>

namespace arca::engine
{

class Outcome
{
public:
    bool failed() const { return failure_ || thrown_ || noMemory_; }
    void fail(Error failure)
    {
        if (!failed())
            failure_ = std::move(failure);
    }
    /// Keeps the exception that is being handled.
    void failByException()
    {
        if (!failed())
            thrown_ = std::current_exception();
    }
    /// Allocates nothing.
    void failForMemory() { noMemory_ = true; }
    /// Returns the failure; what was thrown is thrown again, and bad_alloc for memory.
    Result<void> now() const
    {
        if (thrown_)
            std::rethrow_exception(thrown_);
        if (failure_)
            return *failure_;
        if (noMemory_)
            throw std::bad_alloc();
        return {};
    }

private:
    std::optional<Error> failure_;
    std::exception_ptr thrown_;
    bool noMemory_ = false;
};

} // namespace arca::engine

#endif
