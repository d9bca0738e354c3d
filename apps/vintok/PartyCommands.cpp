#include "Party.h"

#include "Saying.h"
#include "Text.h"

namespace app {

namespace {

// How much may be typed ahead of an answered call.
constexpr std::size_t maxUnsaid = 1000;

} // namespace

void Party::take(Inbox::Kind kind, const std::string &text) {
    if (m_stage >= Stage::leaving && kind != Inbox::Kind::tick)
        return;
    switch (kind) {
    case Inbox::Kind::line: {
        const Command command = parseCommand(text);
        if (!mustWait(command))
            obey(command);
        return;
    }
    case Inbox::Kind::longLine:
        return m_report.problem("a line of more than " + std::to_string(maxLine) +
                                " bytes was not said");
    case Inbox::Kind::endOfInput:
        m_inputEnded = true; // what was typed before comes first
        return;
    case Inbox::Kind::interrupt:
        if (m_stage == Stage::calling)
            return giveUp("was not waited for any longer");
        return leave();
    case Inbox::Kind::tick:
        return tick();
    case Inbox::Kind::addresses:
    case Inbox::Kind::alarm:
        return;
    }
}

void Party::obey(const Command &command) {
    switch (command.kind) {
    case CommandKind::nothing:
        return;
    case CommandKind::say:
        return say(command.text);
    case CommandKind::who:
        return m_report.roster(m_participant.meetingName(), people());
    case CommandKind::cluster:
        return tellCluster();
    case CommandKind::drain:
        return drain();
    case CommandKind::lead:
        return askForLead();
    case CommandKind::give:
    case CommandKind::keep:
        return answerForLead(command.kind == CommandKind::give);
    case CommandKind::accept:
    case CommandKind::reject:
        return answer(command);
    case CommandKind::send:
        return m_files.send(command.text, self());
    case CommandKind::time:
        return tellTime();
    case CommandKind::leave:
        return leave();
    case CommandKind::help:
        return m_report.help("A line is said to everybody. A line that begins with a slash is a "
                             "command:",
                             commandHelp());
    case CommandKind::unknown:
        return m_report.problem("there is no command '" + command.text + "'; /help lists them");
    }
}

// What is for the others waits for the answer to the call, and does not overtake what waits.
bool Party::mustWait(const Command &command) {
    if ((command.kind != CommandKind::say && command.kind != CommandKind::send) ||
        (m_stage != Stage::calling && m_unsaid.empty()))
        return false;
    if (m_unsaid.size() == maxUnsaid)
        m_report.problem("the call is not answered yet, and too many lines wait already");
    else
        m_unsaid.push_back(command);
    return true;
}

void Party::tellTime() {
    const std::int64_t now = vintok::getTime();
    const std::int64_t ahead = vintok::getAddTime() - vintok::getSubtractTime();
    const std::string offset = std::to_string(ahead < 0 ? -ahead : ahead) + " seconds ";
    m_report.notice({"time",
                     "The meeting's time is " + timeText(now) + ", " +
                         (ahead == 0  ? "the same as"
                          : ahead > 0 ? offset + "ahead of"
                                      : offset + "behind") +
                         " this machine's clock.",
                     Fields().time("time", now).number("offset", ahead)});
}

void Party::say(const std::string &text) {
    const Person me = self();
    const std::string body = encodeSaying({{me.address, me.port}, me.name, text});
    if (m_participant.sendBroadcastData(reinterpret_cast<const unsigned char *>(body.data()),
                                        body.size())) {
        m_saidMuch = m_options.role == Role::host && m_options.guards.mostWaiting != 0;
        record(body);
        m_report.said(me, text);
    } else if (m_people.alone()) {
        m_report.problem("nobody else is in the meeting");
    } else {
        m_report.problem("the line did not reach everybody");
    }
}

void Party::answer(const Command &command) {
    auto caller = m_callers.begin();
    unsigned short number = 0;
    if (!command.text.empty())
        caller = parseNumber(command.text, number) ? m_callers.find(number) : m_callers.end();
    if (caller == m_callers.end()) {
        return m_report.problem(m_callers.empty() ? "nobody waits for an answer"
                                                  : "there is no call '" + command.text + "'");
    }
    const vintok::TCPAddress address = caller->second;
    m_callers.erase(caller);
    const bool accepts = command.kind == CommandKind::accept;
    if (accepts && m_seat && !m_seat->admits(address))
        return m_report.problem("there is no room for the caller");
    if (!(accepts ? m_participant.acceptCall(address) : m_participant.rejectCall(address)))
        m_report.problem("the caller is gone");
}

void Party::askForLead() {
    if (m_participant.isLeader())
        return m_report.problem("the lead is yours already");
    m_wantsLead = true;
    const bool asked = m_participant.requestStartLeading();
    if (!asked && m_wantsLead) { // a refusal on the spot has been told
        m_wantsLead = false;
        m_report.problem("there is nobody to ask for the lead");
    }
}

void Party::answerForLead(bool give) {
    if (!m_leadAsked)
        return m_report.problem("nobody asks for the lead");
    m_leadAsked = false;
    if (!(give ? m_participant.acceptLeadChange() : m_participant.rejectLeadChange()))
        m_report.problem("the answer did not reach everybody");
}

void Party::tick() {
    ++m_seconds;
    m_files.tick();
    tellMissing();
    if (m_seat)
        m_seat->tick();
    if (m_offer) {
        m_offer->passages.tick();
        m_offer->report.tick();
    }
    if (m_stage == Stage::leaving && --m_patience == 0)
        return part();
    if (m_stage == Stage::calling && m_options.patience != 0 &&
        m_seconds >= m_callBegan + m_options.patience)
        return giveUp("did not answer in time");
    if (m_options.keepAlive != 0 && m_seconds % m_options.keepAlive == 0)
        m_participant.sendAllKeepAlive();
}

} // namespace app
