// The words that the agent trace and its parts share: the classes, the codes, the console routine.
#ifndef KEEL_COMMON_UT_TRACEWORDS_H
#define KEEL_COMMON_UT_TRACEWORDS_H

enum trClass : unsigned {
    TR_ORCLEVEL0, // failures
    TR_ORCLEVEL1, // the flow of calls: Enter, Exit - OK
    TR_ORCLEVEL2, // details
    TR_ORCBUFF,   // buffers, byte by byte
    TR_GENERAL,
    TR_LINKEDLIST,
    TR_NLS, // message repository
    TR_EXTRC_DETAIL,
    TR_API,       // calls of the storage client
    TR_PERFORM,   // the time that those calls took
    TR_MEMORY,    // memory taken and released
    TR_TIMESTAMP, // from here on: what decorates each line
    TR_PID,
    TR_TID,
    TR_PREFIX,
    TR_CLIENTTYPE,
    TR_CLASSES
};

constexpr unsigned TR_RC_NAME = 406; // no file name, or longer than 260 characters
constexpr unsigned TR_RC_FLAG = 419; // an unknown trace flag
constexpr unsigned TR_RC_OPEN = 426; // the trace file cannot be opened or written, or is none

/// Receives what is traced to CONSOLE, one text after the other; the text is valid during the call
/// only.
using trConsoleFn = void (*)(const char *text);

#endif
