// A meeting carries one file at a time, since a receiver takes one at a time. So a sender announces
// its file, and the host says whose turn it is: a guest sends when it is told yes, and gives up
// when it is told no. A host that knows nothing of turns is given some time, and then the
// announcements of others decide.
//
// An announcement holds until its sender closes it or leaves, or nothing comes of it for a while.
// The library's callbacks tell what becomes of the file itself; a file that was not announced
// arrives all the same.
#include "Files.h"

#include "Whereabouts.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace app {

namespace {

constexpr std::chrono::seconds turnTime(10); // that the host has to answer
// After so long without a sign of its file a sender no longer keeps others from sending. Where a
// file is not stored, its begin is the last sign.
constexpr std::chrono::seconds storedTime(60);
constexpr std::chrono::seconds unstoredTime(600);
// Longer than a sender waits for its turn: the host may know nothing of turns.
constexpr std::chrono::seconds unbegunTime = 2 * turnTime;

using cluster::placeOf;

Place placeOf(const Person &person) {
    return {person.address, person.port};
}

std::string inQuotes(const std::string &text) {
    return '\'' + text + '\'';
}

// Why a file cannot be sent; empty, with `file` filled in, when it can.
std::string examine(const std::string &path, FileNews &file) {
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(path, error);
    if (status.type() == std::filesystem::file_type::not_found)
        return "there is no file " + inQuotes(path);
    if (std::filesystem::is_directory(status))
        return inQuotes(path) + " is a folder; only files can be sent";
    // The size of anything else is not known before it has been read, if it ends at all.
    if (!std::filesystem::is_regular_file(status))
        return inQuotes(path) + " is not a regular file";
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    if (!error && size > maxFileSize) {
        return inQuotes(path) + " is too big: " + std::to_string(size) +
               " bytes, and a file may have " + std::to_string(maxFileSize);
    }
    file.path = path;
    file.name = std::filesystem::path(path).filename().string();
    if (file.name.size() > maxFileName)
        return inQuotes(path) + " has too long a name";
    if (!sumFile(path, file.announced))
        return "cannot read " + inQuotes(path) + ": " + std::strerror(errno);
    if (file.announced.size == 0)
        return inQuotes(path) + " is empty, and an empty file cannot be sent";
    return "";
}

bool endsIn(const std::string &path, const std::string &name) {
    return path.size() > name.size() &&
           path.compare(path.size() - name.size(), name.size(), name) == 0;
}

std::string whyRefused(const std::string &folder) {
    const char *root = std::getenv("QOR_COLLAB_ROOT_LOCAL");
    const std::string place = folder.empty() && root ? root : folder;
    return place.empty() ? "no folder for files was given, with --files DIR"
                         : "it cannot be written below " + inQuotes(place);
}

} // namespace

int percentOf(const FileNews &file) {
    const std::uint64_t size = file.announced.size;
    return size == 0 ? 0 : static_cast<int>(std::min(file.done, size) * 100 / size);
}

// ---- Sending ----

void Files::send(const std::string &path, const Person &self) {
    if (path.empty())
        return m_report.problem("which file? /send FILE");
    if (m_people.alone())
        return m_report.problem("nobody else is in the meeting");
    const std::string other = rival();
    if (!other.empty())
        return m_report.problem(other + "; wait until that is over");
    FileNews file;
    file.person = self;
    const std::string obstacle = examine(path, file);
    if (!obstacle.empty())
        return m_report.problem(obstacle);
    m_outgoing.push_back(file);
}

void Files::sendNext() {
    while (!m_outgoing.empty() && !m_sending) {
        if (m_turn == Turn::unasked)
            claim();
        const std::string other = rival();
        if (m_turn == Turn::asked) {
            if (Clock::now() < m_deadline)
                return;
            m_turn = other.empty() ? Turn::yes : Turn::no;
        }
        if (m_turn == Turn::yes) {
            begin();
        } else {
            withdraw((other.empty() ? "somebody else was sending a file" : other) + "; send " +
                     inQuotes(m_outgoing.front().path) + " again when that is over");
        }
    }
}

void Files::claim() {
    const FileNews &file = m_outgoing.front();
    broadcast(encodeAnnouncement({placeOf(file.person), file.name, file.announced}));
    m_turn = decides() ? Turn::yes : Turn::asked;
    m_deadline = Clock::now() + turnTime;
}

void Files::begin() {
    const FileNews &file = m_outgoing.front();
    m_sending = m_participant.startFile(file.path, file.name) != 0;
    if (!m_sending)
        withdraw(m_people.alone() ? "nobody else is in the meeting"
                                  : inQuotes(file.path) + " can no longer be read");
}

void Files::sent(bool whole) {
    const FileNews file = m_outgoing.front();
    close(true);
    m_report.fileEnds(file, whole ? FileEnd::sent : FileEnd::notSent, file.announced);
}

void Files::withdraw(const std::string &reason) {
    close(false);
    m_report.problem(reason);
}

// The first of those that are to be sent is not any more.
void Files::close(bool sent) {
    broadcast(encodeClosing({placeOf(m_outgoing.front().person), sent}));
    m_outgoing.pop_front();
    m_turn = Turn::unasked;
    m_sending = false;
}

void Files::broadcast(const std::string &body) {
    m_participant.sendBroadcastData(reinterpret_cast<const unsigned char *>(body.data()),
                                    body.size());
}

bool Files::arriving() const {
    return m_incoming && Clock::now() < m_lastSign + storedTime;
}

