// A meeting beside the message loop of a Windows program. The meeting has a thread of its own; what
// happens there is posted to a window, and the window hands back what is to be done by `wake`.
#include "meeting.h"

#include <windows.h>

#include <thread>

namespace {

constexpr UINT meetingIsOver = WM_APP;

void ended(void *loop) {
    static_cast<vintok::TCPSelect *>(loop)->interrupt();
}

// On the meeting's thread: whatever belongs to it is made, used and destroyed here.
void hold(HWND window, vintok::TCPSelect **loop, HANDLE ready) {
    Meeting meeting;
    *loop = meeting.loop.setWakeCallback(ended, &meeting.loop) ? &meeting.loop : nullptr;
    SetEvent(ready);
    while (!meeting.isOver)
        meeting.loop.pollDescriptors(false);
    PostMessage(window, meetingIsOver, 0, 0);
    meeting.loop.run(); // until the window says that it may end
}

LRESULT CALLBACK onMessage(HWND window, UINT message, WPARAM wide, LPARAM longer) {
    if (message != meetingIsOver)
        return DefWindowProc(window, message, wide, longer);
    std::cout << "the window knows" << std::endl;
    PostQuitMessage(0);
    return 0;
}

} // namespace

int main() {
    WNDCLASSA kind = {};
    kind.lpfnWndProc = onMessage;
    kind.hInstance = GetModuleHandle(nullptr);
    kind.lpszClassName = "meeting";
    RegisterClassA(&kind);
    const HWND window =
        CreateWindowA("meeting", "", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, kind.hInstance, nullptr);
    if (window == nullptr)
        return 1;
    vintok::TCPSelect *loop = nullptr;
    const HANDLE ready = CreateEvent(nullptr, FALSE, FALSE, nullptr);
    std::thread meeting(hold, window, &loop, ready);
    WaitForSingleObject(ready, INFINITE);
    MSG message;
    while (GetMessage(&message, nullptr, 0, 0) > 0) {
        TranslateMessage(&message);
        DispatchMessage(&message);
    }
    loop->wake();
    meeting.join();
    CloseHandle(ready);
}
