// Where a stream comes from and where it goes to.
#ifndef KEEL_TOOLS_KEEL_FILES_H
#define KEEL_TOOLS_KEEL_FILES_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace keel
{

/// A file, a pipe, or standard input ("-"). Everything throws Failure with the name and the reason.
class InputFile
{
public:
    explicit InputFile(const std::string &name);
    ~InputFile();
    InputFile(const InputFile &) = delete;
    InputFile &operator=(const InputFile &) = delete;

    /// Fills the span; less than that is the end.
    std::size_t fill(std::span<std::byte> bytes);

    /// Known for a regular file only, and a guess even there: it may grow.
    [[nodiscard]] std::optional<std::uint64_t> size() const { return size_; }

private:
    std::string name_;
    int descriptor_ = -1;
    bool regular_ = false;
    std::optional<std::uint64_t> size_;
};

enum class Existing { kKeep, kReplace };

/// A regular file is written under another name beside the final one and gets that only in
/// finish(), when all of it is on disk; without finish() nothing of it stays. Standard output
/// ("-"), pipes and devices are written to directly. Everything throws Failure with the name and
/// the reason.
class OutputFile
{
public:
    /// Existing::kKeep: a file of that name is a Failure, also one that appears before finish().
    OutputFile(const std::string &name, Existing existing);
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    void write(std::span<const std::byte> bytes);
    void finish();

private:
    /// Memory that a transfer past the page cache may start from.
    struct Gathered {
        Gathered();
        ~Gathered();
        Gathered(const Gathered &) = delete;
        Gathered &operator=(const Gathered &) = delete;
        std::byte *bytes;
        std::size_t fill = 0;
    };

    void createTemporary();
    void flush();
    void put(std::span<const std::byte> bytes);
    void setDirect(bool on);
    void startWriteBack();
    void publish();
    void syncDirectory() const;
    [[noreturn]] void fail(const char *what) const;

    std::string name_;
    std::string temporary_; ///< empty when written to directly, or published
    Existing existing_;
    int descriptor_ = -1;
    std::optional<Gathered> gathered_; ///< with a temporary only
    bool direct_ = false;
    std::uint64_t written_ = 0;
    std::uint64_t writeBackStarted_ = 0;
};

} // namespace keel

#endif
