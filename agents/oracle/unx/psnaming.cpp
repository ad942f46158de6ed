// The name of a piece in the repository: filespace, high-level name "/", low-level name "/" +
// piece.
#include "agents/oracle/unx/psnaming.h"
#include "agents/oracle/common/diagnostics/callscope.h"
#include "common/string/ststring.h"

namespace
{

void fill(hoxObjName &name, const char *fsName, const char *pieceName)
{
    stCopy(name.fsName, fsName);
    stCopy(name.hlName, "/");
    stCopy(name.llName, "/");
    stAppend(name.llName, pieceName);
    name.objType = HOX_OBJ_FILE;
}

} // namespace

bool psveloPieceNameFits(const char *pieceName)
{
    if (pieceName == nullptr) {
        return false;
    }
    const std::size_t length = stLength(pieceName, ORC_MAX_PIECE_NAME + 1);
    return length >= 1 && length <= ORC_MAX_PIECE_NAME;
}

void psveloFillObjName(orcObj_t *ctx, const char *pieceName)
{
    TraceScope scope("psveloFillObjName()");
    hoxObjName &name = ctx->hoxName;
    fill(name, ctx->options[OPT_VELO_FS], pieceName);
    ORC_TRACE(2, " %s: hoxHandle =  %d, Object Name =  %s%s%s\n", scope.name(),
              static_cast<int>(ctx->hoxHandle), name.fsName, name.hlName, name.llName);
}

int psfillObjName(const char *pieceName, const char *fsName, hoxObjName *name)
{
    TraceScope scope("psfillObjName()");
    fill(*name, fsName, pieceName);
    ORC_TRACE(2, " %s: ObjName = '%s%s%s'\n", scope.name(), name->fsName, name->hlName,
              name->llName);
    return 0;
}
