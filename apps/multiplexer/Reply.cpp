#include "Reply.h"

#include <vintok/HTTPText.h>

namespace mux {

namespace {

struct Phrase {
    int status;
    const char *text;
};

const Phrase phrases[] = {
    {302, "Found"},
    {400, "Bad Request"},
    {401, "Unauthorized"},
    {403, "Forbidden"},
    {404, "Not Found"},
    {405, "Method Not Allowed"},
    {407, "Proxy Authentication Required"},
    {408, "Request Timeout"},
    {431, "Request Header Fields Too Large"},
    {502, "Bad Gateway"},
    {503, "Service Unavailable"},
    {504, "Gateway Timeout"},
};

std::string phraseOf(int status) {
    for (const Phrase &phrase : phrases)
        if (phrase.status == status)
            return phrase.text;
    return "Error";
}

std::string head(int status, const std::string &phrase) {
    return "HTTP/1.0 " + std::to_string(status) + ' ' + phrase + "\r\n" +
           vintok::http_pLorMUX_Version2_0 + "\r\n";
}

} // namespace

std::string openedReply(bool encrypted) {
    return head(200, "Connection established") + vintok::http_pLorMUX_Encrypt +
           (encrypted ? ": true\r\n\r\n" : ": false\r\n\r\n");
}

std::string jumpedReply() {
    return head(200, "Connection established") + "\r\n";
}

std::string refusal(int status, std::string_view reason, std::string_view more) {
    std::string text = head(status, phraseOf(status));
    text.append(more);
    text.append(vintok::http_pLorMUX_Reason).append(": ").append(reason);
    return text + "\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
}

std::string pageReply(std::string_view page) {
    return "HTTP/1.0 200 OK\r\nContent-Type: text/plain; charset=utf-8\r\n"
           "Cache-Control: no-store\r\nContent-Length: " +
           std::to_string(page.size()) + "\r\nConnection: close\r\n\r\n" + std::string(page);
}

} // namespace mux
