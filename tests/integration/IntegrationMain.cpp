// The integration suite's main. GStreamer keeps threads of its own (task
// pools, GLib's worker, elements' helper threads) that may still be winding
// down when the last test returns; running the process's static destructors
// under them has crashed the suite after every test had passed. The suite
// therefore ends without them, once the leak check (under AddressSanitizer) has
// run; ThreadSanitizer still reports on _exit.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    const int failed = RUN_ALL_TESTS();
    std::fflush(stdout);
    std::fflush(stderr);
#if defined(__SANITIZE_ADDRESS__)
    __lsan_do_leak_check();  // exits non-zero on a leak
#endif
    std::_Exit(failed);
}
