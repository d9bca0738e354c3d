// The files of one party of a meeting: the one that it sends, and what others send.
#ifndef VINTOK_APP_FILES_H
#define VINTOK_APP_FILES_H

#include "FileAnnouncement.h"
#include "FileNews.h"
#include "Person.h"
#include "Report.h"

#include <vintok/ConferenceParticipant.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace app {

class Files {
public:
    // All must outlive this object. `folder` is where files are stored, empty: as the environment
    // says.
    Files(vintok::ConferenceParticipant &participant, const People &people, Report &report,
          const std::string &folder)
        : m_participant(participant), m_people(people), m_report(report), m_folder(folder) {}

    // Where the meeting has several hosts: whether this one says whose turn it is, which without a
    // function every host does; and who besides the own host may say so.
    void setTurns(std::function<bool()> decides, std::function<bool(const Place &)> isHost) {
        m_decides = std::move(decides);
        m_isHost = std::move(isHost);
    }

    // ---- Sending ----

    // Takes a file up for sending and reports why not where it cannot be. Blocks while it is read.
    void send(const std::string &path, const Person &self);
    // To be called between two passes of the loop. Begins to send what it may by now.
    void sendNext();
    // Nothing waits to be sent.
    bool allSent() const { return m_outgoing.empty(); }

    // ---- What the meeting tells ----

    // A broadcast; false when it is about no file. One about a file of this party, or of somebody
    // who is not here, makes no difference.
    bool heard(std::string_view body);
    void left(const Person &person);
    // In the same meeting by way of another host.
    void meetsAnew();
    // The library's callbacks.
    void goesOn(const vintok::TCPAddress &origin, std::uint64_t done, const std::string &path);
    void ends(bool whole, const std::string &path);
    void sent(bool whole);
    // A second has passed.
    void tick();

private:
    using Clock = std::chrono::steady_clock;
    // Of the first file that waits to be sent.
    enum class Turn { unasked, asked, yes, no };

    // A file that another party has announced and not closed yet.
    struct OfferedFile {
        FileAnnouncement announcement;
        bool begun = false; // and the library has told of it
        Clock::time_point lastSign;
    };

    OfferedFile *offerOf(const Place &place);
    void dropOffered(const Place &place);
    Person personAt(const Place &place) const;
    FileNews newsOf(const Place &place);
    bool decides() const { return m_decides ? m_decides() : m_participant.isHost(); }
    bool maySay(const Place &place) const;
    bool arriving() const;
    std::string rival() const;
    void broadcast(const std::string &body);
    void claim();
    void begin();
    void close(bool sent);
    void withdraw(const std::string &reason);
    bool isOther(const Place &place) const;
    void announced(const FileAnnouncement &announcement);
    void closed(const FileClosing &closing);
    void turned(const FileTurn &turn);
    void begins(const Place &place, const std::string &path);
    void tellProgress(FileNews &file, std::uint64_t done);

    vintok::ConferenceParticipant &m_participant;
    const People &m_people;
    Report &m_report;
    const std::string &m_folder;
    std::function<bool()> m_decides;
    std::function<bool(const Place &)> m_isHost;
    std::deque<FileNews> m_outgoing; // the first is the one that is being sent
    Turn m_turn = Turn::unasked;
    Clock::time_point m_deadline; // of the answer
    bool m_sending = false;       // the library is at work on the first
    std::optional<FileNews> m_incoming;
    Clock::time_point m_lastSign;      // of it
    std::vector<OfferedFile> m_offers; // of parties that are here, one of each
};

} // namespace app

#endif
