// Forked processes that do a part of a test.
#ifndef KEEL_TESTS_SUPPORT_CHILD_H
#define KEEL_TESTS_SUPPORT_CHILD_H

#include <functional>
#include <initializer_list>
#include <string>
#include <sys/types.h>

namespace keel::test
{

/// It does `work`, which says into a pipe how far it is, and ends. One that is still there when the
/// object goes is killed.
class Child
{
public:
    explicit Child(const std::function<void(int told)> &work);
    ~Child();
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    /// What it said since the last time; empty when it has ended.
    [[nodiscard]] std::string hear() const;
    /// Its exit status, or 128 + signal; -1 when it was waited for already.
    int wait();
    int end(int signal);

    pid_t pid = -1;
    int told = -1; ///< the end of the pipe to read from
};

/// Says something on behalf of a child.
void tell(int told, const std::string &what);

/// Whether that thread, of whichever process, is in one of these system calls.
[[nodiscard]] bool isInCall(pid_t thread, std::initializer_list<long> calls);

/// The exit status of a child that does this, or 128 + signal. One that hangs is ended.
int inChild(const std::function<int()> &work);

} // namespace keel::test

#endif
