// The password file: a header and records of one digit and one cipher block each.
//
//     bytes 0-38   "Agent for Oracle Backup - Password file", not compared when it is read
//     then, again and again:
//     byte  0      "1" to "8": how many characters of the block belong to the password
//     bytes 1-8    the block, NUL-padded and enciphered with the key of the node
//
// The file is readable by all; what protects the password is the key, which the storage client
// derives and which lives here no longer than one call.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "agents/common/dhoxapi.h"
#include "agents/oracle/common/callscope.h"
#include "agents/oracle/common/errorlog.h"
#include "agents/oracle/common/secret.h"
#include "agents/oracle/common/velooptions.h"
#include "agents/oracle/unx/psvelo.h"
#include "common/string/ststring.h"
#include "common/unx/psfile.h"

namespace
{

constexpr std::string_view kHeader = "Agent for Oracle Backup - Password file";
static_assert(kHeader.size() == 39, "the layout of the file");

constexpr mode_t kFileMode = S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH;
constexpr std::size_t kBlock = HOX_DES_BLOCK;

// A stream without a buffer of its own: nothing of the file outlives the reading.
std::FILE *openForReading(const char *path)
{
    int encoding = 0;
    int flags = 0;
    std::FILE *file = psFileOpen(path, "r", &encoding, &flags);
    if (file != nullptr) {
        std::setvbuf(file, nullptr, _IONBF, 0);
    }
    return file;
}

// The records, clamped to what one block and the whole password may hold; a short record ends the
// reading.
void readRecords(std::FILE *file, char *password, const std::uint32_t *key)
{
    std::size_t used = 0;
    unsigned char record[1 + kBlock];
    unsigned char clear[kBlock];
    const SecretGuard wipe(clear, sizeof clear);
    while (std::fread(record, 1, sizeof record, file) == sizeof record) {
        ORC_TRACE(2, " %s: Calling HOXDECRYPTEX()\n", "psveloReadPswdFromFile()");
        hoxApi().dhoxDecryptEx(HoxApiStatusObjP, key, record + 1, clear);
        const int digit = std::clamp(record[0] - '0', 0, static_cast<int>(kBlock));
        const std::size_t count =
            std::min(static_cast<std::size_t>(digit), HOX_MAX_PASSWORD - used);
        std::memcpy(password + used, clear, count);
        used += count;
    }
    password[used] = '\0';
}

// 0, or why the directory cannot take the file.
std::uint16_t prepareDirectory(const char *directory)
{
    char trimmed[ORC_OPTION_PATH_SIZE];
    stCopy(trimmed, directory);
    for (std::size_t n = std::strlen(trimmed); n > 0 && trimmed[n - 1] == '/'; --n) {
        trimmed[n - 1] = '\0';
    }
    if (DIR *opened = opendir(trimmed)) {
        closedir(opened);
        return ORC_RC_OK;
    }
    if (errno != ENOENT) {
        return ORC_RC_PSWD_DIRECTORY;
    }
    return mkdir(trimmed, S_IRWXU) == 0 ? ORC_RC_OK : ORC_RC_NO_DIRECTORY;
}

bool writeAll(int fd, const void *data, std::size_t size)
{
    return write(fd, data, size) == static_cast<ssize_t>(size);
}

void writeRecords(int fd, const char *password, const std::uint32_t *key)
{
    std::size_t left = std::strlen(password);
    while (left > 0) {
        const std::size_t count = std::min(left, kBlock);
        unsigned char clear[kBlock] = {};
        const SecretGuard wipe(clear, sizeof clear);
        std::memcpy(clear, password, count);
        unsigned char record[1 + kBlock];
        record[0] = static_cast<unsigned char>('0' + count);
        hoxApi().dhoxEncryptEx(HoxApiStatusObjP, key, clear, record + 1);
        if (!writeAll(fd, record, sizeof record)) {
            return; // the file is left short; whoever reads it gets what is there
        }
        password += count;
        left -= count;
    }
}

} // namespace

void psveloGetFileName(char *directory, char *path, orcObj_t *ctx)
{
    TraceScope scope("psveloGetFileName()");
    if (ctx->options[OPT_VELO_PSWDPATH][0] != '\0') {
        stCopy(directory, ORC_OPTION_PATH_SIZE, ctx->options[OPT_VELO_PSWDPATH]);
    } else if (ctx->options[OPT_HOXI_ORC_DIR][0] != '\0') {
        stCopy(directory, ORC_OPTION_PATH_SIZE, ctx->options[OPT_HOXI_ORC_DIR]);
    } else {
        psveloGetVeloDir(directory);
    }
    stCopy(path, ORC_OPTION_PATH_SIZE, directory);
    if (!std::string_view(path).ends_with('/')) {
        stAppend(path, ORC_OPTION_PATH_SIZE, "/");
    }
    stAppend(path, ORC_OPTION_PATH_SIZE, "VELO.");
    stAppend(path, ORC_OPTION_PATH_SIZE, ctx->options[OPT_VELO_NODE]);
    ORC_TRACE(2, " %s: hoxHandle = %d, Password Path = '%s'\n", scope.name(),
              static_cast<int>(ctx->hoxHandle), path);
}

