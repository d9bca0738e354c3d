// The program that the process tests start. Its first argument says what it does.
#include "platform/TestSockets.h"

#include <fstream>
#include <iostream>
#include <string>

namespace {

// The arguments behind the file's name go there.
int writeArguments(int count, char **arguments) {
    std::ofstream file(arguments[2]);
    for (int i = 3; i < count; ++i) {
        file << '[' << arguments[i] << ']';
    }
    return 0;
}

// Answers each line until there are no more.
int echo() {
    std::cout << "ready\n" << std::flush;
    for (std::string line; std::getline(std::cin, line);) {
        std::cout << "heard " << line << '\n' << std::flush;
    }
    std::cout << "end of input\n";
    return 7;
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
    if (what == "write" && count > 2) {
        return writeArguments(count, arguments);
    }
    if (what == "echo") {
        return echo();
    }
    return what == "files" ? countFiles(count, arguments) : 99;
}
