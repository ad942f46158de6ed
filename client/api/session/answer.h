// What an operation returns: a return code, which is no failure when it says "more data" or
// "finished", or a Refusal: the failing code with a sentence that says more than the general text
// of the code. Values belong to one thread; each thread has a last failure of its own.
#ifndef KEEL_CLIENT_API_SESSION_ANSWER_H
#define KEEL_CLIENT_API_SESSION_ANSWER_H

#include "client/base/result.h"
#include "client/base/thread_storage.h"
#include "client/include/hoxapi.h"
#include "common/thrd/pscancel.h"

#include <new>
#include <string>
#include <vector>

namespace arca::api
{

struct Refusal {
    std::int16_t code;
    std::string detail; // empty: there is nothing to add to the general text
    std::int16_t text;  // the number of the general text; but for kNoThreadText the code

    // Explicit, or a number that is an answer would pass for a failure.
    explicit Refusal(std::int16_t rc, std::string added = {})
        : code(rc), detail(std::move(added)), text(rc)
    {
    }
    Refusal(Error error); // the kind becomes a code, the text the detail
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

/// For what runs out while no memory is left: HOX_RC_NO_MEMORY, with a text of its own when
/// `shortage` is a NoThread. Allocates nothing.
Refusal shortage(const std::bad_alloc &shortage) noexcept;

/// Of records that an answer left out because they cannot be read. `fault`: "SUCH RECORDS cannot be
/// read"; `blobNames`: at least one.
Refusal damagedRecords(const std::string &fault, const std::vector<std::string> &blobNames);

/// Keeps a refusal as this thread's last failure, its detail cut to HOX_MAX_RC_MESSAGE bytes, and
/// returns its code. Allocates nothing.
std::int16_t remembered(const Refusal &refusal) noexcept;

/// Returns the detail of this thread's last failure if that was `code` and had one; else null. The
/// text is the library's, valid until the next failure on this thread.
const char *lastDetail(std::int16_t code) noexcept;

/// Returns the number of the general text of this thread's last failure if that was `code`; else
/// `code`.
std::int16_t lastText(std::int16_t code) noexcept;

/// The border to the host: runs the body of an operation and returns its code. A failure is
/// remembered(), a shortage() too; any other exception becomes HOX_RC_INTERNAL, without a detail. A
/// cancellation of the thread waits until the operation is over.
template <class Body> std::int16_t atBoundary(Body body) noexcept
{
    const psNoCancel noCancel;
    if (!prepareThreadStorage())
        return HOX_RC_NO_MEMORY;
    try {
        Code answer = body();
        return answer ? *answer : remembered(answer.error());
    } catch (const std::bad_alloc &failure) {
        return remembered(shortage(failure));
    } catch (...) {
        return HOX_RC_INTERNAL;
    }
}

} // namespace arca::api

#endif
