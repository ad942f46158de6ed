// KEELCTrace: through it the library starts and enables the agent trace. One object a process, made
// at initialisation before the database trace and deleted at clean-up. The statements themselves
// are KEEL_TRACE.
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

    /// Starts tracing to fileName, with process and thread in every line; writes the header block
    /// when writeHeader is not 0. 0, 419, or the code of the trace facility (426: the file does not
    /// open).
    std::uint32_t trBegin(const char *fileName, int writeHeader);

    /// flags: blank-separated class names.
    std::uint32_t trEnable(const char *flags, int on);
    std::uint32_t trTestEnable(const char *flags);

    [[nodiscard]] std::uint32_t rc() const { return rc_; }

private:
    std::uint32_t rc_ = 0;
};

#endif
