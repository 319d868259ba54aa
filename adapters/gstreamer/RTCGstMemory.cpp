#include "RTCGstMemory.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>  // defines __GLIBC__ with glibc
#include <mutex>

#include "RTCGstPlatform.h"
#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace {

/// glibc's initial mmap threshold, which it otherwise raises as blocks are
/// freed.
constexpr int kMmapThreshold = 128 * 1024;

}  // namespace

void RTCGstMemory::configure() {
#ifdef __GLIBC__
    static std::once_flag once;
    std::call_once(once, [] {
        mallopt(M_MMAP_THRESHOLD, kMmapThreshold);
        // glibc's default is eight arenas per core: each call's new streaming
        // threads spread its small blocks over more of them, and every arena
        // keeps the pages its survivors pin.
        mallopt(M_ARENA_MAX, static_cast<int>(std::max(2L, sysconf(_SC_NPROCESSORS_ONLN))));
    });
#endif
}

void RTCGstMemory::release() {
#ifdef __GLIBC__
    malloc_trim(0);
#endif
}

void RTCGstPlatform::restartWithSystemAllocator(char** argv) noexcept {
    if (argv && argv[0] && std::getenv("G_SLICE") == nullptr &&
        setenv("G_SLICE", "always-malloc", 1) == 0) {
        execv("/proc/self/exe", argv);
        unsetenv("G_SLICE");  // not restarted: carry on as we are
    }
}
