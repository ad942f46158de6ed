// A repository and the option files that lead to it, over the products as built.
#ifndef KEEL_TESTS_SUPPORT_INSTALLATION_H
#define KEEL_TESTS_SUPPORT_INSTALLATION_H

#include "tests/support/files.h"
#include "tests/support/program.h"

#include <filesystem>
#include <string>
#include <vector>

namespace keel::test
{

// The products of this build, where an installation has them.
[[nodiscard]] std::filesystem::path stage();         ///< the root of the tree
[[nodiscard]] std::filesystem::path agentLibrary();  ///< libobk.so
[[nodiscard]] std::filesystem::path clientLibrary(); ///< libApiHX64.so
[[nodiscard]] std::filesystem::path keelProgram();
[[nodiscard]] std::filesystem::path arcaProgram();

struct InstallationSettings {
    std::string node = "testnode";
    std::vector<std::string> agentLines;  ///< more lines for velo.opt, such as "VELO_FS prod"
    std::vector<std::string> clientLines; ///< more lines for arca.opt
    bool initialise = true;               ///< run `arca init`
};

/// A temporary directory with a repository, arca.opt and velo.opt; the error log goes there too. As
/// long as the object lives, VELO_OPTFILE names its velo.opt, XDG_CACHE_HOME a directory in it, and
/// it is the working directory of the process, so one at a time. Throws std::runtime_error when
/// `arca init` fails.
class Installation
{
public:
    explicit Installation(const InstallationSettings &settings = {});
    ~Installation();

    [[nodiscard]] const std::filesystem::path &directory() const { return directory_.path(); }
    [[nodiscard]] std::filesystem::path agentOptions() const { return directory_ / "velo.opt"; }
    [[nodiscard]] std::filesystem::path clientOptions() const { return directory_ / "arca.opt"; }
    [[nodiscard]] std::filesystem::path repository() const { return directory_ / "repository"; }
    [[nodiscard]] std::filesystem::path caches() const { return directory_ / "caches"; }
    [[nodiscard]] std::filesystem::path errorLog() const { return directory_ / "veloerror.log"; }

    /// Writes velo.opt anew: the lines that every installation needs, then these.
    void configureAgent(const std::vector<std::string> &lines) const;

private:
    TempDir directory_;
    std::filesystem::path previousDirectory_;
};

} // namespace keel::test

#endif
