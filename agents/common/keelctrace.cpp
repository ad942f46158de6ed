// Starting and enabling the agent trace on behalf of this library.
#include "agents/common/keelctrace.h"

#include <ctime>

#include "common/cu/cutime.h"
#include "common/ut/trace.h"

KEELCTrace::KEELCTrace()
{
    trSetClientType(9);
}

KEELCTrace::~KEELCTrace()
{
    trEnd();
    ::trTestEnable("");
}

std::uint32_t KEELCTrace::trBegin(const char *fileName, int writeHeader)
{
    if (::trEnable("PID TID", 1) != 0) {
        return kCannotEnable;
    }
    if (rc_ != 0) {
        return rc_;
    }
    const std::uint32_t rc = ::trBegin(fileName, 1);
    if (rc == 0 && writeHeader != 0) {
        tm now{};
        cuLocalTime(std::time(nullptr), &now);
        char date[32];
        char clock[32];
        cuFormatDate(date, sizeof date, now);
        cuFormatTime(clock, sizeof clock, now);
        KEELCTraceStatement statement;
        statement.initStatement(__FILE__, __LINE__);
        statement.write("\n===========================================================\n"
                        "Tracing started for:\n"
                        "-----------------------------------------------------------\n"
                        "       Application Client :   %s\n"
                        "              Build Level :   %s\n"
                        "                     Date :   %s\n"
                        "                     Time :   %s\n",
                        "KEEL Oracle SUN", "7.1.3.0", date, clock);
    }
    return rc;
}

std::uint32_t KEELCTrace::trEnable(const char *flags, int on)
{
    return ::trEnable(flags, on);
}

std::uint32_t KEELCTrace::trTestEnable(const char *flags)
{
    return ::trTestEnable(flags);
}
