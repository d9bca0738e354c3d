#include "vintok/SelectTable.h"

#include <algorithm>
#include <new>
#include <utility>

namespace vintok {

namespace {

template <typename T>
void overwrite(T &field) {
    // Volatile, or the compiler would leave out a store to what is about to be freed.
    // NOLINTNEXTLINE(performance-no-int-to-ptr): nobody is to follow it
    *const_cast<volatile T *>(&field) = reinterpret_cast<T>(std::uintptr_t{0xDEADBEEF});
}

} // namespace

// A use of a record after its end shows in a debugger.
SelectTable::CallbackRecord::~CallbackRecord() {
    overwrite(function);
    overwrite(data);
}

void SelectTable::clear() {
    m_table = {};
    m_readSet.clear();
    m_numDescriptors = 0;
}

// The slot that the descriptor has or would get; the end when the table is full.
SelectTable::Table::iterator SelectTable::mf_findSlot(int descriptor) {
    return std::find_if(
        m_table.begin(), m_table.end(),
        [descriptor](const auto &entry) {
            return entry == nullptr || entry->descriptor == descriptor;
        });
}

SelectTable::Entry *SelectTable::find(int descriptor) {
    const auto slot = mf_findSlot(descriptor);
    return slot == m_table.end() ? nullptr : slot->get();
}

bool SelectTable::add(int descriptor, TCPSelectCallback function, void *data) {
    const auto slot = mf_findSlot(descriptor);
    if (slot == m_table.end())
        return false;
    try {
        auto record = std::make_unique<CallbackRecord>(function, data);
        if (*slot == nullptr)
            return mf_register(slot, descriptor, std::move(record));
        auto &callbacks = (*slot)->callbacks;
        const auto isSame = [&record](const auto &other) { return *other == *record; };
        if (std::any_of(callbacks.begin(), callbacks.end(), isSame))
            return false;
        callbacks.push_back(std::move(record));
        return true;
    } catch (const std::bad_alloc &) {
        return false;
    }
}

bool SelectTable::mf_register(Table::iterator slot, int descriptor,
                              std::unique_ptr<CallbackRecord> record) {
    auto entry = std::make_unique<Entry>();
    entry->descriptor = descriptor;
    entry->registration = ++m_registrations;
    entry->callbacks.push_back(std::move(record));
    if (!m_readSet.insert(descriptor))
        return false;
    ++m_numDescriptors;
    m_maxDescriptor = std::max(m_maxDescriptor, descriptor);
    if (m_minDescriptor == -1 || descriptor < m_minDescriptor)
        m_minDescriptor = descriptor;
    *slot = std::move(entry);
    return true;
}

bool SelectTable::remove(int descriptor, TCPSelectCallback function, void *data) {
    const auto slot = mf_findSlot(descriptor);
    if (slot == m_table.end() || *slot == nullptr)
        return false;
    auto &callbacks = (*slot)->callbacks;
    const auto found =
        std::find_if(callbacks.begin(), callbacks.end(), [function, data](const auto &record) {
            return record->function == function && record->data == data;
        });
    if (found == callbacks.end())
        return false;
    callbacks.erase(found);
    if (callbacks.empty())
        mf_unregister(slot);
    return true;
}

void SelectTable::mf_unregister(Table::iterator slot) {
    m_readSet.erase((*slot)->descriptor);
    --m_numDescriptors;
    const auto isFree = [](const auto &entry) { return entry == nullptr; };
    const auto last = std::find_if(slot, m_table.end(), isFree);
    std::move(slot + 1, last, slot);
    (last - 1)->reset();
}

// The first descriptor of the set from `from` on.
int SelectTable::nextIn(const platform::DescriptorSet &set, int from) {
    const int *const found = std::lower_bound(set.begin(), set.end(), from);
    return found == set.end() ? nobody : *found;
}

} // namespace vintok
