// Where the storage client is installed on this platform: paths that are compiled in. Each call
// writes a path to a buffer of HOX_MAX_PATH + 1 characters, terminated, and returns 0; on a
// platform that looks the path up it may return a code. Any thread.
#ifndef KEEL_AGENTS_COMMON_UNX_PSLUMO_H
#define KEEL_AGENTS_COMMON_UNX_PSLUMO_H

long psGetLUMOAPIDir(char *buffer);
long psGetLUMOAPILog(char *buffer);
long psGetLUMOAPIConfig(char *buffer); // empty: the client chooses its option file

#endif
