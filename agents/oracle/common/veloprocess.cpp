// See the header.
#include "agents/oracle/common/veloprocess.h"

psMutex_t initMutex;
std::int16_t oracleThrdCtr = 0;
bool bNlsSetUp = false;
bool bHoxSetUp = false;
std::atomic<bool> sqlplusHangs{false};
