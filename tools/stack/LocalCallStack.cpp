#include "LocalCallStack.h"

#include <openssl/rand.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <sstream>

namespace {

std::string randomToken() {
    unsigned char raw[12];
    RAND_bytes(raw, sizeof raw);
    static const char* digits = "0123456789abcdef";
    std::string out;
    for (unsigned char c : raw) {
        out += digits[c >> 4];
        out += digits[c & 15];
    }
    return out;
}

}  // namespace

LocalCallStack::LocalCallStack(std::string workDir)
    : workDir_(std::move(workDir)),
      turn_(workDir_),
      sound_(workDir_, {"alice", "bob"}),
      display_(workDir_) {}

LocalCallStack::~LocalCallStack() {
    stop();
}

bool LocalCallStack::start(std::string& error) {
    std::error_code ignored;
    std::filesystem::create_directories(snapshotDir(), ignored);
    if (!std::filesystem::is_directory(snapshotDir())) {
        error = "cannot create " + snapshotDir();
        return false;
    }
    if (!turn_.start(error)) {
        error = "coturn: " + error;
        return false;
    }
    if (!sound_.start(error)) {
        error = "sound server: " + error;
        stop();
        return false;
    }
    ChatServerProcess::Config config;
    config.users = {{"alice", "Alice", randomToken()}, {"bob", "Bob", randomToken()}};
    config.channels = {{kChannel, "Alice & Bob", false, false, {"alice", "bob"}}};
    config.turnUrl = turn_.url();
    config.turnSecret = turn_.secret();
    server_ = std::make_unique<ChatServerProcess>(workDir_, std::move(config));
    if (!server_->start(error)) {
        stop();
        return false;
    }
    return true;
}

void LocalCallStack::stop() {
    if (server_) {
        server_->stop();
    }
    turn_.stop();
    sound_.stop();
    display_.stop();
    displayStarted_ = false;
}

bool LocalCallStack::startDisplay(std::string& error) {
    displayStarted_ = displayStarted_ || display_.start(error);
    return displayStarted_;
}

std::unique_ptr<PhoneProcess> LocalCallStack::startPhone(
    const std::string& user, const std::vector<std::string>& extraArgs, std::string& error,
    bool wait, std::function<void(const PhoneLine&)> onLine) {
    PhoneProcess::Setup setup;
    setup.user = user;
    for (const auto& known : server_->config().users) {
        if (known.id == user) {
            setup.token = known.token;
        }
    }
    setup.channel = kChannel;
    setup.server = server_->address();
    setup.snapshotDir = snapshotDir();
    setup.logPath = workDir_ + "/phone-" + user + "-" + std::to_string(++phones_) + ".log";
    // The user's devices of the private sound server, unless the test chose others.
    auto chosen = [&](const char* flag) {
        return std::find(extraArgs.begin(), extraArgs.end(), flag) != extraArgs.end();
    };
    const auto soundArgs = sound_.phoneArgs(user);
    for (size_t i = 0; i + 1 < soundArgs.size(); i += 2) {
        if (!chosen(soundArgs[i].c_str())) {
            setup.extraArgs.insert(setup.extraArgs.end(), {soundArgs[i], soundArgs[i + 1]});
        }
    }
    setup.extraArgs.insert(setup.extraArgs.end(), extraArgs.begin(), extraArgs.end());
    setup.environment = sound_.clientEnvironment();
    if (displayStarted_) {
        const auto x = display_.clientEnvironment();
        setup.environment.insert(setup.environment.end(), x.begin(), x.end());
    }
    // For a closer look at a failing run: e.g. QXVC_PHONE_ARGS="--log-level 1112017".
    if (const char* more = std::getenv("QXVC_PHONE_ARGS"); more && *more) {
        std::istringstream words(more);
        for (std::string word; words >> word;) {
            setup.extraArgs.push_back(word);
        }
    }
    setup.onLine = std::move(onLine);
    return wait ? PhoneProcess::start(std::move(setup), error)
                : PhoneProcess::launch(std::move(setup), error);
}
