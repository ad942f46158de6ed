// Which process this is, so that a forked child recognises what it has of its parent.
#ifndef KEEL_COMMON_THRD_PSPROCESS_H
#define KEEL_COMMON_THRD_PSPROCESS_H

/// Returns a positive number that a forked child and its parent do not share: made of the process
/// number, which a child may have in common with its parent when it begins a PID namespace, and of
/// the forks that led here since the first call. A child of clone(2) differs by its process number
/// alone. Takes no lock. Any thread may call it.
int psProcessSelf() noexcept;

#endif
