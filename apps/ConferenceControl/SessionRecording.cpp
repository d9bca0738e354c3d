// A recording holds what is said in the meeting from its start on: what this party hears and what
// it plays. A playback sends the broadcast messages of a file in the spacing of their time stamps;
// it is looked after at the end of every pass of the loop, which the inbox wakes when the next one
// is due.
#include "Session.h"

#include <vintok/ControlNotify.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace control {

namespace {

// A longer silence in a recording is a clock that was set, or two meetings in one file.
constexpr std::int64_t longestSilence = 3600;
// Sent between two looks at the sockets.
constexpr int atOnce = 16;

std::string named(const std::string &path) {
    return "'" + quote(path, 200) + "'";
}

// Files and devices: a pipe could keep this process waiting, and a folder has no bytes.
bool isUsable(const std::string &path) {
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(path, error);
    return !std::filesystem::exists(status) || std::filesystem::is_regular_file(status) ||
           std::filesystem::is_character_file(status);
}

bool holdsSomething(const std::string &path) {
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    return !error && size != 0;
}

} // namespace

// ---- Recording ----

std::string Session::startRecording(const Text &text) {
    const std::string &path = text.value(Field::filePath);
    if (m_recording.isOpen())
        return named(m_recordPath) + " is being recorded to already";
    if (path.empty() || !isUsable(path))
        return named(path) + " is no file";
    if (holdsSomething(path))
        return named(path) + " has something in it already";
    if (!m_recording.open(path))
        return named(path) + " cannot be written: " + std::strerror(errno);
    m_recordPath = path;
    return "";
}

std::string Session::stopRecording(const Text &) {
    if (!m_recording.isOpen())
        return "nothing is being recorded";
    m_recording.close();
    return "";
}

void Session::record(const unsigned char *data, std::size_t length) {
    if (!m_recording.isOpen() || m_recording.broadcast(data, length))
        return;
    warn("the recording ends, " + named(m_recordPath) +
         " cannot be written: " + std::strerror(errno));
    vintok::replyNotifyRecordingStopped(fd(), false);
}

// ---- Playback ----

std::string Session::startPlayback(const Text &text) {
    const std::string &path = text.value(Field::filePath);
    std::error_code error;
    if (m_player)
        return "another recording is being played";
    if (path.empty() || !isUsable(path) || std::filesystem::is_character_file(path, error))
        return named(path) + " is no file"; // a terminal could keep this process waiting
    if (m_recording.isOpen() && std::filesystem::equivalent(path, m_recordPath, error))
        return named(path) + " is being recorded to"; // and would never end
    m_playFile.reset(std::fopen(path.c_str(), "rb"));
    if (!m_playFile)
        return named(path) + " cannot be read: " + std::strerror(errno);
    m_player = std::make_unique<app::Player>(m_playFile.get(), 1, longestSilence);
    return "";
}

std::string Session::stopPlayback(const Text &) {
    if (!m_player)
        return "nothing is being played";
    m_player.reset();
    m_playsOn = false;
    return "";
}

std::string Session::pausePlayback(const Text &) {
    if (!m_player || m_player->paused())
        return "nothing is being played";
    m_player->pause(std::chrono::steady_clock::now());
    return "";
}

std::string Session::resumePlayback(const Text &) {
    if (!m_player || !m_player->paused())
        return "nothing is paused";
    m_player->resume(std::chrono::steady_clock::now());
    return "";
}

void Session::play() {
    using State = app::Player::State;
    m_playsOn = false;
    for (int sent = 0; sent < atOnce && m_participant->isMeeting(); ++sent) {
        switch (m_player->look(std::chrono::steady_clock::now())) {
        case State::ready: {
            const vintok::TCPMessage &message = m_player->message();
            record(message.messageBuffer(),
                   static_cast<std::size_t>(message.messageBufferLength()));
            // False while nobody else is there, which does not hold the recording up.
            m_participant->sendBroadcastData(message.messageBuffer(),
                                             message.messageBufferLength());
            if (!m_player)
                return; // sending has found that the meeting is over
            m_player->taken();
            break;
        }
        case State::waiting:
            if (!m_player->paused())
                m_inbox.wakeAt(m_player->due());
            return;
        case State::end:
            return endPlayback(true);
        case State::damaged:
            warn("the recording that is being played is damaged at byte " +
                 std::to_string(m_player->reader().offset()) + ": " + m_player->reader().fault());
            return endPlayback(false);
        }
    }
    m_playsOn = true;
}

void Session::endPlayback(bool whole) {
    if (m_player->skipped() != 0)
        warn("the recording had " + std::to_string(m_player->skipped()) +
             " messages that are no broadcast: they were not played");
    m_player.reset();
    m_playsOn = false;
    vintok::replyNotifyPlaybackStopped(fd(), whole);
}

// The meeting is over.
void Session::endRecordings() {
    if (m_player)
        endPlayback(false);
    if (m_recording.isOpen()) {
        m_recording.close();
        vintok::replyNotifyRecordingStopped(fd(), true);
    }
}

} // namespace control
