#include <vintok/testTCPServer.h>

int main(int argc, char **argv) {
    return vintok::testTCPServer_client_recv_main(argc, argv);
}
