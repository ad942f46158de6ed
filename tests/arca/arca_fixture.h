// The program arca over a repository that a session fills.
#ifndef KEEL_TESTS_ARCA_ARCA_FIXTURE_H
#define KEEL_TESTS_ARCA_ARCA_FIXTURE_H

#include "tests/client/api/client_fixture.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <initializer_list>

namespace keel::test
{

using Words = std::vector<std::string>;

class ArcaTest : public ClientTest
{
protected:
    /// What --json printed; the test fails when the status is another one.
    nlohmann::json arcaJson(Words words, int status = 0, const std::string &input = {}) const
    {
        words.emplace_back("--json");
        const ProgramResult result = arca(words, input);
        EXPECT_EQ(result.status, status) << result.err;
        auto told = nlohmann::json::parse(result.out, nullptr, false);
        EXPECT_FALSE(told.is_discarded()) << result.out;
        return told;
    }

    /// "df_1 df_2": the names that arca ls shows, sorted.
    std::string listed(Words options) const
    {
        options.insert(options.begin(), "ls");
        const auto told = arcaJson(options);
        Words names;
        for (const auto &object : told["objects"])
            names.push_back(object["piece"]);
        std::ranges::sort(names);
        std::string text;
        for (const std::string &name : names)
            text += (text.empty() ? "" : " ") + name;
        return text;
    }

    /// Stores a piece in a session of its own, bound to a class.
    void store(hoxHandle_t handle, const std::string &piece, const std::string &stream,
               const char *className = nullptr)
    {
        const hoxObjName name = nameOf(piece);
        ObjAttr attr = attributes();
        attr.mcNameP = className;
        ASSERT_EQ(api_.hoxBeginTxn(handle), HOX_RC_OK);
        ASSERT_EQ(api_.hoxSendObj(handle, HOX_SEND_BACKUP, nullptr, &name, &attr, nullptr),
                  HOX_RC_OK);
        std::string bytes = stream;
        DataBlk data = blockOf(bytes);
        ASSERT_EQ(api_.hoxSendData(handle, &data), HOX_RC_OK);
        ASSERT_EQ(commit(handle), HOX_RC_OK);
    }
};

} // namespace keel::test

#endif
