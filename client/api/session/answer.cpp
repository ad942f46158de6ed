// From the store's kinds of failure to return codes, and the last failure of each thread.
#include "client/api/session/answer.h"

#include "client/api/session/messages.h"
#include "client/base/text.h"
#include "client/base/thread.h"

#include <algorithm>
#include <cstring>

namespace arca::api
{

namespace
{

std::int16_t codeOf(ErrorKind kind)
{
    switch (kind) {
    case ErrorKind::notFound:
        return HOX_RC_OBJECT_UNKNOWN;
    case ErrorKind::noFilespace:
        return HOX_RC_FS_UNKNOWN;
    case ErrorKind::exists:
        return HOX_RC_OBJECT_EXISTS;
    case ErrorKind::noRepository:
        return HOX_RC_NO_REPOSITORY;
    case ErrorKind::io:
        return HOX_RC_REPOSITORY_IO;
    case ErrorKind::full:
        return HOX_RC_REPOSITORY_FULL;
    case ErrorKind::readOnly:
        return HOX_RC_REPOSITORY_READ_ONLY;
    case ErrorKind::denied:
        return HOX_RC_ACCESS_DENIED;
    case ErrorKind::damaged:
        return HOX_RC_REPOSITORY_DAMAGED;
    case ErrorKind::newerFormat:
    case ErrorKind::olderFormat:
        return HOX_RC_REPOSITORY_FORMAT;
    case ErrorKind::authentication:
        return HOX_RC_AUTH_FAILURE;
    case ErrorKind::noPassword:
        return HOX_RC_NO_PASS_FILE;
    case ErrorKind::badOption:
        return HOX_RC_BAD_OPTION_FILE;
    case ErrorKind::badArgument:
        return HOX_RC_BAD_ARGUMENT;
    case ErrorKind::stopped:
        return HOX_RC_ABORTED;
    case ErrorKind::conflict:
        return HOX_RC_RETRY_SESSION;
    case ErrorKind::internal:
        return HOX_RC_INTERNAL;
    }
    return HOX_RC_INTERNAL;
}

// Plain memory: the destructor of a thread-local object would run at the end of a thread of the
// host, perhaps while the process exits.
struct LastFailure {
    std::int16_t code;
    std::int16_t text;
    char detail[HOX_MAX_RC_MESSAGE + 1];
};
thread_local LastFailure lastFailure;

} // namespace

Refusal::Refusal(Error error) : Refusal(codeOf(error.kind), std::move(error.text)) {}

Refusal shortage(const std::bad_alloc &shortage) noexcept
{
    Refusal refusal(HOX_RC_NO_MEMORY);
    if (dynamic_cast<const NoThread *>(&shortage) != nullptr)
        refusal.text = kNoThreadText;
    return refusal;
}

Refusal damagedRecords(const std::string &fault, const std::vector<std::string> &blobNames)
{
    std::string text;
    for (const std::string &name : blobNames)
        text += (text.empty() ? "" : ", ") + name;
    return refused(HOX_RC_REPOSITORY_DAMAGED,
                   fault + ": the " +
                       std::string(blobNames.size() == 1 ? "record is " : "records are ") +
                       printable(text, 400));
}

std::int16_t remembered(const Refusal &refusal) noexcept
{
    const std::size_t length =
        std::min<std::size_t>(refusal.detail.size(), sizeof lastFailure.detail - 1);
    lastFailure.code = refusal.code;
    lastFailure.text = refusal.text;
    std::memcpy(lastFailure.detail, refusal.detail.data(), length);
    lastFailure.detail[length] = '\0';
    return refusal.code;
}

const char *lastDetail(std::int16_t code) noexcept
{
    return lastFailure.code == code && lastFailure.detail[0] != '\0' ? lastFailure.detail : nullptr;
}

std::int16_t lastText(std::int16_t code) noexcept
{
    return lastFailure.code == code && code != HOX_RC_OK ? lastFailure.text : code;
}

} // namespace arca::api
