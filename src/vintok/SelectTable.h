// Internal. The registrations of one thread: which functions are called for which descriptor.
#ifndef VINTOK_SELECTTABLE_H
#define VINTOK_SELECTTABLE_H

#include "platform/Wait.h"
#include "vintok/TCPSelect.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace vintok {

class SelectTable {
public:
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

    // False when there is no room or no memory, or the same is registered already.
    bool add(int descriptor, TCPSelectCallback function, void *data);
    bool remove(int descriptor, TCPSelectCallback function, void *data);
    void clear();

    Entry *find(int descriptor);
    bool contains(int descriptor) const { return m_readSet.contains(descriptor); }
    int count() const { return m_numDescriptors; }
    // Every registered descriptor.
    const platform::DescriptorSet &readSet() const { return m_readSet; }
    // Calls `visit(descriptor)` in ascending order for each of `set` that has ever been within the
    // registered ones. `set` may change meanwhile.
    template <class Visit>
    void forEachIn(const platform::DescriptorSet &set, Visit visit) const {
        for (int each = nextIn(set, m_minDescriptor); each != nobody && each <= m_maxDescriptor;
             each = nextIn(set, each + 1))
            visit(each);
    }

private:
    static constexpr std::size_t maxDescriptors = platform::DescriptorSet::capacity;
    using Table = std::array<std::unique_ptr<Entry>, maxDescriptors>;
    static constexpr int nobody = -1;

    static int nextIn(const platform::DescriptorSet &set, int from);
    Table::iterator mf_findSlot(int descriptor);
    bool mf_register(Table::iterator slot, int descriptor, std::unique_ptr<CallbackRecord> record);
    void mf_unregister(Table::iterator slot);

    int m_numDescriptors = 0;
    int m_maxDescriptor = -1; // this and the next only ever widen
    int m_minDescriptor = -1;
    Table m_table; // dense: the first null ends it
    platform::DescriptorSet m_readSet;
    std::uint64_t m_registrations = 0; // ever made
};

} // namespace vintok

#endif
