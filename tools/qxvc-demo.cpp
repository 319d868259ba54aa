// qxvc-demo: a whole video call between two phones on this machine. It starts
// coturn on loopback with a fresh shared secret, the chat server with alice,
// bob and their private channel, a private sound server, and two qxvc-phone
// processes; alice calls bob, bob accepts, media flow, alice speaks to bob and
// bob answers (bob's loudspeaker plays into the room his microphone hears, so
// echo cancellation has work to do), alice mutes and unmutes, bob turns his
// video off and on, alice switches camera, alice ends. It then prints both
// phones' callbacks on one timeline, the call's figures, what the speech and
// the pictures went through, and the signalling the server stored; it writes
// each side's received audio as WAV and both remote views as PNGs, before and
// after the camera switch, all in a new folder of its own. Exits non-zero when a step failed; stops
// every process it started.
#include <csignal>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "DemoReport.h"
#include "LocalCallStack.h"
#include "SpokenSentence.h"

namespace {

constexpr double kStepSeconds = 30;

std::mutex printMutex;
std::chrono::steady_clock::time_point started;

void progress(const std::string& text) {
    std::lock_guard lock(printMutex);
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    std::printf("[%6.2fs] %s\n", seconds, text.c_str());
    std::fflush(stdout);
}

/// Shows the phones' callbacks as they come.
std::function<void(const PhoneLine&)> echo(const std::string& user) {
    return [user](const PhoneLine& line) {
        if (line.kind == "EVENT") {
            std::string extra;
            for (const char* key : {"state", "error", "endType", "audio", "video"}) {
                if (line.fields.count(key)) {
                    extra += std::string(" ") + key + "=" + line.field(key);
                }
            }
            progress("    " + user + ": " + line.name + extra);
        } else if (line.kind == "FAIL") {
            progress("    " + user + ": " + line.text);
        }
    };
}

class Demo {
  public:
    explicit Demo(std::string outDir) : out_(std::move(outDir)), stack_(out_) {}

    bool run();
    int failures() const { return failures_; }
    const DemoSound& sound() const { return sound_; }
    LocalCallStack& stack() { return stack_; }
    std::unique_ptr<PhoneProcess> alice, bob;

  private:
    bool step(const std::string& what, bool ok) {
        if (!ok) {
            progress("FAILED: " + what);
            ++failures_;
        }
        return ok;
    }
    bool expect(PhoneProcess& phone, const std::string& event,
                const std::function<bool(const PhoneLine&)>& match = {}) {
        return step(phone.user() + " hears " + event,
                    phone.waitEvent(event, kStepSeconds, match).has_value());
    }
    static std::function<bool(const PhoneLine&)> fieldIs(const std::string& key,
                                                         const std::string& value) {
        return [key, value](const PhoneLine& line) { return line.field(key) == value; };
    }
    void sendTo(PhoneProcess& phone, const std::string& command) {
        progress(phone.user() + " > " + command);
        phone.send(command);
    }

    /// Alice speaks to bob (twice, so that the canceller has adapted for the
    /// echo figure), then bob answers.
    bool converse();
    /// Waits until `phone` receives pictures from the other side's `camera`.
    bool seesCamera(PhoneProcess& phone, const std::string& camera);

