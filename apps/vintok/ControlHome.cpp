#include "ControlHome.h"

#include "Variables.h"

#include <filesystem>
#include <initializer_list>

namespace app {

namespace {

namespace fs = std::filesystem;

// The name of an executable with and without the suffix that some systems want.
bool holdsProgram(const fs::path &folder, const std::string &name) {
    std::error_code error;
    return fs::is_regular_file(folder / name, error) ||
           fs::is_regular_file(folder / (name + ".exe"), error);
}

// As the system's shell finds a program that was named without a folder.
fs::path folderOnPath(const std::string &name) {
    const char separator = fs::path::preferred_separator == '/' ? ':' : ';';
    const std::string path = variable("PATH");
    for (std::size_t begin = 0; begin <= path.size();) {
        const std::size_t end = std::min(path.find(separator, begin), path.size());
        fs::path folder = path.substr(begin, end - begin);
        if (holdsProgram(folder, name))
            return folder;
        begin = end + 1;
    }
    return {};
}

fs::path ownFolder(const std::string &program) {
    std::error_code error;
    const fs::path self = fs::read_symlink("/proc/self/exe", error); // where there is such a thing
    if (!error)
        return self.parent_path();
    const fs::path named = program;
    const fs::path folder = named.has_parent_path() ? named.parent_path() : folderOnPath(program);
    return folder.empty() ? folder : fs::absolute(folder, error);
}

} // namespace

void setControlHome(const std::string &folder, const std::string &program) {
    if (!folder.empty()) {
        setVariable("QOR_INSTALL", folder);
        return;
    }
    if (!variable("QOR_INSTALL").empty() || !variable("PROOT").empty())
        return;
    const fs::path own = ownFolder(program);
    if (!own.empty() && holdsProgram(own, "ConferenceControl"))
        setVariable("QOR_INSTALL", own.string());
}

} // namespace app
