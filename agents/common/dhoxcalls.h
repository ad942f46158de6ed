// DHoxCalls: every operation of the storage client as a method: "dhox" and the rest of its name,
// called with a status object and then the arguments that hoxapi.h gives the operation.
//
//     rc = hoxApi().dhoxSendData(HoxApiStatusObjP, handle, &block);
//
// A call is traced and, unless it returns void or the status is null, timed and counted, whether a
// client is loaded or not. The client's code is returned unchanged; hoxapi.h says its meaning. Any
// thread may call. Every instance of the process shares the one table of operations, so one that
// another instance filled serves all. The table is filled and cleared under the initialisation lock
// and does not change while a channel is active or a call is inside (callpin.h), so that reading it
// needs no lock; a program without channels sees to that itself.
#ifndef KEEL_AGENTS_COMMON_DHOXCALLS_H
#define KEEL_AGENTS_COMMON_DHOXCALLS_H

#include <type_traits>

#include "agents/common/dbaseapi.h"
#include "agents/common/dhoxoperations.h"
#include "client/include/hoxapi.h"
#include "common/ut/trace.h"

/// The code of every call while no client is loaded or the binding is not usable(); its arguments
/// are not touched then. An operation that returns void then does nothing, and nothing says so.
constexpr std::int16_t DHOX_NOT_LOADED = 104;

/// One operation, called through the class-wide pointer to it.
template <class Operation> class DHoxCall;
template <class Result, class... Formal> class DHoxCall<Result(Formal...)>
{
public:
    using Pointer = Result (*)(Formal...);

    DHoxCall(DBaseApi &api, const char *name, const Pointer &operation)
        : api_(api), name_(name), operation_(operation)
    {
    }

    Result operator()([[maybe_unused]] DBaseApiStatus *status, Formal... arguments) const
    {
        KEEL_TRACE(TR_API, "Enter %s\n", name_);
        const Pointer operation = api_.usable() ? operation_ : nullptr;
        if constexpr (std::is_void_v<Result>) { // short and local to the process: not timed
            if (operation != nullptr) {
                operation(arguments...);
            }
            KEEL_TRACE(TR_API, "Exit %s\n", name_);
        } else {
            DBaseApi::StartApiCall(status);
            const Result rc = operation != nullptr ? operation(arguments...) : DHOX_NOT_LOADED;
            api_.EndApiCall(status);
            KEEL_TRACE(TR_API, "Exit %s, rc = %d\n", name_, static_cast<int>(rc));
            return rc;
        }
    }

private:
    DBaseApi &api_;
    const char *name_;
    const Pointer &operation_;
};

class DHoxCalls
{
protected:
    explicit DHoxCalls(DBaseApi &api) : api_(api) {}

    // Never looked up, so its call always answers DHOX_NOT_LOADED.
    using hoxLogMessage = std::int16_t(hoxHandle_t, const char *message);

#define DHOX_POINTER(operation) static inline operation *m_fn##operation##P = nullptr;
#define DHOX_TYPED_POINTER(operation)                                                              \
    static inline decltype(::operation) *m_fn##operation##P = nullptr;
    DHOX_OPERATIONS(DHOX_TYPED_POINTER)
    DHOX_POINTER(hoxLogMessage)
#undef DHOX_TYPED_POINTER
#undef DHOX_POINTER

private:
    DBaseApi &api_;

public:
#define DHOX_CALL(operation)                                                                       \
    const DHoxCall<std::remove_pointer_t<decltype(m_fn##operation##P)>> d##operation{              \
        api_, "DHoxApi::d" #operation "()", m_fn##operation##P};
    DHOX_OPERATIONS(DHOX_CALL)
    DHOX_CALL(hoxLogMessage)
#undef DHOX_CALL
};

#endif
