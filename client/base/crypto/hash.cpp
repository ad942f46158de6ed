// Digests by libcrypto and xxHash, both linked in and hidden; randomness by the kernel.
#include "client/base/crypto/hash.h"

#include "client/base/crypto/crypto_start.h"
#include "client/base/descriptor.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

// Included with two warnings off: the header-only form has places that raise them.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wshadow"
#define XXH_INLINE_ALL
#include <xxhash.h>
#pragma GCC diagnostic pop

namespace arca
{

namespace
{

const unsigned char *octets(ByteView bytes)
{
    return reinterpret_cast<const unsigned char *>(bytes.data());
}

Error failure()
{
    return cryptoFailure("the digest library failed");
}

} // namespace

Result<Sha256> sha256(std::initializer_list<ByteView> parts)
{
    if (!cryptoReady())
        return failure();
    const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                          &EVP_MD_CTX_free);
    Sha256 digest;
    bool good = context && EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) == 1;
    for (const ByteView part : parts) {
        ByteWriter length;
        length.u64(part.size());
        good = good && EVP_DigestUpdate(context.get(), length.view().data(), length.size()) == 1 &&
               EVP_DigestUpdate(context.get(), part.data(), part.size()) == 1;
    }
    good =
        good && EVP_DigestFinal_ex(context.get(), reinterpret_cast<unsigned char *>(digest.data()),
                                   nullptr) == 1;
    if (!good)
        return failure();
    return digest;
}

Result<Sha256> hmacSha256(ByteView key, ByteView message)
{
    Sha256 digest;
    if (!cryptoReady() ||
        HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), octets(message),
             message.size(), reinterpret_cast<unsigned char *>(digest.data()), nullptr) == nullptr)
        return failure();
    return digest;
}

bool equalSecrets(ByteView a, ByteView b)
{
    return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

void wipe(std::span<std::byte> bytes)
{
    OPENSSL_cleanse(bytes.data(), bytes.size());
}

void wipe(std::string &text)
{
    // All that the string has room for: the bytes of a short text that was moved away, or cut, are
    // still there.
    text.resize(text.capacity());
    OPENSSL_cleanse(text.data(), text.size());
    text.clear();
}

static bool readFromDevice(std::span<std::byte> bytes)
{
    const int device = openAbove("/dev/urandom", O_RDONLY);
    if (device < 0)
        return false;
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t got = read(device, bytes.data() + done, bytes.size() - done);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        done += static_cast<std::size_t>(got);
    }
    close(device);
    return done == bytes.size();
}

Result<void> fillRandom(std::span<std::byte> bytes)
{
#if defined(__GLIBC__) && (__GLIBC__ > 2 || __GLIBC_MINOR__ >= 25)
    if (bytes.size() <= 256 && getentropy(bytes.data(), bytes.size()) == 0)
        return {};
#endif
    if (!readFromDevice(bytes))
        return Error{ErrorKind::io, "the system's random generator cannot be read"};
    return {};
}

std::uint64_t checksum64(ByteView bytes, std::uint64_t seed)
{
    return XXH3_64bits_withSeed(bytes.data(), bytes.size(), seed);
}

struct StreamDigest::State {
    // The state must be aligned more strictly than operator new of older runtimes guarantees; the
    // library's own allocation takes care of it.
    XXH3_state_t *xxh = XXH3_createState();
    State() = default;
    State(const State &) = delete;
    State &operator=(const State &) = delete;
    ~State() { XXH3_freeState(xxh); }
};

StreamDigest::StreamDigest() : state_(std::make_unique<State>())
{
    if (state_->xxh == nullptr)
        throw std::bad_alloc();
    XXH3_128bits_reset(state_->xxh);
}

StreamDigest::~StreamDigest() = default;
StreamDigest::StreamDigest(StreamDigest &&) noexcept = default;
StreamDigest &StreamDigest::operator=(StreamDigest &&) noexcept = default;

void StreamDigest::update(ByteView bytes)
{
    XXH3_128bits_update(state_->xxh, bytes.data(), bytes.size());
}

Digest128 StreamDigest::value() const
{
    XXH128_canonical_t canonical;
    XXH128_canonicalFromHash(&canonical, XXH3_128bits_digest(state_->xxh));
    Digest128 digest;
    for (std::size_t i = 0; i < digest.size(); ++i)
        digest[i] = static_cast<std::byte>(canonical.digest[i]);
    return digest;
}

} // namespace arca
