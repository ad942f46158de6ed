// The additions of test flags to the data path: a copy of the data, and a pause.
#include <algorithm>
#include <cstring>

#include "agents/common/callpin.h"
#include "agents/common/dbaseapi.h"
#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/diagnostics/errorlog.h"
#include "agents/oracle/common/diagnostics/velotrace.h"
#include "agents/oracle/common/session/backup.h"
#include "common/string/ststring.h"
#include "common/unx/psfile.h"
#include "common/unx/pswrite.h"

void veloOpenTestData(orcObj_t *ctx, const char *pieceName, const char *suffix)
{
    veloCloseTestData(ctx);
    if (!trTestFlag("TEST_ORACLEDATA", nullptr)) {
        return;
    }
    // The copy is made in the log directory: a piece with a "/" in its name gets none.
    char path[ORC_PATH_SIZE];
    const bool fits = std::strchr(pieceName, '/') == nullptr &&
                      stCopy(path, ctx->options[OPT_HOXI_LOG]) && stAppend(path, "/") &&
                      stAppend(path, pieceName) && stAppend(path, suffix);
    if (fits) {
        int encoding = 0;
        int flags = 0;
        ctx->testDataFile = psFileOpen(path, "w", &encoding, &flags);
    }
    if (ctx->testDataFile != nullptr) {
        // Unbuffered: a forked child of the host that ends this context would write buffered data a
        // second time.
        std::setvbuf(ctx->testDataFile, nullptr, _IONBF, 0);
    }
}

void veloWriteTestData(orcObj_t *ctx, const void *data, std::size_t size)
{
    // A forked child shares the file with the parent, whose piece it is.
    if (ctx->testDataFile != nullptr && !callShutOut()) {
        const psWriteGuard guard;
        std::fwrite(data, 1, size, ctx->testDataFile);
    }
}

void veloCloseTestData(orcObj_t *ctx)
{
    if (ctx->testDataFile != nullptr) {
        std::fclose(ctx->testDataFile);
        ctx->testDataFile = nullptr;
    }
}

void veloTestDelay()
{
    long milliseconds = 0;
    if (veloTestNumber("TEST_ORACLEDELAY", &milliseconds) && milliseconds > 0) {
        DIfcTimeUtil::milliSleep(static_cast<unsigned>(std::min(milliseconds, 3600000L)));
    }
}
