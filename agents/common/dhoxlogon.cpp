// Logging on for object maintenance: sessions that no channel opened.
#include <cstring>

#include "agents/common/dhoxapi.h"
#include "common/string/ststring.h"

namespace
{

const char *orNull(const char *text)
{
    return text == nullptr || text[0] == '\0' ? nullptr : text;
}

} // namespace

bool DHoxApi::SetOptionsOverride(const char *options)
{
    const char *text = options == nullptr ? "" : options;
    if (stLength(text, sizeof options_) == sizeof options_) {
        return false;
    }
    return stCopy(options_, text);
}

int DHoxApi::logOn(DBaseApiStatus *status, hoxHandle_t *handle, const DHoxLogonNames &names,
                   const char *password)
{
    const hoxApiVersionEx level{HOX_API_VERSION_EX_VERSION, HOX_API_VERSION, HOX_API_RELEASE,
                                HOX_API_LEVEL, HOX_API_SUBLEVEL};
    hoxInitExIn_t request{};
    request.stVersion = HOX_INITEX_IN_VERSION;
    request.apiVersion = &level;
    request.nodeName = orNull(names.node);
    request.asNodeName = orNull(names.asNode);
    request.ownerName = orNull(names.owner);
    request.password = password;
    request.passwordCallback = password == nullptr ? callback_ : nullptr;
    request.applicationType = "KEEL Oracle SUN";
    request.options = orNull(options_);
    request.clientClass = HOX_CLIENT_DATABASE_AGENT;
    *handle = 0;
    return StartSession([&](int, std::int16_t) {
        hoxInitExOut_t answer{};
        answer.stVersion = HOX_INITEX_OUT_VERSION;
        return dhoxInitEx(status, handle, &request, &answer);
    });
}

int DHoxApi::Logon(DBaseApiStatus *status, hoxHandle_t *handle)
{
    return Logon(status, handle, nullptr);
}

int DHoxApi::Logon(DBaseApiStatus *status, hoxHandle_t *handle, const char *password)
{
    return logOn(status, handle, {nodeName_, nullptr, ownerName_}, password);
}

int DHoxApi::Logon(DBaseApiStatus *status, hoxHandle_t *handle, const char *password,
                   const char *newPassword)
{
    int rc = Logon(status, handle, password);
    if (rc == HOX_RC_OK && (rc = dhoxChangePW(status, *handle, password, newPassword)) != 0) {
        Logoff(status, handle);
    }
    return rc;
}

int DHoxApi::Logon(DBaseApiStatus *status, hoxHandle_t *handle, const DHoxLogonNames &names,
                   const char *password)
{
    return logOn(status, handle, names, password);
}

int DHoxApi::Logoff(DBaseApiStatus *status, hoxHandle_t *handle)
{
    if (*handle == 0) {
        return HOX_RC_OK;
    }
    const std::int16_t rc = dhoxTerminate(status, *handle);
    *handle = 0;
    return rc;
}
