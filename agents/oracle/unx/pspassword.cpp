// The password file: a header and records of one digit and one cipher block each.
//
//     bytes 0-38   "Agent for Oracle Backup - Password file", not compared when it is read
//     then, again and again:
//     byte  0      "1" to "8": how many characters of the block belong to the password
//     bytes 1-8    the block, NUL-padded and enciphered with the key of the node
//
// What must stay true:
// 1. The file is readable by all; only the key protects the password. The storage client derives
//    the key, and this unit keeps it no longer than one call.
// 2. A new file is written beside the old one and renamed over it only after it was read back with
//    a key that was derived again: whatever fails, the node keeps the password that it can log on
//    with.
// 3. This unit wipes its copies of the clear password and of the key on every path.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <new>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "agents/common/callpin.h"
#include "agents/common/dhoxapi.h"
#include "agents/oracle/common/context/secret.h"
#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/diagnostics/errorlog.h"
#include "agents/oracle/unx/early/psvelo.h"
#include "agents/oracle/unx/pspassword.h"
#include "common/string/ststring.h"
#include "common/unx/psfile.h"
#include "common/unx/pswrite.h"

namespace
{

constexpr std::string_view kHeader = "Agent for Oracle Backup - Password file";
static_assert(kHeader.size() == 39, "the layout of the file");

constexpr mode_t kFileMode = S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH;
constexpr std::size_t kBlock = HOX_DES_BLOCK;

constexpr std::size_t kRecord = 1 + kBlock;
// More than any password needs. Without a bound a sparse file would be read for days.
constexpr std::size_t kMostRecords = 36;

// The beginning of the file, as far as it is read.
struct FileText {
    unsigned char bytes[kHeader.size() + kMostRecords * kRecord];
    std::size_t size = 0;

    bool read(int fd)
    {
        while (size < sizeof bytes) {
            const ssize_t got = ::read(fd, bytes + size, sizeof bytes - size);
            if (got < 0 && errno == EINTR) {
                continue;
            }
            if (got <= 0) {
                return got == 0;
            }
            size += static_cast<std::size_t>(got);
        }
        return true;
    }
    // The header ends at a line end within its 39 bytes, or after them.
    [[nodiscard]] std::size_t headerSize() const
    {
        const std::size_t most = std::min(size, kHeader.size());
        const auto *end = static_cast<const unsigned char *>(std::memchr(bytes, '\n', most));
        return end == nullptr ? most : static_cast<std::size_t>(end - bytes) + 1;
    }
};

// Deciphers the records into password. A count is clamped to the size of a block, the whole to the
// longest password; a short record ends the reading.
void readRecords(const FileText &text, char *password, const std::uint32_t *key)
{
    std::size_t used = 0;
    // Without a client nothing is deciphered, and what was on the stack would be the password.
    unsigned char clear[kBlock] = {};
    const SecretGuard wipe(clear, sizeof clear);
    for (std::size_t at = text.headerSize(); at + kRecord <= text.size; at += kRecord) {
        const unsigned char *record = text.bytes + at;
        ORC_TRACE(2, " %s: Calling HOXDECRYPTEX()\n", "psveloReadPswdFromFile()");
        hoxApi().dhoxDecryptEx(HoxApiStatusObjP, key, record + 1, clear);
        const int digit = std::clamp(record[0] - '0', 0, static_cast<int>(kBlock));
        const std::size_t count =
            std::min(static_cast<std::size_t>(digit), HOX_MAX_PASSWORD - used);
        std::memcpy(password + used, clear, count);
        used += count;
        if (used == HOX_MAX_PASSWORD) {
            break;
        }
    }
    password[used] = '\0';
}

// Makes the name of a file or directory survive the loss of power. False when it may not. Where a
// directory cannot be opened or synced there is nothing more to be done.
bool syncName(const std::string &path)
{
    const std::size_t slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const int opened = psFileOpenDirectory(directory.c_str());
    if (opened < 0) {
        return true;
    }
    const bool synced = fsync(opened) == 0 || errno != EIO;
    close(opened);
    return synced;
}

// Makes the directory when it is missing. Returns 0, or the code that says why it cannot take the
// file.
std::uint16_t prepareDirectory(const char *directory)
{
    char trimmed[ORC_OPTION_PATH_SIZE];
    stCopy(trimmed, directory);
    for (std::size_t n = std::strlen(trimmed); n > 0 && trimmed[n - 1] == '/'; --n) {
        trimmed[n - 1] = '\0';
    }
    if (const int opened = psFileOpenDirectory(trimmed); opened >= 0) {
        close(opened);
        return ORC_RC_OK;
    }
    if (errno != ENOENT) {
        return ORC_RC_PSWD_DIRECTORY;
    }
    // The host's umask may have taken away what its owner needs.
    return mkdir(trimmed, S_IRWXU) == 0 &&
                   fchmodat(AT_FDCWD, trimmed, S_IRWXU, AT_SYMLINK_NOFOLLOW) == 0 &&
                   syncName(trimmed)
               ? ORC_RC_OK
               : ORC_RC_NO_DIRECTORY;
}

bool writeRecords(int fd, const char *password, const std::uint32_t *key)
{
    std::size_t left = std::strlen(password);
    while (left > 0) {
        const std::size_t count = std::min(left, kBlock);
        unsigned char clear[kBlock] = {};
        const SecretGuard wipe(clear, sizeof clear);
        std::memcpy(clear, password, count);
        unsigned char record[kRecord];
        record[0] = static_cast<unsigned char>('0' + count);
        hoxApi().dhoxEncryptEx(HoxApiStatusObjP, key, clear, record + 1);
        if (!psWriteAll(fd, record, sizeof record)) {
            return false;
        }
        password += count;
        left -= count;
    }
    return true;
}

bool isTrustedLink(const struct stat &file)
{
    return S_ISLNK(file.st_mode) && (file.st_uid == 0 || file.st_uid == geteuid());
}

// The file that takes the place of the password file when it is whole. Until then the old one stays
// as it is; without a replace the new one is removed.
class NewFile
{
public:
    ~NewFile()
    {
        if (fd_ >= 0) {
            close(fd_);
        }
        if (!temporary_.empty()) {
            unlink(temporary_.c_str());
        }
    }

