#include "platform/TestSockets.h"

#include "platform/win32/SystemSockets.h"

#include <io.h>

namespace vintok::platform {

namespace {

bool isInheritedHandle(std::intptr_t handle) {
    DWORD flags = 0;
    return GetHandleInformation(reinterpret_cast<HANDLE>(handle), &flags) &&
           (flags & HANDLE_FLAG_INHERIT) != 0;
}

} // namespace

bool resetOnClose(int descriptor) {
    const linger option = {1, 0};
    return ::setsockopt(static_cast<SOCKET>(descriptor), SOL_SOCKET, SO_LINGER,
                        reinterpret_cast<const char *>(&option), sizeof(option)) == 0;
}

std::size_t descriptorLimit() {
    return 0;
}

bool setDescriptorLimit(std::size_t) {
    return false;
}

bool limitFileSize(std::size_t) {
    return false;
}

bool isInherited(int descriptor) {
    return isInheritedHandle(descriptor);
}

bool isInherited(std::FILE *file) {
    return isInheritedHandle(fileNumber(file));
}

std::intptr_t fileNumber(std::FILE *file) {
    return _get_osfhandle(_fileno(file));
}

bool isOpenFile(std::intptr_t number) {
    return GetFileType(reinterpret_cast<HANDLE>(number)) == FILE_TYPE_DISK;
}

bool startInterrupting() {
    return false;
}

void stopInterrupting() {}

bool interruptOnce(std::uint32_t, void (*)(int)) {
    return false;
}

bool leaveNetwork() {
    return false;
}

} // namespace vintok::platform
