// Internal. The registrations of one thread, and the passes that wait for its descriptors and
// dispatch them.
//
// One thread owns a base. Callbacks may do anything to it, also bring about its end: `release`
// leaves the deletion to the outermost pass that is under way.
#ifndef VINTOK_TCPSELECTBASE_H
#define VINTOK_TCPSELECTBASE_H

#include "platform/Wait.h"
#include "vintok/TCPSelect.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

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
    bool removeCallback(int descriptor, TCPSelectCallback function, void *data);
    int numDescriptors() const { return m_numDescriptors; }
    bool signalSafe() const { return _signalSafe == 0; }

    // As those of `TCPSelect`. With `running`, no wait goes on while it is false (see `WaitLimit`).
    int pollDescriptors(bool immediate, const std::atomic<bool> *running);
    int pollOneDescriptor(int descriptor, bool immediate);

protected:
    virtual ~TCPSelectBase();

private:
    class Busy;
    class Pass;

    struct CallbackRecord {
        TCPSelectCallback function;
        void *data;

        CallbackRecord(TCPSelectCallback called, void *with) : function(called), data(with) {}
        CallbackRecord(const CallbackRecord &) = default;
        ~CallbackRecord();
        bool operator==(const CallbackRecord &other) const {
            return function == other.function && data == other.data;
        }
    };

    struct Entry {
        int descriptor;
        std::uint64_t registration;                             // no other entry ever has the same
        std::uint64_t deadPasses = 0;                           // that found the descriptor dead
        std::vector<std::unique_ptr<CallbackRecord>> callbacks; // in order of registration
    };

    static constexpr std::size_t MAX_DESCRIPTORS = platform::DescriptorSet::capacity;
    using Table = std::array<std::unique_ptr<Entry>, MAX_DESCRIPTORS>;

    Table::iterator mf_findSlot(int descriptor);
    Entry *mf_find(int descriptor);
    bool mf_register(Table::iterator slot, int descriptor, std::unique_ptr<CallbackRecord> record);
    void mf_unregister(Table::iterator slot);

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
    int m_numDescriptors = 0;
    int m_maxDescriptor = -1; // this and the next only ever widen
    int m_minDescriptor = -1;
    Table m_table;                      // dense: the first null ends it
    platform::DescriptorSet m_readSet;  // every registered descriptor
    platform::DescriptorSet m_workSet;  // found readable and not yet dispatched
    std::shared_ptr<StreamLoop> m_loop; // of the registered connections that have buffers
    std::uint64_t m_registrations = 0;  // ever made
    int m_passes = 0;                   // one within another
    bool m_released = false;
};

} // namespace vintok

#endif
