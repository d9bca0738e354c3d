// The program that the process tests start. Its first argument says what it does.
#include "platform/TestSockets.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>

namespace {

int printArguments(int count, char **arguments) {
    for (int i = 2; i < count; ++i) {
        std::cout << '[' << arguments[i] << "]\n";
    }
    return 0;
}

// The arguments behind the file's name go there.
int writeArguments(int count, char **arguments) {
    std::ofstream file(arguments[2]);
    for (int i = 3; i < count; ++i) {
        file << '[' << arguments[i] << ']';
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

// Of the files whose numbers it is told, how many it has got.
int countFiles(int count, char **arguments) {
    int open = 0;
    for (int i = 2; i < count; ++i) {
        open += vintok::platform::isOpenFile(std::atoll(arguments[i])) ? 1 : 0;
    }
    std::cout << "has " << open << " of " << count - 2 << '\n';
    return 0;
}

} // namespace

int main(int count, char **arguments) {
    const std::string what = count > 1 ? arguments[1] : "";
    if (what == "arguments") {
        return printArguments(count, arguments);
    }
    if (what == "write" && count > 2) {
        return writeArguments(count, arguments);
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
    return what == "files" ? countFiles(count, arguments) : 99;
}
