// Directories and files that a test makes for itself.
#ifndef KEEL_TESTS_SUPPORT_FILES_H
#define KEEL_TESTS_SUPPORT_FILES_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace keel::test
{

/// A fresh directory under $TMPDIR or /tmp, removed with all it holds when the object goes.
class TempDir
{
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    [[nodiscard]] const std::filesystem::path &path() const { return path_; }
    [[nodiscard]] std::filesystem::path operator/(std::string_view name) const;

private:
    std::filesystem::path path_;
};

/// The whole file; empty when it is not there.
[[nodiscard]] std::string readFile(const std::filesystem::path &path);

/// Throws std::runtime_error when the file cannot be written whole.
void writeFile(const std::filesystem::path &path, std::string_view content);

/// Changes these bits of a byte of the file; a negative offset counts from the end.
void flipByte(const std::filesystem::path &path, std::ptrdiff_t offset, int bits = 1);

/// Flips a bit of every file below the directory, at this offset.
void damageFiles(const std::filesystem::path &directory, std::size_t offset = 70);

/// Bytes that no compressor or duplicate detection gets hold of; the same for the same seed.
[[nodiscard]] std::string randomBytes(std::size_t count, std::uint64_t seed);

} // namespace keel::test

#endif
