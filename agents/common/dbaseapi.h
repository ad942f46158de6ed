// DBaseApi: the base of every binding of a storage client, and the clock that runs during its
// calls.
//
// All threads of a process share one status object. Its members are relaxed atomics: overlapping
// calls make its totals approximate and do no other harm.
#ifndef KEEL_AGENTS_COMMON_DBASEAPI_H
#define KEEL_AGENTS_COMMON_DBASEAPI_H

#include <atomic>
#include <cstddef>
#include <cstdint>

/// A stop-watch over the time of day: a clock that is set forward meanwhile makes the time longer.
class DIfcTimeUtil
{
public:
    /// Note the present time as start or end. Both return 1.
    int startTimer();
    int endTimer();
    /// Return the time from the last start to the last end in whole milliseconds or seconds, cut; 0
    /// when the end lies before the start: between a start and its end, or after the clock was set
    /// back.
    long getElapsedMs();
    long getElapsedSec();
    /// Sleeps that long, across signals.
    static void milliSleep(unsigned milliseconds);
    /// Writes "YYYY-MM-DD hh:mm:ss.uuuuuu" of now, local time, cut to size - 1 characters and
    /// terminated; nothing for a size of 0.
    static void getTimeStamp(char *text, std::size_t size);

private:
    static std::int64_t now(); // microseconds since the epoch

    std::atomic<std::int64_t> start_{0};
    std::atomic<std::int64_t> end_{0};
};

/// The totals of the calls made so far. A call counts in `calls` when it begins, in `totalTime`
/// when it ends. Calls that overlap share the one stop-watch, so that totalTime is too low then.
class DBaseApiStatus : public DIfcTimeUtil
{
public:
    /// Of all timed calls, in milliseconds. (Calls that end by the static EndApiCall add seconds.)
    std::atomic<double> totalTime{0.0};
    std::atomic<bool> inCall{false}; // some call has begun and none has ended since
    std::atomic<std::uint64_t> calls{0};
};

class DBaseApi
{
public:
    /// The name is copied, cut at 63 characters, null as ""; it serves in traces.
    explicit DBaseApi(const char *apiName = "");
    virtual ~DBaseApi() = default;
    DBaseApi(const DBaseApi &) = delete;
    DBaseApi &operator=(const DBaseApi &) = delete;

    /// Load and unload the client; set up and clean up its environment. The binding says what they
    /// return. The caller makes sure that no other thread uses the binding meanwhile.
    virtual int Setup() = 0;
    virtual int Cleanup() = 0;
    virtual int Init(DBaseApiStatus *status, int *rc) = 0;
    virtual int Term(DBaseApiStatus *status) = 0;

    /// Returns false for a binding that must not call the client, even when one is loaded.
    [[nodiscard]] bool usable() const { return usable_; }

    [[nodiscard]] virtual const char *GetApiName() const { return apiName_; }

    /// Surround a timed call: count it, add its time to the total, trace it. A null status is
    /// allowed everywhere and then nothing is counted or traced. The static form names the API
    /// itself.
    static void StartApiCall(DBaseApiStatus *status);
    void EndApiCall(DBaseApiStatus *status);
    static void EndApiCall(DBaseApiStatus *status, const char *name);
    /// Writes the total in seconds to the agent trace (class TR_PERFORM), taking all of it for
    /// milliseconds.
    void LogApiStatus(DBaseApiStatus *status);

protected:
    bool usable_ = true;

private:
    char apiName_[64];
};

#endif