    std::string out_;
    LocalCallStack stack_;
    int failures_ = 0;
    DemoSound sound_;
};

bool Demo::converse() {
    std::string error;
    const std::string aliceSays = out_ + "/alice-says.wav";
    const std::string bobSays = out_ + "/bob-says.wav";
    if (!step("make the sentences: " + error,
              makeSentence(aliceSays, "Hello Bob, this is Alice. Can you hear me well?", error) &&
                  makeSentence(bobSays, "Hi Alice, I hear you loud and clear.", error))) {
        return false;
    }
    progress("alice speaks to bob (bob's loudspeaker plays into his room)");
    auto toBob =
        speakAndRecord(stack_.sound(), "alice", {"bob_room.monitor", "alice_speaker.monitor"},
                       aliceSays, out_ + "/alice-to-bob", 2, error);
    DemoSound::Speech aliceToBob{"alice", "bob", std::nullopt};
    if (step("alice's speech recorded: " + error, toBob.has_value())) {
        const auto [begin, end] = toBob->speech;
        aliceToBob.match = matchAudio(toBob->said, toBob->heard[0], begin, end);
        // The second sentence, when the canceller has adapted.
        const double half = (begin + end) / 2;
        const double lag = aliceToBob.match->lagMs / 1000;
        sound_.echoAtMicrophoneDb = levelDb(toBob->heard[0], half + lag, end + lag);
        sound_.echoReturnedDb = levelDb(toBob->heard[1], half, end + 1.0);
    }
    sound_.speech.push_back(aliceToBob);
    progress("bob answers");
    auto toAlice = speakAndRecord(stack_.sound(), "bob", {"alice_speaker.monitor"}, bobSays,
                                  out_ + "/bob-to-alice", 1, error);
    DemoSound::Speech bobToAlice{"bob", "alice", std::nullopt};
    if (step("bob's speech recorded: " + error, toAlice.has_value())) {
        bobToAlice.match = matchAudio(toAlice->said, toAlice->heard[0], toAlice->speech.first,
                                      toAlice->speech.second);
    }
    sound_.speech.push_back(bobToAlice);
    return toBob && toAlice;
}

bool Demo::seesCamera(PhoneProcess& phone, const std::string& camera) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(15);
    while (std::chrono::steady_clock::now() < deadline) {
        if (auto stats = phone.stats(); stats && stats->field("remoteCamera") == camera) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    return false;
}

bool Demo::run() {
    std::string error;
    progress("starting coturn and velmorin-chat-server (work folder " + out_ + ")");
    if (!step("start coturn and the chat server: " + error, stack_.start(error))) {
        progress(error);
        return false;
    }
    progress("TURN on 127.0.0.1:" + std::to_string(stack_.turn().port()) + ", chat server on " +
             stack_.server().address());
    sound_.recordings = {out_ + "/alice-received.wav", out_ + "/bob-received.wav"};
    alice = stack_.startPhone("alice", {"--record-audio", sound_.recordings[0]}, error, true,
                              echo("alice"));
    if (!step("start alice's phone: " + error, alice != nullptr)) {
        return false;
    }
    bob =
        stack_.startPhone("bob", {"--speaker", "bob_room", "--record-audio", sound_.recordings[1]},
                          error, true, echo("bob"));
    if (!step("start bob's phone: " + error, bob != nullptr)) {
        return false;
    }
    progress("both phones logged in");

    sendTo(*alice, "call video");
    if (!expect(*alice, "startCallCompleted", fieldIs("error", "0")) ||
        !expect(*bob, "didReceiveStartCall")) {
        return false;
    }
    sendTo(*bob, "accept");
    bool ok = expect(*alice, "didReceiveAcceptCall");
    ok = expect(*alice, "didOpenCall") && ok;
    ok = expect(*bob, "didOpenCall") && ok;
    ok = expect(*alice, "firstRemoteFrame") && ok;
    ok = expect(*bob, "firstRemoteFrame") && ok;
    if (!ok) {
        return false;
    }
    for (auto* phone : {alice.get(), bob.get()}) {
        ok = step(phone->user() + " reports stats", phone->stats().has_value()) && ok;
    }
    progress("media flow; letting them run for 4 s");
    std::this_thread::sleep_for(std::chrono::seconds(4));
    for (auto* phone : {alice.get(), bob.get()}) {
        if (auto stats = phone->stats()) {
            progress(phone->user() + " receives " + stats->field("width") + "x" +
                     stats->field("height") + ", " + stats->field("frames") + " frames so far");
        }
    }
    sendTo(*alice, "snapshot alice-remote-before.png");
    sendTo(*bob, "snapshot bob-remote-before.png");
    ok = converse() && ok;

    sendTo(*alice, "mute");
    ok = expect(*bob, "didOpponentAudioStateChange", fieldIs("audio", "0")) && ok;
    sendTo(*alice, "unmute");
    ok = expect(*bob, "didOpponentAudioStateChange", fieldIs("audio", "1")) && ok;
    sendTo(*bob, "video-off");
    ok = expect(*alice, "didOpponentVideoStateChange", fieldIs("video", "0")) && ok;
    sendTo(*bob, "video-on");
    ok = expect(*alice, "didOpponentVideoStateChange", fieldIs("video", "1")) && ok;
    sendTo(*alice, "switch-camera");
    ok = step("bob sees alice's back camera", seesCamera(*bob, "back")) && ok;
    sendTo(*alice, "snapshot alice-remote-after.png");
    sendTo(*bob, "snapshot bob-remote-after.png");
    ok = step("snapshots written", alice->waitKind("SNAPSHOT", 5).has_value() &&
                                       bob->waitKind("SNAPSHOT", 5).has_value()) &&
         ok;

    for (auto* phone : {alice.get(), bob.get()}) {
        auto stats = phone->stats();
        ok = step(phone->user() + " reports stats", stats.has_value()) && ok;
    }
    sendTo(*alice, "end");
    ok = expect(*alice, "didSendEndCall") && ok;
    ok = expect(*bob, "didReceiveEndCall") && ok;
    return ok;
}

/// A new folder inside `parent` (made when missing) for this run's logs, config,
/// database and PNGs. The demo only ever creates: whatever `parent` held before
/// stays as it was. "" with the reason in `error` when no folder can be made.
std::string freshRunFolder(const std::string& parent, std::string& error) {
    std::error_code fsError;
    std::filesystem::create_directories(parent, fsError);
    if (fsError) {
        error = fsError.message();
        return {};
    }
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "run-%Y%m%d-%H%M%S", &utc);
    for (int attempt = 1; attempt < 100; ++attempt) {
        const std::string name =
            attempt == 1 ? std::string(stamp) : std::string(stamp) + "-" + std::to_string(attempt);
        const auto path = std::filesystem::path(parent) / name;
        // create_directory is false, without an error, when the name is taken.
        if (std::filesystem::create_directory(path, fsError)) {
            return path.string();
        }
        if (fsError) {
            error = fsError.message();
            return {};
        }
    }
    error = "too many runs started this second";
    return {};
}

