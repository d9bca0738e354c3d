// Internal. Control texts as the rows of ControlWords.h say, made from values.
#ifndef VINTOK_CONTROLLINES_H
#define VINTOK_CONTROLLINES_H

#include "vintok/ControlText.h"
#include "vintok/ControlWords.h"
#include "vintok/RosterBase.h"

#include <concepts>
#include <string>
#include <string_view>
#include <vector>

namespace vintok {

// Values in the order of a row. An address stands for its two parts, a person or a roster record
// for all of theirs.
class ControlValues {
public:
    template <class... Values>
    explicit ControlValues(const Values &...values) {
        (add(values), ...);
    }

    std::string lines(const words::Parts &parts) const;
    // The word and its lines; empty without a value that is needed.
    std::string text(const words::Word &row) const;

private:
    void add(const std::string &value) { m_values.push_back(value); }
    void add(const char *value) { m_values.emplace_back(value); }
    void add(bool value) { add(value ? "true" : "false"); }
    template <std::integral Number>
    void add(Number value) {
        add(std::to_string(value));
    }
    void add(const TCPAddress &address);
    void add(const UserInfo &user);
    void add(const RosterBase &entry);

    std::vector<std::string> m_values;
};

// A word of the table: another one does not compile.
template <words::Direction direction>
struct KnownWord {
    consteval KnownWord(const char *word) : row(*words::find(direction, word)) {}
    const words::Word &row;
};

// False, with nothing sent, without a value that is needed.
template <class... Values>
bool sendRequest(int descriptor, KnownWord<words::Direction::request> word,
                 const Values &...values) {
    return writeRequestString(descriptor, ControlValues(values...).text(word.row));
}
template <class... Values>
bool sendNotification(int descriptor, KnownWord<words::Direction::notification> word,
                      const Values &...values) {
    return writeReplyString(descriptor, ControlValues(values...).text(word.row));
}

} // namespace vintok

#endif
