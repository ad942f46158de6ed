// Setting the storage client up for a process: its level, its directories, and who keeps the
// password.
#include <cerrno>
#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

#include "agents/common/dhoxapi.h"
#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/diagnostics/errorlog.h"
#include "agents/oracle/common/session/velosession.h"
#include "common/string/ststring.h"
#include "common/unx/psfile.h"

std::uint16_t veloCheck_API_Level()
{
    TraceScope scope("veloCheck_API_Level()");
    constexpr std::uint32_t required = 71300;
    hoxApiVersionEx found{};
    found.stVersion = HOX_API_VERSION_EX_VERSION;
    hoxApi().dhoxQueryApiVersionEx(HoxApiStatusObjP, &found);
    // The release weighs 1,000, not 100: the check has always compared with these weights.
    const std::uint32_t level =
        found.version * 10000U + found.release * 1000U + found.level * 100U + found.subLevel;
    if (level >= required) {
        return ORC_RC_OK;
    }
    veloReportMessage(nullptr,
                      OrcMessage(2572, static_cast<int>(found.version),
                                 static_cast<int>(found.release), static_cast<int>(found.level)));
    veloReportMessage(nullptr, OrcMessage(2573, 7, 1, 3));
    SCOPE_EXIT(scope, " %s: Exit - storage client too old. level = %u\n\n", scope.name(), level);
    return ORC_RC_CLIENT_TOO_OLD;
}

namespace
{

// The temporary file whose path is the program's name in the client's argument vector.
class ProgramFile
{
public:
    /// 0 or an errno value.
    int create()
    {
        descriptor_ = psFileTemporary(path_);
        return descriptor_ < 0 ? errno : 0;
    }
    // The set-user-ID bit is what the client's trusted-program check has always been given.
    int setMode()
    {
        const int failed = fchmod(descriptor_, S_ISUID | S_IRWXU) == 0 ? 0 : errno;
        close(descriptor_);
        return failed;
    }
    void remove() { unlink(path_); }
    [[nodiscard]] char *path() { return path_; }

private:
    char path_[sizeof "/tmp/VELO.XXXXXX"] = "/tmp/VELO.XXXXXX";
    int descriptor_ = -1; // from create to setMode
};

void fillEnvironment(const orcObj_t *ctx, char **argv, envSetUp &env)
{
    env = envSetUp{};
    env.stVersion = HOX_ENVSETUP_VERSION;
    stCopy(env.hoxiDir, ctx->options[OPT_HOXI_DIR]);
    stCopy(env.hoxiConfig, ctx->options[OPT_HOXI_ORC_CONFIG]);
    stCopy(env.hoxiLog, ctx->options[OPT_HOXI_LOG]);
    env.argv = argv;
    stCopy(env.logName, "veloerror.log");
    env.inclExclCaseSensitive = 0;
}

// Makes one set-up call, with its trace and its report.
std::int16_t setUpClient(orcObj_t *ctx, const envSetUp &env, TraceScope &scope)
{
    ORC_TRACE(2,
              " %s: Using version %d of envSetUp\n envSetUp.incExlCaseSensitive = FALSE\n"
              " envSetUp.hoxiDir             = '%s'\n envSetUp.hoxiConfig          = '%s'\n"
              " envSetUp.hoxiLog             = '%s'\n envSetUp.logName             = '%s'\n",
              scope.name(), env.stVersion, env.hoxiDir, env.hoxiConfig, env.hoxiLog, env.logName);
    const std::int16_t rc = hoxApi().dhoxSetUp(HoxApiStatusObjP, 1, &env);
    if (rc != HOX_RC_OK) {
        // Without a text in the host's language the English one serves.
        char aside[ORC_ERRTEXT_SIZE];
        veloGetApiMsg(0, 1, rc, aside);
        if (!veloGetLocalMsg(0, rc, ctx->errText)) {
            stCopy(ctx->errText, aside);
        }
        veloErrorMsg(ctx->errText);
        SCOPE_EXIT(scope, " %s: Exit - HOXSETUP() failed, rc = %d\n\n", scope.name(), rc);
    } else {
        ctx->state = ORC_STATE_INITIALISED;
    }
    return rc;
}

// The client keeps the password itself: clears node, owner and password path of the option file,
// which are not used then, and reports that.
void warnOfUnusedOptions(orcObj_t *ctx, const TraceScope &scope)
{
    auto &options = ctx->options;
    if (options[OPT_VELO_NODE][0] == '\0' && options[OPT_VELO_OWNER][0] == '\0' &&
        options[OPT_VELO_PSWDPATH][0] == '\0') {
        return;
    }
    ORC_TRACE(2, "%s: velo_node and/or velo_owner are set.\n", scope.name());
    veloReportMessage(ctx, OrcMessage(2610));
    options[OPT_VELO_NODE][0] = '\0';
    options[OPT_VELO_OWNER][0] = '\0';
    options[OPT_VELO_PSWDPATH][0] = '\0';
}

} // namespace

