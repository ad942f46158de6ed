// See the header.
#include "agents/oracle/common/veloclock.h"

#include <cstdio>
#include <ctime>

#include "common/cu/cutime.h"

void veloGetCurTime(char *text, std::size_t size)
{
    tm now{};
    cuLocalTime(std::time(nullptr), &now);
    char date[32];
    char clock[32];
    cuFormatDate(date, sizeof date, now);
    cuFormatTime(clock, sizeof clock, now);
    std::snprintf(text, size, "%s %s", date, clock);
}
