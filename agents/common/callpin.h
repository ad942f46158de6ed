// Who is inside a call of the library while its process-wide objects (traces, binding, context
// table) are released.
//
// A second sbtinit, or an sbtend for another context, may come on one thread while another is
// inside a call: deep in the storage client, or in the middle of a trace line. What must stay true:
// 1. From the release on, every call that begins finds nothing: it is shut out until the next
//    sbtinit.
// 2. A call that began before goes on with the objects that it began with. The last of these calls
//    to end destroys them; until then no new ones are made.
// 3. In a forked child nothing of the parent's is used or destroyed. Its threads do not exist
//    there, and whatever they were changing may be half changed. The child begins from nothing.
//
// The functions below the class belong to the initialisation, which holds initMutex around them.
#ifndef KEEL_AGENTS_COMMON_CALLPIN_H
#define KEEL_AGENTS_COMMON_CALLPIN_H

#include "common/thrd/pscancel.h"

/// Stands at the beginning of every exported call, before anything looks at a process-wide object,
/// and ends after all else of the call. Nests. Costs two atomic operations.
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

/// True when the calling thread is in a call that must see no process-wide object.
bool callShutOut() noexcept;

/// What the users of this unit do: lastLeft runs in the thread of the last call to end after a
/// release, forked in the first call of a forked child (with no lock of the parent's held).
struct CallPinDuties {
    void (*lastLeft)();
    void (*forked)();
};
void callPinDuties(const CallPinDuties &duties) noexcept;

/// Notices that this process is a forked child; as the beginning of a call does.
void callPinCheckProcess() noexcept;

/// The objects are whole: calls that begin from now on may use them.
void callPinOpen() noexcept;

/// No call that begins from now on is let in, and this thread gives its own pins up. True when no
/// call is inside: the caller destroys the objects. False: lastLeft will.
bool callPinClose() noexcept;

/// True once after a release that calls inside have held up, when all of them have left: the caller
/// destroys the objects.
bool callPinTake() noexcept;

/// From now until the end of its call this thread sees no process-wide object.
void callPinShutOutHere() noexcept;

#endif
