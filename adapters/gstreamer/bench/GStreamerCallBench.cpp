// Call set-up time and cost of a two-way 640x480 VP8 + Opus call on the
// GStreamer engine, relayed through a coturn on loopback.
//
//   velmorin_gstreamer_bench [--calls N] [--seconds S]
//
// Prints the median (and min/max) time from asking for the offer to both
// peers Connected and to the first remote frame at both peers (certificates
// made ahead), what the process holds after 1, 10 and 100 calls (RSS, open
// descriptors, threads, and the C allocator's blocks in use against its free
// blocks), then the CPU share and memory of this process during
// a call of S seconds.
//
// It runs as a long-running application should (RTCGstPlatform's
// restartWithSystemAllocator: GLib allocating with malloc); run it with
// "G_SLICE=" in the environment to measure GLib 2.74's slice allocator.
#include <sys/resource.h>
#ifdef __GLIBC__
#include <malloc.h>
#endif

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "GStreamerCallHarness.h"
#include "support/TurnServerFixture.h"

namespace {

using Clock = std::chrono::steady_clock;

double ms(Clock::duration d) {
    return std::chrono::duration<double, std::milli>(d).count();
}

void printSeries(const char* name, std::vector<double> values) {
    if (values.empty()) {
        std::printf("%-34s no samples\n", name);
        return;
    }
    std::sort(values.begin(), values.end());
    double median = values.size() % 2
                        ? values[values.size() / 2]
                        : (values[values.size() / 2 - 1] + values[values.size() / 2]) / 2;
    std::printf("%-34s median %7.1f ms   min %7.1f   max %7.1f   (n=%zu)\n", name, median,
                values.front(), values.back(), values.size());
}

long statusKb(const char* key) {
    std::ifstream in("/proc/self/status");
    for (std::string line; std::getline(in, line);) {
        if (line.rfind(key, 0) == 0) {
            return std::atol(line.c_str() + std::strlen(key));
        }
    }
    return 0;
}

/// Resident KiB of this process by kind of mapping: the main heap, other
/// anonymous memory (malloc's thread arenas, thread stacks, GLib's and
/// GStreamer's own pools) and mapped files (code and data of libraries).
struct ResidentKinds {
    long heap = 0;
    long anonymous = 0;
    long files = 0;
};

ResidentKinds residentKinds() {
    ResidentKinds kinds;
    std::ifstream in("/proc/self/smaps");
    long* current = nullptr;
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("Rss:", 0) == 0) {
            if (current) {
                *current += std::atol(line.c_str() + 4);
            }
            continue;
        }
        // A mapping's first line: "start-end perms offset dev inode [path]".
        if (line.empty() || !std::isxdigit(static_cast<unsigned char>(line[0])) ||
            line.find('-') == std::string::npos || line.find(':') == std::string::npos ||
            line.find(' ') > line.find(':')) {
            continue;
        }
        auto slash = line.find('/');
        auto bracket = line.find('[');
        if (slash != std::string::npos) {
            current = &kinds.files;
        } else if (bracket != std::string::npos && line.compare(bracket, 6, "[heap]") == 0) {
            current = &kinds.heap;
        } else {
            current = &kinds.anonymous;
        }
    }
    return kinds;
}

double cpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

}  // namespace