    // False when something that is no file has the name, or no file can be made there.
    bool create(const char *path)
    {
        struct stat old {
        };
        target_ = path;
        bool exists = lstat(path, &old) == 0;
        if (exists && isTrustedLink(old)) {
            // The file that the link names is replaced, not the link.
            const std::unique_ptr<char, void (*)(void *)> behind(realpath(path, nullptr),
                                                                 std::free);
            target_ = behind == nullptr ? "" : behind.get();
            exists = lstat(target_.c_str(), &old) == 0;
        }
        if (target_.empty() || (exists && !S_ISREG(old.st_mode))) {
            return false;
        }
        std::string name = target_ + ".XXXXXX";
        fd_ = psFileTemporary(name.data());
        if (fd_ < 0) {
            return false;
        }
        temporary_ = name;
        // The new file keeps the owner of the old one when root writes it.
        return (!exists || geteuid() != 0 || fchown(fd_, old.st_uid, old.st_gid) == 0) &&
               fchmod(fd_, kFileMode) == 0;
    }
    bool write(const char *password, const std::uint32_t *key)
    {
        return psWriteAll(fd_, kHeader.data(), kHeader.size()) &&
               writeRecords(fd_, password, key) && fsync(fd_) == 0;
    }
    bool replace()
    {
        if (rename(temporary_.c_str(), target_.c_str()) != 0) {
            return false;
        }
        temporary_.clear();
        return syncName(target_);
    }
    [[nodiscard]] const char *path() const { return temporary_.c_str(); }

private:
    std::string target_;
    std::string temporary_; // empty: there is none
    int fd_ = -1;
};

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
    // An administrator may have narrowed the mode. That of a file behind a link is left alone, and
    // a process that may not change it may still be able to read.
    struct stat status {
    };
    if (lstat(path, &status) == 0 && S_ISREG(status.st_mode)) {
        [[maybe_unused]] const int ignored =
            fchmodat(AT_FDCWD, path, kFileMode, AT_SYMLINK_NOFOLLOW);
    }
    FileText text;
    const int fd = psFileOpenDescriptor(path, O_RDONLY);
    const bool regular = fd >= 0 && fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
    const bool read = regular && text.read(fd);
    if (fd >= 0) {
        close(fd);
    }
    if (!read) { // a part of the password, or none, would only be refused as a wrong one
        SCOPE_EXIT(scope, " %s: Exit - HOX_RC_NO_PASS_FILE\n rc: %d\n\n", scope.name(),
                   ORC_RC_NO_PASS_FILE);
        return ORC_RC_NO_PASS_FILE;
    }
    readRecords(text, password, key);
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
                                    std::uint32_t *key, orcObj_t *ctx)
{
    TraceScope scope("psveloWritePswdToFile()");
    if (const std::uint16_t rc = prepareDirectory(directory); rc != ORC_RC_OK) {
        SCOPE_EXIT(scope, " %s: Exit - directory '%s'. rc = %d\n\n", scope.name(), directory, rc);
        return rc;
    }
    NewFile file;
    if (!file.create(path)) {
        SCOPE_EXIT(scope, " %s: Exit - Open pswd file failed\n\n", scope.name());
        return ORC_RC_EXISTS_ALREADY;
    }
    if (!file.write(password, key)) {
        SCOPE_EXIT(scope, " %s: Exit - Write pswd file failed\n\n", scope.name());
        return ORC_RC_EXISTS_ALREADY;
    }
    SessionPassword back;
    std::uint32_t again[2] = {};
    const SecretGuard wipe(again, sizeof again);
    psveloSetKey(again, ctx);
    if (psveloReadPswdFromFile(file.path(), back.text, again) != ORC_RC_OK ||
        std::strcmp(back.text, password) != 0) {
        SCOPE_EXIT(scope, " %s: Exit - what was written cannot be read back\n\n", scope.name());
        return ORC_RC_PSWD_UNREADABLE;
    }
    if (!file.replace()) {
        SCOPE_EXIT(scope, " %s: Exit - Rename pswd file failed\n\n", scope.name());
        return ORC_RC_EXISTS_ALREADY;
    }
    return ORC_RC_OK;
}

