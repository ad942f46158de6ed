// The words that the message repository and its parts share: output routines, the type of the
// program, codes, severities.
#ifndef KEEL_COMMON_NLS_NLSWORDS_H
#define KEEL_COMMON_NLS_NLSWORDS_H

#include <cstdint>

using nlsOutputFn = void (*)(const char *text);

/// The routines that receive texts. A routine runs in the thread that asked for the text, with the
/// repository's lock held, and may call this unit again; text is valid during the call only. For a
/// null routine the default writer serves, which shows texts in the agent trace (class TR_NLS) and
/// nowhere else. prompt, progress, log, trace and console are kept but not called by this unit.
struct nlsOutputFns {
    nlsOutputFn message;     // nlprintf
    nlsOutputFn information; // nlMessage, by severity: everything below a warning
    nlsOutputFn warning;     // ... W
    nlsOutputFn error;       // ... E and S, and failures of the repository itself
    nlsOutputFn prompt;
    nlsOutputFn progress;
    nlsOutputFn log;
    nlsOutputFn trace;
    nlsOutputFn console;
};

/// The program on whose behalf texts are read. Types 9 to 11 read the catalogue that nlinit names;
/// any other type reads the storage client's "hoxclientV3.cat".
using cliType_t = int;
constexpr cliType_t cliTypeOracle = 9;

constexpr int NLS_RC_OPEN = 2;        // the English catalogue cannot be opened
constexpr int NLS_RC_NO_MEMORY = 102; // there is no message object
constexpr int NLS_RC_ARGUMENT = 610;  // an empty name, or an over-long or null argument

/// The codes of the severity letters.
enum nlsSeverity : std::uint8_t {
    nlsSevZ = 0, // the letters Z, T, R and L carry no identifier into the text
    nlsSevT = 1,
    nlsSevR = 2,
    nlsSevK = 3,
    nlsSevInformation = 4,
    nlsSevWarning = 5,
    nlsSevError = 6,
    nlsSevSevere = 7,
    nlsSevL = 8
};

#endif
