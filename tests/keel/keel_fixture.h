// The built keel over the built agent, storage client and a repository of its own.
#ifndef KEEL_TESTS_KEEL_KEEL_FIXTURE_H
#define KEEL_TESTS_KEEL_KEEL_FIXTURE_H

#include "tests/support/installation.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace keel::test
{

class KeelTest : public ::testing::Test
{
protected:
    using Words = std::vector<std::string>;

    /// Runs keel with these arguments.
    [[nodiscard]] ProgramResult keel(Words arguments, const std::string &input = {},
                                     const Words &more = {}) const;

    /// Runs it and expects nothing but one line, with that in it, on standard error.
    void expectRefusal(const Words &arguments, int status, const std::string &said = {},
                       const std::string &input = {}) const;

    /// Stores a stream from standard input and expects that to go well.
    void backUp(const std::string &name, const std::string &stream,
                const std::string &blockSize = "256K") const;

    /// What comes back on standard output, or "failed: " and what keel said.
    [[nodiscard]] std::string restored(const std::string &name,
                                       const std::string &blockSize = {}) const;

    [[nodiscard]] bool isStored(const std::string &name) const;

    /// The names in a directory, hidden ones too.
    [[nodiscard]] static std::vector<std::string> listing(const std::filesystem::path &directory);

    Installation installation_;
};

} // namespace keel::test

#endif
