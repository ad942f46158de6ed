// The two writers of "veloerror.log" that need neither options nor messages.
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "agents/oracle/common/veloclock.h"
#include "agents/oracle/unx/early/pserrorlog.h"
#include "common/string/ststring.h"
#include "common/unx/psfile.h"
#include "common/unx/pswrite.h"
#include "common/ut/utnoargs.h"
#include "keel_paths.h"

void psWriteError(const char *fileName, const char *text)
{
    if (fileName != nullptr && fileName[0] != '\0') {
        psAppendLocked(fileName, text, std::strlen(text));
    }
}

namespace
{

constexpr const char *kInstallDirectory = KEEL_CLIENT_ROOT "/oracle/bin64";
constexpr const char *kInstallLog = KEEL_CLIENT_ROOT "/oracle/bin64/veloerror.log";

bool endsWithALine(int fd)
{
    struct stat file {
    };
    char last = '\n';
    return fstat(fd, &file) != 0 || file.st_size == 0 ||
           pread(fd, &last, 1, file.st_size - 1) != 1 || last == '\n';
}

// One write on an append-only descriptor keeps the line whole without a lock. A line that a full
// disk cuts cannot be taken back, as another process may have appended behind it: it is ended, at
// once or by the next line.
void appendOnce(const char *path, std::string line)
{
    const int fd = psFileOpenDescriptor(path, O_RDWR | O_APPEND | O_CREAT, 0666);
    if (fd < 0) {
        return;
    }
    if (!endsWithALine(fd)) {
        line.insert(0, "\n");
    }
    if (!psWriteAll(fd, line.data(), line.size()) && !endsWithALine(fd)) {
        psWriteAll(fd, "\n", 1);
    }
    close(fd);
}

} // namespace

void psNonNlsErrorMsg(const char *text)
{
    const char *path = psFileWritableDir(kInstallDirectory) != 0 ? kInstallLog : "veloerror.log";
    char when[64];
    veloGetCurTime(when, sizeof when);
    char head[32];
    std::snprintf(head, sizeof head, " TID<%d>  ==>  ", static_cast<int>(getpid()));
    try {
        // Both texts are formats without arguments.
        appendOnce(path, utFormatNoArgs(when) + head + stLogLine(utFormatNoArgs(text)));
    } catch (const std::exception &) {
        // No memory for the line: it is lost, like one whose file does not open.
    }
}
