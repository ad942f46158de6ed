// RMANTrace: the trace file that the database names for us. It is shared with whatever else the
// database writes there, so every line opens, appends and closes it.
//
// One object a process, reached through rmanTrcClass. Any thread may trace: a statement is a header
// (trPrintHdr), kept in a slot of the calling thread, and a body (trPrintBdy) that takes it up. Use
// RMAN_TRACE, which costs one test while its class is off. No failure of the trace is ever
// reported.
#ifndef KEEL_AGENTS_ORACLE_COMMON_RMANTRACE_H
#define KEEL_AGENTS_ORACLE_COMMON_RMANTRACE_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "agents/common/callpin.h"
#include "common/thrd/psmutex.h"

enum rmantrclass {
    RMANTR_ERROR = 0,  // failures; always on once the trace has begun
    RMANTR_FLOW = 1,   // entry and exit
    RMANTR_DETAIL = 2, // per-buffer details, dumps
    RMANTR_CLASSES = 3
};

enum CharForm {
    RMANTR_FORM_TEXT = 0, // printable characters, "." for others, 70 a line; 1 and 4 are the same
    RMANTR_FORM_HEX = 2,  // two digits a byte, 35 bytes a line
    RMANTR_FORM_WORDS = 3 // two digits a byte, in groups of 4 bytes, 32 bytes a line
};

/// The lock of the trace file: recursive, and it may stay taken on purpose when the file does not
/// open. Nobody waits for a lock that was kept so: take answers false then, and the line is
/// dropped.
class TraceFileLock
{
public:
    bool take();
    void release();
    /// The holder's open failed: one level stays taken until releaseKept of the same thread.
    void keep();
    void releaseKept();

private:
    psMutex_t guard_;
    psCondition_t freed_;
    std::uint32_t owner_ = 0; // guarded by guard_, like the rest
    unsigned depth_ = 0;
    bool kept_ = false;
};

class RMANTrace
{
public:
    static constexpr unsigned kNoMemory = 102;
    static constexpr std::size_t kNameSize = 260;

    RMANTrace();
    ~RMANTrace();
    RMANTrace(const RMANTrace &) = delete;
    RMANTrace &operator=(const RMANTrace &) = delete;

    /// Starts tracing into fileName (null or empty: nothing is ever written, and so for a name too
    /// long to keep). The first name stays in force for the life of the object. 0, or 102 without
    /// memory.
    unsigned trBegin(const char *fileName);
    /// Sets the level of a class; others than the three are ignored. Always 0.
    unsigned trEnable(rmantrclass cls, int level);

    void trPrintHdr(const char *sourceFile, unsigned line);
    void trPrintBdy(const char *format, ...) __attribute__((format(printf, 2, 3)));
    void trPrintStr(const unsigned char *data, int length, CharForm form);
    void trPrintFileHdr();

    [[nodiscard]] bool on(rmantrclass cls) const
    {
        return classLevels != nullptr && started.load(std::memory_order_relaxed) != 0 &&
               classLevels[cls].load(std::memory_order_relaxed) != 0;
    }

private:
    struct Slot {
        std::uint32_t threadId;
        char *header; // kHeaderSize bytes, owned; empty: the slot is free
    };
    static constexpr std::size_t kHeaderSize = 100;
    static constexpr std::size_t kLineSize = 4096;
    static constexpr int kFirstSlots = 5;
    static constexpr int kMoreSlots = 3;

    std::FILE *trOpenFile(const char *name);
    void trCloseFile();
    bool addSlots(int count);
    Slot *chooseSlot(std::uint32_t threadId);
    void takeHeader(char *line, std::size_t size);
    void appendToFile(const char *text, std::size_t length);

    std::atomic<std::uint32_t> *classLevels;
    std::atomic<std::int32_t> started{0};
    std::atomic<std::uint32_t> levels[RMANTR_CLASSES];
    std::int32_t slotCount = 0; // guarded by hdrMutex
    std::atomic<std::int32_t> fileHdrDone{0};
    std::atomic<std::int32_t> fileEnabled{0};
    char fileName[kNameSize]; // fixed once fileEnabled is set
    // hdrMutex is taken before fileMutex, never the other way round.
    TraceFileLock fileMutex;
    psMutex_t hdrMutex;
    Slot *slots = nullptr;   // guarded by hdrMutex
    std::FILE *fp = nullptr; // guarded by fileMutex
};

/// The process's database trace, null while there is none. Owned by the initialisation.
extern RMANTrace *rmanTrcClass;

inline bool rmanTraceOn(rmantrclass cls)
{
    return !callShutOut() && rmanTrcClass != nullptr && rmanTrcClass->on(cls);
}

#define RMAN_TRACE(cls, ...)                                                                       \
    do {                                                                                           \
        if (rmanTraceOn(cls)) {                                                                    \
            rmanTrcClass->trPrintHdr(__FILE__, __LINE__);                                          \
            rmanTrcClass->trPrintBdy(__VA_ARGS__);                                                 \
        }                                                                                          \
    } while (0)

#endif
