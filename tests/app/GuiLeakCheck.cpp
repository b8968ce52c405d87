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
