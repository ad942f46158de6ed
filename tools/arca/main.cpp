// arca: looks after the repository.
#include "client/base/text.h"
#include "tools/arca/command.h"

#include <cstdio>

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

int perform(const Command &command)
{
    Json result = {{"verb", command.verb}, {"ok", true}};
    Result<void> done = Error{ErrorKind::internal, "the verb was not run"};
    try {
        done = command.run(result);
    } catch (const std::exception &error) {
        done = Error{ErrorKind::internal, error.what()};
    }
    if (!done) {
        result["ok"] = false;
        result["error"] = done.error().text;
    }
    if (command.json)
        fmt::print("{}\n", result.dump(2, ' ', false, Json::error_handler_t::replace));
    if (!done)
        fmt::print(stderr, "arca {}: {}\n", command.verb, printable(done.error().text, 4000));
    if (std::fflush(stdout) != 0) {
        fmt::print(stderr, "arca {}: cannot write standard output\n", command.verb);
        return kExitFailed;
    }
    return done ? 0 : kExitFailed;
}

} // namespace

} // namespace arca::tool

int main(int argc, char **argv)
{
    CLI::App app("Looks after the repository in which the storage client keeps backup pieces.",
                 "arca");
    app.set_version_flag("--version", "arca 7.1.3.0");
    app.require_subcommand(1);
    app.footer("Example: arca init --optfile /etc/arca.opt\n"
               "Exit status: 0 done, 1 failed (the reason in one line), 2 wrong use.\n"
               "arca VERB --help tells more of a verb.");
    arca::tool::Command command;
    arca::tool::addAccess(app, command);
    arca::tool::addClass(app, command);
    arca::tool::addInit(app, command);
    arca::tool::addKey(app, command);
    arca::tool::addLog(app, command);
    arca::tool::addNode(app, command);
    arca::tool::addReclaim(app, command);
    arca::tool::addStats(app, command);
    arca::tool::addVerify(app, command);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        if (error.get_exit_code() == 0)
            return app.exit(error); // --help, --version
        fmt::print(stderr, "arca: {} (arca --help tells more)\n", error.what());
        return arca::tool::kExitUsage;
    }
    return arca::tool::perform(command);
}
