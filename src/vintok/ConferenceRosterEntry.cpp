// The state word travels as it stands, so its bits are the same for every version: those that are
// missing here are unused and zero, and no bit may change its meaning. What is known at this end
// only (descriptor, proxy, flags, bad reads) is neither written nor touched by reading.
#include "vintok/ConferenceRosterEntry.h"

#include "vintok/BufferManager.h"
#include "vintok/Log.h"
#include "vintok/WireText.h"

#include <new>

namespace vintok {

namespace {

enum StateBit : std::uint32_t {
    STATE_MEETING = 0x00000001,
    STATE_HOST = 0x00000004,
    STATE_LEADER = 0x00000008,
    STATE_SERVER = 0x00000010,
    STATE_JOIN_PENDING = 0x00000020,
    STATE_SHADOW = 0x00000040,
    STATE_LEAD_PENDING = 0x00000080,
    STATE_SECURE = 0x00000100,
    STATE_SECURE_ABLE = 0x00000200,
    STATE_SECURE_REQUIRED = 0x00000400,
    STATE_PROXY = 0x00000800,
    STATE_PROXY_PENDING = 0x00001000,
    STATE_PROXY_CONNECTION = 0x00002000,
    STATE_MUX_PENDING = 0x00020000,
    STATE_MUX_ENCRYPT = 0x00040000,
    STATE_SECURE_PREFERRED = 0x00080000,
    STATE_MUX_REDIRECTED = 0x00100000,
    STATE_FIPS_SECURE_REQUIRED = 0x00200000,
    STATE_HIDING_IPS_REQUIRED = 0x00400000,
    STATE_SSL_ONLY = 0x00800000,
};

// False, with `text` as it was, when there is no memory for the copy.
bool setText(std::string &text, const std::string &value) {
    try {
        text = value;
        return true;
    } catch (const std::bad_alloc &) {
        return false;
    }
}

} // namespace

ConferenceRosterEntry::ConferenceRosterEntry(int descriptor) : m_descriptor(descriptor) {}

ConferenceRosterEntry::ConferenceRosterEntry(const RosterBase &party) : RosterBase(party) {}

ConferenceRosterEntry::ConferenceRosterEntry(const TCPAddress &address) : RosterBase(address) {}

ConferenceRosterEntry::ConferenceRosterEntry(const UserInfo &user) : RosterBase(user) {}

ConferenceRosterEntry::ConferenceRosterEntry(const ConferenceRosterEntry &other)
    : RosterBase(other),
      m_descriptor(other.m_descriptor),
      m_state(other.m_state),
      m_meetingName(other.m_meetingName),
      m_meetingID(other.m_meetingID),
      m_proxyName(other.m_proxyName),
      m_doBroadcast(other.m_doBroadcast),
      m_enabled(other.m_enabled) {}

ConferenceRosterEntry &ConferenceRosterEntry::operator=(const ConferenceRosterEntry &other) {
    RosterBase::operator=(other);
    m_descriptor = other.m_descriptor;
    m_state = other.m_state;
    m_meetingName = other.m_meetingName;
    m_meetingID = other.m_meetingID;
    m_proxyName = other.m_proxyName;
    return *this;
}

ConferenceRosterEntry &ConferenceRosterEntry::operator=(const RosterBase &party) {
    RosterBase::operator=(party);
    return *this;
}

ConferenceRosterEntry &ConferenceRosterEntry::operator=(const TCPAddress &address) {
    RosterBase::operator=(address);
    return *this;
}

ConferenceRosterEntry &ConferenceRosterEntry::operator=(const UserInfo &user) {
    RosterBase::operator=(user);
    return *this;
}

// ---- Known at this end only ----

int ConferenceRosterEntry::descriptor() const {
    return m_descriptor;
}

void ConferenceRosterEntry::setDescriptor(int descriptor) {
    m_descriptor = descriptor;
}

const std::string &ConferenceRosterEntry::proxyName() const {
    return m_proxyName;
}

bool ConferenceRosterEntry::setProxyName(const std::string &name) {
    return setText(m_proxyName, name);
}

bool ConferenceRosterEntry::doBroadcast() const {
    return m_doBroadcast;
}

void ConferenceRosterEntry::setDoBroadcast(bool value) {
    m_doBroadcast = value;
}

bool ConferenceRosterEntry::enabled() const {
    return m_enabled;
}

void ConferenceRosterEntry::setEnabled(bool value) {
    m_enabled = value;
}

void ConferenceRosterEntry::setBadRead(bool bad) {
    m_numBadReads = bad ? m_numBadReads + 1 : 0;
    m_totalBadReads += bad ? 1 : 0;
}

std::uint32_t ConferenceRosterEntry::numBadReads() const {
    return m_numBadReads;
}

std::uint32_t ConferenceRosterEntry::totalBadReads() const {
    return m_totalBadReads;
}

std::uint64_t ConferenceRosterEntry::getBadReadKeepAliveTime() const {
    return m_badReadKeepAliveTime;
}

void ConferenceRosterEntry::setBadReadKeepAliveTime(std::uint64_t time) {
    m_badReadKeepAliveTime = time;
}

// ---- The meeting ----

const std::string &ConferenceRosterEntry::meetingName() const {
    return m_meetingName;
}

bool ConferenceRosterEntry::setMeetingName(const std::string &name) {
    return setText(m_meetingName, name);
}

const std::string &ConferenceRosterEntry::meetingID() const {
    return m_meetingID;
}

bool ConferenceRosterEntry::setMeetingID(const std::string &identifier) {
    return setText(m_meetingID, identifier);
}

// ---- State ----

bool ConferenceRosterEntry::mf_state(std::uint32_t mask) const {
    return (m_state & mask) != 0;
}

void ConferenceRosterEntry::mf_setState(std::uint32_t mask, bool value) {
    m_state = value ? m_state | mask : m_state & ~mask;
}

bool ConferenceRosterEntry::isMeeting() const {
    return mf_state(STATE_MEETING);
}

void ConferenceRosterEntry::setMeeting(bool value) {
    mf_setState(STATE_MEETING, value);
}

bool ConferenceRosterEntry::isHost() const {
    return mf_state(STATE_HOST);
}

void ConferenceRosterEntry::setHost(bool value) {
    mf_setState(STATE_HOST, value);
}

bool ConferenceRosterEntry::isLeader() const {
    return mf_state(STATE_LEADER);
}

void ConferenceRosterEntry::setLeader(bool value) {
    mf_setState(STATE_LEADER, value);
}

bool ConferenceRosterEntry::isServer() const {
    return mf_state(STATE_SERVER);
}

void ConferenceRosterEntry::setServer(bool value) {
    mf_setState(STATE_SERVER, value);
}

bool ConferenceRosterEntry::isJoinPending() const {
    return mf_state(STATE_JOIN_PENDING);
}

void ConferenceRosterEntry::setJoinPending(bool value) {
    mf_setState(STATE_JOIN_PENDING, value);
}

bool ConferenceRosterEntry::isShadow() const {
    return mf_state(STATE_SHADOW);
}

void ConferenceRosterEntry::setShadow(bool value) {
    mf_setState(STATE_SHADOW, value);
}

bool ConferenceRosterEntry::isLeadPending() const {
    return mf_state(STATE_LEAD_PENDING);
}

void ConferenceRosterEntry::setLeadPending(bool value) {
    mf_setState(STATE_LEAD_PENDING, value);
}

bool ConferenceRosterEntry::isSecure() const {
    return mf_state(STATE_SECURE);
}

void ConferenceRosterEntry::setSecure(bool value) {
    mf_setState(STATE_SECURE, value);
}

bool ConferenceRosterEntry::isSecureAble() const {
    return mf_state(STATE_SECURE_ABLE);
}

void ConferenceRosterEntry::setSecureAble(bool value) {
    mf_setState(STATE_SECURE_ABLE, value);
}

bool ConferenceRosterEntry::isSecureRequired() const {
    return mf_state(STATE_SECURE_REQUIRED);
}

void ConferenceRosterEntry::setSecureRequired(bool value) {
    mf_setState(STATE_SECURE_REQUIRED, value);
}

bool ConferenceRosterEntry::isProxy() const {
    return mf_state(STATE_PROXY);
}

void ConferenceRosterEntry::setProxy(bool value) {
    mf_setState(STATE_PROXY, value);
}

bool ConferenceRosterEntry::isProxyPending() const {
    return mf_state(STATE_PROXY_PENDING);
}

void ConferenceRosterEntry::setProxyPending(bool value) {
    mf_setState(STATE_PROXY_PENDING, value);
}

bool ConferenceRosterEntry::isProxyConnection() const {
    return mf_state(STATE_PROXY_CONNECTION);
}

void ConferenceRosterEntry::setProxyConnection(bool value) {
    mf_setState(STATE_PROXY_CONNECTION, value);
}

bool ConferenceRosterEntry::isMUXPending() const {
    return mf_state(STATE_MUX_PENDING);
}

void ConferenceRosterEntry::setMUXPending(bool value) {
    mf_setState(STATE_MUX_PENDING, value);
}

bool ConferenceRosterEntry::isMUXEncrypt() const {
    return mf_state(STATE_MUX_ENCRYPT);
}

void ConferenceRosterEntry::setMUXEncrypt(bool value) {
    mf_setState(STATE_MUX_ENCRYPT, value);
}

bool ConferenceRosterEntry::isSecurePreferred() const {
    return mf_state(STATE_SECURE_PREFERRED);
}

void ConferenceRosterEntry::setSecurePreferred(bool value) {
    mf_setState(STATE_SECURE_PREFERRED, value);
}

bool ConferenceRosterEntry::isMUXRedirected() const {
    return mf_state(STATE_MUX_REDIRECTED);
}

void ConferenceRosterEntry::setMUXRedirected(bool value) {
    mf_setState(STATE_MUX_REDIRECTED, value);
}

bool ConferenceRosterEntry::isFIPSSecureRequired() const {
    return mf_state(STATE_FIPS_SECURE_REQUIRED);
}

void ConferenceRosterEntry::setFIPSSecureRequired(bool value) {
    mf_setState(STATE_FIPS_SECURE_REQUIRED, value);
}

bool ConferenceRosterEntry::isHidingIPsRequired() const {
    return mf_state(STATE_HIDING_IPS_REQUIRED);
}

void ConferenceRosterEntry::setHidingIPsRequired(bool value) {
    mf_setState(STATE_HIDING_IPS_REQUIRED, value);
}

bool ConferenceRosterEntry::isSSLOnly() const {
    return mf_state(STATE_SSL_ONLY);
}

void ConferenceRosterEntry::setSSLOnly(bool value) {
    mf_setState(STATE_SSL_ONLY, value);
}

// ---- Text and wire form ----

std::string ConferenceRosterEntry::toString() const {
    return RosterBase::toString(isHidingIPsRequired()) + formatText("State:  0x%X\n", m_state) +
           "Meeting Name:  " + m_meetingName + "\nMeeting ID:  " + m_meetingID +
           "\nProxy:  " + m_proxyName + '\n';
}

std::uint64_t ConferenceRosterEntry::size() const {
    return RosterBase::size() + sizeof(m_state) + vintok::size(m_meetingName) +
           vintok::size(m_meetingID);
}

std::uint64_t ConferenceRosterEntry::write(unsigned char *buffer, std::uint64_t length) const {
    if (buffer == nullptr || length < size())
        return 0;
    BufferManager cursor(buffer, length);
    const std::uint64_t baseSize = RosterBase::write(buffer, length);
    cursor.seek(baseSize);
    if (baseSize == 0 || cursor.write(m_state) == 0 || cursor.write(m_meetingName) == 0 ||
        cursor.write(m_meetingID) == 0)
        return 0;
    return cursor.tell();
}

std::uint64_t ConferenceRosterEntry::read(const unsigned char *buffer, std::uint64_t length) {
    clear();
    m_state = 0;
    m_meetingName.clear();
    m_meetingID.clear();
    if (buffer == nullptr || length < size())
        return 0;
    BufferManager cursor(const_cast<unsigned char *>(buffer), length); // only read from
    const std::uint64_t baseSize = RosterBase::read(buffer, length);
    cursor.seek(baseSize);
    if (baseSize == 0 || cursor.read(m_state) == 0 || readText(cursor, m_meetingName) == 0 ||
        readText(cursor, m_meetingID) == 0)
        return 0;
    return cursor.tell();
}

} // namespace vintok
