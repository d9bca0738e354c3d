// The dispatch loop: functions are registered for descriptors and called when those can be read.
//
// All TCPSelect objects made on a thread share one table of registrations, which lives from the
// first of them to the last. Objects of different threads do not see each other. Use an object on
// the thread that made it; only `interrupt`, `wake`, `running` and `signalSafe` may be called from
// anywhere, a signal handler included.
//
// A callback may add and remove callbacks, close descriptors, poll, and destroy TCPSelect objects,
// the running one included. It is not called for what an earlier owner of its
// descriptor's number left to read.
#ifndef VINTOK_TCPSELECT_H
#define VINTOK_TCPSELECT_H

#include "vintok/Export.h"

#include <atomic>
#include <cstdint>
#include <vector>

namespace vintok {

class TCPSelectBase;

// `hangup` is false in every call that the loop makes; true means a call by the owner's own hang-up
// path.
using TCPSelectCallback = void (*)(int descriptor, void *data, bool hangup);

class VINTOK_API TCPSelect {
public:
    TCPSelect();
    virtual ~TCPSelect();

    // Not meant to be copied: a copy is not counted among the thread's objects, so that destroying
    // it takes away the count of another.
    TCPSelect(const TCPSelect &other);
    TCPSelect &operator=(const TCPSelect &other);

    // Registers `function` with `data` for `descriptor`, and the descriptor with the stream layer,
    // over the secure transport when `secure`: for sockets over which the library moves the bytes
    // (TCPStream.h, TCPMessage.h). One from elsewhere becomes blocking and gets buffers of the
    // library's size. The application closes it, with `closeDescriptor` or `shutdownSocket`: any
    // other close leaves the stream layer with a number that may be another's next.
    //
    // `flag` has no effect: by convention false for a listening socket and true for a connected
    // one. At most 1024 descriptors on a thread; any number of callbacks on each, called in order
    // of registration. False for a null function, a negative descriptor, a pair that is registered
    // already, a full table, or what the stream layer refuses, as it does with whatever is no
    // socket.
    bool addSocketCallback(int descriptor, TCPSelectCallback function, void *data, bool flag,
                           bool secure);

    // True when the pair was registered. The stream layer goes on knowing the descriptor, which
    // stays open. During a dispatch of this very descriptor the callback may still be called once
    // more.
    bool removeCallback(int descriptor, TCPSelectCallback function, void *data);

    // The same for a descriptor whose bytes the application moves by itself: a socket, a pipe, a
    // terminal, a timer, whatever the system can wait for; on Windows sockets alone. It stays as it
    // is, and the stream layer does not learn of it. The application closes it, behind
    // `removeCallback`. One that has ended stays readable: remove it then. A file on a disk is
    // always readable, and `nestedDescriptor` never shows it.
    bool addReadableCallback(int descriptor, TCPSelectCallback function, void *data);

    // Waits and dispatches until `interrupt`, or until nothing is registered.
    void run();
    // Whether `run` is to go on.
    bool running() const { return m_running; }

    // Ends `run` once the wait that it is in has ended: with the next readable descriptor, and
    // where signals interrupt waiting, at once when called from a signal handler on the thread that
    // runs.
    void interrupt() { m_running = false; }

    // Has `function` called on the loop's thread, once for any number of `wake`s before it: for
    // work that other threads hand over. To be set before anybody wakes. A loop that can be woken
    // has something registered, and so goes on; null takes that back. False when there is no
    // descriptor for it.
    using WakeCallback = void (*)(void *data);
    bool setWakeCallback(WakeCallback function, void *data);
    // Ends the wait that the loop is in, or the next one: after `interrupt` from another thread,
    // for example. Nothing without a successful `setWakeCallback`.
    void wake() const;

    // How many descriptors of the thread have callbacks.
    int numDescriptors() const;

    // ---- Inside another loop ----

    // Before each of its waits the other loop asks what to wait for and for how long. When
    // something has come, or the time is over, it calls `pollDescriptors(true)`, which does what
    // can be done now and returns.

    // One of those to wait for.
    struct Watched {
        int descriptor; // not the caller's to close
        bool reading;   // until it can be read, or has ended
        bool writing;   // until it has room to be written to
    };

    std::vector<Watched> watched() const;
    // A single descriptor that can be read while one of those can go on, and stays the same;
    // brought up to date by the call. -1 where the system has no such thing (Windows).
    int nestedDescriptor() const;
    // Milliseconds until there is something to do even if nothing comes; 0 at once; -1: never.
    std::int32_t timeout() const;

    // ---- Passes ----

    // One pass: dispatches the secure descriptors with buffered bytes; when there were none, waits
    // (`immediate`: looks) and dispatches what can be read, in ascending order. Returns the number
    // of descriptors, 0 for none, -1 for nothing registered or a failed or interrupted wait. A pass
    // that finds no memory is given up with 0.
    //
    // It pauses a quarter of a second where it would otherwise spin: a readable descriptor that
    // nobody is registered for, a closed one whose callbacks have been called and leave it
    // registered, and decrypted bytes of a descriptor without buffers that its callbacks do not
    // take.
    int pollDescriptors(bool immediate);

    // The same for one descriptor.
    int pollOneDescriptor(int descriptor, bool immediate);

    // False while a callback or a change of the table is under way on this thread's table.
    bool signalSafe() const;

private:
    struct Loop;

    static TCPSelectBase **mf_selectBase();
    static int *mf_count();

    std::atomic<bool> m_running; // set by signal handlers
    TCPSelectBase *m_base;       // the thread's; null when it could not be made
};

} // namespace vintok

#endif
