#include "RTCGstMemory.h"

#include <cstdlib>  // defines __GLIBC__ with glibc
#include <mutex>
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
    std::call_once(once, [] { mallopt(M_MMAP_THRESHOLD, kMmapThreshold); });
#endif
}

void RTCGstMemory::release() {
#ifdef __GLIBC__
    malloc_trim(0);
#endif
}
