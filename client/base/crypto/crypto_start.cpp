// Starting libcrypto: see the header.
#include "client/base/crypto/crypto_start.h"

#include "client/base/crypto/crypto_locks.h"
#include "common/thrd/psmutex.h"
#include "common/thrd/psprocess.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/kdf.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <pthread.h>
#include <utility>

namespace arca
{

namespace
{

constinit std::atomic<bool> started = false;
constinit thread_local bool ranShort = false;
constinit std::atomic<int> starting = 0; ///< threads that are at it

/// A block that `resize` replaced is freed when it replaces the next. A thread of the parent that a
/// fork stops before it has stored where its table went leaves the old place in the child's memory,
/// which must not be another's by then.
constinit std::atomic<void *> replaced = nullptr;

/// The reserve: a start takes some 850 KB from it when the system gives nothing. Its pages are
/// touched only then. Its blocks follow one another and are not used again.
constexpr std::size_t kReserve = std::size_t{2} << 20, kHead = 16;
alignas(kHead) constinit std::byte reserve[kReserve] = {};
constinit std::atomic<std::size_t> reserved = 0;

bool isReserved(const void *block)
{
    const auto at = reinterpret_cast<std::uintptr_t>(block);
    const auto begin = reinterpret_cast<std::uintptr_t>(reserve);
    return at >= begin && at < begin + kReserve;
}

/// A block with its size in front: of the system's memory, or else of the reserve.
void *take(std::size_t size, const char *, int)
{
    if (size == 0 || size > SIZE_MAX / 2)
        return nullptr;
    const std::size_t whole = kHead + (size + kHead - 1) / kHead * kHead;
    auto *block = static_cast<std::byte *>(std::malloc(whole));
    if (block == nullptr && !started) {
        std::size_t at = reserved;
        while (whole <= kReserve - at && !reserved.compare_exchange_weak(at, at + whole)) {
        }
        if (whole <= kReserve - at)
            block = reserve + at;
    }
    if (block == nullptr) {
        ranShort = true;
        return nullptr;
    }
    std::memcpy(block, &size, sizeof size);
    return block + kHead;
}

void giveBack(void *block, const char *, int)
{
    if (block != nullptr && !isReserved(block))
        std::free(static_cast<std::byte *>(block) - kHead);
}

void *resize(void *block, std::size_t size, const char *file, int line)
{
    void *const moved = take(size, file, line);
    if (block == nullptr || (moved == nullptr && size != 0))
        return moved; // the old one stays
    if (moved != nullptr) {
        std::size_t before = 0;
        std::memcpy(&before, static_cast<std::byte *>(block) - kHead, sizeof before);
        std::memcpy(moved, block, std::min(before, size));
    }
    giveBack(moved != nullptr ? replaced.exchange(block) : block, file, line);
    return moved;
}

template <auto Function> struct Free {
    template <class Object> void operator()(Object *object) const { Function(object); }
};
using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, Free<EVP_CIPHER_CTX_free>>;
using Pkey = std::unique_ptr<EVP_PKEY, Free<EVP_PKEY_free>>;
using PkeyContext = std::unique_ptr<EVP_PKEY_CTX, Free<EVP_PKEY_CTX_free>>;

/// Uses every algorithm once, which makes all that libcrypto keeps of it.
bool useAll()
{
    unsigned char key[32] = {1}, out[64] = {};
    std::size_t length = sizeof out;
    const auto ciphers = [&](const EVP_CIPHER *cipher) {
        const CipherContext context(EVP_CIPHER_CTX_new());
        return context && EVP_CipherInit_ex(context.get(), cipher, nullptr, key, key, 1) == 1;
    };
    const Pkey half(EVP_PKEY_new_raw_private_key(EVP_PKEY_X25519, nullptr, key, sizeof key));
    const PkeyContext shared(half ? EVP_PKEY_CTX_new(half.get(), nullptr) : nullptr);
    const PkeyContext drawn(EVP_PKEY_CTX_new_id(EVP_PKEY_HKDF, nullptr));
    return EVP_Digest(key, sizeof key, out, nullptr, EVP_sha256(), nullptr) == 1 &&
           HMAC(EVP_sha256(), key, sizeof key, key, sizeof key, out, nullptr) != nullptr &&
           ciphers(EVP_aes_128_gcm()) && ciphers(EVP_aes_256_gcm()) &&
           EVP_PBE_scrypt("", 0, key, sizeof key, 2, 1, 1, 0, out, sizeof key) == 1 && shared &&
           EVP_PKEY_derive_init(shared.get()) == 1 &&
           EVP_PKEY_derive_set_peer(shared.get(), half.get()) == 1 &&
           EVP_PKEY_derive(shared.get(), out, &length) == 1 && drawn &&
           EVP_PKEY_derive_init(drawn.get()) == 1 &&
           EVP_PKEY_CTX_set_hkdf_md(drawn.get(), EVP_sha256()) == 1 &&
           EVP_PKEY_CTX_set1_hkdf_key(drawn.get(), key, sizeof key) == 1 &&
           EVP_PKEY_derive(drawn.get(), out, &(length = sizeof key)) == 1;
}

// What libcrypto knows of algorithms (names, providers, methods found) hangs on a library context.
// A child whose parent was at work on it leaves it as it is, perhaps half changed, and begins with
// another.
constinit std::atomic<bool> torn = false;
constinit std::atomic<OSSL_LIB_CTX *> another = nullptr;

/// In a forked child, once, before any of its threads calls libcrypto. When another fork interrupts
/// it, that one's child does it whole: `starting` and the writers are forgotten last.
void beginInChild()
{
    if (cryptoIsChanging() || starting != 0) {
        torn = true;
        replaced = nullptr; // a table may lie there still
        another = nullptr;
        started = false;
    }
    starting = 0;
    freeCryptoLocks();
}

/// A child knows itself by its process when it first gets ready. The handler of forks does it
/// earlier, for what ends or frees without getting ready; it is not called in the child of a fork
/// that was under way when the library was loaded.
constinit psProcessMark process;

void knowProcess()
{
    process.adopt(beginInChild);
}

// Its own handler comes first, as the identity of the process hangs on it.
[[maybe_unused]] const bool watched =
    (psProcessSelf() != 0) && pthread_atfork(nullptr, nullptr, knowProcess) == 0;

/// Lets this thread work with the context that is sound in this process.
bool useContext()
{
    static constinit thread_local OSSL_LIB_CTX *used = nullptr;
    if (!torn)
        return true;
    OSSL_LIB_CTX *sound = another;
    if (sound == nullptr) {
        OSSL_LIB_CTX *const made = OSSL_LIB_CTX_new();
        if (made == nullptr)
            return false;
        if (another.compare_exchange_strong(sound, made))
            sound = made;
        else
            OSSL_LIB_CTX_free(made);
    }
    if (used != sound && OSSL_LIB_CTX_set0_default(sound) == nullptr)
        return false;
    used = sound;
    return true;
}

bool start()
{
    ++starting;
    // Before libcrypto takes any memory; each further time it says the same.
    (void)CRYPTO_set_mem_functions(take, resize, giveBack);
    // No static of ours, whose initialisation a fork could interrupt: the child would hang.
    const bool good =
        OPENSSL_init_crypto(OPENSSL_INIT_NO_LOAD_CONFIG | OPENSSL_INIT_NO_ATEXIT, nullptr) == 1 &&
        useContext() && useAll();
    if (good)
        started = true;
    --starting;
    return good;
}

} // namespace

bool cryptoReady() noexcept
{
    ranShort = false;
    knowProcess();
    return started ? useContext() : start();
}

Error cryptoFailure(const char *text)
{
    if (std::exchange(ranShort, false))
        throw std::bad_alloc();
    return {ErrorKind::internal, text};
}

} // namespace arca
