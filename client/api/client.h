// The state of the process: what hoxSetUp said, and the table of sessions. Any thread may use it.
#ifndef KEEL_CLIENT_API_CLIENT_H
#define KEEL_CLIENT_API_CLIENT_H

#include "client/api/session.h"

#include <atomic>
#include <map>
#include <memory>
#include <sys/types.h>

namespace arca::api
{

/// What hoxSetUp was told, with defaults filled in.
struct SetUp {
    std::string directory;  // of the client
    std::string optionFile; // full path
    std::string localLog;   // full path
    config::Options options;
};

class Client
{
public:
    /// This process's. A child that was forked gets one of its own, set up as that was, with no
    /// session: a handle of its parent's answers HOX_RC_BAD_HANDLE there, and what it stood for is
    /// left to the parent, without a thread being joined or a file being touched.
    static Client &instance();

    /// Ends every session of an earlier set-up first.
    void setUp(SetUp setUp);
    void cleanUp();

    /// HOX_RC_NOT_SET_UP.
    Answer<SetUp> currentSetUp();

    hoxHandle_t add(std::shared_ptr<Session> session);
    /// HOX_RC_BAD_HANDLE.
    Answer<std::shared_ptr<Session>> find(hoxHandle_t handle);
    Answer<std::shared_ptr<Session>> take(hoxHandle_t handle);

    /// A line for the local log, as far as one is known and can be written.
    bool logLocally(const std::string &text);
    /// A line for the local log, unless it was the last one that was written this way since the
    /// set-up.
    void warnOnce(const std::string &text);

private:
    /// Handles count on behind those of the parent, which must stay dead in a child.
    /// `parents`: that of the process this one was forked from, or null.
    explicit Client(Client *parents);

    const pid_t process_;

    std::mutex mutex_; // never held while a session's mutex is waited for
    std::optional<SetUp> setUp_;
    std::string warned_;
    std::map<hoxHandle_t, std::shared_ptr<Session>> sessions_;
    std::atomic<hoxHandle_t> lastHandle_; // written under mutex_; a child reads it without
};

/// Aborts what is open and publishes the log. The session answers HOX_RC_BAD_HANDLE afterwards.
void endSession(Session &session);

void poisonOpenTransaction(Session &session, std::int16_t code) noexcept;

/// The body of an operation on a session: `body` gets it locked. A step of a transaction that ends
/// in an exception (memory, mostly) is a failed step like any other.
template <class Body> std::int16_t inSession(hoxHandle_t handle, Body body) noexcept
{
    return atBoundary([&]() -> Code {
        ARCA_TRY(const std::shared_ptr<Session> session, Client::instance().find(handle));
        const std::lock_guard hold(session->mutex);
        if (session->ended)
            return refused(HOX_RC_BAD_HANDLE);
        try {
            return body(*session);
        } catch (const std::bad_alloc &) {
            poisonOpenTransaction(*session, HOX_RC_NO_MEMORY);
            throw;
        } catch (...) {
            poisonOpenTransaction(*session, HOX_RC_INTERNAL);
            throw;
        }
    });
}

/// Where the client is installed.
std::string installedDirectory();

} // namespace arca::api

#endif
