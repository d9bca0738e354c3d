#include "vintok-tls/TLSFolder.h"

#include "platform/File.h"
#include "platform/Resolve.h"
#include "vintok-tls/Authority.h"
#include "vintok/TCPStream.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>

namespace vintok {

namespace {

constexpr std::int64_t hour = 3600; // that other clocks may be behind
constexpr std::int64_t year = std::int64_t{365} * 24 * hour;

struct NewFile {
    std::string path;
    std::string text;
    bool isKey;
};

std::string because(const std::string &path) {
    return "cannot create " + path + ": " + std::strerror(errno);
}

bool writeFile(const NewFile &file, std::string &words) {
    std::FILE *stream =
        file.isKey ? platform::createPrivateFile(file.path) : platform::openFile(file.path, "wx");
    if (stream == nullptr) {
        words = because(file.path);
        return false;
    }
    const bool written =
        std::fwrite(file.text.data(), 1, file.text.size(), stream) == file.text.size();
    if (std::fclose(stream) == 0 && written)
        return true;
    words = because(file.path);
    platform::removeFile(file.path);
    return false;
}

bool writeAll(const std::vector<NewFile> &files, std::string &words) {
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (writeFile(files[i], words))
            continue;
        for (std::size_t made = 0; made < i; ++made)
            platform::removeFile(files[made].path);
        return false;
    }
    return true;
}

std::vector<std::string> hostNames(const std::vector<std::string> &names) {
    std::vector<std::string> all = {"localhost", "127.0.0.1", "::1"};
    if (std::string own; platform::hostName(own) && own != all.front())
        all.push_back(own);
    all.insert(all.end(), names.begin(), names.end());
    return all;
}

bool create(const std::string &folder, const std::vector<std::string> &names, std::string &words) {
    const auto now = static_cast<std::int64_t>(std::time(nullptr));
    tls::Authority authority;
    tls::Issued host;
    tls::Issued guest;
    const tls::Request forHost{"vintok host", hostNames(names), now - hour, now + 2 * year};
    const tls::Request forGuest{"vintok guest", {}, now - hour, now + 2 * year};
    if (!authority.create("vintok private authority", now - hour, now + 10 * year, words) ||
        !authority.issue(forHost, host, words) || !authority.issue(forGuest, guest, words))
        return false;
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) {
        words = "cannot create " + folder + ": " + error.message();
        return false;
    }
    const std::string at = folder + '/';
    return writeAll({{at + "ca.key", authority.own().key, true},
                     {at + "ca.pem", authority.own().certificate, false},
                     {at + "host.key", host.key, true},
                     {at + "host.pem", host.certificate, false},
                     {at + "guest.key", guest.key, true},
                     {at + "guest.pem", guest.certificate, false}},
                    words);
}

} // namespace

bool createTLSFolder(const std::string &folder, const std::vector<std::string> &names) {
    std::string words;
    if (create(folder, names, words))
        return true;
    setLastError(TCP_ERROR_SSL_TRANSPORT, "vintok::createTLSFolder\n" + words);
    return false;
}

} // namespace vintok
