#include "Sha256.h"

#include <gcrypt.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <type_traits>

namespace app {

namespace {

constexpr std::size_t blockSize = 65536;
constexpr std::size_t digestLength = 32;
constexpr char hexDigits[] = "0123456789abcdef";

struct Close {
    void operator()(std::FILE *stream) const { std::fclose(stream); }
    void operator()(gcry_md_hd_t digest) const { gcry_md_close(digest); }
};
using File = std::unique_ptr<std::FILE, Close>;
using Digest = std::unique_ptr<std::remove_pointer_t<gcry_md_hd_t>, Close>;

// Nothing here is secret, so no memory is set aside for secrets.
bool startCrypto() {
    static const bool started = gcry_check_version(GCRYPT_VERSION) != nullptr &&
                                gcry_control(GCRYCTL_DISABLE_SECMEM, 0) == 0 &&
                                gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0) == 0;
    return started;
}

Digest makeDigest() {
    gcry_md_hd_t digest = nullptr;
    if (!startCrypto() || gcry_md_open(&digest, GCRY_MD_SHA256, 0) != 0) {
        errno = ENOSYS;
        return nullptr;
    }
    return Digest(digest);
}

} // namespace

bool sumFile(const std::string &path, FileSum &sum) {
    const File file(std::fopen(path.c_str(), "rb"));
    const Digest digest = file ? makeDigest() : nullptr;
    if (!digest)
        return false;
    FileSum read;
    std::array<unsigned char, blockSize> block;
    while (const std::size_t count = std::fread(block.data(), 1, block.size(), file.get())) {
        gcry_md_write(digest.get(), block.data(), count);
        read.size += count;
    }
    if (std::ferror(file.get()))
        return false;
    const unsigned char *bytes = gcry_md_read(digest.get(), GCRY_MD_SHA256);
    for (std::size_t i = 0; i < digestLength; ++i) {
        read.sha256 += hexDigits[bytes[i] >> 4];
        read.sha256 += hexDigits[bytes[i] & 0xF];
    }
    sum = read;
    return true;
}

bool isSha256(std::string_view text) {
    return text.size() == 2 * digestLength &&
           text.find_first_not_of(hexDigits) == std::string_view::npos;
}

} // namespace app
