// See installation.h.
#include "tests/support/installation.h"

#include <cstdlib>
#include <stdexcept>
#include <string>

namespace keel::test
{

namespace fs = std::filesystem;

fs::path stage()
{
    return KEEL_TEST_STAGE;
}

fs::path agentLibrary()
{
    return stage() / "oracle/bin64/libobk.so";
}

fs::path clientLibrary()
{
    return stage() / "api/bin64/libApiHX64.so";
}

fs::path keelProgram()
{
    return stage() / "bin/keel";
}

fs::path arcaProgram()
{
    return stage() / "bin/arca";
}

namespace
{

std::string joinLines(std::string text, const std::vector<std::string> &lines)
{
    for (const std::string &line : lines)
        text += line + "\n";
    return text;
}

} // namespace

Installation::Installation(const InstallationSettings &settings)
    : previousDirectory_(fs::current_path())
{
    writeFile(clientOptions(),
              joinLines("REPOSITORY file://" + repository().string() + "\nNODENAME " +
                            settings.node + "\nPASSWORDACCESS generate\n",
                        settings.clientLines));
    configureAgent(settings.agentLines);
    ::setenv("VELO_OPTFILE", agentOptions().c_str(), 1);
    ::setenv("XDG_CACHE_HOME", caches().c_str(), 1);
#ifdef KEEL_TEST_SANITIZED
    // A sanitizer opens libraries in our stead, so the agent's own search path does not count.
    ::setenv("LD_LIBRARY_PATH", clientLibrary().parent_path().c_str(), 1);
#endif
    fs::current_path(directory());
    if (settings.initialise) {
        ProgramResult result = run({arcaProgram(), "init", "--optfile", clientOptions()});
        if (result.status != 0)
            throw std::runtime_error("arca init: " + result.err);
    }
}

Installation::~Installation()
{
    ::unsetenv("VELO_OPTFILE");
    ::unsetenv("XDG_CACHE_HOME");
    std::error_code ignored;
    fs::current_path(previousDirectory_, ignored);
}

void Installation::configureAgent(const std::vector<std::string> &lines) const
{
    writeFile(agentOptions(), joinLines("HOXI_ORC_CONFIG " + clientOptions().string() +
                                            "\nHOXI_LOG " + directory().string() + "\n",
                                        lines));
}

} // namespace keel::test
