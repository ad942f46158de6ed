// See streams.h.
#include "tools/common/command/streams.h"

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace tools
{

void secureStandardStreams()
{
    // open() takes the lowest free number, which is this one. Each is open the wrong way round: no
    // input is there, which is not the same as an empty one, and output to it fails.
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream)
        if (::fcntl(stream, F_GETFD) < 0)
            (void)::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    ::signal(SIGPIPE, SIG_IGN);
    ::signal(SIGXFSZ, SIG_IGN);
}

void say(const std::string &text)
{
    (void)std::fwrite(text.data(), 1, text.size(), stdout); // ferror() keeps the failure
}

bool isPrinted()
{
    const bool flushed = std::fflush(stdout) == 0;
    return flushed && std::ferror(stdout) == 0;
}

void complain(const std::string &text)
{
    std::fputs(text.c_str(), stderr);
}

} // namespace tools
