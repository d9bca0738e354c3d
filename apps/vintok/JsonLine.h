// One JSON object on one line, built field by field:
//
//     JsonLine("said").text("name", "Ann").number("colour", 1).flag("self", false).str()
//     {"event":"said","name":"Ann","colour":1,"self":false}
//
// Whatever bytes a text holds, the line is valid JSON in UTF-8 and safe to print on a terminal:
// what is no UTF-8 becomes U+FFFD, what a terminal would act on is escaped.
#ifndef VINTOK_APP_JSONLINE_H
#define VINTOK_APP_JSONLINE_H

#include "Fields.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace app {

class JsonLine {
public:
    // An object without a field, to stand in a list.
    JsonLine() = default;
    // An object whose first field is "event".
    explicit JsonLine(std::string_view event);

    // Keys are the program's own and need no escaping.
    JsonLine &text(std::string_view key, std::string_view value);
    JsonLine &number(std::string_view key, std::int64_t value);
    JsonLine &flag(std::string_view key, bool value);
    JsonLine &nothing(std::string_view key);
    JsonLine &list(std::string_view key, const std::vector<JsonLine> &values);
    JsonLine &object(std::string_view key, const JsonLine &value);
    JsonLine &fields(const Fields &fields);

    // The object, without an end of line.
    std::string str() const { return '{' + m_fields + '}'; }

private:
    std::string &key(std::string_view key);

    std::string m_fields;
};

} // namespace app

#endif
