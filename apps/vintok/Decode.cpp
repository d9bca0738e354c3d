#include "Decode.h"

#include "JsonLine.h"
#include "MessageText.h"
#include "Person.h"
#include "RecordReader.h"
#include "Text.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>

namespace app {

namespace {

// What is shown of one value and of one run of bytes, unless all is wanted.
constexpr std::size_t textLimit = 1024;
constexpr std::size_t bytesLimit = 256;

constexpr std::size_t bytesPerLine = 16;
constexpr std::size_t keyWidth = 11;

void print(const std::string &text) {
    std::fputs((text + '\n').c_str(), stdout);
}

// The addresses of parties that have said so far that they hide. Whoever else has one of them would
// give it away.
class HiddenAddresses {
public:
    void add(const std::string &address) { m_addresses.insert(address); }

    void hide(std::string &address) const {
        vintok::TCPAddress literal;
        literal.setName(address);
        std::string usual = address; // as entries have it
        if (literal.isIPv4() || literal.isIPv6())
            literal.ipString(usual);
        if (m_addresses.count(usual) != 0)
            address = hiddenAddress;
    }

private:
    std::set<std::string> m_addresses;
};

// One message of the file, and how much of it is to be shown.
class Printer {
public:
    Printer(const vintok::TCPMessage &message, std::uint64_t offset, bool full)
        : m_message(message),
          m_offset(offset),
          m_body(readBody(message)),
          m_shown(m_body.rest.substr(0, full ? std::string_view::npos : bytesLimit)),
          m_full(full) {
        if (m_message.ipType() != vintok::TCPAddress::IPTYPE_NONE)
            m_message.ipString(m_origin);
    }

    void hide(HiddenAddresses &addresses) {
        if (!m_body.hides.empty())
            addresses.add(m_body.hides);
        addresses.hide(m_origin);
        for (Fields::Field &field : m_body.fields.all())
            if (field.isAddress)
                addresses.hide(std::get<std::string>(field.value));
    }

    void asJson() {
        JsonLine line("message");
        line.number("offset", static_cast<std::int64_t>(m_offset))
            .number("time", m_message.timeStamp())
            .text("identifier", identifierName(m_message.messageID()))
            .text("frame", frameVersion())
            .text("version", messageVersion())
            .text("address", m_origin)
            .number("port", m_message.hostByteOrderPort())
            .number("length", static_cast<std::int64_t>(m_message.messageBufferLength()))
            .flag("malformed", m_body.malformed)
            .object("body", JsonLine().fields(m_body.fields))
            .text("hex", hexadecimal(m_shown))
            .number("hidden", static_cast<std::int64_t>(hidden()));
        print(line.str());
    }

    void asText() {
        const std::uint64_t length = m_message.messageBufferLength();
        print(std::to_string(m_offset) + "  " + timeText(m_message.timeStamp()) + "  " +
              identifierName(m_message.messageID()) + "  " + std::to_string(length) +
              (length == 1 ? " byte" : " bytes") + "  frame " + frameVersion() + "  message " +
              messageVersion() + originText());
        for (const Fields::Field &field : m_body.fields.all())
            printField(field);
        if (m_body.malformed)
            print("    not what its identifier promises:");
        for (std::size_t at = 0; at < m_shown.size(); at += bytesPerLine)
            printBytes(m_shown.substr(at, bytesPerLine));
        if (hidden() != 0)
            print("    and " + std::to_string(hidden()) + " more bytes, which --full shows");
    }

private:
    std::size_t hidden() const { return m_body.rest.size() - m_shown.size(); }
    std::string frameVersion() const {
        return versionText(m_message.majorVersion(), m_message.minorVersion());
    }
    std::string messageVersion() const {
        return versionText(m_message.messageMajorVersion(), m_message.messageMinorVersion());
    }

    std::string originText() const {
        if (m_origin.empty())
            return "";
        const unsigned short port = m_message.hostByteOrderPort();
        return "  from " + printable(m_origin) + (port == 0 ? "" : " port " + std::to_string(port));
    }

    // Further lines of a text stand below its first. An empty text is not worth a line.
    void printField(const Fields::Field &field) const {
        std::string value = valueText(field);
        if (value.empty())
            return;
        std::string key = field.key;
        key.resize(std::max(key.size(), keyWidth), ' ');
        if (!m_full && value.size() > textLimit)
            value = value.substr(0, textLimit) + " ... (--full shows it all)";
        for (std::size_t begin = 0; begin <= value.size();) {
            const std::size_t end = std::min(value.find('\n', begin), value.size());
            print("    " + key + ' ' + printable(value.substr(begin, end - begin)));
            key.assign(key.size(), ' ');
            begin = end + 1;
        }
    }

    static void printBytes(std::string_view bytes) {
        std::string text = hexadecimal(bytes, " ");
        text.resize(bytesPerLine * 3, ' ');
        for (const char c : bytes)
            text += c >= ' ' && c <= '~' ? c : '.';
        print("    " + text);
    }

    const vintok::TCPMessage &m_message;
    std::uint64_t m_offset;
    BodyText m_body;
    std::string_view m_shown;
    bool m_full;
    std::string m_origin;
};

// Null, with the reason told, when there is nothing to read from.
std::FILE *openRecord(const std::string &path, File &file, Report &report) {
    if (path == "-") {
        // A system whose standard input has such a name passes its bytes on as they are.
        std::error_code error;
        if (std::filesystem::exists("/dev/stdin", error))
            return stdin;
        report.failed("cannot open '-': the standard input is no stream of bytes on this system");
        return nullptr;
    }
    file.reset(std::fopen(path.c_str(), "rb"));
    if (!file)
        report.failed("cannot open '" + path + "': " + std::strerror(errno));
    return file.get();
}

} // namespace

int runDecode(const Options &options, Report &report) {
    File file;
    std::FILE *const input = openRecord(options.file, file, report);
    if (!input)
        return 1;
    RecordReader reader(input);
    vintok::TCPMessage message;
    HiddenAddresses addresses;
    RecordReader::Result result = reader.next(message);
    for (; result == RecordReader::Result::record; result = reader.next(message)) {
        Printer printer(message, reader.offset(), options.full);
        if (!options.addresses)
            printer.hide(addresses);
        options.json ? printer.asJson() : printer.asText();
    }
    if (result == RecordReader::Result::damaged) {
        if (options.json) {
            print(JsonLine("damaged")
                      .number("offset", static_cast<std::int64_t>(reader.offset()))
                      .text("reason", reader.fault())
                      .str());
        }
        report.failed("'" + options.file + "' stops making sense at byte " +
                      std::to_string(reader.offset()) + ": " + reader.fault());
        return 1;
    }
    return 0;
}

} // namespace app
