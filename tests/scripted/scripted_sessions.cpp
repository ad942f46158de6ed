// The operations of the scripted storage client that move no object: set-up, sessions, filespaces,
// messages and events.

#include "tests/scripted/scripted_call.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <sys/stat.h>

static ScriptedClient theClient;

ScriptedClient *scriptedClient()
{
    return &theClient;
}

std::string scriptedFields(const char *format, ...)
{
    char line[4096];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    return line;
}

static void fillOptions(optStruct *options)
{
    *options = {};
    std::strcpy(options->serverName, "scripted");
    std::strcpy(options->nodeName, theClient.nodeName.c_str());
    options->passwordAccess = theClient.passwordAccess;
}

extern "C" {

OPERATION(hoxSetUp)(int multithread, const envSetUp *env)
{
    struct stat program = {};
    if (env->argv && stat(env->argv[0], &program) == 0)
        theClient.programName = env->argv[0];
    CALL("hoxSetUp", "mt=%d argv=%d program=%o config=%s logName=%s", multithread,
         env->argv != nullptr, program.st_mode & 07777U, env->hoxiConfig, env->logName);
    return 0;
}

BARE_OPERATION(hoxCleanUp, 0, int)

SCRIPTED_EXPORT void hoxQueryApiVersionEx(hoxApiVersionEx *version)
{
    *version = theClient.level;
}

SCRIPTED_EXPORT void hoxQueryApiVersion(hoxApiVersion *version)
{
    *version = {theClient.level.version, theClient.level.release, theClient.level.level};
}

OPERATION(hoxQueryCliOptions)(optStruct *options)
{
    BARE_CALL("hoxQueryCliOptions");
    fillOptions(options);
    return 0;
}

OPERATION(hoxInitEx)(hoxHandle_t *handle, const hoxInitExIn_t *input, hoxInitExOut_t *)
{
    char asked[HOX_MAX_PASSWORD + 1] = "";
    if (input->passwordCallback && !input->password)
        input->passwordCallback(asked, sizeof asked);
    CALL("hoxInitEx", "node=%s%s%s owner=%s password=%s application=%s class=%d options=[%s]",
         shown(input->nodeName), input->asNodeName ? " as=" : "",
         input->asNodeName ? input->asNodeName : "", shown(input->ownerName),
         *asked ? asked : shown(input->password), shown(input->applicationType), input->clientClass,
         shown(input->options));
    *handle = theClient.nextHandle++;
    return 0;
}

OPERATION(hoxInit)
(hoxHandle_t *handle, const hoxApiVersion *, const char *, const char *, const char *, const char *,
 const char *, const char *)
{
    BARE_CALL("hoxInit");
    *handle = theClient.nextHandle++;
    return 0;
}

OPERATION(hoxChangePW)(hoxHandle_t, const char *oldPassword, const char *newPassword)
{
    CALL("hoxChangePW", "old=%s new=%s", oldPassword, newPassword);
    return 0;
}

OPERATION(hoxQuerySessInfo)(hoxHandle_t, ApiSessInfo *info)
{
    BARE_CALL("hoxQuerySessInfo");
    std::strcpy(info->serverHost, "scriptedhost");
    info->backupDelete = 1;
    info->maxObjPerTxn = 256;
    return 0;
}

OPERATION(hoxQuerySessOptions)(hoxHandle_t, optStruct *options)
{
    BARE_CALL("hoxQuerySessOptions");
    fillOptions(options);
    return 0;
}

OPERATION(hoxTerminate)(hoxHandle_t handle)
{
    CALL("hoxTerminate", "handle=%u", handle);
    return 0;
}

OPERATION(hoxRegisterFS)(hoxHandle_t, const regFSData *data)
{
    CALL("hoxRegisterFS", "fs=%s type=%s info=%.*s", data->fsName, data->fsType,
         data->fsAttr.infoLength, data->fsAttr.info);
    return 0;
}

OPERATION(hoxUpdateFS)(hoxHandle_t, const char *fsName, const hoxFSUpd *update, uint32_t mask)
{
    CALL("hoxUpdateFS", "fs=%s type=%s occupancy=%u:%u capacity=%u:%u protected=%llu mask=%x",
         fsName, update->fsType, update->occupancy.hi, update->occupancy.lo, update->capacity.hi,
         update->capacity.lo, static_cast<unsigned long long>(update->protectedSize), mask);
    return 0;
}

OPERATION(hoxLogEventEx)(hoxHandle_t handle, const hoxLogEventExIn_t *input, hoxLogEventExOut_t *)
{
    CALL("hoxLogEventEx", "handle=%u log=%u severity=%u kind=%d id=%s app=%s on %s %s text=%s",
         handle, input->logType, input->severity, input->kind, input->messageId, input->appName,
         input->platform, input->appVersion, shown(input->message));
    return 0;
}

// The two look-ups answer with different texts, so that a test can tell which one was asked.
SCRIPTED_EXPORT int16_t hoxRCMsg(hoxHandle_t, int16_t rc, char *message)
{
    std::snprintf(message, HOX_MAX_RC_MESSAGE + 1,
                  theClient.localTexts ? "RBS%04dE Local text of code %d." : "", rc, rc);
    return 0;
}

SCRIPTED_EXPORT int16_t hoxRCMsgEx(hoxHandle_t, const hoxRCMsgExIn_t *input,
                                   hoxRCMsgExOut_t *output)
{
    std::snprintf(output->message, sizeof output->message,
                  theClient.serverTexts ? "RBS%04dE Server text of code %d." : "", input->rc,
                  input->rc);
    return 0;
}

SCRIPTED_EXPORT void hoxCreateDesKeyEx(uint32_t *key, const char *)
{
    key[0] = theClient.keysDiffer ? ++theClient.nextObject : 0x01234567;
    key[1] = 0x89abcdef;
}

static void scramble(const uint32_t *key, const unsigned char *input, unsigned char *output)
{
    unsigned char keyBytes[HOX_DES_BLOCK];
    std::memcpy(keyBytes, key, sizeof keyBytes);
    for (int i = 0; i < HOX_DES_BLOCK; ++i)
        output[i] = static_cast<unsigned char>(input[i] ^ keyBytes[i]);
}

SCRIPTED_EXPORT void hoxEncryptEx(const uint32_t *key, const unsigned char *in, unsigned char *out)
{
    scramble(key, in, out);
}

SCRIPTED_EXPORT void hoxDecryptEx(const uint32_t *key, const unsigned char *in, unsigned char *out)
{
    scramble(key, in, out);
}

} // extern "C"