extern "C" std::uint16_t psveloUpdatePswd(char *password, orcObj_t *ctx)
{
    const CallPin pin;
    TraceScope scope("psveloUpdatePswd()");
    if (password == nullptr || ctx == nullptr) {
        veloReportNull(scope.name(), password == nullptr ? "password" : "ctx");
        SCOPE_EXIT(scope, " %s: Exit - NULL argument\n\n", scope.name());
        return ORC_RC_NULL_CONTEXT;
    }
    if (!hoxApi().IsLoaded()) {
        // Without the client there is neither key nor cipher.
        SCOPE_EXIT(scope, " %s: Exit - the storage client is not loaded\n\n", scope.name());
        return DHOX_NOT_LOADED;
    }
    if (stLength(password, HOX_MAX_PASSWORD + 1) > HOX_MAX_PASSWORD) {
        SCOPE_EXIT(scope, " %s: Exit - the password is too long\n\n", scope.name());
        return ORC_RC_PSWD_TOO_LONG;
    }
    char directory[ORC_OPTION_PATH_SIZE];
    char path[ORC_OPTION_PATH_SIZE];
    psveloGetFileName(directory, path, ctx);
    std::uint32_t key[2] = {};
    const SecretGuard wipe(key, sizeof key);
    psveloSetKey(key, ctx);
    std::uint16_t rc = ORC_RC_NO_MEMORY;
    try {
        rc = psveloWritePswdToFile(directory, path, password, key, ctx);
    } catch (const std::bad_alloc &) {
    }
    if (rc != ORC_RC_OK) {
        SCOPE_EXIT(scope, " %s: psveloWritePswdToFile() failed hoxHandle = %d, rc = %d\n\n",
                   scope.name(), static_cast<int>(ctx->hoxHandle), rc);
    }
    return rc;
}
