// Management classes: what the administrator defines is what sessions answer and objects carry.
#include "tests/client/api/client_fixture.h"

#include <algorithm>
#include <cstring>

namespace keel::test
{

namespace
{

class ClassTest : public ClientTest
{
protected:
    /// "GOLD FASTPOOL 3 365" for each class that is answered to a query of that name.
    std::vector<std::string> classes(hoxHandle_t handle, const char *name, std::uint8_t detail = 1)
    {
        const qryMCData asked{HOX_QRY_MC_VERSION, name, detail};
        std::vector<std::string> found;
        const int code =
            ask<qryRespMCData>(handle, HOX_QUERY_MGMT_CLASS, &asked, [&](const auto &answer) {
                found.push_back(std::string(answer.isDefault != 0 ? "*" : "") + answer.mcName +
                                " " + answer.stgPool + " " + std::to_string(answer.versionsKept) +
                                " " + std::to_string(answer.daysKept) +
                                (answer.isDeleted != 0 ? " deleted" : ""));
            });
        EXPECT_EQ(code, found.empty() ? HOX_RC_NO_MATCH : HOX_RC_FINISHED);
        return found;
    }

    int send(hoxHandle_t handle, const std::string &piece, const char *className)
    {
        const hoxObjName name = nameOf(piece);
        ObjAttr attr = attributes();
        attr.mcNameP = className;
        EXPECT_EQ(api_.hoxBeginTxn(handle), HOX_RC_OK);
        const int sent = api_.hoxSendObj(handle, HOX_SEND_BACKUP, nullptr, &name, &attr, nullptr);
        const int ended = commit(handle);
        return sent != HOX_RC_OK ? sent : ended;
    }
};

TEST_F(ClassTest, WhatIsDefinedIsWhatSessionsSeeAndObjectsCarry)
{
    using Lines = std::vector<std::string>;
    const hoxHandle_t handle = logOn();
    const std::string standard = "*STANDARD BACKUPPOOL 1 65535";
    const struct {
        std::string words; ///< of arca class
        int status;
        Lines all;
        int bound; ///< of an object that names "gold"
    } steps[] = {
        {"list", 0, {standard}, HOX_RC_MC_UNKNOWN},
        {"define Gold --pool FAST --versions 3 --days 365",
         0,
         {standard, "GOLD FAST 3 365"},
         HOX_RC_OK},
        {"define GOLD", 1, {standard, "GOLD FAST 3 365"}, HOX_RC_OK},
        {"define a.long-term_1",
         0,
         {standard, "A.LONG-TERM_1 BACKUPPOOL 1 65535", "GOLD FAST 3 365"},
         HOX_RC_OK},
        {"delete a.long-term_1", 0, {standard, "GOLD FAST 3 365"}, HOX_RC_OK},
        {"change gold --versions nolimit", 0, {standard, "GOLD FAST 65535 365"}, 0},
        {"change gold --days -1", 2, {standard, "GOLD FAST 65535 365"}, HOX_RC_OK},
        {"change gold --versions 0", 2, {standard, "GOLD FAST 65535 365"}, HOX_RC_OK},
        {"delete gold", 0, {standard}, HOX_RC_MC_UNKNOWN},
        {"delete gold", 1, {standard}, HOX_RC_MC_UNKNOWN},
        {"change gold --days 1", 1, {standard}, HOX_RC_MC_UNKNOWN},
        {"define gold --days 0", 0, {standard, "GOLD BACKUPPOOL 1 0"}, HOX_RC_OK},
        {"define sl/ash", 1, {standard, "GOLD BACKUPPOOL 1 0"}, HOX_RC_OK},
        {"define " + std::string(31, 'x'), 1, {standard, "GOLD BACKUPPOOL 1 0"}, HOX_RC_OK},
        {"delete standard", 1, {standard, "GOLD BACKUPPOOL 1 0"}, HOX_RC_OK},
        {"define STANDARD", 1, {standard, "GOLD BACKUPPOOL 1 0"}, HOX_RC_OK},
        {"change STANDARD --pool TAPE",
         0,
         {"*STANDARD TAPE 1 65535", "GOLD BACKUPPOOL 1 0"},
         HOX_RC_OK},
    };
    int objects = 0;
    for (const auto &step : steps) {
        SCOPED_TRACE("step " + std::to_string(&step - steps));
        const ProgramResult result = arca(wordsOf("class " + step.words));
        EXPECT_EQ(result.status, step.status) << result.err;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), step.status == 0 ? 0 : 1);
        EXPECT_EQ(classes(handle, nullptr), step.all);
        EXPECT_EQ(classes(handle, "gOlD").size(), step.bound == HOX_RC_OK ? 1U : 0U);
        const std::string piece = "p" + std::to_string(objects++);
        EXPECT_EQ(send(handle, piece, "gold"), step.bound);
        EXPECT_STREQ(recordOf(handle, piece).mcName, step.bound == HOX_RC_OK ? "GOLD" : "");
    }
    EXPECT_STREQ(recordOf(handle, "p1").mcName, "GOLD") << "an object keeps its class";
    mcBindKey binding{};
    const hoxObjName name = nameOf("p");
    EXPECT_EQ(api_.hoxBindMC(handle, &name, HOX_SEND_BACKUP, &binding), HOX_RC_OK);
    EXPECT_STREQ(binding.mcName, "STANDARD");
    EXPECT_STREQ(binding.backupDestination, "TAPE");
    const ProgramResult json = arca({"class", "list", "--json"});
    for (const char *part : {"\"verb\": \"class list\"", "\"name\": \"GOLD\"", "\"daysKept\": 0"})
        EXPECT_NE(json.out.find(part), std::string::npos) << json.out;
}

