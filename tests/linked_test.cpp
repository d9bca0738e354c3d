// Several hosts of one meeting, linked by a bus in memory that delivers in the turns of the loop.
#include "support/Party.h"
#include "support/TemporaryFolder.h"
#include "support/WirePeer.h"
#include "vintok/ConferenceLink.h"
#include "vintok/TCPGUID.h"
#include "vintok/TCPMessage.h"

#include <deque>
#include <gmock/gmock.h>

namespace vintok::test {
namespace {

class End;

struct Bus {
    Bus() { EXPECT_TRUE(select.setWakeCallback(deliver, this)); }
    static void deliver(void *bus);
    void post(std::function<void()> item) {
        items.push_back(std::move(item));
        select.wake();
    }

    TCPSelect select;
    std::deque<std::function<void()>> items;
    std::vector<End *> ends; // the first has authority
    unsigned short color = 0;
    bool ordered = false;
    bool room = true;
};

class End : public ConferenceLink {
public:
    End(Bus &wires, Party &party) : bus(wires), host(party) {}
    bool joins() {
        bus.ends.push_back(this);
        if (!LinkedMeeting::install(host.participant(), this))
            return false;
        for (const End *end : bus.ends) {
            if (end == this)
                continue;
            for (const auto &[address, entry] : end->here)
                EXPECT_TRUE(LinkedMeeting::entry(host.participant(), entry));
        }
        for (const End *end : bus.ends)
            LinkedMeeting::authorityChanged(end->host.participant());
        return true;
    }
    void leaves() {
        std::erase(bus.ends, this);
        EXPECT_TRUE(LinkedMeeting::install(host.participant(), nullptr));
        for (const auto &[address, entry] : here)
            toOthers(
                [entry = entry](ConferenceParticipant &to) { LinkedMeeting::left(to, entry); });
        bus.post([this] {
            for (End *end : bus.ends)
                LinkedMeeting::authorityChanged(end->host.participant());
        });
    }

    void entryChanged(const ConferenceRosterEntry &entry) override {
        here[entry.hostByteOrderPort()] = entry;
        toOthers([entry](ConferenceParticipant &to) { LinkedMeeting::entry(to, entry); });
    }
    void entryLeft(const TCPAddress &party) override {
        here.erase(party.hostByteOrderPort());
        toOthers([party](ConferenceParticipant &to) { LinkedMeeting::left(to, party); });
    }
    void say(const TCPAddress &speaker, const unsigned char *frames, std::size_t length) override {
        said += length;
        const std::vector<unsigned char> bytes(frames, frames + length);
        const auto takes = [=](ConferenceParticipant &to) {
            EXPECT_TRUE(LinkedMeeting::said(to, speaker, bytes.data(), bytes.size()));
        };
        toOthers(takes);
        if (bus.ordered)
            bus.post([this, takes] { takes(host.participant()); });
    }
    bool isOrdered() const override { return bus.ordered; }
    bool hasRoom() const override { return bus.room; }
    bool sendTo(const TCPAddress &party, const TCPAddress &sender, const unsigned char *frame,
                std::size_t length) override {
        const std::vector<unsigned char> bytes(frame, frame + length);
        toOthers([=](ConferenceParticipant &to) {
            LinkedMeeting::message(to, party, sender, bytes.data(), bytes.size());
        });
        return true;
    }
    bool sendToAuthority(const TCPAddress &sender, const unsigned char *frame,
                         std::size_t length) override {
        return sendTo(bus.ends.front()->host->address(), sender, frame, length);
    }
    bool hasAuthority() const override { return bus.ends.front() == this; }
    void leaderChanged(const TCPAddress &leader) override {
        if (hasAuthority())
            toOthers([leader](ConferenceParticipant &to) { LinkedMeeting::leader(to, leader); });
    }
    unsigned short takeColor() override { return bus.color++; }
    void meetingEnded() override {
        here.clear();
        ended = true;
    }

