// See keel_fixture.h.
#include "tests/keel/keel_fixture.h"

#include <algorithm>

namespace keel::test
{

ProgramResult KeelTest::keel(Words arguments, const std::string &input, const Words &more) const
{
    arguments.insert(arguments.begin(), keelProgram());
    arguments.insert(arguments.end(), more.begin(), more.end());
    ProgramOptions options;
    options.input = input;
    return run(arguments, options);
}

void KeelTest::expectRefusal(const Words &arguments, int status, const std::string &said,
                             const std::string &input) const
{
    const ProgramResult result = keel(arguments, input);
    SCOPED_TRACE(result.err);
    EXPECT_EQ(result.status, status);
    const bool json = std::ranges::find(arguments, "--json") != arguments.end();
    EXPECT_EQ(json, result.out.find("\"ok\": false") != std::string::npos) << result.out;
    EXPECT_TRUE(json || result.out.empty()) << result.out;
    EXPECT_NE(result.err.find(said), std::string::npos) << said;
    EXPECT_EQ(std::ranges::count(result.err, '\n'), 1);
}

void KeelTest::backUp(const std::string &name, const std::string &stream,
                      const std::string &blockSize) const
{
    const ProgramResult result =
        keel({"backup", name, "--input", "-", "--block-size", blockSize}, stream);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out + result.err, "") << "it is silent where nobody looks on";
}

std::string KeelTest::restored(const std::string &name, const std::string &blockSize) const
{
    Words words = {"restore", name, "--output", "-"};
    if (!blockSize.empty())
        words.insert(words.end(), {"--block-size", blockSize});
    const ProgramResult result = keel(words);
    return result.status == 0 ? result.out : "failed: " + result.err;
}

bool KeelTest::isStored(const std::string &name) const
{
    return keel({"info", name}).status == 0;
}

std::vector<std::string> KeelTest::listing(const std::filesystem::path &directory)
{
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(directory))
        names.push_back(entry.path().filename().string());
    std::ranges::sort(names);
    return names;
}

} // namespace keel::test
