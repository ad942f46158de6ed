// Catalogues: the bytes as a file that is checked, opened and asked for messages, as the stored
// text of one message with its insert table, and as the name of the host's locale, which chooses a
// file.
#include "common/nls/nls.h"
#include "common/nls/nlsinserts.h"
#include "common/nls/nlslanguage.h"
#include "common/nls/nlsmsg.h"
#include "common/ut/utmem.h"
#include "fuzz/scratch.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
const std::string &catalogueDirectory()
{
    static const std::string directory = [] {
        if (mkdir((keelfuzz::scratch() + "/EN_US").c_str(), 0700) != 0)
            std::abort();
        return keelfuzz::scratch();
    }();
    return directory;
}

void askForAll()
{
    for (const int number : {3, 507, 2522}) {
        char *text = nullptr;
        nlsprintf(text, number);
        utFree(text);
    }
    char *text = nullptr;
    nlsprintf(text, 2503, "/filespace", "/", "/piece");
    utFree(text);
    nlsprintf(text, 2526, "name", "1", 1, 2, 3, "4", "Yes", "5%", "No", "6%", "None", "No");
    utFree(text);
    nlEngsprintf(text, 2702, "sbtbackup()", 1ULL << 40);
    utFree(text);
    nlGetMsgSev(2604);
}

void asFile(const std::uint8_t *data, std::size_t size)
{
    static const std::string path = catalogueDirectory() + "/EN_US/velo.cat";
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (file < 0 || write(file, data, size) != static_cast<ssize_t>(size))
        std::abort();
    close(file);
    newNlsGlobalObject(nullptr, 0);
    if (nlinit("velo.cat", 10, catalogueDirectory().c_str(), cliTypeOracle, 1, 1, 1, nullptr,
               "velo.cat") == 0)
        askForAll();
    destroyNlsGlobalObject();
}

void place(std::string_view stored, const char *types, ...)
{
    char out[300];
    va_list arguments;
    va_start(arguments, types);
    if (nlOrderInsert(out, sizeof out, stored, 9, types, 1, arguments) >= sizeof out)
        std::abort();
    va_end(arguments);
}

void asMessage(std::string_view stored)
{
    nlsMsg *message = nullptr;
    if (nlsMakeMsg(1, stored, nullptr, &message) != nlsMsgResult::made)
        return;
    place(message->stored(), "%s,%d,%llu,%f,%c,%*.*s", "text", -1, ~0ULL, 1.5, 'c', 3, 2, "piece");
    utFree(message);
}

// A language is the name of one directory.
void asLocale(const char *locale)
{
    char language[nlsLanguageSize];
    char fallback[nlsLanguageSize];
    nlsLanguageOfLocale(locale, language);
    nlsFallbackLanguage(language, fallback);
    for (const char *name : {language, fallback})
        if (*name == '\0' || *name == '.' || std::strchr(name, '/') != nullptr)
            std::abort();
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    asMessage(text);
    asMessage("RBQ0001E " + text);
    asLocale(text.c_str());
    asFile(data, size);
    return 0;
}
