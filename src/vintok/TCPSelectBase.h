// Internal. The passes of one thread that wait for the registered descriptors and dispatch them.
//
// One thread owns a base. Callbacks may do anything to it, also bring about its end: `release`
// leaves the deletion to the outermost pass that is under way.
#ifndef VINTOK_TCPSELECTBASE_H
#define VINTOK_TCPSELECTBASE_H

#include "platform/Poller.h"
#include "platform/Wait.h"
#include "platform/Waker.h"
#include "vintok/SelectTable.h"

#include <atomic>
#include <cstdint>
#include <memory>

namespace vintok {

class StreamLoop;

class TCPSelectBase {
public:
    TCPSelectBase();
    TCPSelectBase(const TCPSelectBase &) = delete;
    TCPSelectBase &operator=(const TCPSelectBase &) = delete;

    // The owner's way to delete it. Forgets every registration; nothing is dispatched any more.
    void release();

    bool addCallback(int descriptor, TCPSelectCallback function, void *data);
    bool addReadable(int descriptor, TCPSelectCallback function, void *data);
    bool removeCallback(int descriptor, TCPSelectCallback function, void *data);
    bool setWakeCallback(TCPSelect::WakeCallback function, void *data);
    void wake() const { m_waker.wake(); }
    std::vector<TCPSelect::Watched> watched() const;
    int nestedDescriptor();
    std::int32_t timeout() const;
    int numDescriptors() const { return m_table.count(); }
    // Nothing is registered, and no connect or handshake is under way.
    bool isIdle() const;
    bool signalSafe() const { return _signalSafe == 0; }

    // As those of `TCPSelect`. With `running`, no wait goes on while it is false (see `WaitLimit`).
    int pollDescriptors(bool immediate, const std::atomic<bool> *running);
    int pollOneDescriptor(int descriptor, bool immediate);

protected:
    virtual ~TCPSelectBase();

private:
    class Busy;
    class Pass;

    void mf_runDeadlines();
    void mf_callAwaited(const platform::DescriptorSet &writers);
    static void mf_awake(int descriptor, void *base, bool hangup);
    int mf_pass(bool immediate, const std::atomic<bool> *running);
    int mf_wait(platform::WaitLimit limit);
    int mf_dispatchBuffered(platform::DescriptorSet &untouched);
    int mf_pollBeside(const platform::DescriptorSet &untouched, bool immediate);
    int mf_processSelectReturn(int result);
    bool mf_isReadable(int descriptor);
    bool mf_dispatch(int descriptor);
    bool mf_callCallbacks(int descriptor);
    bool mf_isLeftDead(int descriptor);

    static std::atomic<bool> s_checkDebug; // the environment has not been looked at
    static std::atomic<bool> s_selectDebug;

    std::atomic<int> _signalSafe{
        0}; // table walks and dispatches under way; signal handlers read it
    SelectTable m_table;
    platform::DescriptorSet m_others;   // registered without the stream layer
    platform::DescriptorSet m_workSet;  // found readable and not yet dispatched
    std::shared_ptr<StreamLoop> m_loop; // of the registered connections that have buffers
    platform::Waker m_waker;
    TCPSelect::WakeCallback m_wakeCB = nullptr;
    void *m_wakeData = nullptr;
    std::unique_ptr<platform::Poller> m_nest;
    std::vector<TCPSelect::Watched> m_nested; // what it watches
    bool m_nestIsOld = false;                 // a number may have another owner since
    int m_passes = 0;                         // one within another
    bool m_released = false;
};

} // namespace vintok

#endif
