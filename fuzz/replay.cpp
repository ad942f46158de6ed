// Runs a fuzz target over its saved corpus, without a fuzzer: what was found once is never found
// again.
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace
{

void replay(const std::string &input)
{
    // A copy of its own size, so that a sanitizer sees the first byte that is read too far.
    const std::basic_string<std::uint8_t> bytes(input.begin(), input.end());
    (void)LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

} // namespace

int main(int count, char **arguments)
{
    replay("");
    std::size_t files = 0;
    for (int i = 1; i < count; ++i)
        for (const auto &entry : std::filesystem::directory_iterator(arguments[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            replay({std::istreambuf_iterator<char>(file), {}});
            ++files;
        }
    std::cout << files << " files\n";
    return files > 0 ? 0 : 1;
}
