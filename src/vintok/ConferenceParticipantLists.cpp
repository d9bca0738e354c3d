// The two lists of a participant: the parties that it knows, and its outgoing calls that have not
// ended. Walks are linear; rosters are small.
//
// Whoever is in the middle of a message may lose the party that it is about: a callback may hang
// up, a failed write may find somebody dead. So nothing that leaves a list is destroyed before the
// outermost operation has ended (`Operation` counts them), and every step that takes a pointer asks
// `_isListed` first. The descriptor would not do for that: its number may have a new owner.
#include "vintok/ConferenceParticipantWorkings.h"

#include "vintok/Log.h"
#include "vintok/TCPStream.h"

#include <algorithm>
#include <new>

namespace vintok {

namespace {

// The first of `entries`, null slots skipped, that `matches`; else null.
template <class Entry, class Match>
Entry *firstOf(const std::vector<Entry *> &entries, Match matches) {
    for (Entry *entry : entries)
        if (entry != nullptr && matches(*entry))
            return entry;
    return nullptr;
}

template <class Entry>
bool contains(const std::vector<Entry *> &entries, const Entry *entry) {
    return entry != nullptr && std::find(entries.begin(), entries.end(), entry) != entries.end();
}

// Whoever leaves its list must not need memory for that: there is room for one more than are
// listed.
template <class Retired, class Entry>
void keepRoom(Retired &retired, const std::vector<Entry *> &listed) {
    const std::size_t room = retired.size() + listed.size() + 1;
    if (retired.capacity() < room)
        retired.reserve(2 * room);
}

} // namespace

bool ConferenceParticipant::Lists::findsNoMemory(const char *operation) {
    VINTOK_LOG(SEVERITY_ERROR, formatText("%s no memory", operation));
    return refuse(TCP_ERROR_OUT_OF_MEMORY, "no memory");
}

ConferenceParticipant::WorkingsPointer::WorkingsPointer()
    : m_workings(std::make_unique<Workings>()) {}

ConferenceParticipant::WorkingsPointer::~WorkingsPointer() = default;

void ConferenceParticipant::WorkingsPointer::reset() {
    m_workings.reset();
}

ConferenceParticipant::Operation::Operation(ConferenceParticipant &participant)
    : m_workings(*participant._workings) {
    Relaying::closeRelay(participant);
    ++m_workings.operations;
}

ConferenceParticipant::Operation::~Operation() {
    if (--m_workings.operations == 0) {
        m_workings.retiredEntries.clear();
        m_workings.retiredCalls.clear();
    }
}

ConferenceRosterEntry *ConferenceParticipant::_addDescriptor(int descriptor) {
    if (descriptor != -1 && _getPeer(descriptor) != nullptr)
        return nullptr;
    try {
        auto entry = std::make_unique<ConferenceRosterEntry>(descriptor);
        entry->setShadow(descriptor == -1);
        keepRoom(_workings->retiredEntries, _attendees);
        _attendees.push_back(entry.get());
        ++_workings->listChanges;
        return entry.release();
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

bool ConferenceParticipant::_addPending(TempRosterEntry *entry) {
    if (entry == nullptr || _isListed(entry))
        return false;
    try {
        keepRoom(_workings->retiredCalls, _pending);
        _pending.push_back(entry);
        return true;
    } catch (const std::bad_alloc &) {
        return false;
    }
}

bool ConferenceParticipant::_isListed(const ConferenceRosterEntry *entry) const {
    return contains(_attendees, entry);
}

bool ConferenceParticipant::_isListed(const TempRosterEntry *entry) const {
    return contains(_pending, entry);
}

ConferenceRosterEntry *ConferenceParticipant::_getPeer(const TCPAddress &address) const {
    return firstOf(
        _attendees,
        [&](const ConferenceRosterEntry &entry) { return entry == address && !entry.isProxy(); });
}

// Who waits for an answer; of two connections to one party the one that asks.
ConferenceRosterEntry *ConferenceParticipant::Lists::getCaller(const ConferenceParticipant &owner,
                                                               const TCPAddress &address) {
    const auto asks = [&](const ConferenceRosterEntry &entry) {
        return entry == address && !entry.isProxy() && entry.isJoinPending();
    };
    // Where several may ask in one address, the application has heard of the last one last.
    std::vector<ConferenceRosterEntry *> entries = owner._attendees;
    if (owner._membersOnly)
        std::reverse(entries.begin(), entries.end());
    ConferenceRosterEntry *asking = firstOf(entries, asks);
    return asking != nullptr ? asking : owner._getPeer(address);
}

const ConferenceRosterEntry *ConferenceParticipant::party(const TCPAddress &address) const {
    return _self == address ? &_self : _getPeer(address);
}

std::vector<ConferenceRosterEntry> ConferenceParticipant::roster() const {
    std::vector<ConferenceRosterEntry> others;
    for (const ConferenceRosterEntry *entry : _attendees)
        if (entry != nullptr && (entry->doBroadcast() || entry->isShadow()))
            others.push_back(*entry);
    return others;
}

ConferenceRosterEntry *ConferenceParticipant::_getPeer(int descriptor) const {
    return firstOf(
        _attendees,
        [&](const ConferenceRosterEntry &entry) { return entry.descriptor() == descriptor; });
}

TempRosterEntry *ConferenceParticipant::_getPending(const TCPAddress &address) const {
    return firstOf(
        _pending, [&](const TempRosterEntry &entry) { return entry == address; });
}

TempRosterEntry *ConferenceParticipant::_getPending(int descriptor) const {
    if (descriptor == -1)
        return nullptr; // calls that have lost their connection, and belong to no other
    return firstOf(_pending, [&](const TempRosterEntry &entry) {
        return entry.associatedDescriptor() == descriptor;
    });
}

ConferenceRosterEntry *ConferenceParticipant::_getHost() const {
    return firstOf(
        _attendees,
        [](const ConferenceRosterEntry &entry) { return entry.doBroadcast() && entry.isHost(); });
}

ConferenceRosterEntry *ConferenceParticipant::_getLeader() const {
    return firstOf(
        _attendees, [](const ConferenceRosterEntry &entry) { return entry.isLeader(); });
}

ConferenceRosterEntry *ConferenceParticipant::_getPendingLeader() const {
    return firstOf(
        _attendees, [](const ConferenceRosterEntry &entry) { return entry.isLeadPending(); });
}

bool ConferenceParticipant::_removeDescriptor(const TCPAddress &address) {
    return Lists::retire(*this, firstOf(
                                    _attendees,
                                    [&](const ConferenceRosterEntry &entry) {
                                        return entry.descriptor() == -1 && entry == address;
                                    }));
}

// Takes the entry off the list. It is destroyed with the end of the outermost operation.
bool ConferenceParticipant::Lists::retire(ConferenceParticipant &owner,
                                          ConferenceRosterEntry *entry) {
    if (!owner._isListed(entry))
        return false;
    Relaying::closeRelay(owner);
    ++owner._workings->listChanges;
    Guards::left(owner, *entry);
    Talk::left(owner, *entry);
    Linking::left(owner, *entry);
    owner._attendees.erase(std::find(owner._attendees.begin(), owner._attendees.end(), entry));
    owner._workings->retiredEntries.emplace_back(entry);
    return true;
}

bool ConferenceParticipant::_removePending(const TCPAddress &address) {
    TempRosterEntry *call = _getPending(address);
    return (call != nullptr || _pending.empty()) && _removePending(call);
}

bool ConferenceParticipant::_removePending(int descriptor) {
    TempRosterEntry *call = _getPending(descriptor);
    return (call != nullptr || _pending.empty()) && _removePending(call);
}

bool ConferenceParticipant::_removePending(TempRosterEntry *entry) {
    if (_pending.empty()) {
        VINTOK_LOG(SEVERITY_ERROR, "_removePending no pending calls");
        return false;
    }
    if (entry == nullptr) {
        VINTOK_LOG(SEVERITY_ERROR, "_removePending attempting to remove null entry");
        return false;
    }
    if (!_isListed(entry))
        return false;
    Calling::forgetStarted(*this, entry);
    _pending.erase(std::find(_pending.begin(), _pending.end(), entry));
    _workings->retiredCalls.emplace_back(entry);
    return true;
}

void ConferenceParticipant::_shutdown() {
    while (!_attendees.empty()) {
        const std::unique_ptr<ConferenceRosterEntry> entry(_attendees.front());
        _attendees.erase(_attendees.begin());
        ++_workings->listChanges;
        if (entry != nullptr && entry->descriptor() >= 0)
            shutdownSocket(entry->descriptor());
    }
}

} // namespace vintok
