// The message repository's entry points.
#include "common/nls/nls.h"

#include "common/string/ststring.h"
#include "common/ut/utmem.h"

#include <cstring>
#include <new>

class nlsObject_t
{
public:
    nlsOutputFns fns{};
};

namespace
{
nlsObject_t *globalObject = nullptr;

const char *builtInText(int msgNum) noexcept
{
    switch (msgNum) {
    case 3:
        return "RBQ0003S An internal processing error has occurred";
    case 2522:
        return "RBQ2522E There is not enough system memory to complete command.";
    default:
        return nullptr;
    }
}
} // namespace

nlsObject_t *newNlsGlobalObject(const nlsOutputFns *fns, int) noexcept
{
    destroyNlsGlobalObject();
    globalObject = new (std::nothrow) nlsObject_t;
    if (globalObject != nullptr && fns != nullptr)
        globalObject->fns = *fns;
    return globalObject;
}

void destroyNlsGlobalObject() noexcept
{
    delete globalObject;
    globalObject = nullptr;
}

nlsObject_t *getNlsGlobalObjectHandle() noexcept
{
    return globalObject;
}

void nlsSetErrorRoutine(nlsOutputFn error) noexcept
{
    if (globalObject != nullptr)
        globalObject->fns.error = error;
}

int nlinit(const char *, int, const char *, cliType_t, unsigned, unsigned, unsigned,
           nlsReturnInfo_t *, const char *) noexcept
{
    return 0;
}

void nlterm() noexcept {}

void psNlsGetReposName(char *out, const char *) noexcept
{
    stCopy(out, 1281, "velo.cat");
}

int nlvsprintf(char *&out, int msgNum, va_list) noexcept
{
    out = utStrdup(builtInText(msgNum));
    return out == nullptr ? 0 : static_cast<int>(std::strlen(out));
}

int nlEngvsprintf(char *&out, int msgNum, va_list arguments) noexcept
{
    return nlvsprintf(out, msgNum, arguments);
}

int nlsprintf(char *&out, int msgNum, ...) noexcept
{
    va_list arguments;
    va_start(arguments, msgNum);
    const int length = nlvsprintf(out, msgNum, arguments);
    va_end(arguments);
    return length;
}

int nlEngsprintf(char *&out, int msgNum, ...) noexcept
{
    va_list arguments;
    va_start(arguments, msgNum);
    const int length = nlEngvsprintf(out, msgNum, arguments);
    va_end(arguments);
    return length;
}

int nlMessage(int, ...) noexcept
{
    return 0;
}

int nlprintf(int, ...) noexcept
{
    return 0;
}

int nlfprintf(FILE *, int, ...) noexcept
{
    return 0;
}

std::uint8_t nlGetMsgSev(int) noexcept
{
    return nlsSevError;
}
