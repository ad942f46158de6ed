// See files.h.
#include "tests/support/files.h"

#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace keel::test
{

namespace fs = std::filesystem;

TempDir::TempDir()
{
    const char *base = std::getenv("TMPDIR");
    std::string pattern = (fs::path(base && *base ? base : "/tmp") / "keel-test.XXXXXX").string();
    if (!::mkdtemp(pattern.data()))
        throw std::system_error(errno, std::generic_category(), "mkdtemp " + pattern);
    path_ = pattern;
}

TempDir::~TempDir()
{
    // A test may have taken the write permission away from a directory.
    std::error_code ignored;
    fs::permissions(path_, fs::perms::owner_all, fs::perm_options::add, ignored);
    for (auto entry = fs::recursive_directory_iterator(path_, ignored);
         entry != fs::recursive_directory_iterator(); entry.increment(ignored)) {
        if (entry->is_directory(ignored) && !entry->is_symlink(ignored))
            fs::permissions(entry->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
    }
    fs::remove_all(path_, ignored);
}

fs::path TempDir::operator/(std::string_view name) const
{
    return path_ / name;
}

std::string readFile(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    if (file)
        content << file.rdbuf();
    return content.str();
}

void writeFile(const fs::path &path, std::string_view content)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.close();
    if (!file)
        throw std::runtime_error("cannot write " + path.string());
}

void flipByte(const fs::path &path, std::ptrdiff_t offset, int bits)
{
    std::string content = readFile(path);
    char &byte = content.at(static_cast<std::size_t>(offset) + (offset < 0 ? content.size() : 0));
    byte = static_cast<char>(byte ^ bits);
    fs::permissions(path, fs::perms::owner_all);
    writeFile(path, content);
}

void damageFiles(const fs::path &directory, std::size_t offset)
{
    for (const auto &entry : fs::recursive_directory_iterator(directory))
        if (entry.is_regular_file())
            flipByte(entry.path(), static_cast<std::ptrdiff_t>(offset));
}

std::string randomBytes(std::size_t count, std::uint64_t seed)
{
    std::mt19937_64 generator(seed);
    std::string bytes(count, '\0');
    for (char &byte : bytes)
        byte = static_cast<char>(generator() >> 56);
    return bytes;
}

} // namespace keel::test