// Who else is sending, and what. Empty: nobody.
std::string Files::rival() const {
    const auto sends = [](const Person &person, const std::string &name) {
        return person.name + " is sending " + inQuotes(name);
    };
    if (arriving())
        return sends(m_incoming->person, m_incoming->name);
    if (!m_offers.empty()) {
        const FileAnnouncement &announcement = m_offers.front().announcement;
        return sends(personAt(announcement.place), announcement.name);
    }
    return "";
}

// ---- What the meeting tells ----

bool Files::heard(std::string_view body) {
    FileAnnouncement announcement;
    FileClosing closing;
    FileTurn turn;
    if (decodeAnnouncement(body, announcement)) {
        if (isOther(announcement.place))
            announced(announcement);
        return true;
    }
    if (decodeClosing(body, closing)) {
        if (isOther(closing.place))
            closed(closing);
        return true;
    }
    if (!decodeTurn(body, turn))
        return false;
    if (isOther(turn.place) && maySay(turn.place))
        turned(turn);
    return true;
}

// A party that is here and is not this one: of those there are never many. A recording that is
// played into the meeting tells of others.
bool Files::isOther(const Place &place) const {
    const Person *person = m_people.find(place);
    return person && !person->self;
}

bool Files::maySay(const Place &place) const {
    return (m_isHost && m_isHost(place)) || (!m_decides && m_people.find(place)->host);
}

void Files::announced(const FileAnnouncement &announcement) {
    dropOffered(announcement.place);
    const bool free = rival().empty() && m_outgoing.empty();
    if (!decides() || free)
        m_offers.push_back({announcement, false, Clock::now()});
    if (decides()) {
        const vintok::TCPAddress &address = m_participant.address();
        broadcast(encodeTurn({placeOf(address), announcement.place, free}));
    }
}

void Files::turned(const FileTurn &turn) {
    if (!turn.yes)
        dropOffered(turn.whose);
    if (m_turn == Turn::asked && turn.whose == placeOf(m_outgoing.front().person))
        m_turn = turn.yes ? Turn::yes : Turn::no;
}

void Files::closed(const FileClosing &closing) {
    const OfferedFile *offer = offerOf(closing.place);
    if (offer && closing.sent && !offer->begun) {
        m_report.fileRefused(newsOf(closing.place),
                             "it did not come, or while another one was arriving");
    }
    dropOffered(closing.place);
}

void Files::left(const Person &person) {
    dropOffered(placeOf(person));
}

void Files::meetsAnew() {
    m_offers.clear();
    if (!m_sending)
        m_turn = Turn::unasked;
}

void Files::goesOn(const vintok::TCPAddress &origin, std::uint64_t done, const std::string &path) {
    if (m_sending && origin == m_participant.address()) {
        if (done == 0)
            return m_report.fileBegins(m_outgoing.front());
        return tellProgress(m_outgoing.front(), done);
    }
    const Place place = placeOf(origin);
    m_lastSign = Clock::now();
    if (OfferedFile *offer = offerOf(place)) {
        offer->lastSign = m_lastSign;
        offer->begun = true;
    }
    if (m_incoming && m_incoming->path == path)
        tellProgress(*m_incoming, done);
    else
        begins(place, path);
}

void Files::begins(const Place &place, const std::string &path) {
    FileNews file = newsOf(place);
    if (path.empty())
        return m_report.fileRefused(file, whyRefused(m_folder));
    if (file.name.empty() || !endsIn(path, file.name)) { // not the one that was announced
        file.announced = FileSum();
        file.name = std::filesystem::path(path).filename().string();
    }
    file.path = path;
    m_incoming = file;
    m_report.fileBegins(file);
}

void Files::ends(bool whole, const std::string &path) {
    // Another path comes with an acknowledgement, which nobody owes anybody.
    if (!m_incoming || m_incoming->path != path)
        return;
    const FileNews file = *m_incoming;
    m_incoming.reset();
    FileSum sum;
    FileEnd end = FileEnd::lost;
    if (whole) {
        const bool known = sumFile(path, sum) && file.announced.size != 0;
        end = !known                  ? FileEnd::unsure
              : sum == file.announced ? FileEnd::received
                                      : FileEnd::differs;
    }
    m_report.fileEnds(file, end, sum);
}

void Files::tellProgress(FileNews &file, std::uint64_t done) {
    file.done = done;
    m_report.fileGoesOn(file);
}

void Files::tick() {
    const Clock::time_point now = Clock::now();
    std::erase_if(m_offers, [now](const OfferedFile &offer) {
        return now >= offer.lastSign + (offer.begun ? unstoredTime : unbegunTime);
    });
}

// ---- Who sends what ----

Files::OfferedFile *Files::offerOf(const Place &place) {
    const auto offer = std::find_if(m_offers.begin(), m_offers.end(), [&](const OfferedFile &one) {
        return one.announcement.place == place;
    });
    return offer == m_offers.end() ? nullptr : &*offer;
}

void Files::dropOffered(const Place &place) {
    std::erase_if(
        m_offers, [&](const OfferedFile &offer) { return offer.announcement.place == place; });
}

Person Files::personAt(const Place &place) const {
    if (const Person *known = m_people.find(place)) {
        Person person = *known;
        person.self = false; // whoever sends in our name is not this party
        return person;
    }
    return app::personAt(place, m_participant.isHidingIPsRequired());
}

// What is known before the file itself: who sends it, and what was announced.
FileNews Files::newsOf(const Place &place) {
    FileNews file;
    file.person = personAt(place);
    if (const OfferedFile *offer = offerOf(place)) {
        file.name = offer->announcement.name;
        file.announced = offer->announcement.sum;
    }
    return file;
}

} // namespace app
