// The time that the lines of the logs begin with.
#ifndef KEEL_AGENTS_ORACLE_COMMON_VELOCLOCK_H
#define KEEL_AGENTS_ORACLE_COMMON_VELOCLOCK_H

#include <cstddef>

/// Writes "DATE TIME" of now, local time, in the message system's formats, cut to size - 1
/// characters and terminated.
void veloGetCurTime(char *text, std::size_t size);

#endif
