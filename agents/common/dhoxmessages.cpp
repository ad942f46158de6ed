// Texts of the storage client's codes and the check of its level, as object maintenance uses them.
#include <cstdio>
#include <memory>
#include <new>

#include "agents/common/dhoxapi.h"
#include "common/string/ststring.h"
#include "common/ut/trace.h"
#include "common/ut/utmem.h"

int DHoxApi::AgtHoxRCMsg(DBaseApiStatus *status, hoxHandle_t handle, std::int16_t rc, char *buffer,
                         unsigned size, unsigned *length)
{
    char text[HOX_MAX_RC_MESSAGE + 1] = "";
    const std::int16_t result = dhoxRCMsg(status, handle, rc, text);
    if (result != HOX_RC_OK) {
        text[0] = '\0';
    }
    if (size != 0) {
        stCopy(buffer, size, text);
    }
    if (length != nullptr) {
        *length = static_cast<unsigned>(stLength(text, sizeof text));
    }
    return result;
}

void DHoxApi::writeLumoServerLog(DBaseApiStatus *status, hoxHandle_t handle, const char *text)
{
    hoxLogEventExIn_t event{};
    event.stVersion = HOX_LOGEVENTEX_VERSION;
    event.severity = HOX_SEVERITY_ERROR;
    event.logType = HOX_LOG_SERVER;
    event.message = text;
    stCopy(event.messageId, sizeof event.messageId, "RBQ0599");
    stCopy(event.appName, sizeof event.appName, "KEEL Oracle SUN");
    stCopy(event.platform, sizeof event.platform, "64bit");
    stCopy(event.appVersion, sizeof event.appVersion, "7.1.3.0");
    hoxLogEventExOut_t answer{};
    dhoxLogEventEx(status, handle, &event, &answer);
}

void DHoxApi::GetApiError(DBaseApiStatus *status, hoxHandle_t handle, std::int16_t rc, char *buffer,
                          unsigned size, unsigned *length)
{
    char text[HOX_MAX_RC_MESSAGE + 1];
    unsigned fullLength = 0;
    if (AgtHoxRCMsg(status, handle, rc, text, sizeof text, &fullLength) != 0 || fullLength == 0) {
        std::snprintf(text, sizeof text, "no text returned for LUMO Api error %d", rc);
        fullLength = static_cast<unsigned>(stLength(text, sizeof text));
    }
    writeLumoServerLog(status, handle, text);
    if (size != 0) {
        stCopy(buffer, size, text);
    }
    if (length != nullptr) {
        *length = fullLength;
    }
}

void DHoxApi::LogApiError(DBaseApiStatus *status, hoxHandle_t handle, std::int16_t rc,
                          const char *where)
{
    char small[256];
    unsigned length = 0;
    GetApiError(status, handle, rc, small, sizeof small, &length);
    char large[HOX_MAX_RC_MESSAGE + 1];
    const char *text = small;
    if (length >= sizeof small) {
        KEEL_TRACE(TR_API, "message was truncated, trying again\n");
        AgtHoxRCMsg(status, handle, rc, large, sizeof large, &length);
        text = large;
    }
    char line[HOX_MAX_RC_MESSAGE + 256];
    std::snprintf(line, sizeof line, "error %d returned from %s: %s", rc, where, text);
    writeLumoServerLog(status, handle, line);
}

int DHoxApi::checkCompatibility(DBaseApiStatus *status, hoxApiVersionEx *version)
{
    static const char *const name = "DHoxApi::checkCompatibility()";
    *version = hoxApiVersionEx{};
    version->stVersion = HOX_API_VERSION_EX_VERSION;
    dhoxQueryApiVersionEx(status, version);
    KEEL_TRACE(TR_API, "%s: ARCA API (Actual): runtime = %d/%d/%d/%d\n", name, version->version,
               version->release, version->level, version->subLevel);
    // A release of 10 or more spills into the version's place. Sites compare the traced number, so
    // the weights stay.
    const std::uint32_t runtime =
        version->version * 10000U + version->release * 1000U + version->level * 100U;
    KEEL_TRACE(TR_API, "%s: ARCA API:runtime=%d, ARCA API:compiletime=%d\n", name,
               static_cast<int>(runtime), static_cast<int>(kCompiledLevel));
    return runtime < kCompiledLevel ? kLevelTooLow : 0;
}
