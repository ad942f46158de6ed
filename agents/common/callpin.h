// Keeps the process-wide objects (traces, binding, context table) alive for the calls inside the
// library while another thread releases them.
//
// A second sbtinit, or an sbtend for another context, may run on one thread while another thread is
// inside a call: deep in the storage client, or in the middle of a trace line. What must stay true:
// 1. From the release on, every call that begins is shut out until the next sbtinit: it sees no
//    process-wide object.
// 2. A call that began before the release keeps the objects that it began with. The last of these
//    calls to end destroys them; until then no new ones are made.
// 3. In a forked child nothing of the parent's is used or destroyed. The parent's other threads do
//    not exist there, and what they were changing may be half changed. The child begins from
//    nothing.
//
// A thread counts once, however deep its pins nest. The release never waits for the calls inside.
// callPinOpen, callPinClose and callPinTake are called with initMutex held; the rest takes and
// needs no lock.
#ifndef KEEL_AGENTS_COMMON_CALLPIN_H
#define KEEL_AGENTS_COMMON_CALLPIN_H

#include "common/thrd/pscancel.h"

/// Pins the process-wide objects for a call. It is the first object of every exported call, before
/// anything looks at a process-wide object, and the last to be destroyed. Nests. Costs two atomic
/// operations. The destructor of the last pin after a release runs lastLeft.
class CallPin
{
public:
    CallPin() noexcept;
    ~CallPin();
    CallPin(const CallPin &) = delete;
    CallPin &operator=(const CallPin &) = delete;

private:
    psNoCancel noCancel; // a cancelled thread ends after the call, not within it
};

/// Returns true when the calling thread is in a call that must see no process-wide object. False
/// outside any call.
bool callShutOut() noexcept;

/// The actions of the initialisation: lastLeft runs in the thread of the last call to end after a
/// release, with no lock of this unit held, and takes initMutex itself; forked runs in the first
/// call of a forked child, before any other call there begins.
struct CallPinDuties {
    void (*lastLeft)();
    void (*forked)();
};
/// Sets the actions, in place of earlier ones. Nothing runs until then.
void callPinDuties(const CallPinDuties &duties) noexcept;

/// Runs `forked` once when this process is a forked child that has not noticed yet. The beginning
/// of a call does this too; needed only before a call that has no pin yet.
void callPinCheckProcess() noexcept;

/// Lets in the calls that begin from now on: the objects are complete.
void callPinOpen() noexcept;

/// Shuts out every call that begins from now on, and gives the calling thread's own pin up. Returns
/// true when no call is inside: the caller destroys the objects, now. False: the last call inside
/// runs lastLeft.
bool callPinClose() noexcept;

/// Returns true once after each release, when no call is inside any more: the caller destroys the
/// objects, now. False while calls are inside, and when there was no release or the destruction was
/// taken already.
bool callPinTake() noexcept;

/// Shuts the calling thread out for the rest of its call, whose objects may be gone.
void callPinShutOutHere() noexcept;

#endif