    Bus &bus;
    Party &host;
    std::map<unsigned short, ConferenceRosterEntry> here;
    std::size_t said = 0;
    bool ended = false;

private:
    void toOthers(const std::function<void(ConferenceParticipant &)> &does) {
        for (End *end : bus.ends)
            if (end != this)
                bus.post([=] { does(end->host.participant()); });
    }
};

void Bus::deliver(void *bus) {
    auto &items = static_cast<Bus *>(bus)->items;
    while (!items.empty()) {
        const auto item = std::move(items.front());
        items.pop_front();
        item();
    }
}

std::string text(const unsigned char *data, std::uint64_t length) {
    return std::string(reinterpret_cast<const char *>(data), static_cast<std::size_t>(length));
}

void onSaid(ConferenceParticipant *, const ConferenceRosterEntry *speaker,
            const unsigned char *data, std::uint64_t length, void *party) {
    static_cast<Party *>(party)->note("said", (speaker != nullptr ? speaker->firstName() : "?") +
                                                  ": " + text(data, length));
}

void onPrivate(ConferenceParticipant *, const ConferenceRosterEntry &speaker,
               const unsigned char *data, std::uint64_t length, void *party) {
    static_cast<Party *>(party)->note("private", speaker.firstName() + ": " + text(data, length));
}

void onDelivery(ConferenceParticipant *, std::uint32_t, const TCPAddress &, bool taken, void *me) {
    static_cast<Party *>(me)->note("delivery", taken ? "taken" : "lost");
}

bool onMessage(ConferenceParticipant *self, const ConferenceRosterEntry &from, TCPMessage &message,
               void *) {
    static_cast<Party *>(self->userData())
        ->note("own", from.firstName() + ": " +
                          text(message.messageBuffer(), message.messageBufferLength()));
    return true;
}

// Ann and Bea host; Al and Ada are Ann's members, Bob and Bud are Bea's.
class Linked : public testing::Test {
protected:
    Linked() {
        for (Party *party : everybody) {
            (*party)->setUserData(party);
            (*party)->setSaidCB(onSaid);
            (*party)->setPrivateDataCB(onPrivate);
            (*party)->setDeliveryCB(onDelivery);
            (*party)->setMessageCB(onMessage);
            (*party)->setMembersOnly(true);
        }
        EXPECT_TRUE(ann.hosts("Links") && bea.hosts("Links"));
        EXPECT_TRUE(ann.meets(al));
        EXPECT_TRUE(annsEnd.joins() && beasEnd.joins());
        EXPECT_TRUE(bob.meets(bea) && ada.meets(ann) && bud.meets(bea));
        for (Party *party : everybody)
            EXPECT_TRUE(seesAll(*party))
                << party->name() << " sees " << testing::PrintToString(party->roster());
    }
    // The roster of a meeting with one host could not look different.
    testing::AssertionResult seesAll(Party &party) {
        return meeting.until(
            [&] {
                const Roster roster = party.roster();
                std::set<int> colors = {party->colorIndex()};
                for (const auto &[name, color] : roster)
                    colors.insert(color);
                return roster.size() == present - 1 && colors.size() == present &&
                       colors.count(65535) == 0;
            },
            "everybody, in different colours");
    }
    testing::AssertionResult allAreTold(const std::string &event, const Party *but) {
        for (Party *party : everybody)
            if (party != but)
                if (const auto told = party->isTold(event); !told)
                    return told;
        return testing::AssertionSuccess();
    }
    // As the hosts and they themselves see it; of others a member has what the roster said.
    testing::AssertionResult leads(const Party &leader) {
        for (Party *party : everybody)
            if (const auto knows =
                    meeting.until([&] { return (*party)->isLeader() == (party == &leader); },
                                  party->name() + " knows whether to lead");
                !knows)
                return knows;
        for (Party *host : {&ann, &bea})
            if (const auto *entry = (*host)->party(leader->address());
                entry == nullptr || !entry->isLeader())
                return testing::AssertionFailure() << host->name() << " does not know who leads";
        return testing::AssertionSuccess();
    }

