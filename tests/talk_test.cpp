// Who says what, messages to one party alone, and messages of the application's own.
#include "support/Party.h"
#include "support/WirePeer.h"
#include "vintok/TCPGUID.h"
#include "vintok/TCPMessage.h"

namespace vintok::test {
namespace {

constexpr unsigned char PRIVATE = 0x46;
constexpr unsigned char ANSWER = 0x47;

std::string text(const unsigned char *data, std::uint64_t length) {
    return std::string(reinterpret_cast<const char *>(data), static_cast<std::size_t>(length));
}

Party &of(void *userData) {
    return *static_cast<Party *>(userData);
}

void onSaid(ConferenceParticipant *, const ConferenceRosterEntry *speaker,
            const unsigned char *data, std::uint64_t length, void *userData) {
    of(userData).note("said", (speaker != nullptr ? speaker->firstName() : "somebody") + ": " +
                                  text(data, length));
}

void onPrivate(ConferenceParticipant *, const ConferenceRosterEntry &speaker,
               const unsigned char *data, std::uint64_t length, void *userData) {
    of(userData).note("private", speaker.firstName() + ": " + text(data, length));
}

void onDelivery(ConferenceParticipant *, std::uint32_t number, const TCPAddress &, bool taken,
                void *userData) {
    of(userData).note(taken ? "taken" : "lost", std::to_string(number));
}

bool onMessage(ConferenceParticipant *self, const ConferenceRosterEntry &neighbour,
               TCPMessage &message, void *) {
    of(self->userData())
        .note("own", neighbour.firstName() + ": " +
                         text(message.messageBuffer(), message.messageBufferLength()));
    return true;
}

// Ann hosts; Bob and Cid are members, and Dan is one of an older version.
class Talk : public testing::Test {
protected:
    Talk() {
        for (Party *party : {&ann, &bob, &cid}) {
            (*party)->setUserData(party);
            (*party)->setSaidCB(onSaid);
            (*party)->setPrivateDataCB(onPrivate);
            (*party)->setDeliveryCB(onDelivery);
            (*party)->setMessageCB(onMessage);
        }
        EXPECT_TRUE(ann.hosts("Talk"));
        EXPECT_TRUE(gather(ann, {&bob, &cid}));
        EXPECT_TRUE(dan.joins(ann.port()));
        EXPECT_TRUE(cid.isTold("join Dan"));
    }
    static std::string tells(Party &from, const TCPAddress &to) {
        const unsigned char word[] = {'x'};
        return std::to_string(from->sendPrivateData(to, word, sizeof(word)));
    }
    // As Dan would write it who claims to be somebody else.
    void forges(const WireAddress &origin, const WireAddress &party, unsigned char id,
                std::uint32_t number) {
        WireFrame frame = {.id = id, .origin = origin};
        WireWriter writer(frame.body);
        writer.number(number, 4);
        party.write(writer);
        writer.number(0, 1);
        EXPECT_TRUE(dan.sends(frame.encode()));
    }

