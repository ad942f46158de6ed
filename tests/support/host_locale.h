// A locale made for a test, since a test machine may have none but C.
#ifndef KEEL_TESTS_SUPPORT_HOST_LOCALE_H
#define KEEL_TESTS_SUPPORT_HOST_LOCALE_H

#include "tests/support/files.h"

#include <string>

namespace keel::test
{

/// As long as the object lives the process speaks this language in this code set, such as "de_DE"
/// and "ISO-8859-1". One at a time. Throws std::runtime_error when the system cannot make it.
class HostLocale
{
public:
    HostLocale(const std::string &language, const std::string &codeSet);
    ~HostLocale();
    HostLocale(const HostLocale &) = delete;
    HostLocale &operator=(const HostLocale &) = delete;

private:
    TempDir directory_;
};

} // namespace keel::test

#endif
