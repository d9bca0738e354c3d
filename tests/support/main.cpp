#include "platform/Environment.h"

#include <gmock/gmock.h>

int main(int argc, char **argv) {
    // Parties ask for this machine's own address. Where the name service is out of reach they are
    // not to wait for it long.
    vintok::platform::setEnvironment("RES_OPTIONS", "timeout:1 attempts:1");
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
