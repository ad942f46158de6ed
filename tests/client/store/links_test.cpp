// A repository in which somebody, or a mistake, put symbolic links, and files of others: nothing
// outside is ever read, cut or removed, and nothing that the store did not put there.
#include "client/blob/directory/directory_store.h"
#include "tests/support/files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <sys/stat.h>
#include <vector>

namespace
{

using namespace arca;
namespace fs = std::filesystem;

class LinksTest : public testing::Test
{
protected:
    LinksTest()
    {
        fs::create_directories(directory_ / "real");
        fs::create_directory_symlink(directory_ / "real", root_); // the root may be a link
        fs::create_directories(outside_ / "aa");
        for (const char *name : {"/1-0123456789abcdef", "/1", "/change-aa", "/remove-aa", "/aa/1"})
            keel::test::writeFile(outside_.string() + name, "of others");
    }

    std::unique_ptr<blob::DirectoryStore> store() const
    {
        return std::make_unique<blob::DirectoryStore>(root_);
    }

    std::map<std::string, std::string> outside() const
    {
        std::map<std::string, std::string> found;
        for (const auto &entry : fs::recursive_directory_iterator(outside_))
            found[entry.path()] =
                entry.is_regular_file() ? keel::test::readFile(entry.path()) : "directory";
        return found;
    }

    std::vector<std::string> listed(const std::string &prefix) const
    {
        std::vector<std::string> names;
        EXPECT_TRUE(store()->listStamped(prefix, [&](const std::string &name, std::uint64_t) {
            names.push_back(name);
            return names.size() < 100;
        }));
        std::sort(names.begin(), names.end());
        return names;
    }

    keel::test::TempDir directory_;
    const std::string root_ = directory_ / "root";
    const fs::path outside_ = directory_ / "outside";
};

/// Does everything that a store can do, and returns the texts of what failed.
std::string everyUse(blob::DirectoryStore &store)
{
    std::string failed;
    const auto expect = [&](const auto &done) { failed += done ? "" : done.error().text + "\n"; };
    const auto all = [](const std::string &) { return true; };
    for (const char *name : {"pieces/aa/2", "pieces/3"})
        expect(blob::putWhole(store, name, viewOf("x")));
    for (const char *name : {"pieces/aa/1", "pieces/aa/2", "pieces/3"}) {
        const auto opened = store.open(name);
        expect(opened);
        if (opened) {
            expect(store.link(name, **opened, std::string("pieces/aa/") + name[7] + "9"));
            expect(store.remove(name, **opened));
        }
    }
    expect(store.sync("pieces/aa/2"));
    expect(store.list("pieces/aa/", all));
    expect(store.livingWriters());
    expect(store.removeLeftovers());
    for (const char *lock : {"change-aa", "none"})
        expect(store.tryLock(lock, "trying"));
    store.keepReserve();
    while (store.giveUpReserve()) {
    }
    return failed;
}

TEST_F(LinksTest, AFileThatIsBegunIsNeverOneThatIsThere)
{
    const std::string path = root_ + "/1-0123456789abcdef";
    keel::test::writeFile(path, "of others");
    const auto begun = blob::filesBelow(root_)->create(path);
    ASSERT_FALSE(begun);
    EXPECT_EQ(begun.error().kind, ErrorKind::exists);
}

TEST_F(LinksTest, NothingOutsideTheRepositoryIsTouchedThroughOne)
{
    const auto before = outside();
    for (const std::string link :
         {"tmp", "locks", "reserve", "pieces", "pieces/aa", "pieces/aa/1", "locks/change-aa",
          "locks/remove-aa", "reserve/1", "locks/none", "reserve/48"}) {
        SCOPED_TRACE(link);
        const fs::path place = root_ + "/" + link, file = outside_ / place.filename();
        fs::create_directories(place.parent_path());
        fs::create_symlink(link.find('/') != link.npos && link != "pieces/aa" ? file : outside_,
                           place);
        const std::string failed = everyUse(*store());
        EXPECT_EQ(outside(), before);
        if (!link.starts_with("reserve")) { // which is given up silently
            EXPECT_NE(failed.find(" is a symbolic link"), std::string::npos) << failed;
        }
        EXPECT_TRUE(fs::is_symlink(place));
        fs::remove_all(directory_ / "real");
        fs::create_directories(directory_ / "real");
    }
}

TEST_F(LinksTest, AListingNamesThemAndEnds)
{
    ASSERT_TRUE(blob::putWhole(*store(), "pieces/aa/1", viewOf("x")));
    for (const char *name : {"/pieces/aa/up", "/pieces/up", "/pieces/aa/2"})
        fs::create_directory_symlink("..", root_ + name);
    EXPECT_EQ(listed("pieces/"), (std::vector<std::string>{"pieces/aa/1", "pieces/aa/2",
                                                           "pieces/aa/up", "pieces/up"}));
    const auto opened = store()->open("pieces/aa/2");
    ASSERT_FALSE(opened);
    EXPECT_EQ(opened.error().kind, ErrorKind::damaged) << "which stops nothing else";
}

TEST_F(LinksTest, OnlyFilesOfTheStoresOwnAreRemovedAsLeftBehind)
{
    const std::string tmp = root_ + "/tmp/";
    fs::create_directories(tmp + "4-0123456789abcdef");
    for (const char *name : {"1-0123456789abcdef", "1-0123456789abcdef.fedcba9876543210",
                             "2-0123456789abcdef.fedcba9876543210", "README", "1-00",
                             "x-0123456789abcdef", "1-0123456789abcdef.bak", "1-0123456789ABCDEF"})
        keel::test::writeFile(tmp + name, "left behind");
    ASSERT_EQ(mkfifo((tmp + "3-0123456789abcdef").c_str(), 0600), 0);
    fs::create_symlink(outside_ / "1", tmp + "3-0123456789abcdef.fedcba9876543210");
    EXPECT_TRUE(store()->removeLeftovers());
    std::set<std::string> left;
    for (const auto &entry : fs::directory_iterator(tmp))
        left.insert(entry.path().filename().string());
    EXPECT_EQ(left,
              (std::set<std::string>{"1-00", "1-0123456789ABCDEF", "1-0123456789abcdef.bak",
                                     "3-0123456789abcdef", "3-0123456789abcdef.fedcba9876543210",
                                     "4-0123456789abcdef", "README", "x-0123456789abcdef"}));
}

} // namespace
