// The first version of the interface, driven as an older database drives it: no context, the state
// is the process's. What a call came to is one text: empty, or "oer/errno".
#ifndef KEEL_TESTS_AGENT_VERSION1_H
#define KEEL_TESTS_AGENT_VERSION1_H

#include <dlfcn.h>

#include <string>

#include "tests/agent/agent_fixture.h"

template <class Base> class Version1Test : public Base
{
protected:
    ~Version1Test() override { release(); }

    /// Ends whatever channel there is: a second one beside it releases both.
    void release()
    {
        if (this->initialise().empty()) {
            this->initialise();
        }
    }

    /// As the channel that an older database opens: sbtinit alone.
    void begin() { ASSERT_EQ("", this->initialise()) << this->errorLog(); }

    template <class Function> Function *call(const char *name)
    {
        return reinterpret_cast<Function *>(dlsym(this->agent.handle, name));
    }
    std::string told() const
    {
        return std::to_string(error.oer) + "/" + std::to_string(error.errnum);
    }
    std::string outcome(bool failed) const
    {
        return failed                                ? told()
               : error.oer == 0 && error.errnum == 0 ? ""
                                                     : "success with " + told();
    }

    std::string open(const char *name, unsigned long mode, unsigned long tapeBlock = 1024)
    {
        const int handle =
            call<decltype(::sbtopen)>("sbtopen")(&error, const_cast<char *>(name), mode, tapeBlock);
        th = handle < 0 ? th : static_cast<unsigned>(handle);
        return outcome(handle == -1);
    }
    std::string write(std::string block)
    {
        return outcome(call<decltype(::sbtwrite)>("sbtwrite")(&error, th, block.data()) != 0);
    }
    std::string read(std::string &block)
    {
        return outcome(call<decltype(::sbtread)>("sbtread")(&error, th, block.data()) != 0);
    }
    std::string close(unsigned long flags = 1)
    {
        return outcome(call<decltype(::sbtclose)>("sbtclose")(&error, th, flags) != 0);
    }
    std::string remove(const char *name)
    {
        return outcome(call<decltype(::sbtremove)>("sbtremove")(&error, const_cast<char *>(name)) !=
                       0);
    }
    const sbtFileInfo *info(const char *name)
    {
        return call<decltype(::sbtinfo)>("sbtinfo")(&error, const_cast<char *>(name));
    }
    /// Writes a file of 1,024-byte blocks and closes it.
    std::string store(const char *name, const std::string &data)
    {
        std::string rc = open(name, SBT1_WRITE);
        for (std::size_t at = 0; rc.empty() && at < data.size(); at += 1024)
            rc = write(data.substr(at, 1024));
        return rc.empty() ? close() : rc;
    }

    bserc error{9, 9};
    unsigned th = 0;
};

#endif