    Meeting meeting;
    Party ann{meeting, "Ann"}, bob{meeting, "Bob"}, cid{meeting, "Cid"};
    WirePeer dan{meeting, "Dan"};
};

WireAddress onWire(const Party &party) {
    return WireAddress::ipv4(0x7F000001, party.port());
}

TEST_F(Talk, EachHearsWhoSpeaks) {
    EXPECT_TRUE(bob.says("one"));
    EXPECT_TRUE(ann.isTold("said Bob: one") && cid.isTold("said Bob: one"));
    EXPECT_TRUE(ann.says("two"));
    EXPECT_TRUE(bob.isTold("said Ann: two") && bob.hears("two"));
    EXPECT_TRUE(dan.sends(WireFrame{.id = id::broadcast, .body = {'3'}}.encode()));
    EXPECT_TRUE(ann.isTold("said Dan: 3") && cid.isTold("said somebody: 3"));
    bob->setSaidCB(nullptr);
    EXPECT_TRUE(bob.says("four"));
    EXPECT_TRUE(cid.isTold("said somebody: four"));
}

TEST_F(Talk, APrivateMessageReachesOnePartyAndItsSenderIsTold) {
    for (Party *from : {&ann, &bob, &cid})
        for (Party *to : {&ann, &bob, &cid}) {
            if (from == to)
                continue;
            SCOPED_TRACE(from->name() + " to " + to->name());
            const std::string number = tells(*from, (*to)->address());
            EXPECT_TRUE(to->isTold("private " + from->name() + ": x"));
            EXPECT_TRUE(from->isTold("taken " + number));
            EXPECT_EQ(1, ann.told("private " + from->name() + ": x") +
                             bob.told("private " + from->name() + ": x") +
                             cid.told("private " + from->name() + ": x"));
            for (Party *party : {&ann, &bob, &cid})
                party->forgets();
        }
}

TEST_F(Talk, APrivateMessageThatNobodyTakesIsToldAsLost) {
    EXPECT_EQ("0", tells(bob, TCPAddress()));
    cid->setPrivateDataCB(nullptr);
    EXPECT_TRUE(bob.isTold("lost " + tells(bob, cid->address())));
    ann->disableUser(cid->address());
    EXPECT_TRUE(bob.isTold("lost " + tells(bob, cid->address())));
    const std::string fromBob = tells(bob, addressOf(dan));
    const std::string fromAnn = tells(ann, addressOf(dan));
    EXPECT_TRUE(dan.receives(PRIVATE) && dan.receives(PRIVATE));
    EXPECT_EQ(0, bob.told("lost " + fromBob)) << "Dan may still answer";
    dan.hangsUp();
    EXPECT_TRUE(bob.isTold("lost " + fromBob));
    EXPECT_TRUE(ann.isTold("lost " + fromAnn));
    const std::string last = tells(bob, ann->address());
    ann.dies();
    EXPECT_TRUE(bob.isTold("lost " + last));
}

// Longer than what a connection takes at a time: the host keeps the rest.
TEST_F(Talk, AMessageThatIsPassedOnStaysAsItWas) {
    const std::vector<unsigned char> word(3000000, 'x');
    ASSERT_NE(0u, bob->sendPrivateData(cid->address(), word.data(), word.size()));
    EXPECT_TRUE(cid.isTold("private Bob: " + std::string(word.size(), 'x')));
}

TEST_F(Talk, NobodySpeaksOrAnswersForAnother) {
    const std::string number = tells(bob, cid->address());
    EXPECT_TRUE(bob.isTold("taken " + number));
    forges(onWire(bob), onWire(cid), PRIVATE, 1);
    const std::string toAnn = tells(ann, bob->address());
    forges(dan.entry.address, onWire(ann), ANSWER, static_cast<std::uint32_t>(std::stoul(toAnn)));
    EXPECT_TRUE(dan.fences());
    EXPECT_TRUE(ann.isTold("taken " + toAnn)) << "by Bob, whatever Dan says";
    EXPECT_TRUE(bob.says("end") && cid.isTold("said Bob: end"));
    EXPECT_EQ(1, cid.told("private Bob: x"));
    EXPECT_EQ(0, cid.told(std::string("private Bob: ") + '\0'));
    dan.sends(PRIVATE, {1, 2, 3});
    EXPECT_TRUE(dan.fences());
}

TEST_F(Talk, MessagesOfTheApplicationReachItAndGoOn) {
    const unsigned char word[] = {'x'};
    for (const bool guarded : {false, true}) {
        for (Party *party : {&ann, &bob, &cid})
            (*party)->setMembersOnly(guarded);
        EXPECT_TRUE(bob->sendMessage(TCP_messageID_99, word, 1));
        EXPECT_TRUE(ann.isTold("own Bob: x") && cid.isTold("own Ann: x"));
        EXPECT_TRUE(dan.receives(0x99));
        ann.forgets();
        cid.forgets();
    }
    EXPECT_FALSE(bob->sendMessage(TCP_leadReply, word, 1));
    EXPECT_FALSE(bob->sendMessage(TCP_messageID_46, word, 1));
    EXPECT_FALSE(bob->sendMessage(TCP_messageID_99, word, 0));
}

} // namespace
} // namespace vintok::test
