// Where the storage client is installed on this platform. Buffers hold HOX_MAX_PATH + 1 characters;
// each call returns 0, or a code when the directory cannot be told.
#ifndef KEEL_AGENTS_COMMON_UNX_PSLUMO_H
#define KEEL_AGENTS_COMMON_UNX_PSLUMO_H

long psGetLUMOAPIDir(char *buffer);
long psGetLUMOAPILog(char *buffer);
long psGetLUMOAPIConfig(char *buffer); // empty: the client finds its own

#endif
