#include "vintok/HTTPAddress.h"

#include "vintok/TextNumber.h"

namespace vintok {

namespace {

// How the host of a URL is written, and what stands behind it when a port follows and when not.
struct Form {
    const char *prefix;
    bool ssl;
    const char *beforePort;
    const char *hostEnd;
};

// The longer prefixes come first.
constexpr Form forms[] = {
    {"http://[", false, "]:", "]/"},       {"http://%5b", false, "%5d:", "%5d/"},
    {"http://", false, ":", "/"},          {"https://[", true, "]:", "]/"},
    {"https://%5b", true, "%5d:", "%5d/"}, {"https://", true, ":", "/"},
};

const Form *formOf(const std::string &url) {
    for (const Form &form : forms)
        if (url.rfind(form.prefix, 0) == 0)
            return &form;
    return nullptr;
}

// The number that `text` begins with, by its low 16 bits; the fallback for none and for 0.
std::uint16_t portOr(std::uint16_t fallback, const std::string &text) {
    std::uint16_t port = 0;
    return leadingNumber(text, 10, port) && port != 0 ? port : fallback;
}

} // namespace

HTTPAddress::HTTPAddress(const TCPAddress &address) : TCPAddress(address) {}

HTTPAddress &HTTPAddress::operator=(const TCPAddress &address) {
    TCPAddress::operator=(address);
    m_url.clear();
    m_isSSL = false;
    return *this;
}

bool HTTPAddress::operator==(const HTTPAddress &other) const {
    return TCPAddress::operator==(other) && m_isSSL == other.m_isSSL;
}

void HTTPAddress::clear() {
    TCPAddress::clear();
    m_url.clear();
}

bool HTTPAddress::empty() const {
    return TCPAddress::empty() && m_url.empty();
}

bool HTTPAddress::setURL(const std::string &url) {
    if (url.empty())
        return false;
    // The slash gives a URL without a path an end to its host.
    std::string text = url + "/";
    for (char &c : text)
        sf_lower(c);
    const Form *form = formOf(text);
    if (form == nullptr)
        return false;

    const std::string prefix = form->prefix;
    const std::string authority =
        text.substr(prefix.size(), text.find('/', prefix.size()) + 1 - prefix.size());
    std::size_t hostEnd = authority.find(form->beforePort);
    std::string port;
    if (hostEnd != std::string::npos)
        port = authority.substr(hostEnd + std::string(form->beforePort).size());
    else
        hostEnd = authority.find(form->hostEnd);
    if (hostEnd == std::string::npos)
        hostEnd = authority.size() - 1;

    // A host that names nobody keeps the name that is there: there is nothing to put in its place.
    setName(authority.substr(0, hostEnd));
    m_url = url;
    m_isSSL = form->ssl;
    setHostByteOrderPort(portOr(m_isSSL ? 443 : 80, port));
    return true;
}

bool HTTPAddress::url(std::string &text) const {
    text = m_url;
    return !m_url.empty();
}

bool HTTPAddress::path(std::string &text) const {
    text.clear();
    if (m_url.empty())
        return false;
    const std::size_t slashes = m_url.find("//");
    if (slashes == std::string::npos)
        return true;
    const std::size_t slash = m_url.find('/', slashes + 2);
    if (slash != std::string::npos)
        text = m_url.substr(slash + 1);
    return true;
}

} // namespace vintok
