// Environment variables for the length of a test.
#ifndef VINTOK_TESTS_SUPPORT_ENVIRONMENT_H
#define VINTOK_TESTS_SUPPORT_ENVIRONMENT_H

#include <optional>
#include <string>

namespace vintok::test {

// Sets a variable, or without a value removes it, and puts back what was there when it goes.
class ScopedEnvironment {
public:
    explicit ScopedEnvironment(std::string name,
                               const std::optional<std::string> &value = std::nullopt);
    ~ScopedEnvironment();
    ScopedEnvironment(const ScopedEnvironment &) = delete;
    ScopedEnvironment &operator=(const ScopedEnvironment &) = delete;

private:
    std::string m_name;
    std::optional<std::string> m_before;
};

} // namespace vintok::test

#endif
