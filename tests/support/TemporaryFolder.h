// Files of a test: what one holds, and a folder of the test's own, removed with everything in it at
// the end.
#ifndef VINTOK_TESTS_SUPPORT_TEMPORARYFOLDER_H
#define VINTOK_TESTS_SUPPORT_TEMPORARYFOLDER_H

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <string_view>

namespace vintok::test {

inline std::string contentOf(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

class TemporaryFolder {
public:
    TemporaryFolder() {
        std::random_device random;
        m_path = std::filesystem::temp_directory_path() /
                 ("vintok-test-" + std::to_string(random()) + std::to_string(random()));
        std::filesystem::create_directory(m_path);
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;

    std::string path(const std::string &name) const { return (m_path / name).string(); }

    // Writes a file and gives its path.
    std::string holding(const std::string &name, std::string_view content) const {
        std::ofstream(path(name), std::ios::binary) << content;
        return path(name);
    }

    std::string content(const std::string &name) const { return contentOf(path(name)); }

private:
    std::filesystem::path m_path;
};

} // namespace vintok::test

#endif
