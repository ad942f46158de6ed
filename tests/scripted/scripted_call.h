// What the operations of the scripted client are written with.
#ifndef KEEL_TESTS_SCRIPTED_SCRIPTED_CALL_H
#define KEEL_TESTS_SCRIPTED_SCRIPTED_CALL_H

#include <string>

#include "tests/scripted/scripted.h"

#define SCRIPTED_EXPORT __attribute__((visibility("default")))
#define OPERATION(name) SCRIPTED_EXPORT int16_t name

/// Notes the call, and leaves the operation when the script answers in its place.
#define CALL(name, ...) CALL_WITH(name, scriptedFields(__VA_ARGS__))
#define BARE_CALL(name) CALL_WITH(name, "")
#define CALL_WITH(name, fields)                                                                    \
    if (const auto answer = scriptedClient()->called(name, fields); answer.scripted)               \
    return static_cast<int16_t>(answer.rc)

/// An operation that notes its call and answers code.
#define BARE_OPERATION(name, code, ...)                                                            \
    OPERATION(name)(__VA_ARGS__)                                                                   \
    {                                                                                              \
        BARE_CALL(#name);                                                                          \
        return code;                                                                               \
    }

std::string scriptedFields(const char *format, ...) __attribute__((format(printf, 1, 2)));

inline const char *shown(const char *text)
{
    return text ? text : "(null)";
}

#endif
