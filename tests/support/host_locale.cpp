// See host_locale.h.
#include "tests/support/host_locale.h"

#include "tests/support/program.h"

#include <clocale>
#include <cstdlib>
#include <stdexcept>

namespace keel::test
{

HostLocale::HostLocale(const std::string &language, const std::string &codeSet)
{
    const std::string name = language + "." + codeSet;
    const auto made = run(
        {"localedef", "--no-archive", "-i", language, "-f", codeSet, (directory_ / name).string()});
    ::setenv("LOCPATH", directory_.path().c_str(), 1);
    if (made.status != 0 || std::setlocale(LC_ALL, name.c_str()) == nullptr)
        throw std::runtime_error("localedef " + name + ": " + made.err);
}

HostLocale::~HostLocale()
{
    std::setlocale(LC_ALL, "C");
    ::unsetenv("LOCPATH");
}

} // namespace keel::test