std::uint16_t psDoHoxSetUp(orcObj_t *ctx)
{
    TraceScope scope("psDoHoxSetUp()");
    ctx->bUsePwGenerate = 1;
    errno = 0;
    ProgramFile program;
    if (const int failed = program.create(); failed != 0) {
        veloReportMessage(nullptr, OrcMessage(2531, program.path(), failed));
        SCOPE_EXIT(scope, " %s: Exiting - mkstemp() for '%s' failed,\n with errno = %d\n\n",
                   scope.name(), program.path(), failed);
        return static_cast<std::uint16_t>(failed);
    }
    if (const int failed = program.setMode(); failed != 0) {
        program.remove();
        SCOPE_EXIT(scope, " %s: Exiting - chmod() failed for file '%s', errno = %d\n\n",
                   scope.name(), program.path(), failed);
        return static_cast<std::uint16_t>(failed);
    }

    char *argv[] = {program.path(), nullptr};
    envSetUp env;
    fillEnvironment(ctx, argv, env);
    if (const std::int16_t rc = setUpClient(ctx, env, scope); rc != HOX_RC_OK) {
        // The file stays, as evidence of what the client was given.
        return static_cast<std::uint16_t>(rc);
    }
    program.remove();

    optStruct clientOptions{};
    if (const std::int16_t rc = hoxApi().dhoxQueryCliOptions(HoxApiStatusObjP, &clientOptions);
        rc != HOX_RC_OK) {
        SCOPE_EXIT(scope, "%s: HOXQUERYCLIOPTIONS failed. rc=%d\n", scope.name(), rc);
        return static_cast<std::uint16_t>(rc);
    }
    stCopy(ctx->nodeName, clientOptions.nodeName);
    ORC_TRACE(2, " %s: cliOptStruct.passwordAccess = %d\n", scope.name(),
              clientOptions.passwordAccess);
    ORC_TRACE(2, " %s: orcCtxP->bUsePwGenerate = %d\n", scope.name(), ctx->bUsePwGenerate);

    if (clientOptions.passwordAccess == HOX_PASSWORDACCESS_PROMPT) {
        ctx->bUsePwGenerate = 0;
        ORC_TRACE(2, " %s: calling HOXCLEANUP\n", scope.name());
        hoxApi().dhoxCleanUp(HoxApiStatusObjP, 1);
        ctx->state = 0;
        env.argv = nullptr;
        if (const std::int16_t rc = setUpClient(ctx, env, scope); rc != HOX_RC_OK) {
            return static_cast<std::uint16_t>(rc);
        }
    } else {
        warnOfUnusedOptions(ctx, scope);
    }
    SCOPE_EXIT_FLOW(scope, " %s: Exiting with rc = %d\n\n", scope.name(), 0);
    return ORC_RC_OK;
}
