#include "Fields.h"

#include <chrono>
#include <cstdio>

namespace app {

namespace {

// The first and the last second of the years 0 and 9999.
constexpr std::int64_t firstSecond = -62167219200;
constexpr std::int64_t lastSecond = 253402300799;

struct AsText {
    std::string operator()(Fields::Nothing) const { return "none"; }
    std::string operator()(bool value) const { return value ? "yes" : "no"; }
    std::string operator()(std::int64_t value) const { return std::to_string(value); }
    std::string operator()(Fields::Time value) const { return timeText(value.seconds); }
    std::string operator()(const std::string &value) const { return value; }
};

} // namespace

std::string timeText(std::int64_t seconds) {
    if (seconds < firstSecond || seconds > lastSecond)
        return std::to_string(seconds) + " s";
    using namespace std::chrono;
    const sys_seconds time{std::chrono::seconds(seconds)};
    const auto day = floor<days>(time);
    const year_month_day date{day};
    const hh_mm_ss clock{time - day};
    char text[64];
    std::snprintf(
        text, sizeof(text), "%04d-%02u-%02u %02d:%02d:%02d UTC", int(date.year()),
        unsigned(date.month()), unsigned(date.day()), static_cast<int>(clock.hours().count()),
        static_cast<int>(clock.minutes().count()), static_cast<int>(clock.seconds().count()));
    return text;
}

std::string valueText(const Fields::Field &field) {
    return std::visit(AsText{}, field.value);
}

} // namespace app
