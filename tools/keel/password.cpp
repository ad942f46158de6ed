// See password.h.
#include "tools/keel/password.h"

#include "agents/common/maint/mtprompt.h"
#include "tools/keel/channel/failure.h"
#include "tools/keel/channel/interrupt.h"

#include <cstring>

#include <fmt/format.h>

namespace keel
{

Password::~Password()
{
    // volatile: the compiler would drop writes to memory that is not read again.
    volatile char *byte = text_;
    for (std::size_t i = 0; i < sizeof text_; ++i)
        byte[i] = 0;
}

std::size_t Password::size() const
{
    return std::strlen(text_);
}

void Password::take(const char *question, bool fromTerminal)
{
    mtQuestion_t asked;
    asked.text = question;
    asked.secret = true;
    asked.from = fromTerminal ? mtAskFrom::terminal : mtAskFrom::standardInput;
    const mtAsk_t code = mtAsk(asked, text_, sizeof text_);
    if (code == MT_ASK_SIGNAL)
        checkInterrupted();
    if (code == MT_ASK_NO_TERMINAL)
        throw UsageError("there is no terminal to ask on; --stdin reads the password instead");
    if (code == MT_ASK_LONG)
        throw Failure(fmt::format("a password has at most {} characters", kLongest));
    if (code == MT_ASK_ERROR)
        throw Failure(fmt::format("cannot read the password: {}", std::strerror(errno)));
    if (code != MT_ASK_OK)
        throw Failure(fmt::format("no password: {}", mtAskText(code)));
    if (text_[0] == '\0')
        throw Failure("the password is empty");
}

void Password::read()
{
    take("", false);
}

void Password::ask(const std::string &question)
{
    take(question.c_str(), true);
    Password again;
    again.take("The same again", true);
    if (std::strcmp(text_, again.text_) != 0)
        throw Failure("the two passwords are not the same");
}

} // namespace keel
