// What the sanitizer runtimes are told about code outside the project, built
// into the test programs. GLib, GStreamer, libnice and OpenSSL are not built
// with the sanitizers:
//  - their one-time allocations (type and plugin registries, GStreamer's
//    default DTLS certificate, thread pools) live until the process exits;
//    leaks of the engine's own objects are caught by counting descriptors and
//    threads per call instead (GStreamerLifecycleTest);
//  - their mutexes and conditions are futex based and invisible to
//    ThreadSanitizer, so hand-offs between their threads look like races.
// Nothing of the project's own code is suppressed here.

extern "C" const char* __lsan_default_suppressions() {
    return "leak:libglib-2.0.so\n"
           "leak:libgobject-2.0.so\n"
           "leak:libgio-2.0.so\n"
           "leak:libgstreamer-1.0.so\n"
           "leak:libgstbase-1.0.so\n"
           "leak:libgstwebrtc-1.0.so\n"
           "leak:libgstsdp-1.0.so\n"
           "leak:/gstreamer-1.0/\n"
           "leak:libnice.so\n"
           "leak:libcrypto.so\n"
           "leak:libssl.so\n"
           "leak:libfontconfig.so\n"
           "leak:liborc-0.4.so\n";
}

extern "C" const char* __tsan_default_suppressions() {
    return "called_from_lib:libglib-2.0.so\n"
           "called_from_lib:libgobject-2.0.so\n"
           "called_from_lib:libgstreamer-1.0.so\n"
           "called_from_lib:libgstbase-1.0.so\n"
           "called_from_lib:libnice.so\n"
           "race:libglib-2.0.so\n"
           "race:libgobject-2.0.so\n"
           "race:libgio-2.0.so\n"
           "race:libgstreamer-1.0.so\n"
           "race:libgstbase-1.0.so\n"
           "race:libgstapp-1.0.so\n"
           "race:libgstwebrtc-1.0.so\n"
           "race:libgstwebrtcnice-1.0.so\n"
           "race:/gstreamer-1.0/\n"
           "race:libnice.so\n"
           "race:libcrypto.so\n"
           "deadlock:libgstreamer-1.0.so\n"
           "mutex:libglib-2.0.so\n";
}
