// The secret of password files: see the header.
#include "client/config/cipher_secret.h"

#include "client/base/crypto/hash.h"
#include "client/base/text.h"
#include "client/blob/files/file_layer.h"
#include "client/config/root_file.h"

namespace arca::config
{

namespace
{

constexpr std::size_t kSecretBytes = 32;

Result<Bytes> readSecret(const std::string &path)
{
    ARCA_TRY(const auto file, blob::systemFiles().open(path));
    Bytes secret(kSecretBytes + 1);
    ARCA_TRY(const std::size_t got, file->readAt(0, secret));
    secret.resize(got);
    if (got != kSecretBytes)
        return Error{ErrorKind::damaged,
                     path + " does not have " + std::to_string(kSecretBytes) + " bytes"};
    return secret;
}

/// Writes the secret beside its place and names it in one step, so that no reader finds half of it,
/// and two makers end up with one secret.
Result<void> makeSecret(const std::string &optionFile, const std::string &path)
{
    blob::FileLayer &files = blob::systemFiles();
    Bytes secret(kSecretBytes);
    ARCA_CHECK(fillRandom(secret));
    Bytes suffix(8);
    ARCA_CHECK(fillRandom(suffix));
    const std::string fresh = path + "." + toHex(suffix);
    ARCA_TRY(const auto file, files.create(fresh));
    auto written = file->write(secret);
    wipe(secret);
    if (written)
        written = file->sync();
    giveToOwnerOf({optionFile}, fresh);
    if (written)
        written = files.moveNew(fresh, path);
    if (!written) {
        (void)files.unlink(fresh);
        if (written.error().kind == ErrorKind::exists)
            return {};
        return written;
    }
    return files.syncDirectory(path.substr(0, path.rfind('/') + 1));
}

} // namespace

Result<Bytes> cipherSecret(const std::string &optionFile)
{
    const std::string path = optionFile + ".secret";
    auto secret = readSecret(path);
    if (secret || secret.error().kind != ErrorKind::notFound)
        return secret;
    ARCA_CHECK(makeSecret(optionFile, path));
    return readSecret(path);
}

} // namespace arca::config
