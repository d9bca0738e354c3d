// Internal. Accepts connections on behalf of one owner of listening sockets, and carries that owner
// through a shortage of descriptors.
//
// A listening socket whose connection cannot be accepted stays readable: whoever only reported that
// would spin. So the guard keeps one descriptor in reserve. When an accept fails for want of
// descriptors, or time and again, the reserve is given up, the connection that waits accepted and
// closed, and the reserve taken back. The caller is turned away, the listener is quiet, and
// everybody who is connected is served.
//
// The owner calls `accept` in place of `acceptBoundSocket`. Of failures in a row only the first is
// logged: a crowd that knocks at a full house fills no log.
#ifndef VINTOK_ACCEPTGUARD_H
#define VINTOK_ACCEPTGUARD_H

namespace vintok {

class TCPAddress;

class AcceptGuard {
public:
    AcceptGuard();
    ~AcceptGuard();
    AcceptGuard(const AcceptGuard &) = delete;
    AcceptGuard &operator=(const AcceptGuard &) = delete;

    // As `acceptBoundSocket`, with its result and its errors. What cannot be accepted is turned
    // away; in the last resort, with no reserve to be had, this takes a pause of 250 ms in its
    // place.
    int accept(int listener);
    int accept(int listener, TCPAddress &peer);

private:
    void turnAway(int listener);
    void takeReserve();

    int m_reserve = -1;
    unsigned m_failures = 0; // in a row; stops counting at some point
};

} // namespace vintok

#endif
