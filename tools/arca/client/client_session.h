// A verb's sessions through the storage client, for the maintenance utilities: they see the node's
// objects as any application does. One thread.
#ifndef KEEL_TOOLS_ARCA_CLIENT_CLIENT_SESSION_H
#define KEEL_TOOLS_ARCA_CLIENT_CLIENT_SESSION_H

#include "agents/common/maint/mtsession.h"
#include "tools/arca/command.h"

#include <memory>

namespace arca::tool
{

/// Returns the failure that a code of the storage client stands for, with the client's text. Call
/// it right after the call that returned the code: the text is that of the last failure.
Error failureOf(int rc);
/// Returns success for 0, else failureOf(rc).
Result<void> answered(int rc);

/// The node of the option file, logged on. The destructor ends its sessions, cleans the client up
/// and wipes the password. One at a time in a process.
class ClientSession
{
public:
    ~ClientSession();
    ClientSession(const ClientSession &) = delete;
    ClientSession &operator=(const ClientSession &) = delete;

    mtSession &session() { return session_; }
    /// Returns another session of the same node, for changes while the first answers a query. It is
    /// started once, and ends with this object. Errors: those of logging on.
    Result<mtSession *> second();
    /// Fails when the session is for another node's pieces, which it may only find and read: for
    /// verbs that change pieces, before they look or ask, so that a dry run refuses what the real
    /// run would. Errors: denied.
    Result<void> expectOwnPieces() const;

private:
    friend Result<std::unique_ptr<ClientSession>> logOnClient(const Command &, bool, Json &);
    ClientSession() = default;

    std::string node_; // of the option file
    mtLogon_t logon_;
    mtSession session_;
    mtSession second_;
};

/// Logs the node of the option file on, with the password that the client keeps or, with
/// PASSWORDACCESS prompt, one that is asked for on the terminal or read from standard input. Puts
/// "repository" and "node" (with ASNODE the other node) into `result`, also when the log-on fails.
/// Errors: badOption, badArgument (no password was typed), and those of logging on. Throws
/// UsageError as secrets.h says.
Result<std::unique_ptr<ClientSession>> logOnClient(const Command &command,
                                                   bool passwordFromStandardInput, Json &result);

} // namespace arca::tool

#endif
