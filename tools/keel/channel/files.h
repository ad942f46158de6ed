// Where a stream comes from and where it is written to. One thread uses an object. A signal
// (interrupt.h) ends every wait and every transfer with Failure.
#ifndef KEEL_TOOLS_KEEL_CHANNEL_FILES_H
#define KEEL_TOOLS_KEEL_CHANNEL_FILES_H

#include "tools/common/command/written_file.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace keel
{

/// A file, a pipe, or standard input ("-"), which is not closed. Every call throws Failure with the
/// name and the reason.
class InputFile
{
public:
    explicit InputFile(const std::string &name);
    ~InputFile();
    InputFile(const InputFile &) = delete;
    InputFile &operator=(const InputFile &) = delete;

    /// Fills the span and returns how much of it; less than all is the end. A regular file gives at
    /// least what it had when it was opened, and what was appended by the time its end is reached.
    /// One that was cut meanwhile is a Failure.
    std::size_t fill(std::span<std::byte> bytes);

    /// Returns the bytes that a regular file had ahead of its position when it was opened; it may
    /// grow. Nothing for others.
    [[nodiscard]] std::optional<std::uint64_t> size() const { return size_; }

private:
    void expectWhole(std::uint64_t more) const;

    std::string name_;
    int descriptor_ = -1;
    bool regular_ = false;
    std::optional<std::uint64_t> size_;
    std::uint64_t taken_ = 0;
};

/// The place that a stream is written to, by the rules of tools/common/command/written_file.h, or
/// standard output ("-"). A regular file gets its name only in finish(), when all of it is on disk;
/// without finish() nothing of it stays. Every call throws Failure or tools::FileFailure with the
/// name and the reason.
class OutputFile
{
public:
    /// Existing::keep: a file of that name is a failure, also one that appears before finish().
    OutputFile(const std::string &name, tools::Existing existing);
    ~OutputFile() = default;
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    /// Takes all of it. A regular file gets it in portions of 4 MiB.
    void write(std::span<const std::byte> bytes);
    /// Call it once, at the end. A regular file is durable under its name when this returns; does
    /// nothing for others. WrittenFile::publish() says what a failure leaves.
    void finish();

private:
    /// Memory aligned for O_DIRECT.
    struct Gathered {
        Gathered();
        ~Gathered();
        Gathered(const Gathered &) = delete;
        Gathered &operator=(const Gathered &) = delete;
        std::byte *bytes;
        std::size_t fill = 0;
    };

    void flush();
    void put(std::span<const std::byte> bytes);
    void setDirect(bool on);
    void startWriteBack();
    [[noreturn]] void fail(const char *what) const;

    std::string name_;
    std::optional<tools::WrittenFile> file_; ///< empty: standard output
    int descriptor_ = -1;
    std::optional<Gathered> gathered_; ///< of a file that is written aside
    bool direct_ = false;
    std::uint64_t written_ = 0;
    std::uint64_t writeBackStarted_ = 0;
};

} // namespace keel

#endif
