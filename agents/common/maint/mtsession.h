// mtSession: a session with the storage client for looking after objects, without a channel. What
// the utilities of this room work through; each of them says what it needs of the session. One
// thread uses a session; several sessions may be open at once.
//
// Codes are the storage client's, 0 for success; mtText() has the sentence for the one that came
// last.
#ifndef KEEL_AGENTS_COMMON_MAINT_MTSESSION_H
#define KEEL_AGENTS_COMMON_MAINT_MTSESSION_H

#include <cstdint>
#include <string>

#include "agents/common/dhoxapi.h"
#include "agents/common/maint/mttiming.h"

/// Loads the storage client and sets it up with this option file (empty: its own) for all sessions
/// of the process; a second time it ends those of the first. Not beside any other call.
int mtSetUp(const std::string &optionFile);
/// Ends every session and forgets the set-up.
void mtCleanUp();
/// In force after mtSetUp.
int mtOptions(optStruct &options);

struct mtLogon_t {
    std::string node;     // empty: the client's own choice
    std::string asNode;   // whose objects are meant; empty: the node's own
    std::string owner;    // empty: none
    std::string password; // with HOX_PASSWORDACCESS_PROMPT
};

class mtSession
{
public:
    mtSession() = default;
    ~mtSession() { end(); }
    mtSession(const mtSession &) = delete;
    mtSession &operator=(const mtSession &) = delete;

    /// Ends what is open first.
    int start(const mtLogon_t &logon);
    void end();

    [[nodiscard]] hoxHandle_t handle() const { return handle_; }
    [[nodiscard]] const ApiSessInfo &info() const { return info_; }
    /// How many objects a transaction takes; at least 1.
    [[nodiscard]] std::size_t mostPerTransaction() const;

private:
    hoxHandle_t handle_ = 0;
    ApiSessInfo info_{};
};

/// The sentence for a code, in English, without its identifier. It tells more (a name, a path) when
/// the code is that of the last failure on this thread.
[[nodiscard]] std::string mtText(int rc);

/// One call of the storage client by a utility, timed as a client call while it lives:
/// mtApi()->dhoxBeginTxn(mtStatus(), ...).
class mtCall
{
public:
    explicit mtCall(DHoxApi &api) : api_(api) {}
    DHoxApi *operator->() const { return &api_; }

private:
    DHoxApi &api_;
    const mtTimed timed_{MT_TIME_CLIENT};
};

/// The binding and its status, for the utilities.
mtCall mtApi();
DBaseApiStatus *mtStatus();

#endif