    Meeting meeting;
    Bus bus;
    Party ann{meeting, "Ann"}, al{meeting, "Al"}, ada{meeting, "Ada"};
    Party bea{meeting, "Bea"}, bob{meeting, "Bob"}, bud{meeting, "Bud"};
    std::vector<Party *> everybody = {&ann, &al, &ada, &bea, &bob, &bud};
    std::size_t present = everybody.size();
    End annsEnd{bus, ann}, beasEnd{bus, bea};
};

TEST_F(Linked, WhoComesGoesAndChangesIsSeenEverywhere) {
    bob->setLastName("Builder");
    EXPECT_TRUE(bob->sendRoster());
    ASSERT_TRUE(bea.isTold("user Bob"));
    EXPECT_TRUE(bea->sendRoster());
    EXPECT_TRUE(meeting.until(
        [&] {
            const auto *entry = al->party(bob->address());
            return entry != nullptr && entry->lastName() == "Builder";
        },
        "the new name"));
    EXPECT_FALSE(al->party(bea->address())->isHost()) << "a member has one host";
    bud.leaves();
    EXPECT_TRUE(ada.isTold("leave Bud") && ann.isTold("leave Bud"));
    everybody.pop_back();
    present = 5;
    bob.leaves();
    EXPECT_TRUE(al.isTold("leave Bob"));
    EXPECT_TRUE(bea->isMeeting()) << "the last member has gone, and the meeting goes on";
    beasEnd.leaves();
    EXPECT_TRUE(al.isTold("leave Bea") && ann.sees({{"Al", 1}, {"Ada", 4}}));
    EXPECT_TRUE(bea.sees({}));
    ann.leaves();
    EXPECT_TRUE(annsEnd.ended);
    EXPECT_TRUE(beasEnd.joins() && ann.hosts("Anew") && bea.sees({{"Ann", ann->colorIndex()}}));
    EXPECT_NE(ann->colorIndex(), bea->colorIndex());
}

TEST_F(Linked, WhatIsSaidIsHeardEverywhereOnceAndInOrder) {
    for (Party *speaker : everybody) {
        SCOPED_TRACE(speaker->name());
        for (Party *party : everybody)
            party->forgets();
        for (const char *word : {"1", "2", "3"})
            EXPECT_TRUE(speaker->says(word));
        const std::string name = "said " + speaker->name() + ": ";
        EXPECT_TRUE(allAreTold(name + "3", speaker));
        for (Party *party : everybody) {
            std::vector<std::string> heard;
            for (const std::string &event : party->events)
                if (event.rfind("said ", 0) == 0)
                    heard.push_back(event);
            EXPECT_EQ(party == speaker
                          ? std::vector<std::string>()
                          : std::vector<std::string>({name + "1", name + "2", name + "3"}),
                      heard);
        }
    }
    const unsigned char byte[] = {'x'};
    EXPECT_TRUE(bob->sendMessage(TCP_messageID_60, byte, 1));
    EXPECT_TRUE(ann.isTold("own Bob: x") && al.isTold("own Ann: x") && bud.isTold("own Bea: x"));
    for (Party *from : {&bea, &bob})
        for (Party *to : {&ann, &al}) {
            EXPECT_NE(0u, (*from)->sendPrivateData((*to)->address(), byte, 1));
            EXPECT_TRUE(to->isTold("private " + from->name() + ": x"));
            EXPECT_TRUE(from->isTold("delivery taken"));
            EXPECT_EQ(0, ada.told("private " + from->name() + ": x"));
            from->forgets();
        }
}

TEST_F(Linked, TheLeadGoesThroughTheHostWithAuthority) {
    EXPECT_TRUE(leads(ann));
    Party *const takers[] = {&bob, &al, &bea, &bud, &ada, &ann, &bea};
    for (Party *taker : takers) {
        SCOPED_TRACE(taker->name());
        EXPECT_TRUE((*taker)->requestStartLeading());
        EXPECT_TRUE(leads(*taker));
    }
    bea.decidesOnLead();
    EXPECT_TRUE(al->requestStartLeading());
    EXPECT_TRUE(bea.isTold("leadRequest Al"));
    EXPECT_TRUE(bob->requestStartLeading()) << "while another question is open";
    EXPECT_TRUE(bob.isTold("leadReply 0"));
    EXPECT_TRUE(bea->rejectLeadChange());
    EXPECT_TRUE(al.isTold("leadReply 0") && leads(bea));
    annsEnd.leaves();
    EXPECT_TRUE(ann.isTold("leader Ann")) << "alone by itself";
    EXPECT_TRUE(beasEnd.hasAuthority() && bud->requestStartLeading());
    EXPECT_TRUE(bea.isTold("leadRequest Bud") && bea->acceptLeadChange());
    EXPECT_TRUE(bud.isTold("leadReply 1") || bud.isTold("leader Bud"));
    bud.leaves();
    EXPECT_TRUE(bea.isTold("leader Bea"));
}

TEST_F(Linked, AFileReachesEveryHostAndCanBeRefused) {
    TemporaryFolder folder;
    const std::string content(300000, 'f');
    const std::string path = folder.holding("sent", content);
    for (Party *party : everybody)
        (*party)->setFileFolder(folder.path(party->name()));
    for (Party *sender : {&bob, &ann}) {
        SCOPED_TRACE(sender->name());
        EXPECT_NE(0u, (*sender)->startFile(path, sender->name() + ".bin"));
        EXPECT_TRUE(allAreTold("file whole", sender));
        for (Party *party : everybody) {
            if (party == sender)
                continue;
            EXPECT_EQ(content, contentOf(party->files.back().path));
            party->forgets();
        }
    }
    bob->setFileRefusedCB(
        [](ConferenceParticipant *, std::uint32_t, const ConferenceRosterEntry &by, void *me) {
            static_cast<Party *>(me)->note("refused", by.firstName());
        });
    ada->setFileProgressCB([](ConferenceParticipant *me, const TCPAddress &origin, std::uint64_t,
                              std::uint64_t, const std::string &) { me->refuseFile(origin); });
    EXPECT_NE(0u, bob->startFile(folder.holding("long", std::string(4000000, 'l')), "long"));
    EXPECT_TRUE(bob.isTold("refused Ada") && al.isTold("file whole"));
}

TEST_F(Linked, WithOneOrderEverybodyHearsTheSame) {
    bus.ordered = true;
    for (int round = 0; round < 20; ++round)
        for (Party *speaker : everybody)
            EXPECT_TRUE(speaker->says(std::to_string(round)));
    const auto sequence = [](const Party &party, const std::string &without) {
        std::vector<std::string> all;
        for (const std::string &event : party.events)
            if (event.rfind("said ", 0) == 0 && event.rfind("said " + without, 0) != 0)
                all.push_back(event);
        return all;
    };
    for (Party *party : everybody)
        EXPECT_TRUE(meeting.until([&] { return sequence(*party, "nobody").size() == 100; }, "all"));
    EXPECT_EQ(sequence(ann, "Bea"), sequence(bea, "Ann"));
    EXPECT_EQ(sequence(al, "Bob"), sequence(bob, "Al"));
    EXPECT_TRUE(bob.says("goodbye"));
    bob.leaves(); // before its word has come back
    EXPECT_TRUE(bea.isTold("said Bob: goodbye") && bud.hears("goodbye") && al.hears("goodbye"));
}

TEST_F(Linked, WhoTalksTooFastForTheLinkIsReadNoFurther) {
    bus.room = false;
    const std::string line(60000, 'x');
    std::size_t talked = 0;
    al->setSlowMemberLimits({}); // does not block for its host, which stops reading
    for (; talked < 40; ++talked) {
        ASSERT_TRUE(al.says(line));
        meeting.turn();
    }
    EXPECT_LT(annsEnd.said, 20 * line.size());
    EXPECT_TRUE(ada.says("all the same") && ann.hears("all the same"));
    bus.room = true;
    EXPECT_TRUE(meeting.until([&] { return bob.told("data " + line) == 40; }, "all of it"));
}

TEST_F(Linked, ACallerIsSentToAnotherHost) {
    ann.screensCalls();
    Party cid(meeting, "Cid"), dan(meeting, "Dan");
    cid.decidesOnRedirects();
    for (Party *caller : {&cid, &dan}) {
        ASSERT_TRUE((*caller)->placeCall(ann.ip(), ann.port(), "", 0, "", "", 3));
        ASSERT_TRUE(ann.isTold("pending " + caller->name()));
        EXPECT_TRUE(
            LinkedMeeting::redirect(ann.participant(), (*caller)->address(), "b.example", 4711));
    }
    EXPECT_TRUE(cid.isTold("redirect b.example:4711"));
    EXPECT_TRUE(dan.isTold("rejected Ann")) << "an application that does not ask goes nowhere";
    EXPECT_FALSE(LinkedMeeting::redirect(ann.participant(), bob->address(), "b", 1));
}

TEST_F(Linked, WhatDoesNotBelongThereIsNotTaken) {
    ConferenceParticipant &host = ann.participant();
    const auto says = [&](const TCPAddress &speaker, const WireFrame &frame, std::size_t but = 0) {
        const Bytes bytes = frame.encode();
        return LinkedMeeting::said(host, speaker, bytes.data(), bytes.size() - but);
    };
    const WireFrame word = {.id = id::broadcast, .body = {'w'}};
    EXPECT_FALSE(LinkedMeeting::install(al.participant(), &annsEnd)) << "not a host";
    for (const Party *party : {&ann, &al})
        EXPECT_FALSE(LinkedMeeting::entry(host, (*party)->ownEntry())) << "is connected here";
    EXPECT_FALSE(LinkedMeeting::left(host, al->address()));
    EXPECT_FALSE(says(TCPAddress(), word)) << "nobody";
    EXPECT_FALSE(says(bob->address(), word, 1)) << "cut short";
    EXPECT_TRUE(says(bob->address(), {.id = id::hangup, .body = {0}})) << "passed over";
    EXPECT_TRUE(says(bob->address(), {.id = id::rosterReply, .body = {0}}));
    const Bytes goodbye = WireFrame{.id = id::hangup, .body = {0}}.encode();
    EXPECT_FALSE(LinkedMeeting::message(host, al->address(), bob->address(), goodbye.data(),
                                        goodbye.size()));
    EXPECT_TRUE(says(bob->address(), word) && al.hears("w"));
    const auto again = [&](const Party &member, const Bytes &bytes) {
        return LinkedMeeting::saidTo(host, member->address(), bytes.data(), bytes.size());
    };
    EXPECT_TRUE(again(al, WireFrame{.id = id::broadcast, .body = {'l'}}.encode()) && al.hears("l"));
    EXPECT_FALSE(again(bob, word.encode()) || again(al, goodbye));
    EXPECT_EQ(0, ada.told("data l"));
    EXPECT_EQ(5u, al.roster().size());
}

} // namespace
} // namespace vintok::test
