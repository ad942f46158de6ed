// Wiping memory that held a secret, in a way that the compiler cannot drop.
#ifndef KEEL_AGENTS_ORACLE_COMMON_CONTEXT_SECRET_H
#define KEEL_AGENTS_ORACLE_COMMON_CONTEXT_SECRET_H

#include <cstddef>

#include "client/include/hoxapi.h"

/// Sets size bytes to 0.
inline void wipeSecret(void *memory, std::size_t size)
{
    auto *byte = static_cast<volatile unsigned char *>(memory);
    for (std::size_t i = 0; i < size; ++i) {
        byte[i] = 0;
    }
}

/// Wipes a buffer that it does not own at the end of a scope.
class SecretGuard
{
public:
    SecretGuard(void *memory, std::size_t size) : memory_(memory), size_(size) {}
    ~SecretGuard() { wipeSecret(memory_, size_); }
    SecretGuard(const SecretGuard &) = delete;
    SecretGuard &operator=(const SecretGuard &) = delete;

private:
    void *memory_;
    std::size_t size_;
};

/// The password of a session request, wiped with the object.
struct SessionPassword {
    char text[HOX_MAX_PASSWORD + 1] = "";

    SessionPassword() = default;
    ~SessionPassword() { wipe(); }
    SessionPassword(const SessionPassword &) = delete;
    SessionPassword &operator=(const SessionPassword &) = delete;

    void wipe() { wipeSecret(text, sizeof text); }
};

#endif
