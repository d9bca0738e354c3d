// Handshakes of a secure channel that go on in the background of the loop.
//
// Meanwhile the connection belongs to nobody but its handshake: it has no buffers and no callback
// in the loop, so nothing of it is dispatched, and nothing can be said to its peer. The loop calls
// the transport when the socket is ready or a time is over. Then whoever began the handshake goes
// on, or is told nothing when the connection was dropped meanwhile.
#include "vintok/ConferenceParticipantWorkings.h"

#include "vintok/StreamInternal.h"
#include "vintok/StreamLoop.h"
#include "vintok/TCPSelect.h"
#include "vintok/TCPStream.h"

#include <algorithm>
#include <chrono>

namespace vintok {

using Progress = TCPBackgroundTransport::Progress;

void ConferenceParticipant::setBackgroundHandshakes(bool on) {
    _workings->guards.backgroundHandshakes = on;
}

ConferenceParticipant::Shaken
ConferenceParticipant::Handshakes::begin(ConferenceParticipant &owner, int descriptor, Side side,
                                         Next next, const TempRosterEntry *call) {
    const bool accepts = side == Side::accepts;
    const std::string name =
        call != nullptr && call->m_isStarted ? call->remoteName() : std::string();
    if (!owner._workings->guards.backgroundHandshakes || backgroundTransport() == nullptr) {
        const bool done = accepts ? secureAccept(descriptor) : secureConnect(descriptor, name);
        return done ? Shaken::secure : Shaken::plain;
    }
    const TCPBackgroundTransport::Step step = beginHandshake(descriptor, accepts, name);
    if (!vintok::isUnderWay(step.progress))
        return result(step.progress);
    owner._workings->handshakes.push_back({descriptor, call, std::move(next)});
    await(owner, descriptor, step);
    return Shaken::underWay;
}

ConferenceParticipant::Shaken ConferenceParticipant::Handshakes::result(Progress progress) {
    return progress == Progress::done    ? Shaken::secure
           : progress == Progress::plain ? Shaken::plain
                                         : Shaken::failed;
}

void ConferenceParticipant::Handshakes::await(ConferenceParticipant &owner, int descriptor,
                                              const TCPBackgroundTransport::Step &step) {
    const std::shared_ptr<StreamLoop> loop = StreamLoop::ofThisThread();
    if (step.progress == Progress::waitsToRead)
        loop->await(descriptor, platform::Await::readable, goOn, &owner);
    else if (step.progress == Progress::waitsToWrite)
        loop->await(descriptor, platform::Await::writable, goOn, &owner);
    if (step.milliseconds != 0)
        loop->deadlines().set(descriptor, goOn, &owner,
                              std::chrono::milliseconds(step.milliseconds));
}

// The socket is ready, or the time is over.
void ConferenceParticipant::Handshakes::goOn(int descriptor, void *data) {
    auto &owner = *static_cast<ConferenceParticipant *>(data);
    const Operation operation(owner);
    std::vector<Handshake> &all = owner._workings->handshakes;
    const auto found = std::find_if(all.begin(), all.end(), [=](const Handshake &handshake) {
        return handshake.descriptor == descriptor;
    });
    if (found == all.end())
        return;
    stopWaiting(owner, descriptor);
    const TCPBackgroundTransport::Step step = continueHandshake(descriptor);
    if (vintok::isUnderWay(step.progress))
        return await(owner, descriptor, step);
    const Next next = std::move(found->next);
    all.erase(found);
    next(result(step.progress));
}

void ConferenceParticipant::Handshakes::stopWaiting(ConferenceParticipant &owner, int descriptor) {
    const std::shared_ptr<StreamLoop> loop = StreamLoop::ofThisThread();
    loop->forget(descriptor);
    loop->deadlines().clear(descriptor, goOn, &owner);
}

bool ConferenceParticipant::Handshakes::isUnderWay(const ConferenceParticipant &owner,
                                                   int descriptor) {
    const auto &all = owner._workings->handshakes;
    return std::any_of(all.begin(), all.end(), [=](const Handshake &handshake) {
        return handshake.descriptor == descriptor;
    });
}

// The connection is about to be closed. False when it has no handshake under way.
bool ConferenceParticipant::Handshakes::forget(ConferenceParticipant &owner, int descriptor) {
    return std::erase_if(
               owner._workings->handshakes,
               [&](const Handshake &handshake) {
                   if (handshake.descriptor != descriptor)
                       return false;
                   stopWaiting(owner, descriptor);
                   return true;
               }) != 0;
}

// A call that goes takes its connection along.
void ConferenceParticipant::Handshakes::forgetCall(ConferenceParticipant &owner,
                                                   const TempRosterEntry *call) {
    std::erase_if(
        owner._workings->handshakes,
        [&](const Handshake &handshake) {
            if (handshake.call != call)
                return false;
            stopWaiting(owner, handshake.descriptor);
            shutdownSocket(handshake.descriptor);
            return true;
        });
}

// The participant goes; those of its parties are shut down with them.
void ConferenceParticipant::Handshakes::forgetAll(ConferenceParticipant &owner) {
    const std::vector<Handshake> all = std::move(owner._workings->handshakes);
    owner._workings->handshakes.clear();
    for (const Handshake &handshake : all) {
        stopWaiting(owner, handshake.descriptor);
        if (owner._getPeer(handshake.descriptor) == nullptr)
            shutdownSocket(handshake.descriptor);
    }
}

// ---- Of a party that joins ----

ConferenceParticipant::Shaken ConferenceParticipant::Handshakes::beginJoin(
    ConferenceParticipant &owner, const ConferenceRosterEntry &peer, Side side, const Next &next) {
    const int descriptor = peer.descriptor();
    const Shaken begun = begin(owner, descriptor, side, [&owner, descriptor, next](Shaken how) {
        next(returnToLoop(owner, descriptor) ? how : Shaken::failed);
    });
    if (begun != Shaken::underWay)
        return begun;
    owner._select->removeCallback(descriptor, sf_dataCB, &owner);
    if (unbufferFrames(descriptor))
        return begun;
    forget(owner, descriptor);
    return Shaken::failed;
}

bool ConferenceParticipant::Handshakes::returnToLoop(ConferenceParticipant &owner, int descriptor) {
    return bufferFrames(descriptor) &&
           owner._select->addSocketCallback(descriptor, sf_dataCB, &owner, true, false);
}

std::size_t ConferenceParticipant::Handshakes::joining(const ConferenceParticipant &owner) {
    const auto &all = owner._workings->handshakes;
    return static_cast<std::size_t>(
        std::count_if(all.begin(), all.end(), [&](const Handshake &handshake) {
            const ConferenceRosterEntry *peer = owner._getPeer(handshake.descriptor);
            return peer != nullptr && peer->isJoinPending();
        }));
}

} // namespace vintok
