// Formatting a numbered message and giving its text back.
#include "agents/oracle/common/diagnostics/orcmessage.h"

#include <cstdarg>

#include "common/nls/nls.h"
#include "common/ut/utmem.h"

OrcMessage::OrcMessage(int number, ...)
{
    va_list arguments;
    va_start(arguments, number);
    nlvsprintf(text_, number, arguments);
    va_end(arguments);
}

OrcMessage::OrcMessage(Language language, int number, va_list arguments)
{
    if (language == English) {
        nlEngvsprintf(text_, number, arguments);
    } else {
        nlvsprintf(text_, number, arguments);
    }
}

OrcMessage::~OrcMessage()
{
    utFree(text_);
}
