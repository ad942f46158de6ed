// How an operation answers: a return code, which is no failure when it says "more data" or
// "finished", or a Refusal, the failing code with a sentence that goes beyond the general text of
// the code.
#ifndef KEEL_CLIENT_API_ANSWER_H
#define KEEL_CLIENT_API_ANSWER_H

#include "client/base/result.h"
#include "client/include/hoxapi.h"
#include "common/thrd/pscancel.h"

#include <new>
#include <string>

namespace arca::api
{

struct Refusal {
    std::int16_t code;
    std::string detail; // empty: the general text of the code says it all

    // Explicit, or a number that is an answer would pass for a failure.
    explicit Refusal(std::int16_t rc, std::string text = {}) : code(rc), detail(std::move(text)) {}
    Refusal(Error error); // translated: from here on only codes exist
};

template <class T> using Answer = Expected<T, Refusal>;
using Code = Answer<std::int16_t>;

inline Code success()
{
    return Code(static_cast<std::int16_t>(HOX_RC_OK));
}

inline Code outcome(int code)
{
    return Code(static_cast<std::int16_t>(code));
}

inline Refusal refused(int code, std::string detail = {})
{
    return Refusal(static_cast<std::int16_t>(code), std::move(detail));
}

/// Keeps a refusal as this thread's last failure and gives its code.
std::int16_t remembered(const Refusal &refusal) noexcept;

/// The sentence of this thread's last failure if that was `code`; else null. Valid until the next
/// one.
const char *lastDetail(std::int16_t code) noexcept;

/// The border: runs the body of an operation, and lets neither failure nor exception past but as a
/// code, nor a cancellation of the thread in.
template <class Body> std::int16_t atBoundary(Body body) noexcept
{
    const psNoCancel noCancel;
    try {
        Code answer = body();
        return answer ? *answer : remembered(answer.error());
    } catch (const std::bad_alloc &) {
        return HOX_RC_NO_MEMORY;
    } catch (...) {
        return HOX_RC_INTERNAL;
    }
}

} // namespace arca::api

#endif
