#include "SoundServerProcess.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

namespace {

constexpr double kCommandSeconds = 10;

}  // namespace

SoundServerProcess::SoundServerProcess(std::string workDir, std::vector<std::string> users)
    : workDir_(std::move(workDir)), users_(std::move(users)) {}

SoundServerProcess::~SoundServerProcess() {
    stop();
}

std::vector<std::string> SoundServerProcess::clientEnvironment() const {
    return {"PULSE_SERVER=unix:" + socketDir_ + "/native"};
}

std::vector<std::string> SoundServerProcess::phoneArgs(const std::string& user) const {
    return {"--mic", user + "_mic", "--speaker", user + "_speaker"};
}

bool SoundServerProcess::start(std::string& error) {
    char folder[] = "/tmp/qxvc-pa-XXXXXX";  // a socket path must stay short
    if (!mkdtemp(folder)) {
        error = "cannot make a folder for the sound server's socket";
        return false;
    }
    socketDir_ = folder;
    std::error_code ignored;
    for (const char* sub : {"/home", "/run", "/state"}) {
        std::filesystem::create_directories(socketDir_ + sub, ignored);
    }
    const std::string config = workDir_ + "/pulseaudio.pa";
    {
        std::ofstream out(config);
        out << "load-module module-native-protocol-unix socket=" << socketDir_
            << "/native auth-anonymous=1\n";
        for (const auto& user : users_) {
            for (const char* sink : {"_speaker", "_room"}) {
                out << "load-module module-null-sink sink_name=" << user << sink
                    << " rate=48000 channels=1 sink_properties=device.description=" << user << sink
                    << "\n";
            }
            out << "load-module module-remap-source source_name=" << user << "_mic master=" << user
                << "_room.monitor source_properties=device.description=" << user << "_mic\n";
            // A room is never quite silent: a quiet source keeps its sink rendering in
            // small blocks, so that the microphone hears from the first 10 ms on (an idle
            // null sink renders in blocks of a second or more).
            out << "load-module module-null-source source_name=" << user << "_quiet rate=48000"
                << " channels=1\n"
                << "load-module module-loopback source=" << user << "_quiet sink=" << user
                << "_room latency_msec=20 source_dont_move=true sink_dont_move=true\n";
        }
        if (!out) {
            error = "cannot write " + config;
            return false;
        }
    }
    ChildProcess::Setup setup;
    setup.argv = {"pulseaudio",
                  "-n",
                  "-F",
                  config,
                  "--daemonize=no",
                  "--exit-idle-time=-1",
                  "--disallow-exit=yes",
                  "--use-pid-file=no",
                  "--disable-shm=yes",
                  "--log-target=stderr"};
    setup.logPath = workDir_ + "/pulseaudio.log";
    setup.environment = {"HOME=" + socketDir_ + "/home", "XDG_RUNTIME_DIR=" + socketDir_ + "/run",
                         "PULSE_RUNTIME_PATH=" + socketDir_ + "/run",
                         "PULSE_STATE_PATH=" + socketDir_ + "/state"};
    process_ = ChildProcess::start(std::move(setup), error);
    if (!process_) {
        error = "pulseaudio: " + error;
        return false;
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    std::string probeError;
    while (std::chrono::steady_clock::now() < deadline) {
        if (!process_->running()) {
            error = "pulseaudio left at once (see " + workDir_ + "/pulseaudio.log)";
            stop();
            return false;
        }
        if (pactl({"info"}, nullptr, probeError)) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    error = "pulseaudio did not answer within 10 s: " + probeError;
    stop();
    return false;
}

void SoundServerProcess::stop() {
    if (process_) {
        process_->stop(2);
        process_.reset();
    }
    if (!socketDir_.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(socketDir_, ignored);
        socketDir_.clear();
    }
}

bool SoundServerProcess::pactl(const std::vector<std::string>& args, std::string* output,
                               std::string& error) {
    ChildProcess::Setup setup;
    setup.argv = {"pactl"};
    setup.argv.insert(setup.argv.end(), args.begin(), args.end());
    setup.environment = clientEnvironment();
    auto child = ChildProcess::start(std::move(setup), error);
    if (!child) {
        return false;
    }
    const int status = child->waitExit(kCommandSeconds);
    if (output) {
        output->clear();
        for (const auto& line : child->lines()) {
            *output += line + "\n";
        }
    }
    if (status != 0) {
        error = "pactl " + (args.empty() ? std::string() : args.front()) + " exited with " +
                std::to_string(status);
        return false;
    }
    return true;
}

bool SoundServerProcess::play(const std::string& user, const std::string& file,
                              std::string& error) {
    ChildProcess::Setup setup;
    setup.argv = {"paplay", "--device=" + user + "_room", file};
    setup.environment = clientEnvironment();
    auto child = ChildProcess::start(std::move(setup), error);
    if (!child) {
        return false;
    }
    const int status = child->waitExit(120);
    if (status != 0) {
        error = "paplay " + file + " exited with " + std::to_string(status);
        return false;
    }
    return true;
}

std::unique_ptr<SoundServerProcess::Recording> SoundServerProcess::record(
    const std::vector<std::string>& sources, const std::vector<std::string>& files,
    std::string& error) {
    if (sources.empty() || sources.size() != files.size()) {
        error = "one file per source";
        return nullptr;
    }
    ChildProcess::Setup setup;
    setup.argv = {"gst-launch-1.0", "-q", "-e"};
    for (size_t i = 0; i < sources.size(); ++i) {
        // audiorate fills from the start of the recording, so every file
        // starts at the same moment whenever its first sound came; with the
        // system clock (not a sound-server clock per source) the sources'
        // timestamps agree.
        for (const std::string& part :
             {std::string("pulsesrc"), "device=" + sources[i], std::string("provide-clock=false"),
              std::string("!"), std::string("audio/x-raw,format=S16LE,rate=48000,channels=1"),
              std::string("!"), std::string("audiorate"), std::string("skip-to-first=false"),
              std::string("!"), std::string("wavenc"), std::string("!"), std::string("filesink"),
              "location=" + files[i]}) {
            setup.argv.push_back(part);
        }
    }
    setup.environment = clientEnvironment();
    setup.logPath = files.front() + ".log";
    auto recording = std::unique_ptr<Recording>(new Recording());
    recording->process_ = ChildProcess::start(std::move(setup), error);
    if (!recording->process_) {
        return nullptr;
    }
    return recording;
}

SoundServerProcess::Recording::~Recording() {
    stop();
}

bool SoundServerProcess::Recording::stop() {
    if (!process_) {
        return false;
    }
    // gst-launch -e ends the streams on SIGINT, so the WAV headers are written.
    process_->signalGroup(SIGINT);
    const int status = process_->waitExit(10);
    if (status < 0) {
        process_->stop(1);
    }
    process_.reset();
    return status == 0;
}
