// The line reader beneath every keyword file.
#ifndef KEEL_COMMON_UT_UTLINE_H
#define KEEL_COMMON_UT_UTLINE_H

#include <cstdio>

/// Reads the next line that is neither blank nor a comment (first character after white space an
/// asterisk) into buffer, at most size - 1 characters; the rest of a longer line comes back as
/// lines of their own, so memory stays constant whatever the file holds. One newline, or else one
/// carriage return, is taken off the end; leading white space stays. Every line read, skipped ones
/// too, adds one to *lineCount. A NUL byte ends the line's text; a line that begins with one is
/// blank. Null at the end of the file, when reading fails and when size is below 2. White space is
/// the ASCII class, whatever the host's locale. encoding and flags are those of psFileOpen.
char *utGetNextLine(char *buffer, long size, FILE *file, int *lineCount, int encoding, int flags);

#endif
