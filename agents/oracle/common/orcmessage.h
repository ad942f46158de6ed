// OrcMessage: a numbered message of this library, formatted with its inserts and released by
// itself.
//
//     veloErrorMsg(OrcMessage(2539, "sbtbackup()", "ctx").text());
//
// Without a repository, or for a number it does not know, the text is empty.
#ifndef KEEL_AGENTS_ORACLE_COMMON_ORCMESSAGE_H
#define KEEL_AGENTS_ORACLE_COMMON_ORCMESSAGE_H

class OrcMessage
{
public:
    enum Language { Localised, English };

    explicit OrcMessage(int number, ...);
    OrcMessage(Language language, int number, __builtin_va_list arguments);
    ~OrcMessage();
    OrcMessage(const OrcMessage &) = delete;
    OrcMessage &operator=(const OrcMessage &) = delete;

    [[nodiscard]] const char *text() const { return text_ == nullptr ? "" : text_; }
    [[nodiscard]] bool empty() const { return text_ == nullptr || text_[0] == '\0'; }

private:
    char *text_ = nullptr;
};

#endif
