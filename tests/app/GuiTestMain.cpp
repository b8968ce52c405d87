// The GUI tests' main, and what their leak check must know about the
// libraries under them.

#include <gtest/gtest.h>

#include <dlfcn.h>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace {

// Mesa unloads its software rasteriser when the program's last GL display
// closes, which a test may do before the leak check; what the driver's
// globals still held then looks leaked. Loaded here for good, its globals
// stay to be scanned.
struct KeepSoftwareRasteriserLoaded {
    KeepSoftwareRasteriserLoaded()
    {
        dlopen(ZENTO_MESA_SOFTWARE_DRIVER, RTLD_NOW | RTLD_NODELETE);
    }
} keepSoftwareRasteriserLoaded;

} // namespace

// Qt keeps each thread's record of its current GL context until the thread
// ends, which the main thread does after the leak check.
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:QOpenGLContextPrivate::setCurrentContext\n";
}

// Mesa's driver keeps thread-local data in blocks that glibc allocates when a
// thread first touches them. The sanitizer runtime of GCC 12 takes some of
// those blocks, by the offset where malloc happens to put them, for glibc's
// layout of before 2.25 and reads a bogus range out of them, which the leak
// check then scans and dies on ("Tracer caught signal 11", once in 40 runs
// of one GL test). Without following the thread-local blocks of loaded
// libraries, the driver's above all, the check still scans the heap, the
// stacks and the program's own thread-locals.
extern "C" const char* __asan_default_options()
{
    return "intercept_tls_get_addr=0";
}

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
#if defined(__SANITIZE_ADDRESS__)
    // The leak check runs here, while Qt's and Mesa's threads wait idle,
    // rather than at exit while the application's destructors stop them.
    // Leaks still end the program with the sanitizer's exit code, and the
    // check at exit is skipped.
    __lsan_do_leak_check();
#endif
    return result;
}
