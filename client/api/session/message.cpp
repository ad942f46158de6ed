// Looking up the text of a return code. It works at any time and with any handle, so nothing here
// depends on a set-up.
#include "client/api/session/answer.h"
#include "client/api/session/messages.h"
#include "client/api/session/records.h"
#include "client/base/text.h"

using namespace arca;
using namespace arca::api;

namespace
{

/// Returns, in English, what happened if `rc` was this thread's last failure; else what it means.
std::string sentenceFor(std::int16_t rc)
{
    const char *detail = lastDetail(rc);
    if (detail == nullptr)
        return messageSentence(lastText(rc));
    std::string sentence = printable(detail, HOX_MAX_RC_MESSAGE - 16);
    if (sentence.front() >= 'a' && sentence.front() <= 'z' &&
        sentence.find(' ') != std::string::npos)
        sentence.front() = upperAscii(sentence.front());
    if (!sentence.ends_with('.'))
        sentence += '.';
    return sentence;
}

} // namespace

std::int16_t hoxRCMsg(hoxHandle_t, std::int16_t rc, char *message)
{
    if (message == nullptr)
        return HOX_RC_NULL_ARGUMENT;
    return atBoundary([&]() -> Code {
        std::string text = messageInHostLanguage(lastText(rc));
        if (text.empty())
            text = messageIdentifier(lastText(rc)) + " " + sentenceFor(rc);
        else if (lastDetail(rc) != nullptr) // names and numbers, which are the same everywhere
            text += " (" + sentenceFor(rc) + ")";
        const std::size_t length = std::min<std::size_t>(text.size(), HOX_MAX_RC_MESSAGE);
        std::memcpy(message, text.data(), length);
        message[length] = '\0';
        return success();
    });
}

std::int16_t hoxRCMsgEx(hoxHandle_t, const hoxRCMsgExIn_t *input, hoxRCMsgExOut_t *output)
{
    if (input == nullptr || output == nullptr)
        return HOX_RC_NULL_ARGUMENT;
    if (input->stVersion != HOX_RCMSGEX_VERSION || !mayFill(*output, HOX_RCMSGEX_VERSION))
        return HOX_RC_BAD_VERSION;
    return atBoundary([&]() -> Code {
        const std::string identifier = messageIdentifier(lastText(input->rc));
        const std::string sentence = sentenceFor(input->rc);
        *output = hoxRCMsgExOut_t{};
        output->stVersion = HOX_RCMSGEX_VERSION;
        fill(output->identifier, identifier);
        fill(output->message, input->withIdentifier != 0 ? identifier + " " + sentence : sentence);
        return success();
    });
}
