// Finding a piece in the repository by the context's object name, over the context's open session.
// The thread that uses the context calls. "Reported" means: in the context's error text and the
// error log.
#ifndef KEEL_AGENTS_ORACLE_COMMON_SESSION_VELOQUERY_H
#define KEEL_AGENTS_ORACLE_COMMON_SESSION_VELOQUERY_H

#include <functional>

#include "agents/common/dhoxapi.h"
#include "agents/oracle/common/orcobj.h"

/// Looks for the context's object among the active ones, by its state for a backup, a restore or
/// another. Returns 8 with its identifier in the context (message 2503 is reported when a backup
/// asks); 7 when it does not exist (reported when a restore asks) or its filespace is unknown
/// (reported unless a backup asks), and when a backup asks and the description is damaged. A query
/// that ends as finished without having answered an object is 8 to a backup, else 7; 2539 for a
/// null ctx (logged); 65535 when the query does not begin, or the storage client's code when it
/// fails later, both reported. Without an object the context's identifier stays as it was: clear it
/// first. No query is open afterwards; the session is.
std::uint16_t veloQueryObj(orcObj_t *ctx);

/// Asks for a management class; the storage pool of every answer is traced under caller's name, and
/// the last answer, its texts terminated, is copied to *last. Returns 0 when the query was answered
/// to its end, even without an answer, which leaves *last as it was; else the storage client's code
/// (2: there is no such class). report, never empty, is called once with a failure, before the
/// query is ended, because ending it may replace the client's text of the failure.
std::int16_t veloQueryClass(const orcObj_t *ctx, const char *mcName, const char *caller,
                            qryRespMCData *last, const std::function<void(std::int16_t)> &report);

/// One backup query for one name, active objects only. Nothing is reported, and the destructor does
/// not end the query.
class BackupQuery
{
public:
    /// Both must outlive the query, and be unchanged until begin() has returned.
    BackupQuery(const orcObj_t *ctx, const hoxObjName &name);

    /// Returns the storage client's code; only after 0 may next() and end() be called, and until
    /// end(), after a failed next() too, the session takes no other query or transaction.
    std::int16_t begin();
    /// Fetches the next answer. Returns HOX_RC_MORE_DATA (2200) with answer() filled, then
    /// HOX_RC_FINISHED (121), HOX_RC_NO_MATCH (2) or a failure, which leave answer() as it was; 0
    /// may come with or without an answer.
    std::int16_t next();
    std::int16_t end();

    /// The last object that was fetched; clear before the first.
    [[nodiscard]] const dhoxBackupObject_t &answer() const { return answer_; }
    /// Returns true when an object was fetched, whatever the code that ended the query.
    [[nodiscard]] bool answered() const { return answered_; }
    /// Clears answer(), not answered().
    void clearAnswer() { answer_ = dhoxBackupObject_t{}; }

private:
    std::uint32_t handle_;
    qryBackupData request_{};
    qryRespBackupData response_{};
    dhoxBackupObject_t answer_{};
    bool answered_ = false;
};

#endif
