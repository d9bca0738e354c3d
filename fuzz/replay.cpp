// Tries inputs that are kept: each argument is a file, or a folder whose files are tried.
#include "Fuzz.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace {

namespace files = std::filesystem;

bool replay(const files::path &path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    if (!file)
        return false;
    std::fprintf(stderr, "%s\n", path.string().c_str());
    // Memory of its very size: a sanitizer sees who reads beyond it.
    const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(input.data(), input.size());
    return true;
}

} // namespace

int main(int argc, char **argv) {
    std::vector<files::path> inputs;
    for (const std::string &argument : std::vector<std::string>(argv + 1, argv + argc)) {
        if (!files::is_directory(argument))
            inputs.emplace_back(argument);
        else
            for (const files::directory_entry &entry : files::directory_iterator(argument))
                inputs.push_back(entry.path());
    }
    std::sort(inputs.begin(), inputs.end());
    if (inputs.empty() || !std::all_of(inputs.begin(), inputs.end(), replay)) {
        std::fprintf(stderr, "no inputs, or one that cannot be read\n");
        return 2;
    }
    return 0;
}
