// The database trace: headers are kept in slots until their bodies come; every line is one open,
// append and close.
#include "agents/oracle/common/diagnostics/rmantrace.h"

#include <cstdarg>
#include <cstring>
#include <ctime>
#include <new>
#include <string_view>
#include <unistd.h>

#include "common/cu/cutime.h"
#include "common/string/ststring.h"
#include "common/unx/psfile.h"
#include "common/unx/pswrite.h"
#include "common/ut/utmem.h"
#include "common/ut/utnoargs.h"

RMANTrace *rmanTrcClass = nullptr;

namespace
{

// The form of a header is kept to the letter: our users' programs parse it. The function that
// applies it has no format attribute, because the compiler rejects a flag together with a
// precision.
const char *const kHeaderForm = "SBT-%d %0.2d/%02.2d/%04.4d %02.2d:%02.2d:%02.2d %s(%d):";

int applyForm(char *out, std::size_t size, const char *form, ...)
{
    va_list arguments;
    va_start(arguments, form);
    const int length = std::vsnprintf(out, size, form, arguments);
    va_end(arguments);
    return length;
}

constexpr const char *kBanner = "===========================================================\n"
                                "Tracing started for:\n"
                                "-----------------------------------------------------------\n"
                                "   Application Client :   %s\n"
                                "              Version :   %d.%d.%d.%d\n"
                                "===========================================================\n";

const char *lastComponent(const char *path)
{
    const char *slash = std::strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

// The C locale's printable characters, whatever the host has set.
bool isPrintable(unsigned char c)
{
    return c >= 0x20 && c < 0x7f;
}

char shown(unsigned char c)
{
    return isPrintable(c) ? static_cast<char>(c) : '.';
}

} // namespace

// ---- the lock of the file

bool TraceFileLock::take()
{
    const std::uint32_t self = psThreadSelf();
    psMutexGuard guard(guard_);
    while (depth_ != 0 && owner_ != self) {
        if (kept_) {
            return false;
        }
        freed_.wait(guard_);
    }
    owner_ = self;
    ++depth_;
    return true;
}

void TraceFileLock::release()
{
    psMutexGuard guard(guard_);
    if (--depth_ == 0) {
        freed_.signal();
    }
}

void TraceFileLock::keep()
{
    psMutexGuard guard(guard_);
    if (kept_) {
        --depth_; // one level is kept already
    }
    kept_ = true;
    freed_.broadcast();
}

void TraceFileLock::releaseKept()
{
    psMutexGuard guard(guard_);
    if (kept_ && owner_ == psThreadSelf()) {
        kept_ = false;
        if (--depth_ == 0) {
            freed_.signal();
        }
    }
}

// ---- beginning and ending

RMANTrace::RMANTrace() : classLevels(levels), levels{}, fileName{} {}

RMANTrace::~RMANTrace()
{
    const bool held = fileMutex.take();
    started = 0;
    if (held) {
        trCloseFile();
    }
    for (std::int32_t i = 0; i < slotCount; ++i) {
        utFree(slots[i].header);
    }
    utFree(slots);
    if (held) {
        fileMutex.release();
        fileMutex.releaseKept();
    }
}

unsigned RMANTrace::trBegin(const char *name)
{
    if (fileName[0] != '\0') {
        // The first name stays in force for the life of the object.
        started = 1;
        return 0;
    }
    if (name == nullptr || name[0] == '\0' || !stCopy(fileName, name)) {
        fileName[0] = '\0';
        fileEnabled = 0;
        started = 1;
        return 0;
    }
    fileEnabled = 1;
    psMutexGuard guard(hdrMutex);
    if (!addSlots(kFirstSlots)) {
        return kNoMemory;
    }
    started = 1;
    return 0;
}

unsigned RMANTrace::trEnable(rmantrclass cls, int level)
{
    if (cls >= RMANTR_ERROR && cls < RMANTR_CLASSES) {
        levels[cls].store(static_cast<std::uint32_t>(level), std::memory_order_relaxed);
    }
    return 0;
}

// ---- slots

// On failure the slots that were allocated stay, counted, so that the destructor frees them.
bool RMANTrace::addSlots(int count)
{
    const auto wanted = static_cast<std::size_t>(slotCount + count);
    auto *grown = static_cast<Slot *>(utRealloc(slots, wanted * sizeof(Slot)));
    if (grown == nullptr) {
        return false;
    }
    slots = grown;
    for (int i = 0; i < count; ++i) {
        auto *header = static_cast<char *>(utCalloc(1, kHeaderSize));
        if (header == nullptr) {
            return false;
        }
        slots[slotCount++] = Slot{0, header};
    }
    return true;
}

// Returns the first free slot behind the last one that this thread still holds, or null without
// memory. So a header that was prepared and never used is not overwritten. Under hdrMutex.
RMANTrace::Slot *RMANTrace::chooseSlot(std::uint32_t threadId)
{
    Slot *candidate = nullptr;
    for (std::int32_t i = 0; i < slotCount; ++i) {
        if (slots[i].header[0] == '\0') {
            if (candidate == nullptr) {
                candidate = &slots[i];
            }
        } else if (slots[i].threadId == threadId) {
            candidate = nullptr;
        }
    }
    if (candidate == nullptr) {
        const std::int32_t before = slotCount;
        addSlots(kMoreSlots);
        candidate = slotCount > before ? &slots[before] : nullptr;
    }
    return candidate;
}

// Begins line with the calling thread's header and frees the slot. Under hdrMutex.
void RMANTrace::takeHeader(char *line, std::size_t size)
{
    const std::uint32_t threadId = psThreadSelf();
    for (std::int32_t i = slotCount - 1; i >= 0; --i) {
        if (slots[i].header[0] != '\0' && slots[i].threadId == threadId) {
            stCopy(line, size, slots[i].header);
            slots[i].header[0] = '\0';
            return;
        }
    }
    stCopy(line, size, "(Lost Message Hdr) ");
}

// ---- the file

std::FILE *RMANTrace::trOpenFile(const char *name)
{
    int encoding = 0;
    int flags = 0;
    return psFileOpen(name, "a", &encoding, &flags);
}

void RMANTrace::trCloseFile()
{
    if (fp != nullptr) {
        const psWriteGuard guard;
        std::fflush(fp);
        std::fclose(fp);
        fp = nullptr;
    }
}

void RMANTrace::appendToFile(const char *text, std::size_t length)
{
    if (!fileMutex.take()) {
        return;
    }
    fp = trOpenFile(fileName);
    if (fp != nullptr) {
        const psWriteGuard guard;
        std::fwrite(text, 1, length, fp);
    }
    trCloseFile();
    fileMutex.release();
}

void RMANTrace::trPrintFileHdr()
{
    if (fileHdrDone != 0 || fileEnabled == 0 || !fileMutex.take()) {
        return;
    }
    fp = fileHdrDone != 0 ? nullptr : trOpenFile(fileName);
    if (fileHdrDone == 0 && fp == nullptr) {
        // The lock stays with this thread, which continues to trace and tries again at its next
        // header; the first success releases the lock.
        fileMutex.keep();
        return;
    }
    if (fp != nullptr) {
        const psWriteGuard guard;
        std::setvbuf(fp, nullptr, _IONBF, 0);
        char banner[512];
        const int length =
            std::snprintf(banner, sizeof banner, kBanner, "KEEL Oracle SUN", 7, 1, 3, 0);
        std::fwrite(banner, 1, static_cast<std::size_t>(length), fp);
        trCloseFile();
        fileHdrDone = 1;
    }
    fileMutex.release();
    fileMutex.releaseKept();
}

// ---- statements

void RMANTrace::trPrintHdr(const char *sourceFile, unsigned line)
{
    const std::uint32_t threadId = psThreadSelf();
    if (fileHdrDone == 0) {
        trPrintFileHdr();
    }
    if (fileEnabled == 0) {
        return;
    }
    tm now{};
    cuLocalTime(std::time(nullptr), &now);
    char header[kHeaderSize];
    applyForm(header, sizeof header, kHeaderForm, static_cast<int>(getpid()), now.tm_mon + 1,
              now.tm_mday, now.tm_year + 1900, now.tm_hour, now.tm_min, now.tm_sec,
              lastComponent(sourceFile), static_cast<int>(line));

    psMutexGuard guard(hdrMutex);
    if (Slot *slot = chooseSlot(threadId)) {
        std::memcpy(slot->header, header, sizeof header);
        slot->threadId = threadId;
    }
}

void RMANTrace::trPrintBdy(const char *format, ...)
{
    char body[kLineSize];
    va_list arguments;
    va_start(arguments, format);
    const int formatted = std::vsnprintf(body, sizeof body, format, arguments);
    va_end(arguments);
    if (fileEnabled == 0 || formatted < 0) {
        return;
    }
    psMutexGuard guard(hdrMutex);
    char line[kLineSize];
    takeHeader(line, sizeof line);
    const bool whole =
        stAppend(line, sizeof line, body) && static_cast<std::size_t>(formatted) < sizeof body;
    if (!whole) {
        line[sizeof line - 2] = '\n'; // a cut line is still a line
    }
    // The assembled line is its own format, so a "%" in it is interpreted a second time: "%%"
    // becomes "%", and a conversion, for which there is no argument, vanishes.
    char written[kLineSize];
    const std::size_t length = utFormatNoArgs(written, sizeof written, line);
    appendToFile(written, length);
}

namespace
{

// A bounded buffer for a dump; characters that do not fit are dropped.
class DumpText
{
public:
    explicit DumpText(int length)
        : size_((static_cast<std::size_t>(length) + 15) / 16 * 70 + 2),
          text_(static_cast<char *>(utCalloc(1, size_ + 1)))
    {
    }
    [[nodiscard]] bool allocated() const { return text_ != nullptr; }
    void add(char c)
    {
        if (used_ + 1 < size_) {
            text_.get()[used_++] = c;
        }
    }
    void addHex(unsigned char c)
    {
        static const char digits[] = "0123456789ABCDEF";
        add(digits[c >> 4]);
        add(digits[c & 0xF]);
    }
    /// Ends the dump; its line end always fits.
    std::string_view line()
    {
        text_.get()[used_] = '\n';
        return {text_.get(), used_ + 1};
    }

private:
    std::size_t size_;
    utOwned<char> text_;
    std::size_t used_ = 0;
};

void dumpByte(DumpText &text, int index, unsigned char c, CharForm form)
{
    const auto boundary = [index](int every) { return index > 0 && index % every == 0; };
    switch (static_cast<int>(form)) {
    case 0:
    case 1:
    case 4:
        if (boundary(70)) {
            text.add('\n');
        }
        text.add(shown(c));
        break;
    case 2:
        if (boundary(35)) {
            text.add('\n');
        }
        text.addHex(c);
        break;
    case 3:
        if (boundary(4)) {
            text.add(' ');
        }
        if (boundary(32)) {
            text.add('\n');
        }
        text.addHex(c);
        break;
    default:
        break;
    }
}

} // namespace

void RMANTrace::trPrintStr(const unsigned char *data, int length, CharForm form)
{
    if (data == nullptr || length < 0) {
        length = 0;
    }
    DumpText text(length);
    if (!text.allocated() || fileEnabled == 0) {
        return;
    }
    const int kind = static_cast<int>(form);
    if (kind >= 0 && kind <= 4) {
        for (int i = 0; i < length; ++i) {
            dumpByte(text, i, data[i], form);
        }
    } else {
        text.add(shown(static_cast<unsigned char>(length & 0xFF)));
    }
    const std::string_view line = text.line();
    appendToFile(line.data(), line.size());
}
