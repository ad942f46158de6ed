// See program.h.
#include "tests/support/program.h"

#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sstream>
#include <system_error>

namespace keel::test
{

namespace
{

[[noreturn]] void fail(const char *what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

int unnamedFile()
{
    char pattern[] = "/tmp/keel-test-output.XXXXXX";
    int fd = ::mkostemp(pattern, O_CLOEXEC);
    if (fd < 0)
        fail("mkostemp");
    ::unlink(pattern);
    return fd;
}

bool writeAll(int fd, std::string_view bytes)
{
    while (!bytes.empty()) {
        ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return false;
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

std::string readFromStart(int fd)
{
    std::string text;
    char buffer[4096];
    ::lseek(fd, 0, SEEK_SET);
    for (ssize_t count; (count = ::read(fd, buffer, sizeof buffer)) > 0;)
        text.append(buffer, static_cast<std::size_t>(count));
    return text;
}

/// In the child: only calls that are safe after a fork of a process that may have threads.
[[noreturn]] void becomeProgram(char *const *arguments, char *const *environment,
                                const char *directory, const int (&streams)[3])
{
    for (int target = 0; target < 3; ++target)
        ::dup2(streams[target], target);
    defaultSignals();
    if (*directory && ::chdir(directory) != 0)
        ::_exit(126);
    ::execvpe(arguments[0], arguments, environment);
    ::_exit(127);
}

std::vector<std::string> mergedEnvironment(const std::map<std::string, std::string> &added)
{
    std::vector<std::string> merged;
    for (char **entry = environ; *entry; ++entry) {
        std::string text = *entry;
        if (!added.contains(text.substr(0, text.find('='))))
            merged.push_back(std::move(text));
    }
    for (const auto &[name, value] : added)
        merged.push_back(name + "=" + value);
    return merged;
}

std::vector<char *> pointers(std::vector<std::string> &texts)
{
    std::vector<char *> result;
    for (std::string &text : texts)
        result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

} // namespace

std::vector<std::string> wordsOf(const std::string &line)
{
    std::istringstream stream(line);
    std::vector<std::string> words;
    for (std::string word; stream >> word;)
        words.push_back(word == "''" ? "" : word);
    return words;
}

std::vector<std::vector<std::string>> linesOf(const std::string &lines)
{
    std::istringstream stream(lines);
    std::vector<std::vector<std::string>> found;
    for (std::string line; std::getline(stream, line, ';');)
        found.push_back(wordsOf(line));
    return found;
}

void defaultSignals()
{
    for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE})
        ::signal(number, SIG_DFL);
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

void Program::start(const std::vector<std::string> &argv, const ProgramOptions &options, int input)
{
    out_ = unnamedFile();
    err_ = unnamedFile();
    std::vector<std::string> arguments = argv;
    std::vector<std::string> environment = mergedEnvironment(options.environment);
    std::vector<char *> argumentPointers = pointers(arguments);
    std::vector<char *> environmentPointers = pointers(environment);
    const int streams[3] = {input, out_, err_};
    pid_ = ::fork();
    if (pid_ < 0)
        fail("fork");
    if (pid_ == 0) {
        becomeProgram(argumentPointers.data(), environmentPointers.data(),
                      options.directory.c_str(), streams);
    }
    ::close(input);
}

Program::Program(const std::vector<std::string> &argv, const ProgramOptions &options)
{
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        fail("pipe");
    input_ = ends[1];
    ::signal(SIGPIPE, SIG_IGN);
    start(argv, options, ends[0]);
    feed(options.input);
}

Program::~Program()
{
    closeInput();
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    ::close(out_);
    ::close(err_);
}

bool Program::feed(std::string_view bytes)
{
    return writeAll(input_, bytes);
}

bool Program::taken() const
{
    int waiting = 0;
    return ::ioctl(input_, FIONREAD, &waiting) == 0 && waiting == 0;
}

void Program::closeInput()
{
    if (input_ >= 0)
        ::close(input_);
    input_ = -1;
}

void Program::signal(int number)
{
    ::kill(pid_, number);
}

ProgramResult Program::wait()
{
    closeInput();
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0) {
        if (errno != EINTR)
            fail("waitpid");
    }
    pid_ = -1;
    ProgramResult result;
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    result.out = readFromStart(out_);
    result.err = readFromStart(err_);
    return result;
}

ProgramResult run(const std::vector<std::string> &argv, const ProgramOptions &options)
{
    int input = unnamedFile();
    if (!writeAll(input, options.input) || ::lseek(input, 0, SEEK_SET) != 0)
        fail("standard input");
    Program program;
    program.start(argv, options, input);
    return program.wait();
}

} // namespace keel::test
