// The line reader beneath every keyword file.
#ifndef KEEL_COMMON_UT_UTLINE_H
#define KEEL_COMMON_UT_UTLINE_H

#include <cstdio>

/// Reads the next line that is neither blank nor a comment (an asterisk first, after white space)
/// into buffer, terminated, and returns buffer. A line of more than size - 1 characters is returned
/// in pieces, each as a separate line, so memory is bounded whatever the file holds. One newline,
/// or else one carriage return, is removed from the end; leading white space stays. Every line or
/// piece read, skipped ones too, adds one to *lineCount (which may be null). A NUL byte ends the
/// line's text; a line that begins with one is blank. Returns null at the end of the file, when
/// reading fails and when size is below 2. White space is the ASCII class, whatever the host's
/// locale. encoding and flags are those of psFileOpen. No shared state.
char *utGetNextLine(char *buffer, long size, FILE *file, int *lineCount, int encoding, int flags);

#endif
