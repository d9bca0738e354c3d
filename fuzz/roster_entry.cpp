// A party as the bodies of messages carry it, and the smaller records that it begins with.
#include "Fuzz.h"

#include "vintok/ConferenceRosterEntry.h"

#include <vector>

using namespace vintok;
using fuzz::require;

namespace {

// What is read is as long as it says and is written as a record that reads the same. A text without
// its zero byte gets one.
template <class Record>
void roundTrip(const std::uint8_t *data, std::size_t size) {
    Record record;
    const std::uint64_t taken = record.read(data, size);
    static_cast<void>(record.toString());
    if (taken == 0)
        return;
    require(taken <= size, "no more is taken than there is");
    std::vector<unsigned char> first(record.size());
    require(record.write(first.data(), first.size()) == first.size(), "it has its size");
    require(first.size() < 2 || record.write(first.data(), first.size() - 1) == 0, "and no less");
    Record again;
    require(again.read(first.data(), first.size()) == first.size(), "it can be read again");
    std::vector<unsigned char> second(again.size());
    require(again.write(second.data(), second.size()) == second.size(), "and written");
    require(first == second, "as the same bytes");
}

// The three records are then asked alike.
struct Party : RosterBase {
    std::string toString() const { return RosterBase::toString(true); }
};

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    roundTrip<ConferenceRosterEntry>(data, size);
    roundTrip<Party>(data, size);
    roundTrip<UserInfo>(data, size);
    return 0;
}
