// The stop-watch and the bookkeeping around every call into a storage client.
#include "agents/common/dbaseapi.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <sys/time.h>

#include "common/cu/cutime.h"
#include "common/string/ststring.h"
#include "common/ut/trace.h"

std::int64_t DIfcTimeUtil::now()
{
    timeval tv{};
    gettimeofday(&tv, nullptr);
    return static_cast<std::int64_t>(tv.tv_sec) * 1000000 + tv.tv_usec;
}

int DIfcTimeUtil::startTimer()
{
    start_.store(now(), std::memory_order_relaxed);
    return 1;
}

int DIfcTimeUtil::endTimer()
{
    end_.store(now(), std::memory_order_relaxed);
    return 1;
}

long DIfcTimeUtil::getElapsedMs()
{
    const std::int64_t micros =
        end_.load(std::memory_order_relaxed) - start_.load(std::memory_order_relaxed);
    return micros > 0 ? static_cast<long>(micros / 1000) : 0;
}

long DIfcTimeUtil::getElapsedSec()
{
    return getElapsedMs() / 1000;
}

void DIfcTimeUtil::milliSleep(unsigned milliseconds)
{
    timespec left{static_cast<time_t>(milliseconds / 1000),
                  static_cast<long>(milliseconds % 1000) * 1000000};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

void DIfcTimeUtil::getTimeStamp(char *text, std::size_t size)
{
    const std::int64_t micros = now();
    tm local{};
    cuLocalTime(static_cast<time_t>(micros / 1000000), &local);
    std::snprintf(text, size, "%04d-%02d-%02d %02d:%02d:%02d.%06d", local.tm_year + 1900,
                  local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                  static_cast<int>(micros % 1000000));
}

DBaseApi::DBaseApi(const char *apiName) : apiName_{}
{
    stCopy(apiName_, sizeof apiName_, apiName == nullptr ? "" : apiName);
}

void DBaseApi::StartApiCall(DBaseApiStatus *status)
{
    if (status != nullptr) {
        status->inCall.store(true, std::memory_order_relaxed);
        status->calls.fetch_add(1, std::memory_order_relaxed);
        status->startTimer();
    }
}

namespace
{

double addToTotal(DBaseApiStatus &status, double amount)
{
    const double total = status.totalTime.load(std::memory_order_relaxed) + amount;
    status.totalTime.store(total, std::memory_order_relaxed);
    return total;
}

} // namespace

void DBaseApi::EndApiCall(DBaseApiStatus *status)
{
    if (status == nullptr) {
        return;
    }
    status->inCall.store(false, std::memory_order_relaxed);
    status->endTimer();
    const long elapsed = status->getElapsedMs();
    const double total = addToTotal(*status, static_cast<double>(elapsed));
    KEEL_TRACE(TR_PERFORM, "Elapsed milliseconds %ld, for %s Api call \n", elapsed, GetApiName());
    KEEL_TRACE(TR_API, "Exit %s, elapsed milliseconds %ld, total time %.0f for %s Apis \n",
               "DBaseApi::EndApiCall()", elapsed, total, GetApiName());
}

void DBaseApi::EndApiCall(DBaseApiStatus *status, const char *name)
{
    if (status == nullptr) {
        return;
    }
    status->inCall.store(false, std::memory_order_relaxed);
    status->endTimer();
    const auto elapsed = static_cast<double>(status->getElapsedSec());
    const double total = addToTotal(*status, elapsed);
    KEEL_TRACE(TR_API, "Exit %s, elapsed seconds %0.f, total time %.0f for %s Apis \n",
               "DBaseApi::EndApiCall()", elapsed, total, name);
}

void DBaseApi::LogApiStatus(DBaseApiStatus *status)
{
    if (status != nullptr) {
        KEEL_TRACE(TR_PERFORM, "Performance stats: %.0f seconds spent in %s API calls\n",
                   status->totalTime.load(std::memory_order_relaxed) / 1000.0, GetApiName());
    }
}
