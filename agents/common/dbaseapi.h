// DBaseApi: what every binding of a storage client has, and the clock that runs while a client
// works.
//
// The status object is shared by all callers of a process. Its members are relaxed atomics, so
// overlapping calls make its totals approximate and nothing worse.
#ifndef KEEL_AGENTS_COMMON_DBASEAPI_H
#define KEEL_AGENTS_COMMON_DBASEAPI_H

#include <atomic>
#include <cstddef>
#include <cstdint>

/// A stop-watch over the time of day.
class DIfcTimeUtil
{
public:
    int startTimer();
    int endTimer();
    /// From the last start to the last end, in whole milliseconds; 0 when the clock was set back.
    long getElapsedMs();
    long getElapsedSec();
    static void milliSleep(unsigned milliseconds);
    /// "YYYY-MM-DD hh:mm:ss.uuuuuu" of now, local time, cut at size.
    static void getTimeStamp(char *text, std::size_t size);

private:
    static std::int64_t now(); // microseconds since the epoch

    std::atomic<std::int64_t> start_{0};
    std::atomic<std::int64_t> end_{0};
};

/// What is known of the calls made so far.
class DBaseApiStatus : public DIfcTimeUtil
{
public:
    std::atomic<double> totalTime{0.0}; // milliseconds, of the timed wrappers
    std::atomic<bool> inCall{false};
    std::atomic<std::uint64_t> calls{0};
};

class DBaseApi
{
public:
    explicit DBaseApi(const char *apiName = "");
    virtual ~DBaseApi() = default;
    DBaseApi(const DBaseApi &) = delete;
    DBaseApi &operator=(const DBaseApi &) = delete;

    virtual int Setup() = 0;
    virtual int Cleanup() = 0;
    virtual int Init(DBaseApiStatus *status, int *rc) = 0;
    virtual int Term(DBaseApiStatus *status) = 0;

    /// False for a binding that must not call the client, whatever is loaded.
    [[nodiscard]] bool usable() const { return usable_; }

    [[nodiscard]] virtual const char *GetApiName() const { return apiName_; }

    /// A null status is allowed everywhere and is not kept.
    static void StartApiCall(DBaseApiStatus *status);
    void EndApiCall(DBaseApiStatus *status);
    static void EndApiCall(DBaseApiStatus *status, const char *name);
    void LogApiStatus(DBaseApiStatus *status);

protected:
    bool usable_ = true;

private:
    char apiName_[64];
};

#endif
