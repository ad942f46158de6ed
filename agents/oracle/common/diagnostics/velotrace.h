// Starting the agent trace from a context's options, and its header.
#ifndef KEEL_AGENTS_ORACLE_COMMON_DIAGNOSTICS_VELOTRACE_H
#define KEEL_AGENTS_ORACLE_COMMON_DIAGNOSTICS_VELOTRACE_H

#include "agents/common/keelctrace.h"
#include "agents/oracle/common/orcobj.h"

/// The process's agent trace, null while there is none. The initialisation owns it and changes it
/// under initMutex.
extern KEELCTrace *keelTrcClass;

/// Sets the test flags that the options name (without any, earlier flags stay), starts the trace
/// and selects its classes; keelTrcClass exists. A trace that does not start is reported in the
/// error log (message 201 or 3) and stays off; an unknown class is noted in the trace. The caller
/// holds initMutex.
void veloInitTrace(orcObj_t *ctx);

/// Writes the "Tracing started for" block and the settings dump, whatever classes are on; nothing
/// when there is no trace.
void veloTraceHeaderInfo(const orcObj_t *ctx);

/// Writes a buffer byte by byte to the agent trace when TR_ORCBUFF is on. Any thread.
void veloTraceBuffer(const void *data, std::size_t size);

/// Reads a test flag whose value is a number. Returns false, with *number untouched, when the flag
/// is off; *number is 0 for a flag without a value or with one that is no number.
bool veloTestNumber(const char *flag, long *number);

#endif
