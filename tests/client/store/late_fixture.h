// Processes that stop at any of their steps while others go on, over a small repository. Locks keep
// nobody away here, as on a file system whose locks other hosts do not see.
#ifndef KEEL_TESTS_CLIENT_STORE_LATE_FIXTURE_H
#define KEEL_TESTS_CLIENT_STORE_LATE_FIXTURE_H

#include "tests/client/store/another_host.h"
#include "tests/client/store/store_faults_fixture.h"

#include <future>
#include <thread>

namespace arca::test
{

class LateFixture : public StoreFaults
{
protected:
    /// The node as a process of another host has it.
    struct Elsewhere {
        explicit Elsewhere(MemoryFiles &files) : host(files)
        {
            auto store = std::make_unique<blob::DirectoryStore>("/r", host);
            repository = store::Repository::open(std::move(store), "test").value();
            space = repository->logOn("node", kPassword).value();
            space->use({.threads = 1});
        }
        AnotherHost host;
        std::unique_ptr<store::Repository> repository;
        std::unique_ptr<store::NodeSpace> space;
    };

    /// What the fixture works with becomes the other host's.
    void moveToOtherHost()
    {
        host_ = std::make_unique<AnotherHost>(files_);
        space_.reset();
        auto opened =
            store::Repository::open(std::make_unique<blob::DirectoryStore>("/r", *host_), "test");
        ASSERT_TRUE(opened);
        repository_ = std::move(*opened);
        space_ = repository_->logOn("node", kPassword).value();
        space_->use({.threads = 1});
    }

    /// A session of this host settles what it finds.
    void settleHere()
    {
        auto here = store::Repository::open(blobs(), "test").value();
        here->logOn("node", kPassword).value()->settleChanges();
    }

    std::vector<std::string> pathsUnder(std::initializer_list<std::string> rooms)
    {
        std::vector<std::string> found;
        for (const std::string &path : files_.paths())
            for (const std::string &room : rooms)
                if (path.starts_with("/r/" + room + "/"))
                    found.push_back(path);
        return found;
    }

    /// The first process stops before its step n; then the second one runs up to its step m, where
    /// the first one goes on to its end. Whether they came to these steps.
    struct Met {
        bool stopped = false, paused = false;
    };
    template <class First, class Second>
    static Met meet(AnotherHost &one, int n, First first, AnotherHost &other, int m, Second second)
    {
        Met met;
        std::promise<void> arrived, released;
        one.stopBefore(n, [&] {
            arrived.set_value();
            released.get_future().wait();
        });
        std::thread thread([&] {
            first();
            if (!one.hasStopped())
                arrived.set_value();
        });
        arrived.get_future().wait();
        met.stopped = one.hasStopped();
        bool ended = !met.stopped;
        const auto goOn = [&] {
            if (!ended)
                released.set_value();
            ended = true;
            if (thread.joinable())
                thread.join();
        };
        other.stopBefore(m, goOn);
        second();
        met.paused = other.hasStopped();
        goOn();
        one.stopBefore(0, {});
        return met;
    }
    /// Every n with every m. `round` returns how they met.
    template <class Round> void meetEverywhere(Round round)
    {
        Met met{true, true};
        for (int n = 1; met.stopped && !HasFailure(); ++n) {
            met.paused = true;
            for (int m = 1; met.paused && !HasFailure(); ++m) {
                SCOPED_TRACE("stopped at step " + std::to_string(n) + ", the other one at " +
                             std::to_string(m));
                met = round(n, m);
            }
        }
    }

    std::unique_ptr<AnotherHost> host_;
};

} // namespace arca::test

#endif
