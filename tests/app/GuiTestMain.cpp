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

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
#if defined(__SANITIZE_ADDRESS__)
    // The leak check runs here, while Qt's and Mesa's threads wait idle. At
    // exit it would run while the application's destructors stop those
    // threads, and the checker, suspending a thread in the middle of ending,
    // now and then crashes ("Tracer caught signal 11") after every test
    // passed. Leaks still end the program with the sanitizer's exit code, and
    // the check at exit is skipped.
    __lsan_do_leak_check();
#endif
    return result;
}
