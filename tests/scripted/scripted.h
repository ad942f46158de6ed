// The scripted storage client: a test double of libApiHX64.so that does what a test tells it.
//
// Left alone it is a small, well-behaved store in memory, good enough for a backup and a restore.
// A test that needs a fault says which call of which operation answers what, and reads afterwards
// which calls were made, in order, with the fields that matter. One thread at a time.
//
// The test opens the library by its path before the agent asks for it by its bare name; the loader
// then hands the agent the copy that is there, and both sides look at the same ScriptedClient.
#ifndef KEEL_TESTS_SCRIPTED_SCRIPTED_H
#define KEEL_TESTS_SCRIPTED_SCRIPTED_H

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "client/include/hoxapi.h"

struct ScriptedObject {
    std::string data;
    hox64_t id;
    std::string className = "STANDARD";
    std::string info = "stStream";
    std::uint8_t mediaClass = HOX_MEDIA_FIXED;
    std::uint32_t restoreOrder = 0;
    hoxDate inserted{2026, 7, 1, 12, 30, 15, 0};
    hoxDate expires{};
};

class ScriptedClient
{
public:
    static constexpr int kEveryCall = 0;

    /// The nth call of an operation from now on (1: the next) answers rc, and does nothing else.
    /// hoxEndTxn hands out reason with it. Of several rules that apply, the first counts.
    void on(const std::string &operation, int nth, int rc, int reason = 0);

    /// The same in one line: "EndTxn:1=2302/2113 LogEventEx:*=2041" is the operation, which call of
    /// it (a star: every one), its code and its reason.
    void script(const std::string &rules);

    /// What happens inside the calls of an operation, in the thread that calls, before the call is
    /// noted: a test blocks there. Other threads may call other operations meanwhile.
    std::string during;
    std::function<void()> happens;

    /// The calls made so far, one line each: the operation, then " field=value" in a fixed order.
    /// Look-ups of message texts are left out: how often a text is fetched is nobody's concern.
    std::vector<std::string> calls;

    /// Those of the calls that begin with one of the given texts.
    std::vector<std::string> callsOf(const std::vector<std::string> &beginnings) const;
    /// What happened since the calls were last cleared, in short: "BeginTxn DeleteObj EndTxn1 L3 S3
    /// Terminate" has the vote behind EndTxn and, of an event, whether it went to the local log or
    /// to the server's and its severity; K4 is an event of kind 4.
    std::string story() const;

    // What the client says of itself and of the server.
    hoxApiVersionEx level{HOX_API_VERSION_EX_VERSION, 7, 1, 3, 0};
    bool keysDiffer = false; // each key that is derived is another
    std::uint8_t passwordAccess = HOX_PASSWORDACCESS_GENERATE;
    std::string nodeName = "scriptednode";
    std::string boundClass = "STANDARD";
    hoxEndSendObjExOut_t totals{};
    bool localTexts = true, serverTexts = true;    // else that look-up succeeds with an empty text
    std::map<std::string, ScriptedObject> objects; // by fsName, hlName and llName, joined
    std::string programName; // the file that stood for the program at the last set-up

    // ---- for the operations
    struct Answer {
        bool scripted;
        int rc;
        int reason;
    };
    /// Notes a call and says whether a script answers in the operation's place.
    Answer called(const std::string &operation, const std::string &fields);

    std::uint32_t nextHandle = 1;
    std::uint32_t nextObject = 1;
    std::string sendingName, sendingClass, sendingData;
    bool poisoned = false; // a step of the piece being sent failed: no commit publishes it
    std::string receivingData;
    std::string queried; // the object or class that the running query asks for
    bool queriesClass = false;
    bool answered = false;

private:
    struct Rule {
        std::string operation;
        int callsToGo; // 1: the next call is meant
        int rc;
        int reason;
    };
    std::vector<Rule> rules_;
};

/// Exported by the scripted library beside the operations.
extern "C" __attribute__((visibility("default"))) ScriptedClient *scriptedClient();

#endif