void onSignal(int) {
    // coturn, the chat server and the phones die with us (PR_SET_PDEATHSIG).
    std::_Exit(130);
}

}  // namespace

int main(int argc, char** argv) {
    started = std::chrono::steady_clock::now();
    std::string parent = "out/demo";
    const std::string flag = argc > 1 ? argv[1] : "";
    if (argc == 3 && flag == "--out") {
        parent = argv[2];
    } else if (argc == 2 && flag.rfind("--out=", 0) == 0) {
        parent = flag.substr(6);
    } else if (argc == 2 && (flag == "--help" || flag == "-h")) {
        std::printf(
            "usage: qxvc-demo [--out DIR]   each run writes into a new DIR/run-<UTC time>\n"
            "                               (default DIR: out/demo)\n");
        return 0;
    } else if (argc != 1) {
        std::fprintf(stderr, "qxvc-demo: unexpected argument '%s' (the only flag is --out DIR)\n",
                     argv[1]);
        return 2;
    }
    std::string error;
    const std::string out = freshRunFolder(parent, error);
    if (out.empty()) {
        std::fprintf(stderr, "qxvc-demo: --out %s: %s\n", parent.c_str(), error.c_str());
        return 2;
    }
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);

    Demo demo(out);
    const bool ok = demo.run();

    DemoSide caller{"alice", {}, std::nullopt, std::nullopt, std::nullopt, {}};
    DemoSide callee{"bob", {}, std::nullopt, std::nullopt, std::nullopt, {}};
    for (auto* side : {&caller, &callee}) {
        auto& phone = side == &caller ? demo.alice : demo.bob;
        if (!phone) {
            continue;
        }
        const int status = phone->quit();
        if (status != 0) {
            progress(side->user + "'s phone exited with status " + std::to_string(status));
        }
        side->lines = phone->parsedLines();
        for (const auto& line : side->lines) {
            if (line.kind == "STATS") {
                // The first two samples frame 4 s of steady media; the last is
                // taken just before the end.
                if (!side->firstStats) {
                    side->firstStats = line;
                } else if (!side->steadyStats) {
                    side->steadyStats = line;
                }
                side->finalStats = line;
            } else if (line.kind == "SNAPSHOT") {
                side->snapshots.push_back(line);
            }
        }
    }
    progress("stopping the chat server and coturn");
    demo.stack().stop();
    const auto audit = auditSignalling(demo.stack().server().dbPath());
    printDemoReport(caller, callee, demo.sound(), audit);

    int failures = demo.failures() + (ok ? 0 : 1);
    if (!audit.error.empty() || !audit.leaks.empty()) {
        ++failures;
    }
    std::printf("\nLogs, database and PNGs: %s\n", out.c_str());
    if (failures > 0 || !ok) {
        std::printf("qxvc-demo: FAILED\n");
        return 1;
    }
    std::printf("qxvc-demo: the call went through every step\n");
    return 0;
}
