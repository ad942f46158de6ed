// RMANTrace: the trace file that the database names for us. The database writes to it too, so every
// line opens the file, appends and closes it.
//
// One object a process, reached through rmanTrcClass. Any thread may trace: a statement is a header
// (trPrintHdr), kept in a slot of the calling thread, and a body (trPrintBdy) that is put behind
// it. Use RMAN_TRACE, which costs one test while its class is off. The calls take their locks
// themselves. A line that cannot be written is lost; no failure of the trace is ever reported.
#ifndef KEEL_AGENTS_ORACLE_COMMON_DIAGNOSTICS_RMANTRACE_H
#define KEEL_AGENTS_ORACLE_COMMON_DIAGNOSTICS_RMANTRACE_H

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

/// The lock of the trace file, recursive. A thread whose open of the file failed keeps one level:
/// until its open succeeds, no other thread waits or writes.
class TraceFileLock
{
public:
    /// Takes one level and returns true; waits without limit for a thread that is writing. Returns
    /// false at once, with nothing taken, when another thread has kept the lock.
    bool take();
    /// Gives up one level; the caller holds the lock.
    void release();
    /// Keeps the caller's level until releaseKept of the same thread; when a level is kept already,
    /// gives this one up. In place of release.
    void keep();
    /// Gives up the level that the calling thread kept; does nothing when it kept none.
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
    /// No other thread may be using the object.
    ~RMANTrace();
    RMANTrace(const RMANTrace &) = delete;
    RMANTrace &operator=(const RMANTrace &) = delete;

    /// Starts tracing into fileName, copied; the file is opened by the first line. The first name
    /// stays in force for the life of the object. With a null, empty or over-long (260 characters)
    /// name nothing is written, unless a later call gives a usable one. Returns 0, or 102 without
    /// memory; tracing has not started then. One thread at a time calls it.
    unsigned trBegin(const char *fileName);
    /// Sets the level of a class, 0: off; other classes than the three are ignored. Always 0.
    unsigned trEnable(rmantrclass cls, int level);

    /// Prepares the header of the calling thread's next line: process, local time, source. Writes
    /// the file's banner first when that is not written yet. Without memory for a slot the header
    /// is lost, and the body shows "(Lost Message Hdr)".
    void trPrintHdr(const char *sourceFile, unsigned line);
    /// Appends the thread's latest header and the formatted text as one line, cut at 4,095 bytes; a
    /// cut line ends in a line end. "%%" in the finished line becomes "%", and any other conversion
    /// in it vanishes.
    void trPrintBdy(const char *format, ...) __attribute__((format(printf, 2, 3)));
    /// Appends a dump of length bytes and a line end, without a header; null data count as none.
    /// For a form that does not exist it shows one character for the length.
    void trPrintStr(const unsigned char *data, int length, CharForm form);
    /// Writes the banner unless it is written. When the file does not open, the calling thread
    /// keeps the file's lock and tries again with its next header; until then other threads' lines
    /// are lost.
    void trPrintFileHdr();

    /// Returns true when lines of the class are wanted.
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

/// The process's database trace, null while there is none. The initialisation owns it and changes
/// it under initMutex; a call that holds a CallPin and is not shut out may use it.
extern RMANTrace *rmanTrcClass;

/// Returns true when the trace exists for this call and the class is on.
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
