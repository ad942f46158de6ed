// The state of the process: what hoxSetUp set, and the table of sessions. Any thread may use it;
// each call takes the mutex itself.
#ifndef KEEL_CLIENT_API_SESSION_CLIENT_H
#define KEEL_CLIENT_API_SESSION_CLIENT_H

#include "client/api/session/session.h"

#include <atomic>
#include <map>
#include <memory>
#include <sys/types.h>

namespace arca::api
{

/// What hoxSetUp was given, with defaults filled in.
struct SetUp {
    std::string directory;  // the client's
    std::string optionFile; // full path
    std::string localLog;   // full path
    config::Options options;
};

class Client
{
public:
    /// Returns this process's, which is never destroyed. A forked child gets one of its own, set up
    /// as its parent's was, with no session: a handle of the parent returns HOX_RC_BAD_HANDLE
    /// there, and what it stood for is left to the parent; no thread is joined and no file touched.
    /// Throws std::bad_alloc.
    static Client &instance();

    /// Replaces the set-up, after cleanUp().
    void setUp(SetUp setUp);
    /// Ends every session, waiting for calls that are inside one, and forgets the set-up.
    void cleanUp();

    /// Returns a copy. Errors: HOX_RC_NOT_SET_UP.
    Answer<SetUp> currentSetUp();

    /// A row of the table of sessions that is not in it yet.
    using Place = std::map<hoxHandle_t, std::shared_ptr<Session>>::node_type;
    static Place placeFor(std::shared_ptr<Session> session);
    /// Makes the session known and returns its handle, which no session had lately. Allocates
    /// nothing.
    hoxHandle_t add(Place place) noexcept;
    /// Returns the session, which stays in the table. Errors: HOX_RC_BAD_HANDLE.
    Answer<std::shared_ptr<Session>> find(hoxHandle_t handle);
    /// Returns the session and takes it out of the table; endSession() is left to the caller.
    /// Errors: HOX_RC_BAD_HANDLE.
    Answer<std::shared_ptr<Session>> take(hoxHandle_t handle);

    /// Writes a line to the local log (local_log.h says how texts are altered). Returns false when
    /// there is no set-up, or the line could not be written.
    bool logLocally(const std::string &text);
    /// Writes a warning to the local log, unless it is the same as the last one since the set-up. A
    /// failure is ignored.
    void warnOnce(const std::string &text);

private:
    /// `parents`: the object of the process that this one was forked from, or null. Handles go on
    /// from the parent's, so that those stay dead in the child.
    explicit Client(const Client *parents);
    ~Client();

    /// The caller holds the mutex.
    void replaceSetUp(std::unique_ptr<const SetUp> setUp) noexcept;

    const int process_;

    std::mutex mutex_; // guards all below; never held while a session's mutex is waited for
    // Owned, or null. Never altered but replaced, so that a forked child can copy it as it was at
    // the fork, whatever its parent's threads were doing.
    std::atomic<const SetUp *> setUp_ = nullptr;
    std::string warned_;
    std::map<hoxHandle_t, std::shared_ptr<Session>> sessions_;
    std::atomic<hoxHandle_t> lastHandle_; // written under mutex_; a child reads it without
};

/// Takes the session's mutex, aborts what is open and publishes the events of the session; events
/// that cannot be published are lost, which the local log says. A call that was waiting for the
/// mutex finds the session ended and returns HOX_RC_BAD_HANDLE.
void endSession(Session &session) noexcept;

/// Makes the open transaction, if any, fail with `cause`. The caller holds the session's mutex.
void poisonOpenTransaction(Session &session, const Refusal &cause) noexcept;

/// Runs an operation on a session, as atBoundary() does: `body` gets the session with its mutex
/// held. A body that throws (memory, mostly) may have been a step of a transaction, so the open one
/// is poisoned. Errors besides those of `body`: HOX_RC_BAD_HANDLE.
template <class Body> std::int16_t inSession(hoxHandle_t handle, Body body) noexcept
{
    return atBoundary([&]() -> Code {
        ARCA_TRY(const std::shared_ptr<Session> session, Client::instance().find(handle));
        const std::lock_guard hold(session->mutex);
        if (session->ended)
            return refused(HOX_RC_BAD_HANDLE);
        try {
            return body(*session);
        } catch (const std::bad_alloc &failure) {
            poisonOpenTransaction(*session, shortage(failure));
            throw;
        } catch (...) {
            poisonOpenTransaction(*session, refused(HOX_RC_INTERNAL));
            throw;
        }
    });
}

/// Returns the directory that was compiled in as the client's.
std::string installedDirectory();

} // namespace arca::api

#endif