int main(int argc, char** argv) {
    RTCGstPlatform::restartWithSystemAllocator(argv);
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const char* slice = std::getenv("G_SLICE");
    std::printf("GLib's small-object allocator: %s\n",
                slice && std::strcmp(slice, "always-malloc") == 0
                    ? "malloc (G_SLICE=always-malloc)"
                    : "its slices (G_SLICE unset or other)");
    int calls = 7;
    double seconds = 10;
    for (int i = 1; i + 1 < argc; ++i) {
        if (std::strcmp(argv[i], "--calls") == 0) {
            calls = std::max(1, std::atoi(argv[++i]));
        } else if (std::strcmp(argv[i], "--seconds") == 0) {
            seconds = std::max(1.0, std::atof(argv[++i]));
        }
    }
    TurnServerFixture turn;
    if (!turn.start()) {
        std::fprintf(stderr, "coturn: %s\n", turn.error().c_str());
        return 1;
    }
    RTCGstPlatform::Options engineOptions;
    // Each call repeats the same warnings (no sound server here): once is enough.
    engineOptions.media.warningHandler = [](const std::string& text) {
        static std::mutex mutex;
        static std::set<std::string> seen;
        std::lock_guard lock(mutex);
        if (seen.insert(text).second) {
            std::fprintf(stderr, "[RTC] %s\n", text.c_str());
        }
    };
    auto platform = RTCGstPlatform::create(std::move(engineOptions));
    if (!platform) {
        std::fprintf(stderr, "GStreamer elements missing\n");
        return 1;
    }
    RTCPlatform::install(platform);
    auto credentials = turn.credentialsForUser("bench");
    GStreamerCallOptions options{turn.url(), credentials.username, credentials.password};

    std::vector<double> toConnected;
    std::vector<double> toFirstFrame;
    std::vector<double> frameAfterConnected;
    int failures = 0;
    int made = 0;
    long rssFirst = 0;
    // What the process holds once a call's tear-down has settled.
    auto resources = [&] {
        size_t descriptors = 0;
        for (int settled = 0, tries = 0; settled < 5 && tries < 100; ++tries) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            size_t now = GStreamerOpenDescriptors();
            settled = now == descriptors ? settled + 1 : 0;
            descriptors = now;
        }
        long rss = statusKb("VmRSS:");
        rssFirst = rssFirst ? rssFirst : rss;
        ResidentKinds kinds = residentKinds();
        std::printf(
            "after %3d calls: RSS %6.1f MiB (%+.1f MiB since the first), %zu open "
            "descriptors, %zu threads\n",
            made, double(rss) / 1024, double(rss - rssFirst) / 1024, descriptors,
            GStreamerThreads());
        std::printf(
            "                 resident: heap %.1f MiB, other anonymous %.1f MiB, files %.1f MiB\n",
            double(kinds.heap) / 1024, double(kinds.anonymous) / 1024, double(kinds.files) / 1024);
#ifdef __GLIBC__
        // What is allocated against what the allocator holds: a leak grows the
        // first, retention only the second.
        struct mallinfo2 heap = mallinfo2();
        std::printf("                 malloc: %6.1f MiB in use, %6.1f MiB free in its arenas\n",
                    double(heap.uordblks + heap.hblkhd) / 1048576, double(heap.fordblks) / 1048576);
#endif
    };
    // The first call of a process is reported on its own and left out of the
    // medians.
    for (int i = -1; i < calls; ++i) {
        platform->waitUntilPrepared(10);  // certificates made ahead
        auto call = GStreamerCall::start(platform, options);
        bool ok = call.error.empty();
        for (auto& peer : {call.a, call.b}) {
            ok = ok && peer->waitForConnection(RTCPeerConnectionStateConnected, 20) &&
                 peer->waitFor(20, [&] { return peer->remoteRenderer->frames() > 0; });
        }
        if (!ok) {
            ++failures;
            std::fprintf(stderr, "call %d did not connect: %s\n", i, call.error.c_str());
        } else if (i < 0) {
            std::printf(
                "first call of the process: Connected after %.1f ms\n",
                ms(std::max(call.a->connectedAt(), call.b->connectedAt()) - call.offerRequestedAt));
        } else {
            auto connected = std::max(call.a->connectedAt(), call.b->connectedAt());
            auto frame = std::max(call.a->remoteRenderer->firstFrameAt(),
                                  call.b->remoteRenderer->firstFrameAt());
            toConnected.push_back(ms(connected - call.offerRequestedAt));
            toFirstFrame.push_back(ms(frame - call.offerRequestedAt));
            frameAfterConnected.push_back(ms(frame - connected));
        }
        call.close();
        if (++made == 1) {
            resources();
        }
    }
    // Calls one after the other up to 100.
    for (int target : {10, 100}) {
        while (made < target) {
            auto call = GStreamerCall::start(platform, options);
            bool ok = call.error.empty() && call.a->waitFor(20, [&] {
                return call.a->remoteRenderer->frames() > 0 && call.b->remoteRenderer->frames() > 0;
            });
            failures += ok ? 0 : 1;
            call.close();
            ++made;
        }
        resources();
    }
    std::printf("GStreamer engine, relay-only through coturn on loopback, %d calls (%d failed)\n",
                calls, failures);
    printSeries("offer -> both Connected", toConnected);
    printSeries("offer -> first frame at both", toFirstFrame);
    printSeries("Connected -> first frame", frameAfterConnected);

    // Cost of one running call.
    long rssBefore = statusKb("VmRSS:");
    auto call = GStreamerCall::start(platform, options);
    if (!call.error.empty() || !call.a->waitForConnection(RTCPeerConnectionStateConnected, 20) ||
        !call.b->waitForConnection(RTCPeerConnectionStateConnected, 20)) {
        std::fprintf(stderr, "the measured call did not connect: %s\n", call.error.c_str());
        return 1;
    }
    std::this_thread::sleep_for(std::chrono::seconds(2));  // past the start-up
    double cpu0 = cpuSeconds();
    auto wall0 = Clock::now();
    uint64_t framesA0 = call.a->remoteRenderer->frames();
    uint64_t framesB0 = call.b->remoteRenderer->frames();
    uint64_t sentA0 = call.a->pc->stats().videoFramesSent;
    uint64_t decodedA0 = call.a->pc->stats().videoFramesDecoded;
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    double wall = std::chrono::duration<double>(Clock::now() - wall0).count();
    double cpu = cpuSeconds() - cpu0;
    double fpsA = double(call.a->remoteRenderer->frames() - framesA0) / wall;
    double fpsB = double(call.b->remoteRenderer->frames() - framesB0) / wall;
    std::printf("  sent by a %.1f fps, decoded by a %.1f fps\n",
                double(call.a->pc->stats().videoFramesSent - sentA0) / wall,
                double(call.a->pc->stats().videoFramesDecoded - decodedA0) / wall);
    std::printf("two-way 640x480 VP8+Opus call (both peers in this process), %.0f s:\n", wall);
    std::printf("  CPU %.0f%% of one core (%.2f cores), remote video %.1f / %.1f fps\n",
                100 * cpu / wall, cpu / wall, fpsA, fpsB);
    std::printf("  memory RSS %ld MiB (+%ld MiB for the call), peak %ld MiB\n",
                statusKb("VmRSS:") / 1024, (statusKb("VmRSS:") - rssBefore) / 1024,
                statusKb("VmHWM:") / 1024);
    call.close();
    RTCPlatform::install(nullptr);
    return failures ? 1 : 0;
}
