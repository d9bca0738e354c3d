#include <vintok/testTCPServer.h>

int main(int argc, char **argv) {
    return vintok::testTCPServer_server_main(argc, argv);
}
