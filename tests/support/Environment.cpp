#include "support/Environment.h"

#include "platform/Environment.h"

#include <cstdlib>
#include <utility>

namespace vintok::test {

ScopedEnvironment::ScopedEnvironment(std::string name) : m_name(std::move(name)) {
    if (const char *before = std::getenv(m_name.c_str()))
        m_before = before;
    platform::unsetEnvironment(m_name);
}

ScopedEnvironment::ScopedEnvironment(std::string name, const std::string &value)
    : ScopedEnvironment(std::move(name)) {
    platform::setEnvironment(m_name, value);
}

ScopedEnvironment::~ScopedEnvironment() {
    if (m_before)
        platform::setEnvironment(m_name, *m_before);
    else
        platform::unsetEnvironment(m_name);
}

} // namespace vintok::test
