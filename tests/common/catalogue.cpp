// Catalogues that a test makes for itself.
#include "tests/common/catalogue.h"

#include "common/nls/nls.h"

#include <cstdlib>
#include <stdexcept>

namespace keel::test
{

namespace
{
std::string withBytes(std::string line)
{
    for (char digit = '0'; digit <= '2'; ++digit) {
        const std::string spelled = {'{', digit, '}'};
        for (std::size_t at; (at = line.find(spelled)) != std::string::npos;)
            line.replace(at, spelled.size(), 1, static_cast<char>(digit - '0' + 0x10));
    }
    return line;
}
} // namespace

void makeCatalogue(const std::filesystem::path &directory, const std::string &language,
                   const CatalogueLines &lines)
{
    const std::filesystem::path room = directory / language;
    std::filesystem::create_directories(room);
    std::string source = "$ codeset=UTF-8\n$set 1\n$quote \"\n";
    for (const std::string &line : lines) {
        const std::size_t blank = line.find(' ');
        source += line.substr(0, blank) + " \"" + withBytes(line.substr(blank + 1)) + "\"\n";
    }
    writeFile(room / "velo.msg", source);
    const std::string command = std::string(KEEL_TEST_GENCAT) + " --new -o '" +
                                (room / "velo.cat").string() + "' '" +
                                (room / "velo.msg").string() + "'";
    if (std::system(command.c_str()) != 0)
        throw std::runtime_error(command);
}

int startMessages(const std::filesystem::path &directory)
{
    if (getNlsGlobalObjectHandle() == nullptr)
        newNlsGlobalObject(nullptr, 0);
    nlterm();
    return nlinit("velo.cat", 10, directory.c_str(), cliTypeOracle, 1, 1, 1, nullptr, "velo.cat");
}

} // namespace keel::test
