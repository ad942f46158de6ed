// The frame of every version-1 call: the error record, the entry of this process, the reports.
#include "agents/oracle/common/v1/sbt1.h"

#include <cstdlib>

#include "agents/oracle/common/diagnostics/errorlog.h"
#include "agents/oracle/common/session/veloinit.h"
#include "agents/oracle/unx/psnaming.h"

Sbt1Call::Sbt1Call(const char *name, bserc *error, const char *file, unsigned line)
    : scope_(name, "Enter\n", file, line), error_(error)
{
    if (error_ == nullptr) {
        return;
    }
    *error_ = bserc{};
    psMutexGuard lock(orcMutex);
    const std::int16_t index = SearchOrcBlock(0);
    if (index >= 0 && pOrcBlock[index].orcCtxP != nullptr) {
        index_ = index;
        ctx_ = pOrcBlock[index].orcCtxP;
    }
}

std::uint32_t Sbt1Call::blockSize() const
{
    psMutexGuard lock(orcMutex);
    return static_cast<std::uint32_t>(pOrcBlock[index_].blockSize);
}

std::int16_t Sbt1Call::state() const
{
    psMutexGuard lock(orcMutex);
    return static_cast<std::int16_t>(pOrcBlock[index_].ctxState);
}

void Sbt1Call::setState(std::int16_t state)
{
    psMutexGuard lock(orcMutex);
    pOrcBlock[index_].ctxState = static_cast<std::uint32_t>(state);
}

void Sbt1Call::openFile(std::uint64_t blockSize, std::int16_t state)
{
    psMutexGuard lock(orcMutex);
    orcBlock_t &entry = pOrcBlock[index_];
    entry.blockSize = blockSize;
    entry.ctxState = static_cast<std::uint32_t>(state);
    entry.orcHandle = ctx_->hoxHandle;
    entry.bytesDone = 0;
}

void Sbt1Call::countBytes(std::uint64_t bytes)
{
    psMutexGuard lock(orcMutex);
    pOrcBlock[index_].bytesDone += bytes;
}

int Sbt1Call::failStep(std::uint32_t oer, std::uint32_t errnum)
{
    ORC_TRACE(0, " %s: '%s'\n", name(), ctx_->errText);
    return finish(oer, errnum);
}

int Sbt1Call::finish(std::uint32_t oer, std::uint32_t errnum)
{
    error_->oer = oer;
    error_->errnum = errnum;
    return -1;
}

int Sbt1Call::fail(std::uint32_t oer, std::uint32_t errnum, const OrcMessage &message)
{
    veloReportMessage(nullptr, message);
    ORC_TRACE(0, " %s: '%s'\n", name(), message.text());
    return finish(oer, errnum);
}

int Sbt1Call::failApi(std::uint32_t oer, std::uint32_t errnum, std::int16_t apiRc)
{
    const std::uint32_t session = ctx_ == nullptr ? 0 : ctx_->hoxHandle;
    char text[ORC_ERRTEXT_SIZE];
    veloGetApiMsg(session, 1, apiRc, text);
    veloLogApiText(session, apiRc);
    ORC_TRACE(0, " %s: '%s'\n", name(), text);
    return finish(oer, errnum);
}

int Sbt1Call::failNoEntry(std::uint32_t oer)
{
    // The search has written the text of 2014 to the error log already.
    char text[ORC_ERRTEXT_SIZE];
    veloGetApiMsg(0, 1, HOX_RC_NO_CONTEXT, text);
    ORC_TRACE(0, " %s: '%s'\n", name(), text);
    SCOPE_EXIT(scope_, " %s: Exit - oer = %d, errno = %d\n\n", name(), static_cast<int>(oer),
               ORC_RC_NO_ENTRY);
    return finish(oer, ORC_RC_NO_ENTRY);
}

void Sbt1Call::cleanUp()
{
    scope_.leave();
    veloCleanUp(ctx_);
    ctx_ = nullptr;
    index_ = -1;
}

void Sbt1Call::exportNode() const
{
    psMutexGuard lock(orcMutex);
    // setenv copies: no pointer into this library may stay in the host's environment after it is
    // unloaded.
    setenv("HOXO_NODE", pOrcBlock[index_].fileName, 1);
}

bool sbt1FileNameFits(const char *fileName)
{
    return psveloPieceNameFits(fileName);
}
