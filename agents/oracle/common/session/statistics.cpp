// The statistics of a piece that are reported when it is closed.
#include <algorithm>
#include <charconv>
#include <cstdio>
#include <ctime>

#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/diagnostics/orcmessage.h"
#include "agents/oracle/common/session/backup.h"
#include "common/nls/nls.h"
#include "common/string/ststring.h"
#include "common/ut/utmem.h"

namespace
{

struct Elapsed {
    long total; // seconds
    int hours;
    int minutes;
    int seconds;

    explicit Elapsed(const orcObj_t *ctx)
        : total(static_cast<long>(std::max<std::time_t>(std::time(nullptr) - ctx->startTime, 1))),
          hours(static_cast<int>(total / 3600)), minutes(static_cast<int>(total / 60 % 60)),
          seconds(static_cast<int>(total % 60))
    {
    }
};

/// The words and numbers of a report in one of its two forms: English words and the C locale's
/// decimals for the server's log, whatever the host's locale; the host's language for the trace.
class Wording
{
public:
    explicit Wording(OrcMessage::Language language) : english_(language == OrcMessage::English)
    {
        take(yes_, 507);
        take(no_, 508);
    }
    [[nodiscard]] const char *answer(bool condition) const
    {
        const char *text = condition ? yes_.get() : no_.get();
        return text == nullptr ? "" : text;
    }

    /// A number with two decimals and its unit.
    struct Decimal {
        char text[64];
    };
    [[nodiscard]] Decimal decimal(double value, const char *unit = "") const
    {
        Decimal made{};
        if (english_) {
            std::to_chars(made.text, made.text + sizeof made.text - 8, value,
                          std::chars_format::fixed, 2);
        } else {
            std::snprintf(made.text, sizeof made.text, "%.2lf", value);
        }
        stAppend(made.text, unit);
        return made;
    }
    /// KiB a second.
    [[nodiscard]] Decimal throughput(const orcObj_t *ctx, const Elapsed &elapsed) const
    {
        return decimal(static_cast<double>(ctx->bytesTransferred) /
                       (static_cast<double>(elapsed.total) * 1024.0));
    }
    [[nodiscard]] Decimal reduction(std::uint32_t ratio) const
    {
        return decimal(static_cast<double>(ratio) / 100.0, "%");
    }

private:
    void take(utOwned<char> &word, int number) const
    {
        char *text = nullptr;
        english_ ? nlEngsprintf(text, number) : nlsprintf(text, number);
        word.reset(text);
    }

    bool english_;
    utOwned<char> yes_;
    utOwned<char> no_;
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
    const hoxEndSendObjExOut_t &totals = ctx->sendTotals;
    const Elapsed elapsed(ctx);
    const bool direct = totals.totalDirectBytes.hi != 0 || totals.totalDirectBytes.lo != 0;
    const hoxObjName &name = ctx->hoxName;
    const auto report = [&](OrcMessage::Language language, auto &&take) {
        const Wording in(language);
        take(2526, ctx->objName, static_cast<unsigned long long>(ctx->bytesTransferred),
             elapsed.hours, elapsed.minutes, elapsed.seconds, in.throughput(ctx, elapsed).text,
             in.answer(totals.objCompressed != 0), in.reduction(totals.compressRatio).text,
             in.answer(totals.objDeduplicated != 0), in.reduction(totals.dedupRatio).text,
             encryptionName(totals.encryptionType), in.answer(direct));
    };

    events.logOrcMsg(ctx->hoxHandle, HOX_LOG_SERVER, HOX_SEVERITY_INFO, 2535, name.fsName,
                     name.hlName, name.llName);
    report(OrcMessage::English, [&](int number, auto... inserts) {
        events.logOrcMsg(ctx->hoxHandle, HOX_LOG_SERVER, HOX_SEVERITY_INFO, number, inserts...);
    });
    if (rmanTraceOn(RMANTR_FLOW)) {
        report(OrcMessage::Localised, [](int number, auto... inserts) {
            RMAN_TRACE(RMANTR_FLOW, " %s: %s\n", "sbtclose2()",
                       OrcMessage(number, inserts...).text());
        });
    }
}

void veloRestoreStatistics(orcObj_t *ctx, CEventLog &events)
{
    const Elapsed elapsed(ctx);
    const hoxObjName &name = ctx->hoxName;
    const auto bytes = static_cast<unsigned long long>(ctx->bytesTransferred);
    const auto report = [&](OrcMessage::Language language, auto &&take) {
        take(2527, name.fsName, name.hlName, name.llName, bytes, elapsed.hours, elapsed.minutes,
             elapsed.seconds, Wording(language).throughput(ctx, elapsed).text);
    };

    events.logOrcMsg(ctx->hoxHandle, HOX_LOG_SERVER, HOX_SEVERITY_INFO, 2536, name.fsName,
                     name.hlName, name.llName, bytes);
    report(OrcMessage::English, [&](int number, auto... inserts) {
        events.logOrcMsg(ctx->hoxHandle, HOX_LOG_SERVER, HOX_SEVERITY_INFO, number, inserts...);
    });
    if (rmanTraceOn(RMANTR_FLOW)) {
        report(OrcMessage::Localised, [](int number, auto... inserts) {
            RMAN_TRACE(RMANTR_FLOW, " %s: %s\n\n", "sbtclose2()",
                       OrcMessage(number, inserts...).text());
        });
    }
}
