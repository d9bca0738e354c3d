// The program that the process tests start. Its first argument says what it does.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>

namespace {

int printArguments(int count, char **arguments) {
    for (int i = 2; i < count; ++i) {
        std::cout << '[' << arguments[i] << "]\n";
    }
    return 0;
}

int printVariable(const char *name) {
    const char *value = std::getenv(name);
    std::cout << name << (value ? std::string("=") + value : std::string(" is not set")) << '\n';
    return 0;
}

// Answers each line until there are no more.
int echo() {
    std::cout << "ready\n" << std::flush;
    for (std::string line; std::getline(std::cin, line);) {
        std::cout << "heard " << line << '\n' << std::flush;
    }
    std::cout << "end of input\n";
    std::cerr << "bye\n";
    return 7;
}

// More than any pipe holds.
int flood() {
    for (int line = 0; line < 20000; ++line) {
        std::cout << "line " << line << " of a long story\n";
    }
    return 0;
}

int countDescriptors() {
    std::error_code error;
    std::filesystem::directory_iterator entry("/proc/self/fd", error);
    int count = 0;
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        ++count;
    }
    std::cout << "descriptors " << count << '\n';
    return 0;
}

} // namespace

int main(int count, char **arguments) {
    const std::string what = count > 1 ? arguments[1] : "";
    if (what == "arguments") {
        return printArguments(count, arguments);
    }
    if (what == "variable" && count > 2) {
        return printVariable(arguments[2]);
    }
    if (what == "echo") {
        return echo();
    }
    if (what == "flood") {
        return flood();
    }
    return what == "descriptors" ? countDescriptors() : 99;
}
