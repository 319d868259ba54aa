// coturn on loopback as a child process (its own group, gone when we are):
// a free port, a fresh shared secret for time-limited REST credentials, and
// the faults the tests inject (freeze, resume, kill).
#pragma once

#include <memory>
#include <string>

#include "ChildProcess.h"

class TurnProcess {
  public:
    /// `workDir` receives turnserver.log and its user database.
    explicit TurnProcess(std::string workDir);
    ~TurnProcess();

    /// Starts coturn and waits until it answers a STUN binding request.
    bool start(std::string& error);
    void stop();
    /// SIGSTOP and SIGCONT: the server freezes and comes back.
    void pause();
    void resume();
    /// SIGKILL: the server vanishes without releasing anything.
    void kill();

    int port() const { return port_; }
    /// Only for the server's --turn-secret; never print it.
    const std::string& secret() const { return secret_; }
    /// "turn:127.0.0.1:<port>?transport=udp".
    std::string url() const;
    std::string logPath() const { return workDir_ + "/turnserver.log"; }

  private:
    bool answersStun(double seconds);

    std::string workDir_;
    std::unique_ptr<ChildProcess> process_;
    int port_ = 0;
    std::string secret_;
};
