// mtSession: a session with the storage client for looking after objects, without a channel. The
// utilities of this room work through it, and each says what it needs of the session. One thread at
// a time uses a session; several sessions may be open at once.
//
// Calls return the storage client's code, 0 for success, or DHOX_NOT_LOADED; mtText() returns the
// sentence for a code. The binding here is separate from that of a channel and is never destroyed.
#ifndef KEEL_AGENTS_COMMON_MAINT_MTSESSION_H
#define KEEL_AGENTS_COMMON_MAINT_MTSESSION_H

#include <cstdint>
#include <string>

#include "agents/common/dhoxapi.h"
#include "agents/common/maint/mttiming.h"

/// Loads the storage client and sets it up with this option file (empty: the client's default) for
/// all sessions of the process; a second set-up ends the sessions of the first. No other call of
/// this room may run meanwhile. A path that is too long is HOX_RC_BAD_OPTION_FILE and leaves an
/// earlier set-up as it was; after any other failure no session can be started, and the library may
/// stay loaded.
int mtSetUp(const std::string &optionFile);
/// Ends every session and cleans the client up; the library stays loaded. No other call of this
/// room may run meanwhile. Without a set-up it does nothing. An mtSession whose session was ended
/// so, or by a second set-up, keeps its handle; calls with it answer HOX_RC_BAD_HANDLE.
void mtCleanUp();

struct mtLogon_t {
    std::string node;     // empty: the client's own choice
    std::string asNode;   // the node whose objects are meant; empty: `node` itself
    std::string owner;    // empty: none
    std::string password; // used with HOX_PASSWORDACCESS_PROMPT
};

class mtSession
{
public:
    mtSession() = default;
    ~mtSession() { end(); }
    mtSession(const mtSession &) = delete;
    mtSession &operator=(const mtSession &) = delete;

    /// Ends an open session, then starts one. After anything but 0 none is open.
    int start(const mtLogon_t &logon);
    /// Ends the session and what is under way in it; does nothing when none is open.
    void end();

    /// The handle for calls through mtApi(); 0 before start(), after its failure and after end().
    [[nodiscard]] hoxHandle_t handle() const { return handle_; }
    /// The facts of the session that was started last; blank before the first, or when start()
    /// failed after the logon.
    [[nodiscard]] const ApiSessInfo &info() const { return info_; }
    /// Returns how many objects a transaction takes; at least 1.
    [[nodiscard]] std::size_t mostPerTransaction() const;

private:
    hoxHandle_t handle_ = 0;
    ApiSessInfo info_{};
};

/// Returns the sentence for a code, in English, without its identifier. It names more (an object, a
/// path) when the code is that of the last failure on this thread. For a code without a text, and
/// for all but DHOX_NOT_LOADED while nothing is loaded: "the storage client answered N".
[[nodiscard]] std::string mtText(int rc);

/// One call of the storage client by a utility, counted under MT_TIME_CLIENT while the object
/// lives: mtApi()->dhoxBeginTxn(mtStatus(), ...). Use it as a temporary only: all that the thread
/// does while it lives counts.
class mtCall
{
public:
    explicit mtCall(DHoxApi &api) : api_(api) {}
    DHoxApi *operator->() const { return &api_; }

private:
    DHoxApi &api_;
    const mtTimed timed_{MT_TIME_CLIENT};
};

/// Return the binding and its status, for the utilities of this room. Never destroyed.
mtCall mtApi();
DBaseApiStatus *mtStatus();

#endif
