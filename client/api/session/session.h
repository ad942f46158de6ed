// A session: a node that proved who it is, and what it has open. One thread uses it at a time, with
// `mutex` held (client.h: inSession). The table of sessions and the calls inside share it.
#ifndef KEEL_CLIENT_API_SESSION_SESSION_H
#define KEEL_CLIENT_API_SESSION_SESSION_H

#include "client/api/session/granted.h"
#include "client/api/session/query.h"
#include "client/api/session/transaction.h"
#include "client/config/options.h"
#include "client/store/log/activity_log.h"
#include "client/store/nodes/policy.h"
#include "client/store/nodes/repository.h"

#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace arca::api
{

/// An open read: the objects of its list, and the one that is begun.
struct Retrieval {
    std::vector<store::PieceId> ids;
    std::unique_ptr<store::PieceReader> object; // null between two objects
    store::ObjectName name;                     // of `object`
    std::uint64_t bytes = 0;                    // delivered, of all objects
};

/// Only one of transaction, query and retrieval is open at a time.
struct Session {
    /// `seal` is the seal of the node that logged on, also when `itsSpace` is another node's.
    Session(std::unique_ptr<store::Repository> itsRepository,
            std::unique_ptr<store::NodeSpace> itsSpace, config::Options itsOptions,
            store::LogSeal seal)
        : options(std::move(itsOptions)), repository(std::move(itsRepository)),
          space(std::move(itsSpace)), log(repository->blobs(), std::move(seal))
    {
    }

    /// Returns true when the objects are another node's: what that granted may be found and read,
    /// nothing else is allowed.
    bool isGuest() const { return node != space->node(); }
    bool isIdle() const { return !transaction && !query && !retrieval; }

    std::mutex mutex; // guards all below
    const config::Options options;
    std::string node; // the one that logged on; `space` is of the node whose objects are meant
    std::string owner;
    std::unique_ptr<store::Repository> repository;
    std::unique_ptr<store::NodeSpace> space;
    store::ActivityLog log;
    std::optional<Transaction> transaction;
    std::unique_ptr<Query> query;
    std::optional<Retrieval> retrieval;
    std::optional<store::Group> openGroup; // not stored yet
    Granted granted;                       // as of `rulesSeen`; see guest.h
    std::optional<store::AccessRules::State> rulesSeen;
    bool ended = false; // for a call that was waiting for the mutex while the session was ended
};

} // namespace arca::api

#endif
