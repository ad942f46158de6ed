// What is told of a piece when it is closed.
#include <algorithm>
#include <cstdio>
#include <ctime>

#include "agents/oracle/common/backup.h"
#include "agents/oracle/common/callscope.h"
#include "agents/oracle/common/orcmessage.h"
#include "common/cu/cu64.h"
#include "common/string/ststring.h"

namespace
{

struct Elapsed {
    int hours;
    int minutes;
    int seconds;
    char throughput[32]; // KiB a second

    explicit Elapsed(const orcObj_t *ctx)
    {
        const auto total =
            static_cast<long>(std::max<std::time_t>(std::time(nullptr) - ctx->startTime, 1));
        hours = static_cast<int>(total / 3600);
        minutes = static_cast<int>(total / 60 % 60);
        seconds = static_cast<int>(total % 60);
        std::snprintf(throughput, sizeof throughput, "%.2lf",
                      static_cast<double>(ctx->bytesTransferred) /
                          (static_cast<double>(total) * 1024.0));
    }
};

struct Reduction {
    char text[32];
    explicit Reduction(std::uint32_t ratio)
    {
        std::snprintf(text, sizeof text, "%.2lf%%", static_cast<double>(ratio) / 100.0);
    }
};

const char *encryptionName(std::uint8_t bits)
{
    if ((bits & HOX_ENCRYPT_AES_128BIT) != 0) {
        return "AES_128BIT";
    }
    if ((bits & HOX_ENCRYPT_AES_256BIT) != 0) {
        return "AES_256BIT";
    }
    return (bits & HOX_ENCRYPT_DES_56BIT) != 0 ? "DES_56BIT" : "None";
}

} // namespace

void veloBackupStatistics(orcObj_t *ctx, CEventLog &events)
{
    const OrcMessage yes(507);
    const OrcMessage no(508);
    const auto answer = [&](bool condition) { return condition ? yes.text() : no.text(); };
    const hoxEndSendObjExOut_t &totals = ctx->sendTotals;
    const Elapsed elapsed(ctx);
    const Reduction compression(totals.compressRatio);
    const Reduction deduplication(totals.dedupRatio);
    const bool direct = totals.totalDirectBytes.hi != 0 || totals.totalDirectBytes.lo != 0;
    const hoxObjName &name = ctx->hoxName;
    char bytes[cu64TextSize];
    cuU64ToText(ctx->bytesTransferred, bytes, 10);

    events.logOrcMsg(ctx->hoxHandle, HOX_LOG_SERVER, HOX_SEVERITY_INFO, 2535, name.fsName,
                     name.hlName, name.llName);
    const auto report = [&](auto &&take) {
        take(2526, ctx->objName, bytes, elapsed.hours, elapsed.minutes, elapsed.seconds,
             elapsed.throughput, answer(totals.objCompressed != 0), compression.text,
             answer(totals.objDeduplicated != 0), deduplication.text,
             encryptionName(totals.encryptionType), answer(direct));
    };
    report([&](int number, auto... inserts) {
        events.logOrcMsg(ctx->hoxHandle, HOX_LOG_SERVER, HOX_SEVERITY_INFO, number, inserts...);
    });
    if (rmanTraceOn(RMANTR_FLOW)) {
        report([](int number, auto... inserts) {
            RMAN_TRACE(RMANTR_FLOW, " %s: %s\n", "sbtclose2()",
                       OrcMessage(number, inserts...).text());
        });
    }
}

void veloRestoreStatistics(orcObj_t *ctx, CEventLog &events)
{
    const Elapsed elapsed(ctx);
    const hoxObjName &name = ctx->hoxName;
    char bytes[cu64TextSize];
    cuU64ToText(ctx->bytesTransferred, bytes, 10);

    events.logOrcMsg(ctx->hoxHandle, HOX_LOG_SERVER, HOX_SEVERITY_INFO, 2536, name.fsName,
                     name.hlName, name.llName, bytes);
    events.logOrcMsg(ctx->hoxHandle, HOX_LOG_SERVER, HOX_SEVERITY_INFO, 2527, name.fsName,
                     name.hlName, name.llName, bytes, elapsed.hours, elapsed.minutes,
                     elapsed.seconds, elapsed.throughput);
    if (rmanTraceOn(RMANTR_FLOW)) {
        RMAN_TRACE(RMANTR_FLOW, " %s: %s\n\n", "sbtclose2()",
                   OrcMessage(2527, name.fsName, name.hlName, name.llName, bytes, elapsed.hours,
                              elapsed.minutes, elapsed.seconds, elapsed.throughput)
                       .text());
    }
}
