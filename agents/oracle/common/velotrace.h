// Starting the agent trace from a context's options, and its header.
#ifndef KEEL_AGENTS_ORACLE_COMMON_VELOTRACE_H
#define KEEL_AGENTS_ORACLE_COMMON_VELOTRACE_H

#include "agents/common/keelctrace.h"
#include "agents/oracle/common/orcobj.h"

/// The process's agent trace, null while there is none. Owned by the initialisation.
extern KEELCTrace *keelTrcClass;

/// Sets the test flags, starts the trace that the options name and selects its classes. A trace
/// that does not start is reported (201 or 3) and stays off; it never fails the caller.
void veloInitTrace(orcObj_t *ctx);

/// Writes the "Tracing started for" block and the settings dump.
void veloTraceHeaderInfo(const orcObj_t *ctx);

/// Shows a buffer byte by byte in the agent trace, when the class for that is on.
void veloTraceBuffer(const void *data, std::size_t size);

/// A test flag whose value is a number: false when the flag is off; *number is 0 without a value.
bool veloTestNumber(const char *flag, long *number);

#endif
