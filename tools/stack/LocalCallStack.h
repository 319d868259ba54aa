// Everything a call between two phones needs, on loopback: a coturn with a
// fresh shared secret, the chat server with alice, bob and their private
// channel, a private sound server with each user's speaker and microphone,
// and phones started on demand (using those devices unless their flags say
// otherwise). A headless X server starts when asked for. Every process it
// starts is stopped by stop() and by the destructor.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ChatServerProcess.h"
#include "PhoneProcess.h"
#include "SoundServerProcess.h"
#include "TurnProcess.h"
#include "XServerProcess.h"

class LocalCallStack {
  public:
    static constexpr const char* kChannel = "alice-bob";

    /// `workDir` receives the config, the database and every log.
    explicit LocalCallStack(std::string workDir);
    ~LocalCallStack();

    bool start(std::string& error);
    void stop();

    /// Starts a phone for `user` ("alice" or "bob") and waits until it logged in.
    /// `wait` false: returns at once (the phone logs in by itself).
    std::unique_ptr<PhoneProcess> startPhone(const std::string& user,
                                             const std::vector<std::string>& extraArgs,
                                             std::string& error, bool wait = true,
                                             std::function<void(const PhoneLine&)> onLine = {});

    /// Starts Xvfb; phones started afterwards get its DISPLAY.
    bool startDisplay(std::string& error);

    TurnProcess& turn() { return turn_; }
    SoundServerProcess& sound() { return sound_; }
    XServerProcess& display() { return display_; }
    ChatServerProcess& server() { return *server_; }
    const std::string& workDir() const { return workDir_; }
    std::string snapshotDir() const { return workDir_ + "/snapshots"; }

  private:
    std::string workDir_;
    TurnProcess turn_;
    SoundServerProcess sound_;
    XServerProcess display_;
    bool displayStarted_ = false;
    std::unique_ptr<ChatServerProcess> server_;
    int phones_ = 0;
};
