// How two connected parties become one meeting.
//
// The called party speaks first: its hello, a TCP_rosterEntry. The caller answers with its own,
// sees to it that one of the two hosts (`_ensureHost`), and asks to join. The called party's
// application accepts or refuses; TCP_joinReply says so. From the reply on both are members of each
// other: the host gives a colour and sends the roster, the other asks for it.
//
// Where others call in the same moment ConferenceParticipantCrossing.cpp decides who joins whom.
//
// Both sides decide about the secure transport by the same rule on the same bits, the called side
// as it accepts, the calling side as it hears of it. What follows may have to wait until the
// handshake is over (`SecureStep::underWay`).
//
// Any callback may hang up. Each step asks whether the peer is still listed, and once it is not,
// nothing of the join is finished: what `hangup` has cleared stays cleared.
#include "vintok/ConferenceParticipantWorkings.h"

#include "vintok/ConferenceParticipantMessages.h"
#include "vintok/Log.h"
#include "vintok/StreamInternal.h"
#include "vintok/TCPGUID.h"
#include "vintok/TCPMessage.h"
#include "vintok/TCPMessage_1_3.h"
#include "vintok/TCPStream.h"

namespace vintok {

// ---- The hello ----

bool ConferenceParticipant::mf_sendMe(int descriptor, bool proxyConnection, bool oldForm) {
    TCPMessage current(descriptor);
    TCPMessage_1_3 old(descriptor); // the form that every version can read
    TCPMessageBase &message = oldForm ? static_cast<TCPMessageBase &>(old) : current;
    if (!openMessage(message, TCP_rosterEntry, _self.size())) {
        VINTOK_LOG(SEVERITY_ERROR, "mf_sendMe allocate message failed");
        return false;
    }
    _self.setProxyConnection(proxyConnection);
    const bool sent = _self.write(message.messageBuffer(), message.messageBufferLength()) != 0 &&
                      message.write(-1, nullptr);
    _self.setProxyConnection(false);
    if (sent)
        VINTOK_LOG(SEVERITY_TRACE, "mf_sendMe succeeded");
    else
        VINTOK_LOG(SEVERITY_ERROR, "mf_sendMe write failed");
    return sent;
}

bool ConferenceParticipant::_sendMe(ConferenceRosterEntry *peer) {
    if (!_isListed(peer))
        return false;
    peer->m_toldHost = peer->m_toldHost || _self.isHost();
    return mf_sendMe(peer->descriptor(), peer->isProxy(), false);
}

// ---- The calling side, up to the request ----

// The called party has said hello.
void ConferenceParticipant::_completeCall(ConferenceRosterEntry *peer, TempRosterEntry *pending) {
    if (!_isListed(peer) || !_isListed(pending) || Joining::startJoin(*this, peer, pending))
        return;
    if (_isListed(pending))
        _removePending(pending);
    Ending::dismiss(*this, peer);
}

// False when the call has come to its end.
bool ConferenceParticipant::Joining::startJoin(ConferenceParticipant &owner,
                                               ConferenceRosterEntry *peer,
                                               TempRosterEntry *pending) {
    if (!owner._sendMe(peer))
        return false;
    if (!owner._ensureHost(peer)) {
        if (owner._busyCB != nullptr)
            owner._busyCB(&owner, pending->remoteName(), *peer);
        return false;
    }
    if (!owner._isListed(peer))
        return false;
    const bool allowed = owner._preJoin(peer);
    if (!owner._isListed(peer))
        return false;
    if (allowed) {
        if (!owner._sendJoinRequest(peer))
            return false;
        Guards::callRings(owner, peer->descriptor());
        if (owner._ringingCB != nullptr)
            owner._ringingCB(&owner, pending->remoteName(), *peer);
        VINTOK_LOG(SEVERITY_TRACE, "_completeCall send join OK");
        return true;
    }
    pending->m_callOutcome = OUTCOME_COMPLETING;
    if (owner._ringingCB != nullptr)
        owner._ringingCB(&owner, pending->remoteName(), *peer); // before the refusal, deliberately
    if (owner._rejectedCB != nullptr && owner._isListed(peer)) {
        pending->m_callOutcome = OUTCOME_REFUSED;
        owner._rejectedCB(&owner, pending->remoteName(), *peer);
    }
    return false;
}

// Decides who hosts. The caller does when nobody hosts yet; nobody is called who attends another
// meeting.
bool ConferenceParticipant::_ensureHost(ConferenceRosterEntry *peer) {
    if (peer == nullptr)
        return false;
    if (peer->isMeeting()) {
        if (!peer->isHost()) {
            VINTOK_LOG(SEVERITY_ERROR, "_ensureHost peer is in meeting and not host");
            return false;
        }
        if (Crossing::hostsNobody(*this) && Crossing::hasOthers(*this, peer) && _self < *peer) {
            VINTOK_LOG(SEVERITY_TRACE, "_ensureHost me hosting meeting OK");
            peer->setMeeting(false); // it is asked to step aside
            peer->setHost(false);
            peer->setLeader(false);
            return true;
        }
        if (Crossing::hostsNobody(*this))
            Crossing::stepAside(*this, peer);
        if (_self.isMeeting()) {
            VINTOK_LOG(SEVERITY_ERROR, "_ensureHost peer host and me in meeting");
            return false;
        }
        VINTOK_LOG(SEVERITY_TRACE, "_ensureHost peer hosting meeting OK");
        return true;
    }
    if (_self.isHost()) {
        VINTOK_LOG(SEVERITY_TRACE, "_ensureHost me hosting meeting OK");
        return true;
    }
    if (_self.isMeeting()) {
        VINTOK_LOG(SEVERITY_ERROR, "_ensureHost in meeting not host placing call");
        return false;
    }
    VINTOK_LOG(SEVERITY_TRACE, "_ensureHost no host so starting meeting OK");
    _workings->hostsByCall = hostMeeting(std::string());
    return _workings->hostsByCall;
}

// Guards the hiding of addresses. Run by both sides.
bool ConferenceParticipant::_preJoin(ConferenceRosterEntry *peer) {
    if (peer == nullptr)
        return false;
    if (_self.isHidingIPsRequired())
        return checkVersion(*peer, ConfServiceHideIP);
    if (!peer->isHidingIPsRequired())
        return true;
    for (const ConferenceRosterEntry *entry : _attendees)
        if (entry != nullptr && entry != peer && !(*entry == *peer))
            return false; // has seen addresses already
    _self.setHidingIPsRequired(true);
    Security::tellSecurity(*this, &ConfSecurityOptions::hideIP);
    return true;
}

bool ConferenceParticipant::_sendJoinRequest(ConferenceRosterEntry *peer) {
    if (peer == nullptr)
        return false;
    TCPMessage message(peer->descriptor());
    return openMessage(message, TCP_joinRequest, _self) && message.write(-1, nullptr);
}

// ---- The called side ----

void ConferenceParticipant::_handleJoinRequest(ConferenceRosterEntry *peer, unsigned char *body,
                                               std::uint64_t length) {
    if (!_isListed(peer) || !Guards::takesEntry(*this, peer, length))
        return;
    ConferenceRosterEntry request(peer->descriptor());
    if (request.read(body, length) == 0 || peer->doBroadcast())
        return;
    if (!(request == *peer))
        return; // not whom the hello announced
    MembersOnly::believe(*this, request, *peer);
    const unsigned short major = peer->majorVersion();
    const unsigned short minor = peer->minorVersion();
    takeEntry(*peer, request);
    peer->setDoBroadcast(false);
    peer->setJoinPending(true);
    peer->setMajorVersion(major); // the header's counts, not what the body claims
    peer->setMinorVersion(minor);
    if (!Guards::waitsForItsTurn(*this, peer))
        Joining::decide(*this, peer);
}

// Who has asked to join is refused, let in, or left to the application.
void ConferenceParticipant::Joining::decide(ConferenceParticipant &owner,
                                            ConferenceRosterEntry *peer) {
    if (!Crossing::isAdmitted(owner, peer))
        return;
    if (Guards::isFull(owner) || !owner._preJoin(peer)) {
        owner.mf_rejectCall(peer);
        return;
    }
    if (!owner._isListed(peer))
        return;
    if (owner._self.isHost())
        Roster::giveColor(owner, peer);
    if (owner._callPendingCB != nullptr)
        owner._callPendingCB(&owner, *peer);
    else
        owner.mf_acceptCall(peer);
}

bool ConferenceParticipant::mf_acceptCall(ConferenceRosterEntry *peer) {
    if (!_isListed(peer) || !peer->isJoinPending() ||
        Handshakes::isUnderWay(*this, peer->descriptor()) || !Crossing::isAdmitted(*this, peer))
        return false;
    if (_self.isHost() && peer->isHost())
        Crossing::stepAside(*this, peer);
    if (!_isListed(peer))
        return false;
    const int descriptor = peer->descriptor();
    if (!sendByte(descriptor, TCP_joinReply, 1))
        return false;
    const SecureStep secure = Joining::acceptSecurely(*this, peer);
    return secure.underWay || Joining::completeAccept(*this, peer, secure);
}

// Once the connection is what it will stay.
bool ConferenceParticipant::Joining::completeAccept(ConferenceParticipant &owner,
                                                    ConferenceRosterEntry *peer,
                                                    const SecureStep &secure) {
    VINTOK_LOG(SEVERITY_DEBUG,
               formatText("Accepted Call fd = %d ssl = %s hangup = %s", peer->descriptor(),
                          boolText(secure.wanted), boolText(secure.failed)));
    if (secure.failed || !owner._isListed(peer)) {
        owner.mf_hangup(peer);
        return false;
    }
    owner._printSSLInfo(peer, secure.wanted, secure.multiplexed);
    peer->setJoinPending(false);
    admit(owner, peer, false);
    if (!owner._self.isMeeting()) {
        owner._self.setMeeting(true);
        owner._self.setMeetingName(peer->meetingName());
        owner._tell(owner._userDataCB, owner._self);
    }
    if (owner._isListed(peer))
        Crossing::endCrossing(owner, peer);
    if (owner._isListed(peer))
        owner._tell(owner._joinCB, *peer);
    if (!owner._isListed(peer))
        return false;
    welcome(owner, peer);
    return true;
}

// The fresh member gets the roster, or is asked for it.
void ConferenceParticipant::Joining::welcome(ConferenceParticipant &owner,
                                             ConferenceRosterEntry *peer) {
    if (owner._self.isHost()) {
        owner._assureLeader();
        owner._sendRoster(nullptr);
        return;
    }
    if (peer->isLeader())
        owner._tell(owner._leadChangeCB, *peer);
    if (!owner._isListed(peer))
        return;
    Clock::ask(peer);
    owner._requestRoster(peer);
}

bool ConferenceParticipant::mf_rejectCall(ConferenceRosterEntry *peer) {
    if (!_isListed(peer) || !peer->isJoinPending())
        return false;
    if (Handshakes::isUnderWay(*this, peer->descriptor()))
        return mf_hangup(peer); // it was told already that it is accepted
    if (!sendByte(peer->descriptor(), TCP_joinReply, 0))
        return false;
    peer->setJoinPending(false);
    peer->setDoBroadcast(false);
    mf_hangup(peer);
    return true;
}

// ---- The calling side, from the reply on ----

void ConferenceParticipant::_handleJoinReply(ConferenceRosterEntry *peer, unsigned char *body,
                                             std::uint64_t length) {
    TempRosterEntry *pending = _isListed(peer) ? _getPending(peer->descriptor()) : nullptr;
    if (pending == nullptr)
        return;
    bool hangsUp = false;
    if (body != nullptr && length == 1) {
        if (body[0] != 0 && Joining::meetsAnotherHost(*this, peer, *pending)) {
            hangsUp = true;
        } else if (body[0] != 0) {
            const SecureStep secure = Joining::connectSecurely(*this, peer);
            if (secure.underWay)
                return;
            hangsUp = Joining::callAccepted(*this, peer, *pending, secure);
        } else {
            hangsUp = true;
            if (_rejectedCB != nullptr) {
                pending->m_callOutcome = OUTCOME_REFUSED;
                _rejectedCB(this, pending->remoteName(), *peer);
            }
        }
    }
    Joining::endReply(*this, peer, pending, hangsUp);
}

void ConferenceParticipant::Joining::endReply(ConferenceParticipant &owner,
                                              ConferenceRosterEntry *peer, TempRosterEntry *pending,
                                              bool hangsUp) {
    owner._assureLeader(); // also after a refusal: the caller hosts by now
    if (owner._isListed(pending))
        owner._removePending(pending);
    if (hangsUp)
        owner.mf_hangup(peer);
}

// Another was faster.
bool ConferenceParticipant::Joining::meetsAnotherHost(ConferenceParticipant &owner,
                                                      const ConferenceRosterEntry *peer,
                                                      const TempRosterEntry &call) {
    if (owner._self.isHost() || owner._getHost() == nullptr)
        return false;
    if (owner._busyCB != nullptr)
        owner._busyCB(&owner, call.remoteName(), *peer);
    return true;
}

// True when the connection is to be hung up after all. The join is completed first, deliberately:
// the application sees a party join whose secure handshake has failed.
bool ConferenceParticipant::Joining::callAccepted(ConferenceParticipant &owner,
                                                  ConferenceRosterEntry *peer,
                                                  const TempRosterEntry &call,
                                                  const SecureStep &secure) {
    const int descriptor = peer->descriptor();
    VINTOK_LOG(SEVERITY_DEBUG, formatText("Handle fd = %d ssl = %s  hangup = %s", descriptor,
                                          boolText(secure.wanted), boolText(secure.failed)));
    if (owner._self.isHost()) {
        Roster::giveColor(owner, peer);
    } else {
        owner._self.setMeetingName(peer->meetingName());
        Clock::ask(peer);
    }
    if (owner._acceptedCB != nullptr)
        owner._acceptedCB(&owner, call.remoteName(), *peer);
    if (!owner._isListed(peer))
        return false;
    admit(owner, peer, true);
    owner._self.setMeeting(true);
    Crossing::endCrossing(owner, peer);
    if (owner._isListed(peer))
        owner._tell(owner._joinCB, *peer);
    if (!owner._isListed(peer))
        return false;
    if (owner._self.isHost())
        owner._sendRoster(nullptr);
    else if (peer->isLeader())
        owner._tell(owner._leadChangeCB, *peer);
    owner._requestRoster(peer);
    return secure.failed;
}

// From now on the party is a member, and its connection what it will stay: plain or secure.
void ConferenceParticipant::Joining::admit(ConferenceParticipant &owner,
                                           ConferenceRosterEntry *peer, bool called) {
    Relaying::closeRelay(owner); // what was said before is not for it
    Linking::joins(owner, *peer);
    MembersOnly::settle(owner, peer, called);
    peer->setDoBroadcast(true);
    readAhead(peer->descriptor());
    Guards::joined(owner, *peer);
}

// ---- The secure transport ----

bool ConferenceParticipant::Joining::wantsSecure(const ConferenceParticipant &owner,
                                                 const ConferenceRosterEntry *peer) {
    return owner._self.isSecureRequired() || peer->isSecureRequired() ||
           peer->isSecurePreferred() || owner._self.isSecurePreferred();
}

ConferenceParticipant::SecureStep
ConferenceParticipant::Joining::acceptSecurely(ConferenceParticipant &owner,
                                               ConferenceRosterEntry *peer) {
    SecureStep step;
    step.multiplexed = peer->isMUXEncrypt();
    step.wanted = !step.multiplexed && wantsSecure(owner, peer);
    if (!step.wanted)
        return step;
    const auto end = [peer, step](Shaken how) {
        constexpr const char *failure = "acceptCall Secure Accept Failed";
        return endStep(peer, step, how, failure);
    };
    return end(Handshakes::beginJoin(
        owner, *peer, Handshakes::Side::accepts, [&owner, peer, end](Shaken how) {
            // Meanwhile another may have become the host here.
            SecureStep secure = end(how);
            secure.failed = secure.failed || Crossing::admission(owner, peer) != Admission::granted;
            completeAccept(owner, peer, secure);
        }));
}

ConferenceParticipant::SecureStep
ConferenceParticipant::Joining::endStep(ConferenceRosterEntry *peer, SecureStep step, Shaken how,
                                        const char *failure) {
    step.underWay = how == Shaken::underWay;
    step.failed = !step.underWay && how != Shaken::secure;
    if (step.failed)
        VINTOK_LOG(SEVERITY_ERROR, failure);
    else if (!step.underWay)
        peer->setSecure(true);
    return step;
}

ConferenceParticipant::SecureStep
ConferenceParticipant::Joining::connectSecurely(ConferenceParticipant &owner,
                                                ConferenceRosterEntry *peer) {
    SecureStep step;
    step.multiplexed =
        peer->majorVersion() >= 3 && peer->isMUXEncrypt() && owner._self.isMUXEncrypt();
    step.wanted = !step.multiplexed && wantsSecure(owner, peer);
    if (!step.wanted)
        return step;
    const DescriptorState state(peer->descriptor());
    if (!state.known) {
        VINTOK_LOG(SEVERITY_ERROR, "_handleJoinReply vintok::descriptorState failed");
        step.failed = true;
    } else if (!state.secure) {
        const auto end = [peer, step](Shaken how) {
            constexpr const char *failure = "_handleJoinReply vintok::secureConnect failed";
            return endStep(peer, step, how, failure);
        };
        return end(Handshakes::beginJoin(
            owner, *peer, Handshakes::Side::connects, [&owner, peer, end](Shaken how) {
                const SecureStep secure = end(how);
                if (TempRosterEntry *call = owner._getPending(peer->descriptor()))
                    endReply(owner, peer, call,
                             meetsAnotherHost(owner, peer, *call) ||
                                 callAccepted(owner, peer, *call, secure));
            }));
    }
    return step;
}

} // namespace vintok