TEST_F(ClassTest, AnApplicationDefinesChangesAndDeletesThem)
{
    const hoxHandle_t handle = logOn();
    mcDefinition gold{};
    gold.stVersion = HOX_MCDEFINITION_VERSION;
    gold.versionsKept = 3;
    gold.daysKept = 30;
    std::strcpy(gold.stgPool, "FAST");
    mcDefinition noPool = gold, unknown = gold;
    noPool.stgPool[0] = '\0';
    unknown.stVersion = 9;
    constexpr std::uint32_t kDefine = HOX_UPDCLASS_DEFINE, kChange = HOX_UPDCLASS_CHANGE,
                            kDelete = HOX_UPDCLASS_DELETE;
    const std::string defined = "GOLD FAST 3 30";
    const struct {
        const char *name;
        const mcDefinition *says;
        std::uint32_t mask;
        int code;
        std::string after; ///< of GOLD
    } steps[] = {
        {"GOLD", &gold, kChange | HOX_UPDCLASS_DAYS, HOX_RC_MC_UNKNOWN, ""},
        {"GOLD", nullptr, kDelete, HOX_RC_MC_UNKNOWN, ""},
        {"GOLD", nullptr, kDefine, HOX_RC_NULL_ARGUMENT, ""},
        {"GOLD", &noPool, kDefine, HOX_RC_BAD_ARGUMENT, ""},
        {"GOLD", &unknown, kDefine, HOX_RC_BAD_VERSION, ""},
        {"no name", &gold, kDefine, HOX_RC_BAD_ARGUMENT, ""},
        {"gold", &gold, kDefine, HOX_RC_OK, defined},
        {"GOLD", &gold, kDefine, HOX_RC_OBJECT_EXISTS, defined},
        {"GOLD", &gold, kDefine | kDelete, HOX_RC_BAD_ARGUMENT, defined},
        {"GOLD", &gold, kChange, HOX_RC_BAD_ARGUMENT, defined},
        {"GOLD", &gold, HOX_UPDCLASS_DAYS, HOX_RC_BAD_ARGUMENT, defined},
        {"GOLD", &noPool, kChange | HOX_UPDCLASS_VERSIONS, HOX_RC_OK, defined},
        {"GOLD", &noPool, kChange | HOX_UPDCLASS_POOL, HOX_RC_BAD_ARGUMENT, defined},
        {"standard", nullptr, kDelete, HOX_RC_BAD_ARGUMENT, defined},
        {"GOLD", nullptr, kDelete, HOX_RC_OK, ""},
    };
    for (const auto &step : steps) {
        SCOPED_TRACE(&step - steps);
        ObjAttr attr{};
        attr.stVersion = HOX_OBJATTR_VERSION;
        attr.mcNameP = step.name;
        attr.objInfo = reinterpret_cast<const char *>(step.says);
        attr.objInfoLength = sizeof(mcDefinition);
        EXPECT_EQ(api_.hoxUpdateObj(handle, HOX_UPDATE_CLASS, nullptr, &attr, step.mask),
                  step.code);
        const auto found = classes(handle, "GOLD");
        EXPECT_EQ(found.empty() ? "" : found.front(), step.after);
    }
    EXPECT_EQ(classes(handle, "GOLD", 2), std::vector<std::string>{defined + " deleted"})
        << "what a deleted class said can still be asked for";
    EXPECT_EQ(classes(handle, nullptr, 2).size(), 2U);
}

} // namespace

} // namespace keel::test
