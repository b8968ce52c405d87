// What the GUI tests' leak check must know about the libraries under them.

#include <dlfcn.h>

namespace {

// Mesa unloads its software rasteriser when the program's last GL display
// closes, before the leak check runs; what the driver's globals still held
// then looks leaked. Loaded here for good, its globals stay to be scanned.
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
