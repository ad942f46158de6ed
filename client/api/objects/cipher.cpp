// The block cipher of password files: single DES on blocks of 8 bytes, as the form of those files
// has it. The protection of a password file is its key, which mixes the node's name with a secret
// that only those users can read who may read the kept passwords.
#include "client/api/session/client.h"
#include "client/base/crypto/hash.h"
#include "client/config/cipher_secret.h"

// DES lies outside the default provider; its block functions are what remains of it.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/des.h>

#include <cstring>

using namespace arca;
using namespace arca::api;

namespace
{

static_assert(sizeof(DES_cblock) == HOX_DES_BLOCK);

std::string optionFileInForce()
{
    const auto setUp = Client::instance().currentSetUp();
    return setUp ? setUp->optionFile : installedDirectory() + "/arca.opt";
}

/// Without the secret the key is random and opens nothing that was ever written: a key made of the
/// node's name alone would look like protection and be none.
void makeKey(unsigned char (&key)[HOX_DES_BLOCK], std::string_view node)
{
    Result<Sha256> derived = Error{ErrorKind::internal, {}};
    auto secret = config::cipherSecret(optionFileInForce());
    if (secret) {
        derived = hmacSha256(*secret, viewOf(node));
        wipe(*secret);
    } else {
        (void)Client::instance().logLocally(
            "The secret of password files cannot be used, so none can be read or written: " +
            secret.error().text);
    }
    if (derived) {
        std::memcpy(key, derived->data(), sizeof key);
        wipe(*derived);
    } else {
        (void)fillRandom(std::as_writable_bytes(std::span(key)));
    }
}

void cipherBlock(const std::uint32_t *key, const unsigned char *input, unsigned char *output,
                 int direction)
{
    if (key == nullptr || input == nullptr || output == nullptr)
        return;
    DES_cblock keyBlock, in, out;
    std::memcpy(keyBlock, key, sizeof keyBlock);
    std::memcpy(in, input, sizeof in);
    DES_key_schedule schedule;
    DES_set_key_unchecked(&keyBlock, &schedule);
    DES_ecb_encrypt(&in, &out, &schedule, direction);
    std::memcpy(output, out, sizeof out);
    wipe(std::as_writable_bytes(std::span(&schedule, 1)));
    wipe(std::as_writable_bytes(std::span(keyBlock)));
}

} // namespace

void hoxCreateDesKeyEx(std::uint32_t *key, const char *nodeName)
{
    if (key == nullptr)
        return;
    unsigned char bytes[HOX_DES_BLOCK] = {};
    (void)atBoundary([&]() -> Code {
        const std::size_t length =
            nodeName == nullptr ? 0 : strnlen(nodeName, HOX_MAX_NODE_NAME + 1);
        makeKey(bytes, std::string_view(nodeName == nullptr ? "" : nodeName, length));
        return success();
    });
    std::memcpy(key, bytes, sizeof bytes);
    wipe(std::as_writable_bytes(std::span(bytes)));
}

void hoxEncryptEx(const std::uint32_t *key, const unsigned char *input, unsigned char *output)
{
    cipherBlock(key, input, output, DES_ENCRYPT);
}

void hoxDecryptEx(const std::uint32_t *key, const unsigned char *input, unsigned char *output)
{
    cipherBlock(key, input, output, DES_DECRYPT);
}
