// The storage client's operations, in the order in which they are looked up. Traces and tests that
// count look-ups rely on the order.
#ifndef KEEL_AGENTS_COMMON_DHOXOPERATIONS_H
#define KEEL_AGENTS_COMMON_DHOXOPERATIONS_H

#define DHOX_OPERATIONS(X)                                                                         \
    X(hoxBeginGetData)                                                                             \
    X(hoxBeginQuery)                                                                               \
    X(hoxBeginTxn)                                                                                 \
    X(hoxBindMC)                                                                                   \
    X(hoxChangePW)                                                                                 \
    X(hoxCleanUp)                                                                                  \
    X(hoxCreateDesKeyEx)                                                                           \
    X(hoxDecryptEx)                                                                                \
    X(hoxDeleteAccess)                                                                             \
    X(hoxDeleteFS)                                                                                 \
    X(hoxDeleteObj)                                                                                \
    X(hoxEncryptEx)                                                                                \
    X(hoxEndGetData)                                                                               \
    X(hoxEndGetDataEx)                                                                             \
    X(hoxEndGetObj)                                                                                \
    X(hoxEndQuery)                                                                                 \
    X(hoxEndSendObj)                                                                               \
    X(hoxEndSendObjEx)                                                                             \
    X(hoxEndTxn)                                                                                   \
    X(hoxEndTxnEx)                                                                                 \
    X(hoxGetData)                                                                                  \
    X(hoxGetNextQObj)                                                                              \
    X(hoxGetObj)                                                                                   \
    X(hoxGroupHandler)                                                                             \
    X(hoxInit)                                                                                     \
    X(hoxInitEx)                                                                                   \
    X(hoxLogEventEx)                                                                               \
    X(hoxQueryAccess)                                                                              \
    X(hoxQueryApiVersion)                                                                          \
    X(hoxQueryApiVersionEx)                                                                        \
    X(hoxQueryCliOptions)                                                                          \
    X(hoxQuerySessInfo)                                                                            \
    X(hoxQuerySessOptions)                                                                         \
    X(hoxRegisterFS)                                                                               \
    X(hoxRenameObj)                                                                                \
    X(hoxRCMsg)                                                                                    \
    X(hoxRCMsgEx)                                                                                  \
    X(hoxSetAccess)                                                                                \
    X(hoxSendData)                                                                                 \
    X(hoxSendObj)                                                                                  \
    X(hoxSetUp)                                                                                    \
    X(hoxTerminate)                                                                                \
    X(hoxUpdateFS)                                                                                 \
    X(hoxUpdateObj)

#endif
