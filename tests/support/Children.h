// The children of this process, as the system shows them.
#ifndef VINTOK_TESTS_SUPPORT_CHILDREN_H
#define VINTOK_TESTS_SUPPORT_CHILDREN_H

#include <filesystem>
#include <fstream>
#include <optional>
#include <vector>

namespace vintok::test {

// Those that have not been waited for, ended ones too; nothing where that cannot be asked.
inline std::optional<std::vector<unsigned int>> children() {
    std::optional<std::vector<unsigned int>> found;
    std::error_code none;
    for (const auto &task : std::filesystem::directory_iterator("/proc/self/task", none)) {
        std::ifstream file(task.path() / "children");
        if (!file)
            continue;
        found = found.value_or(std::vector<unsigned int>());
        for (unsigned int id = 0; file >> id;)
            found->push_back(id);
    }
    return found;
}

// How many they are; where that cannot be asked, as many as are expected.
inline std::size_t childCount(std::size_t expected) {
    const auto found = children();
    return found ? found->size() : expected;
}

} // namespace vintok::test

#endif
