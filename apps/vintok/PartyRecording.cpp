// What a party keeps of its meeting in a record file, and what it says from one.
#include "Party.h"

#include "FileAnnouncement.h"
#include "Saying.h"
#include "Text.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace app {

namespace {

// Files are in no recording: what announces one would make the others wait for it.
bool isAboutFile(const std::string &body) {
    FileAnnouncement announcement;
    FileTurn turn;
    FileClosing closing;
    return decodeAnnouncement(body, announcement) || decodeTurn(body, turn) ||
           decodeClosing(body, closing);
}

} // namespace

bool Party::openFiles() {
    if (!m_options.recordFile.empty()) {
        if (!m_recorder.open(m_options.recordFile)) {
            fail("cannot write '" + m_options.recordFile + "': " + std::strerror(errno));
            return false;
        }
        m_report.notice({"recording", "Recording into '" + m_options.recordFile + "'.",
                         Fields().text("file", m_options.recordFile)});
    }
    if (!m_options.file.empty()) {
        m_playFile.reset(std::fopen(m_options.file.c_str(), "rb"));
        if (!m_playFile) {
            fail("cannot open '" + m_options.file + "': " + std::strerror(errno));
            return false;
        }
        m_player = std::make_unique<Player>(m_playFile.get(), m_options.speed);
        std::error_code unknown; // no size, no percentage
        const auto size = std::filesystem::file_size(m_options.file, unknown);
        m_playSize = unknown ? 0 : static_cast<std::uint64_t>(size);
    }
    return true;
}

void Party::record(const std::string &body) {
    if (m_recorder.isOpen() &&
        !m_recorder.broadcast(reinterpret_cast<const unsigned char *>(body.data()), body.size())) {
        m_report.problem("the recording ends here: cannot write '" + m_options.recordFile +
                         "': " + std::strerror(errno));
    }
}

// At most one message for each pass of the loop, so that what the others say is heard meanwhile.
void Party::play() {
    const auto now = std::chrono::steady_clock::now();
    const Player::State state = m_player->look(now);
    m_playsNow = state == Player::State::ready;
    switch (state) {
    case Player::State::waiting:
        if (m_player->due() != m_playsNext) {
            m_playsNext = m_player->due();
            m_inbox.wakeAt(m_playsNext);
        }
        return;
    case Player::State::ready:
        playMessage();
        return;
    case Player::State::damaged: {
        const RecordReader &reader = m_player->reader();
        m_failure = "'" + m_options.file + "' stops making sense at byte " +
                    std::to_string(reader.offset()) + ": " + reader.fault();
        break;
    }
    case Player::State::end:
        break;
    }
    const auto played = static_cast<std::int64_t>(m_player->played());
    m_report.notice(
        {"played-all",
         "Played " + std::to_string(played) + (played == 1 ? " message." : " messages."),
         Fields()
             .number("messages", played)
             .number("skipped", static_cast<std::int64_t>(m_player->skipped()))});
    m_player.reset();
    leave();
}

void Party::playMessage() {
    const vintok::TCPMessage &message = m_player->message();
    const auto length = static_cast<std::size_t>(message.messageBufferLength());
    const std::string body(reinterpret_cast<const char *>(message.messageBuffer()), length);
    if (isAboutFile(body))
        return m_player->skip();
    const bool sent = m_participant.sendBroadcastData(message.messageBuffer(), length);
    const std::int64_t stamp = message.timeStamp();
    const std::uint64_t end = m_player->reader().offset() + message.rawBufferLength();
    m_player->taken();
    if (!sent) {
        // When it is the host that is gone, the end of the meeting says so.
        return m_report.problem("a message of the recording did not reach everybody");
    }
    Saying saying;
    const bool isLine = decodeSaying(body, saying);
    Fields fields;
    fields.number("number", static_cast<std::int64_t>(m_player->played()))
        .time("time", stamp)
        .number("bytes", static_cast<std::int64_t>(length))
        .text("name", saying.name)
        .text("text", saying.text);
    if (m_playSize != 0)
        fields.number("percent", static_cast<std::int64_t>(end * 100 / m_playSize));
    m_report.notice({"played",
                     (m_playSize == 0 ? "" : std::to_string(end * 100 / m_playSize) + "%  ") +
                         (isLine ? saying.name + ": " + saying.text
                                 : std::to_string(length) + " bytes that are no line"),
                     fields});
}

} // namespace app
