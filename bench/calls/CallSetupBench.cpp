// How long a call takes to open, as a user meets it: coturn, velmorin-chat-server
// and two qxvc-phone processes on loopback, alice calling bob, who accepts by
// himself. Reported, in one run:
//  - the first call of fresh phone processes, placed as soon as both have
//    logged in, and placed once both engines say their work ahead of calls is
//    done;
//  - a warm call: the next call between the same processes;
//  - a bare pair of webrtcbin peer connections in this process, certificates
//    made ahead, through the same coturn (no chat, no library).
//
//   qxvc_call_setup_bench [--rounds N]     (default 3 rounds of each kind)
//
// "offer -> both open" runs from the callee having sent its offer to the later
// of the two didOpenCall; "start -> open" from the caller's `call` command to
// its didOpenCall.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "GStreamerCallHarness.h"
#include "LocalCallStack.h"
#include "support/TurnServerFixture.h"

namespace {

constexpr double kStep = 30;

std::optional<long> wallMs(const std::optional<PhoneLine>& line) {
    int h = 0, m = 0, s = 0, ms = 0;
    if (!line || std::sscanf(line->wall.c_str(), "%d:%d:%d.%dZ", &h, &m, &s, &ms) != 4) {
        return std::nullopt;
    }
    return ((h * 60L + m) * 60L + s) * 1000L + ms;
}

struct Series {
    std::vector<double> values;
    void add(std::optional<long> from, std::optional<long> to) {
        if (from && to) {
            values.push_back(double(*to - *from));
        }
    }
};

void print(const char* name, std::vector<double> values) {
    if (values.empty()) {
        std::printf("  %-44s no samples\n", name);
        return;
    }
    std::sort(values.begin(), values.end());
    size_t n = values.size();
    double median = n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
    std::printf("  %-44s median %7.1f ms   min %7.1f   max %7.1f   (n=%zu)\n", name, median,
                values.front(), values.back(), n);
}

double median(std::vector<double> values) {
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    size_t n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

struct Kind {
    Series startToOpen;
    Series offerToBothOpen;
};

class Bench {
  public:
    explicit Bench(std::string dir) : stack_(std::move(dir)) {}

    bool start(std::string& error) { return stack_.start(error); }
    LocalCallStack& stack() { return stack_; }

    /// Two fresh phones; the first call (at login or once prepared), then a
    /// warm one. False when a step failed.
    bool round(bool waitPrepared, Kind& first, Kind& warm, double& preparedMs) {
        std::string error;
        auto alice = stack_.startPhone("alice", {}, error);
        auto bob = alice ? stack_.startPhone("bob", {"--auto-accept"}, error) : nullptr;
        if (!alice || !bob) {
            std::fprintf(stderr, "phones did not start: %s\n", error.c_str());
            return false;
        }
        if (waitPrepared) {
            for (auto* phone : {alice.get(), bob.get()}) {
                auto lines = phone->process().lines();
                long at = phone->process().waitForLine(
                    [](const std::string& text) {
                        return text.find("engine=prepared") != std::string::npos;
                    },
                    kStep);
                if (at < 0) {
                    std::fprintf(stderr, "%s's engine never said it was prepared\n",
                                 phone->user().c_str());
                    return false;
                }
                if (auto line = parsePhoneLine(phone->process().lines()[size_t(at)])) {
                    preparedMs = std::max(preparedMs, double(line->t));
                }
            }
        }
        bool ok = call(*alice, *bob, first) && call(*alice, *bob, warm);
        alice->quit();
        bob->quit();
        return ok;
    }

  private:
    bool call(PhoneProcess& alice, PhoneProcess& bob, Kind& kind) {
        size_t from = alice.lineCount();
        alice.send("call video");
        auto command = alice.waitKind("CMD", kStep, from);
        auto offered = bob.waitEvent("didSendAcceptCall", kStep);
        auto aliceOpen = alice.waitEvent("didOpenCall", kStep);
        auto bobOpen = bob.waitEvent("didOpenCall", kStep);
        if (!command || !offered || !aliceOpen || !bobOpen) {
            std::fprintf(stderr, "a call did not open (see %s)\n", stack_.workDir().c_str());
            return false;
        }
        kind.startToOpen.add(wallMs(command), wallMs(aliceOpen));
        kind.offerToBothOpen.add(wallMs(offered), std::max(*wallMs(aliceOpen), *wallMs(bobOpen)));
        alice.send("end");
        return alice.waitEvent("didSendEndCall", kStep) &&
               bob.waitEvent("didReceiveEndCall", kStep);
    }

    LocalCallStack stack_;
};

/// Offer -> both Connected for bare webrtcbin pairs, certificates made ahead.
std::vector<double> barePairs(int calls) {
    std::vector<double> out;
    TurnServerFixture turn;
    if (!turn.start()) {
        std::fprintf(stderr, "coturn: %s\n", turn.error().c_str());
        return out;
    }
    RTCGstPlatform::Options options;
    options.includeV4L2Cameras = false;
    auto platform = RTCGstPlatform::create(options);
    if (!platform) {
        return out;
    }
    RTCPlatform::install(platform);
    auto credentials = turn.credentialsForUser("bench");
    for (int i = -1; i < calls; ++i) {  // the first one warms the process up
        platform->waitUntilPrepared(10);
        auto call = GStreamerCall::start(platform,
                                         {turn.url(), credentials.username, credentials.password});
        bool ok = call.error.empty() &&
                  call.a->waitForConnection(RTCPeerConnectionStateConnected, kStep) &&
                  call.b->waitForConnection(RTCPeerConnectionStateConnected, kStep);
        if (ok && i >= 0) {
            auto connected = std::max(call.a->connectedAt(), call.b->connectedAt());
            out.push_back(
                std::chrono::duration<double, std::milli>(connected - call.offerRequestedAt)
                    .count());
        }
        call.close();
    }
    RTCPlatform::install(nullptr);
    return out;
}

}  // namespace

int main(int argc, char** argv) {
    int rounds = 3;
    for (int i = 1; i + 1 < argc; ++i) {
        if (std::strcmp(argv[i], "--rounds") == 0) {
            rounds = std::max(1, std::atoi(argv[++i]));
        }
    }
    std::string dir = (std::filesystem::temp_directory_path() / "qxvc-call-setup-bench").string();
    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
    std::filesystem::create_directories(dir, ignored);
    Bench bench(dir);
    std::string error;
    if (!bench.start(error)) {
        std::fprintf(stderr, "stack: %s\n", error.c_str());
        return 1;
    }
    Kind atLogin;
    Kind prepared;
    Kind warm;
    double preparedMs = 0;
    int failures = 0;
    for (int i = 0; i < rounds; ++i) {
        failures += bench.round(false, atLogin, warm, preparedMs) ? 0 : 1;
        failures += bench.round(true, prepared, warm, preparedMs) ? 0 : 1;
    }
    bench.stack().stop();
    auto bare = barePairs(rounds * 2);

    std::printf(
        "Call set-up through velmorin-chat-server and coturn on loopback, two qxvc-phone\n"
        "processes, %d rounds (%d failed); logs in %s\n",
        rounds * 2, failures, dir.c_str());
    std::printf(" first call of fresh processes, placed at login:\n");
    print("start -> open (caller)", atLogin.startToOpen.values);
    print("offer -> both open", atLogin.offerToBothOpen.values);
    std::printf(
        " first call of fresh processes, placed once the engines were prepared\n"
        " (the slower engine was prepared %.0f ms after its process started, at most):\n",
        preparedMs);
    print("start -> open (caller)", prepared.startToOpen.values);
    print("offer -> both open", prepared.offerToBothOpen.values);
    std::printf(" warm call (the next call of the same processes):\n");
    print("start -> open (caller)", warm.startToOpen.values);
    print("offer -> both open", warm.offerToBothOpen.values);
    std::printf(" bare webrtcbin pair in one process, certificates made ahead:\n");
    print("offer -> both Connected", bare);
    double warmMedian = median(warm.offerToBothOpen.values);
    if (warmMedian > 0) {
        std::printf(" first/warm, offer -> both open: %.2fx at login, %.2fx once prepared\n",
                    median(atLogin.offerToBothOpen.values) / warmMedian,
                    median(prepared.offerToBothOpen.values) / warmMedian);
    }
    return failures ? 1 : 0;
}