void psveloSetKey(std::uint32_t *key, orcObj_t *ctx)
{
    TraceScope scope("psveloSetKey()");
    hoxApi().dhoxCreateDesKeyEx(HoxApiStatusObjP, key, ctx->options[OPT_VELO_NODE]);
}

std::uint16_t psveloReadPswdFromFile(const char *path, char *password, std::uint32_t *key)
{
    TraceScope scope("psveloReadPswdFromFile()");
    password[0] = '\0';
    struct stat status {
    };
    std::FILE *file = nullptr;
    if (stat(path, &status) == 0 && S_ISREG(status.st_mode)) {
        // Somebody may have narrowed the mode; whoever may not change it may still be able to read.
        [[maybe_unused]] const int ignored = chmod(path, kFileMode);
        file = openForReading(path);
    }
    if (file == nullptr) {
        SCOPE_EXIT(scope, " %s: Exit - HOX_RC_NO_PASS_FILE\n rc: %d\n\n", scope.name(),
                   ORC_RC_NO_PASS_FILE);
        return ORC_RC_NO_PASS_FILE;
    }
    char header[kHeader.size() + 1];
    if (std::fgets(header, sizeof header, file) != nullptr) {
        readRecords(file, password, key);
    }
    std::fclose(file);
    return ORC_RC_OK;
}

std::uint16_t psveloReadPswd(char *password, orcObj_t *ctx)
{
    TraceScope scope("psveloReadPswd()");
    char directory[ORC_OPTION_PATH_SIZE];
    char path[ORC_OPTION_PATH_SIZE];
    psveloGetFileName(directory, path, ctx);
    std::uint32_t key[2] = {};
    const SecretGuard wipe(key, sizeof key);
    psveloSetKey(key, ctx);
    const std::uint16_t rc = psveloReadPswdFromFile(path, password, key);
    if (rc != ORC_RC_OK) {
        veloReportMessage(ctx, OrcMessage(2519));
        SCOPE_EXIT(scope, " %s: Exit - psveloReadPswdFromFile() failed. hoxHandle = %d, rc= %d\n\n",
                   scope.name(), static_cast<int>(ctx->hoxHandle), rc);
    }
    return rc;
}

std::uint16_t psveloWritePswdToFile(const char *directory, const char *path, const char *password,
                                    std::uint32_t *key)
{
    TraceScope scope("psveloWritePswdToFile()");
    if (const std::uint16_t rc = prepareDirectory(directory); rc != ORC_RC_OK) {
        SCOPE_EXIT(scope, " %s: Exit - directory '%s'. rc = %d\n\n", scope.name(), directory, rc);
        return rc;
    }
    const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kFileMode);
    if (fd < 0) {
        SCOPE_EXIT(scope, " %s: Exit - Open pswd file failed\n\n", scope.name());
        return ORC_RC_EXISTS_ALREADY;
    }
    fchmod(fd, kFileMode);
    if (writeAll(fd, kHeader.data(), kHeader.size())) {
        writeRecords(fd, password, key);
    }
    close(fd);
    return ORC_RC_OK;
}

extern "C" std::uint16_t psveloUpdatePswd(char *password, orcObj_t *ctx)
{
    TraceScope scope("psveloUpdatePswd()");
    if (password == nullptr || ctx == nullptr) {
        veloReportNull(scope.name(), password == nullptr ? "password" : "ctx");
        SCOPE_EXIT(scope, " %s: Exit - NULL argument\n\n", scope.name());
        return ORC_RC_NULL_CONTEXT;
    }
    char directory[ORC_OPTION_PATH_SIZE];
    char path[ORC_OPTION_PATH_SIZE];
    psveloGetFileName(directory, path, ctx);
    std::uint32_t key[2] = {};
    const SecretGuard wipe(key, sizeof key);
    psveloSetKey(key, ctx);
    const std::uint16_t rc = psveloWritePswdToFile(directory, path, password, key);
    if (rc != ORC_RC_OK) {
        SCOPE_EXIT(scope, " %s: psveloWritePswdToFile() failed hoxHandle = %d, rc = %d\n\n",
                   scope.name(), static_cast<int>(ctx->hoxHandle), rc);
    }
    return rc;
}
