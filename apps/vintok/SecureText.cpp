#include "Secure.h"

#include <vintok/TCPStream.h>

namespace app::secure {

std::string channelOf(int descriptor) {
    bool secure = false;
    bool closed = false;
    bool bound[3] = {};
    std::string text;
    std::size_t bits = 0;
    if (!vintok::descriptorState(descriptor, secure, closed, bound[0], bound[1], bound[2]) ||
        !secure || !vintok::secureStatus(descriptor, bits, text))
        return "";
    return text;
}

Notice describe(int descriptor, const std::string &name, const std::string &server) {
    const std::string whom = server.empty() ? name : server + ", on the way to " + name + ',';
    const std::string channel = channelOf(descriptor);
    Notice notice;
    notice.fields.text("name", name);
    if (channel.empty()) {
        notice.event = "plain";
        notice.sentence = "The connection to " + whom + " is NOT encrypted.";
        return notice;
    }
    vintok::TCPCertInfo info;
    vintok::certificateInfo(descriptor, info);
    notice.event = "encrypted";
    notice.sentence = "The connection to " + whom + " is encrypted: " + channel + '.';
    notice.fields.text("channel", channel).text("server", server);
    if (info.m_text1.empty()) {
        notice.sentence += " No certificate was shown.";
        return notice;
    }
    notice.sentence += " Certificate: " + info.m_text1 + ", issued by " + info.m_text2 +
                       ", valid until " + info.m_text3 + ", SHA-256 " + info.m_text4 + '.';
    notice.fields.text("subject", info.m_text1)
        .text("issuer", info.m_text2)
        .text("until", info.m_text3)
        .text("fingerprint", info.m_text4);
    return notice;
}

} // namespace app::secure
