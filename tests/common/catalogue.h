// Catalogues that a test makes for itself, and the calls on them.
#ifndef KEEL_TESTS_COMMON_CATALOGUE_H
#define KEEL_TESTS_COMMON_CATALOGUE_H

#include "tests/support/files.h"

#include <string>
#include <vector>

namespace keel::test
{

/// Lines for gencat, as "2503 RBQ2503E text"; written here, 0x10 to 0x12 may be spelled \n-like as
/// "{0}", "{1}" and "{2}".
using CatalogueLines = std::vector<std::string>;

/// Makes directory/language/velo.cat with the host's gencat. Throws when gencat complains.
void makeCatalogue(const std::filesystem::path &directory, const std::string &language,
                   const CatalogueLines &lines);

/// nlinit as the agent calls it, on directory.
int startMessages(const std::filesystem::path &directory);

/// The text of a formatting call, its memory given back; "<none>" without one.
template <class Format, class... Arguments>
std::string textOf(Format format, int msgNum, Arguments... arguments);

} // namespace keel::test

#include "common/ut/utmem.h"

template <class Format, class... Arguments>
std::string keel::test::textOf(Format format, int msgNum, Arguments... arguments)
{
    char *text = nullptr;
    const int length = format(text, msgNum, arguments...);
    if (text == nullptr)
        return length == 0 ? "<none>" : "<none, but a length>";
    std::string copy = text;
    utFree(text);
    return static_cast<int>(copy.size()) == length ? copy : copy + " <wrong length>";
}

#endif
