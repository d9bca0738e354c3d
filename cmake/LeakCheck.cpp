// Built into the programs where LeakSanitizer looks for leaks. They end by `_Exit`, past everything
// that is done at the end of a process, this check included.
#include <sanitizer/lsan_interface.h>
#include <unistd.h>

extern "C" [[noreturn]] void _Exit(int code) noexcept {
    __lsan_do_leak_check();
    _exit(code);
}
