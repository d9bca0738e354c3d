// Stands in for the control process. VINTOK_TEST_CONTROL says what it does: "connect" and stay,
// also after its application has gone; "die" before; "sleep" instead.
#include <vintok/TCPStream.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

int main(int count, char **arguments) {
    const char *variable = std::getenv("VINTOK_TEST_CONTROL");
    const std::string what = variable != nullptr ? variable : "connect";
    if (what == "die" || count < 3 || std::strcmp(arguments[1], "-path") != 0)
        return 3;
    vintok::init();
    if (what != "sleep" && vintok::connectUnix(arguments[2]) == -1)
        return 4;
    std::this_thread::sleep_for(std::chrono::minutes(2)); // nobody waits for it
    return 0;
}
