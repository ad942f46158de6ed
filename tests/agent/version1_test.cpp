// The first version of the interface over a real repository.
#include "tests/agent/version1.h"

using Version1RealTest = Version1Test<RealAgentTest>;

TEST_F(Version1RealTest, StoresDescribesReadsAndRemovesAFile)
{
    const std::string data =
        std::string(1024, 'a') + std::string(1024, '\0') + std::string(1024, 'c');
    begin();
    ASSERT_EQ("", store("first", data));
    EXPECT_EQ("7022/0", close()) << "it is closed already";

    begin();
    EXPECT_EQ("7011/2503", open("first", SBT1_WRITE_NEW)) << "it is there";

    begin();
    const sbtFileInfo *about = info("first");
    ASSERT_NE(nullptr, about) << told();
    EXPECT_STREQ("first", about->name);
    EXPECT_EQ(data.size(), about->size);
    EXPECT_EQ(SBT1_MEDIA_DISK, about->media);
    EXPECT_STREQ("STANDARD", about->mgmtClass);
    EXPECT_NE(0U, about->creationTime);

    begin();
    ASSERT_EQ("", open("first", SBT1_READ));
    std::string back, block(1024, '?');
    while (read(block).empty())
        back += block;
    EXPECT_EQ("7061/2505", told());
    EXPECT_EQ("7061/2505", read(block)) << "and again";
    EXPECT_EQ(data, back);
    EXPECT_EQ("", close(2));

    begin();
    EXPECT_EQ("", remove("first"));
    EXPECT_EQ("7011/2", remove("first")) << "the channel goes on after a removal";
    EXPECT_EQ("7000/0", open("first", SBT1_READ));
    for (const auto &[name, outcome] : {std::pair("first", "7011/2"), std::pair("", "7012/2501")}) {
        begin();
        EXPECT_EQ(nullptr, info(name));
        EXPECT_EQ(outcome, told());
        EXPECT_EQ("7060/2014", remove("first")) << "the channel ends with every description";
    }
}

TEST_F(Version1RealTest, StoresSeveralFilesInOneChannel)
{
    begin();
    for (const char *name : {"one", "two", "three"})
        ASSERT_EQ("", store(name, std::string(2048, 'x'))) << name;
    EXPECT_EQ("", open("open", SBT1_WRITE));
    EXPECT_EQ("", write(std::string(1024, 'x')));
    EXPECT_EQ("7011 65535", initialise())
        << "a second channel ends both: what was open is given up";
    begin();
    EXPECT_EQ("7000/0", open("open", SBT1_READ));
}

TEST_F(Version1RealTest, RefusesWhatItCannotUse)
{
    const std::string tooLong(256, 'n');
    const struct {
        const char *name;
        unsigned long mode, blockSize;
        const char *outcome, *message;
        bool channelEnds;
    } table[] = {
        {"p", 4, 1024, "7002/2500", "RBQ2500E", true},
        {"p", 0, 1024, "7002/2500", "RBQ2500E", true},
        {nullptr, SBT1_WRITE, 1024, "7012/2501", "RBQ2501E", false},
        {"", SBT1_READ, 1024, "7012/2501", "RBQ2501E", false},
        {tooLong.c_str(), SBT1_WRITE, 1024, "7012/2501", "RBQ2501E", false},
        {"p", SBT1_WRITE, 1000, "7003/2502", "RBQ2502E", true},
        {"p", SBT1_WRITE, 0, "7003/2502", "RBQ2502E", true},
        {"absent", SBT1_READ, 1024, "7000/0", "RBS", true},
    };
    std::string block(1024, 'x');
    for (const auto &row : table) {
        begin();
        const std::string before = errorLog();
        EXPECT_EQ(row.outcome, open(row.name, row.mode, row.blockSize));
        EXPECT_NE(std::string::npos, errorLog().find(row.message, before.size())) << row.outcome;
        if (row.channelEnds) {
            EXPECT_EQ("7060/2014", open("p", SBT1_WRITE)) << row.outcome;
            continue;
        }
        EXPECT_EQ("7044/2508", write(block)) << "nothing is open";
        EXPECT_EQ("7065/2506", read(block));
        EXPECT_EQ("7021/2509", close(3));
    }
    EXPECT_EQ("7040/2014", write(block)) << "the channel is gone";
    EXPECT_EQ("7060/2014", read(block));
    EXPECT_EQ("7020/2014", close());
    EXPECT_EQ(nullptr, info("p"));
    EXPECT_EQ("7060/2014", told());
    EXPECT_EQ("7060/2014", remove("p"));
    EXPECT_EQ(-1, call<decltype(::sbtopen)>("sbtopen")(nullptr, nullptr, 1, 512));
    EXPECT_EQ(nullptr, call<decltype(::sbtinfo)>("sbtinfo")(nullptr, nullptr));
}
