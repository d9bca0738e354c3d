// Named values in their order, told to a person or to a script.
#ifndef VINTOK_APP_FIELDS_H
#define VINTOK_APP_FIELDS_H

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace app {

class Fields {
public:
    // Seconds since 1970-01-01 00:00 UTC: for a person a date, for a script the number.
    struct Time {
        std::int64_t seconds;
    };
    // No value: null.
    using Nothing = std::monostate;
    struct Field {
        std::string key;
        std::variant<Nothing, bool, std::int64_t, Time, std::string> value;
        bool isAddress = false; // a text that its party may want to have hidden
    };

    Fields &text(const std::string &key, const std::string &value) { return add(key, value); }
    Fields &address(const std::string &key, const std::string &value) {
        add(key, value);
        m_fields.back().isAddress = true;
        return *this;
    }
    Fields &number(const std::string &key, std::int64_t value) { return add(key, value); }
    Fields &time(const std::string &key, std::int64_t value) { return add(key, Time{value}); }
    Fields &flag(const std::string &key, bool value) { return add(key, value); }
    Fields &nothing(const std::string &key) { return add(key, Nothing{}); }

    const std::vector<Field> &all() const { return m_fields; }
    std::vector<Field> &all() { return m_fields; }

private:
    template <class Value>
    Fields &add(const std::string &key, const Value &value) {
        m_fields.push_back({key, value});
        return *this;
    }

    std::vector<Field> m_fields;
};

// "2026-01-01 00:00:00 UTC"; a time whose year has more than four digits as the number of seconds.
std::string timeText(std::int64_t seconds);

// A value as a person reads it. Bytes of a text come as they are.
std::string valueText(const Fields::Field &field);

} // namespace app

#endif
