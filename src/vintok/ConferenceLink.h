// The seam between the hosts of one meeting: what an application implements to link them, and what
// a linked host offers it.
//
// A meeting may have several hosts, each with members of its own. A host hands what happens at its
// side to its link, and the link takes that to the other hosts and hands them what happens here.
// To members nothing is different: the parties at other hosts, these hosts among them, are entries
// of the roster like any others, and a member knows one host, its own. `libvintok-cluster` is a
// link over NATS.
//
// One of the hosts has authority at a time: it decides about the lead, and the others set their
// clocks by its clock. Which one that is, the link says.
#ifndef VINTOK_CONFERENCELINK_H
#define VINTOK_CONFERENCELINK_H

#include "vintok/Export.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace vintok {

class ConferenceParticipant;
class ConferenceRosterEntry;
class TCPAddress;

// What a host tells the others. Every call comes on the participant's thread, inside its operations
// and callbacks of the loop; none may call an operation of the participant, or block. Bytes are the
// library's and good until the call returns. The application owns the link.
class VINTOK_API ConferenceLink {
public:
    // This host itself, or a member of it, is in the meeting, or its data have changed. The entry
    // comes without what is true of this host alone: that it hosts, leads, or waits for something.
    virtual void entryChanged(const ConferenceRosterEntry &entry) = 0;
    // A member of this host has left.
    virtual void entryLeft(const TCPAddress &party) = 0;

    // Messages for everybody in the meeting, whole frames, one behind the other, in the order in
    // which `speaker`, this host or a member of it, has sent them. Parts of files are among them.
    virtual void say(const TCPAddress &speaker, const unsigned char *frames,
                     std::size_t length) = 0;
    // Whether `say` keeps everything until its place in one order over all hosts is known. Then
    // nobody here gets it before the link hands it back with `LinkedMeeting::said`, at this host as
    // at the others.
    virtual bool isOrdered() const = 0;
    // Whether more can be taken. While it is false members that talk are read no further, and a
    // file of `startFile` waits; what was read already comes all the same.
    virtual bool hasRoom() const = 0;

    // A message, a whole frame, from `sender`, this host or a member of it, to one party at another
    // host, or to the host that has authority. False if it is known to go nowhere.
    virtual bool sendTo(const TCPAddress &party, const TCPAddress &sender,
                        const unsigned char *frame, std::size_t length) = 0;
    virtual bool sendToAuthority(const TCPAddress &sender, const unsigned char *frame,
                                 std::size_t length) = 0;

    // Whether it is this host that has authority.
    virtual bool hasAuthority() const = 0;
    // For the host that has authority: this party leads now.
    virtual void leaderChanged(const TCPAddress &leader) = 0;

    // A colour that nobody in the meeting has or had; 65535 where there is none as yet. See
    // `LinkedMeeting::giveColors`.
    virtual unsigned short takeColor() = 0;

    // The meeting is over at this host: it has hung up. The link stays installed, for the next
    // one.
    virtual void meetingEnded() = 0;

protected:
    // The library never deletes one: not virtual.
    ~ConferenceLink() = default;
};

// What comes from the other hosts. To be called on the participant's thread, and not from inside
// its callbacks or those of the link: from a callback of the loop, say. `host` is a participant
// with a link. The functions call the application's callbacks, as the same does when it comes from
// a member; those that return a bool are false, with the reason as the thread's last error, when
// nothing was done. Entries and frames are checked, and what does not belong there is not taken.
class VINTOK_API LinkedMeeting {
public:
    // Installs the link, or with null takes it away again; then the parties at other hosts leave.
    // The link hears at once of the host and of each of its members. False, changing nothing, for a
    // party that is not the host of a meeting. A host with a link does not end its meeting when its
    // last member leaves, and steps aside for nobody.
    static bool install(ConferenceParticipant &host, ConferenceLink *link);

    // A party at another host is in the meeting, or its data have changed. False for an address
    // that is this host's own or that of somebody connected here, who is the one that counts.
    static bool entry(ConferenceParticipant &host, const ConferenceRosterEntry &entry);
    // A party at another host has left. False if nobody elsewhere has this address.
    static bool left(ConferenceParticipant &host, const TCPAddress &party);

    // What `ConferenceLink::say` was given at another host, or with a link that keeps the order at
    // this one. Goes to every member here but the speaker, in one piece, and to this host's own
    // application. The messages after one that is not whole are dropped; then it is false.
    static bool said(ConferenceParticipant &host, const TCPAddress &speaker,
                     const unsigned char *frames, std::size_t length);
    // The same for one member here alone, who has come late: what was said before.
    static bool saidTo(ConferenceParticipant &host, const TCPAddress &member,
                       const unsigned char *frames, std::size_t length);
    // Whether the members here take what they are given. A link that waits while it is false lets
    // those at other hosts who talk too fast for them be held up.
    static bool hasRoom(const ConferenceParticipant &host);
    // A message that `sendTo` or `sendToAuthority` was given elsewhere, for a member here or for
    // this host. False if it is for nobody here, or none that may come this way.
    static bool message(ConferenceParticipant &host, const TCPAddress &party,
                        const TCPAddress &sender, const unsigned char *frame, std::size_t length);

    // Who leads, as the host with authority says.
    static bool leader(ConferenceParticipant &host, const TCPAddress &leader);
    // `hasAuthority` has another answer, or another host has authority now. A host that has it sees
    // to it that somebody leads; any other sets its clock.
    static void authorityChanged(ConferenceParticipant &host);

    // Asks `takeColor` for whoever here has none. With `anew` for everybody here, where two parts
    // of a meeting that were apart have given the same; where there is none as yet the old ones
    // stay until there is.
    static void giveColors(ConferenceParticipant &host, bool anew);

    // Sends a caller that waits for the answer to another host, and ends its call here: it is given
    // the redirect callback, with that name and port, if it has retries left. One without that
    // callback, or of an older version, is refused only. False if nobody of this address waits.
    static bool redirect(ConferenceParticipant &host, const TCPAddress &caller,
                         const std::string &name, unsigned short port);
};

} // namespace vintok

#endif
