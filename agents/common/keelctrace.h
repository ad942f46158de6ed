// KEELCTrace: starts and enables the agent trace on behalf of libobk.so. One object a process, made
// at initialisation before the database trace and deleted at clean-up. Making it sets the trace's
// client type to 9; its destructor ends the trace, as trEnd does, and forgets the test flags. The
// statements themselves are KEEL_TRACE. The calls have no state but that of the trace, see
// common/ut/trace.h, which also says how long a file name may be.
#ifndef KEEL_AGENTS_COMMON_KEELCTRACE_H
#define KEEL_AGENTS_COMMON_KEELCTRACE_H

#include <cstdint>

class KEELCTrace
{
public:
    static constexpr std::uint32_t kCannotEnable = 419;

    KEELCTrace();
    ~KEELCTrace();
    KEELCTrace(const KEELCTrace &) = delete;
    KEELCTrace &operator=(const KEELCTrace &) = delete;

    /// Closes an earlier trace file and starts tracing to fileName, with process and thread in
    /// every line. Whatever writeHeader is, "Trace begun" is written once since trEnd; the block
    /// "Tracing started for" follows when it is not 0. Returns 0, kCannotEnable, or, with no file
    /// open and every class off, 406 for a name that is missing or too long and 426 for a file that
    /// cannot be opened.
    std::uint32_t trBegin(const char *fileName, int writeHeader);

    /// As the functions of those names in common/ut/trace.h.
    std::uint32_t trEnable(const char *flags, int on);
    std::uint32_t trTestEnable(const char *flags);

    /// Always 0: making the object cannot fail.
    [[nodiscard]] std::uint32_t rc() const { return rc_; }

private:
    std::uint32_t rc_ = 0;
};

#endif
