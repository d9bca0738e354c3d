#include "support/Environment.h"

#include "platform/Environment.h"

#include <cstdlib>
#include <utility>

namespace vintok::test {

namespace {

void assign(const std::string &name, const std::optional<std::string> &value) {
    if (value)
        platform::setEnvironment(name, *value);
    else
        platform::unsetEnvironment(name);
}

} // namespace

ScopedEnvironment::ScopedEnvironment(std::string name, const std::optional<std::string> &value)
    : m_name(std::move(name)) {
    if (const char *before = std::getenv(m_name.c_str()))
        m_before = before;
    assign(m_name, value);
}

ScopedEnvironment::~ScopedEnvironment() {
    assign(m_name, m_before);
}

} // namespace vintok::test
