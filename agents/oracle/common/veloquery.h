// Finding a piece in the repository by the context's object name.
#ifndef KEEL_AGENTS_ORACLE_COMMON_VELOQUERY_H
#define KEEL_AGENTS_ORACLE_COMMON_VELOQUERY_H

#include <functional>

#include "agents/common/dhoxapi.h"
#include "agents/oracle/common/orcobj.h"

/// Looks for the context's object among the active ones. 8: it is there, and its identifier is in
/// the context; 7: it is not, or its filespace is unknown; 2539: no context; else the code of a
/// failure, which is reported.
std::uint16_t veloQueryObj(orcObj_t *ctx);

/// Asks for a management class; every answer's storage pool goes into the agent trace under
/// caller's name, the last one into *last, terminated. 0 when the query came to its end, else the
/// storage client's code (2: there is no such class), which report is called with before the query
/// is ended: the ending must not change what the client tells of the failure.
std::int16_t veloQueryClass(const orcObj_t *ctx, const char *mcName, const char *caller,
                            qryRespMCData *last, const std::function<void(std::int16_t)> &report);

/// One backup query for one name, active objects only, as the calls that read answers need it.
class BackupQuery
{
public:
    /// Both must outlive the query.
    BackupQuery(const orcObj_t *ctx, const hoxObjName &name);

    std::int16_t begin();
    /// 2200 with answer() filled; then 121, 2 or a failure. A clear answer stands before each
    /// fetch.
    std::int16_t next();
    std::int16_t end();

    [[nodiscard]] const dhoxBackupObject_t &answer() const { return answer_; }
    /// True when an object came, whatever the code that ended the query.
    [[nodiscard]] bool answered() const { return answered_; }
    void clearAnswer() { answer_ = dhoxBackupObject_t{}; }

private:
    std::uint32_t handle_;
    qryBackupData request_{};
    qryRespBackupData response_{};
    dhoxBackupObject_t answer_{};
    bool answered_ = false;
};

#endif
