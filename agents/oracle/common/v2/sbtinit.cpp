// sbtinit: the first call of a channel. What the library supports, and which entry points to call.
#include "agents/oracle/common/v2/sbtinit.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "agents/common/callpin.h"
#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/orcobj.h"
#include "agents/oracle/common/session/veloinit.h"
#include "agents/oracle/unx/early/pserrorlog.h"
#include "agents/oracle/unx/early/psvelo.h"
#include "common/string/ststring.h"

char traceFile[ORC_TRACEFILE_SIZE];
std::uint64_t traceLevel = 0;
std::uint64_t clientApiVsn = 0;
std::uint32_t OpNotify = 0;

namespace
{

constexpr std::uint64_t kApiVersion2 = 512; // 2.0
constexpr std::uint64_t kApiVersion1 = 257; // 1.1
constexpr std::size_t kMostOutItems = 9;

char veloDesc[ORC_DESCRIPTION_SIZE];
std::uint64_t apivsn = kApiVersion2;
std::uint64_t maxFileSize = 0; // no limit
std::uint64_t ctxSize = ORC_CTX_SIZE;
std::uint64_t mmsvsn = 7U << 24 | 1U << 16 | 3U << 8;
std::uint64_t maxPCFile = 100;
sbtEntryPoint funcPStruct[SBT_FN_COUNT];
sbtPair output[kMostOutItems];

void readInItems(const sbtPair *item)
{
    for (; item != nullptr && item->code != SBTINIT_END; ++item) {
        if (item->code == SBTINIT_TRACEFILE && item->value != nullptr) {
            stCopy(traceFile, static_cast<const char *>(item->value));
        }
    }
}

// Some databases only know the first form of the interface and ask for it so.
void chooseApiVersion()
{
    const char *release = std::getenv("KEEL_ORACLE");
    apivsn =
        release != nullptr && std::strcmp(release, "2.1.10") == 0 ? kApiVersion1 : kApiVersion2;
}

// Returns the number of items before the end item.
int buildOutItems(bool proxyCopy)
{
    int count = 0;
    const auto add = [&count](std::uint64_t code, void *value) {
        output[count++] = sbtPair{code, value};
    };
    add(SBTINIT_MAXSIZE, &maxFileSize);
    add(SBTINIT_APIVSN, &apivsn);
    add(SBTINIT_DESC, veloDesc);
    add(SBTINIT_FUNCTIONS, static_cast<void *>(funcPStruct));
    add(SBTINIT_CTXSIZE, &ctxSize);
    add(SBTINIT_MMSVSN, &mmsvsn);
    if (proxyCopy) {
        add(SBTINIT_PROXY, nullptr);
        add(SBTINIT_MAXPROXYFILES, &maxPCFile);
    }
    output[count] = sbtPair{SBTINIT_END, nullptr};
    return count;
}

int fail(sbtInitError *error, std::uint32_t secondary)
{
    error->code = SBT_INIT_FAILED;
    error->secondary = secondary;
    return -1;
}

} // namespace

void loadFuncPs(sbtEntryPoint *table, int *loaded, char *description)
{
    TraceScope scope("loadFuncPs()");
    const auto set = [table](int index, auto function) {
        table[index] = reinterpret_cast<sbtEntryPoint>(function);
    };
    set(SBT_FN_BACKUP, sbtbackup);
    set(SBT_FN_CLOSE2, sbtclose2);
    set(SBT_FN_COMMAND, sbtcommand);
    set(SBT_FN_END, sbtend);
    set(SBT_FN_ERROR, sbterror);
    set(SBT_FN_INFO2, sbtinfo2);
    set(SBT_FN_INIT2, sbtinit2);
    set(SBT_FN_READ2, sbtread2);
    set(SBT_FN_REMOVE2, sbtremove2);
    set(SBT_FN_RESTORE, sbtrestore);
    set(SBT_FN_WRITE2, sbtwrite2);
    psLoadPCFunctions(table, loaded, description, ORC_DESCRIPTION_SIZE);
    if (*loaded == 0) {
        ORC_TRACE(2, " %s: Proxy Copy library loading failed, assign sbtpc function with null\n",
                  scope.name());
        for (int i = SBT_FN_PROXY_FIRST; i < SBT_FN_COUNT; ++i) {
            table[i] = nullptr;
        }
    }
}

int sbtinit(sbtInitError *error, const sbtPair *initIn, sbtPair **initOut)
{
    // The pin comes only when there is something to pin.
    const psNoCancel noCancel;
    if (error == nullptr || initOut == nullptr) {
        return -1;
    }
    traceFile[0] = '\0';
    *error = sbtInitError{};
    if (const int rc = psveloInit(); rc != 0) {
        psNonNlsErrorMsg("RBQ0003S An internal processing error has occurred");
        return fail(error, static_cast<std::uint32_t>(rc));
    }
    if (const std::uint16_t rc = veloInit(); rc != ORC_RC_OK) {
        return fail(error, rc);
    }

    const CallPin pin;
    // The agent trace begins with the options, so this is the first line that can be written.
    TraceScope scope("sbtinit()");
    std::snprintf(veloDesc, sizeof veloDesc, "%s: version %d.%d.%d.%d", "Keel for Oracle", 7, 1, 3,
                  0);
    readInItems(initIn);
    chooseApiVersion();
    int proxyCopy = 0;
    char description[ORC_DESCRIPTION_SIZE];
    loadFuncPs(funcPStruct, &proxyCopy, description);
    if (proxyCopy != 0) {
        stAppend(veloDesc, " ");
        stAppend(veloDesc, description);
    }
    const int count = buildOutItems(proxyCopy != 0);
    ORC_TRACE(2, " %s: initOutCounter = %d\n", scope.name(), count);
    *initOut = output;
    return 0;
}
