// coturn on loopback as a child process (its own group, gone when we are):
// a free port, a fresh shared secret for time-limited REST credentials, and
// the faults the tests inject (freeze, resume, kill). Relays only towards
// 127.0.0.0/8. The one way the tools, the tests and the benchmarks start coturn.
#pragma once

#include <memory>
#include <string>

#include "ChildProcess.h"

class TurnProcess {
  public:
    struct Credentials {
        std::string username;  ///< "<expiry unix time>:<user>"
        std::string password;  ///< base64(HMAC-SHA1(secret, username))
    };

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
    bool running() const { return process_ != nullptr; }

    int port() const { return port_; }
    /// Only for the server's --turn-secret; never print it.
    const std::string& secret() const { return secret_; }
    /// "turn:127.0.0.1:<port>?transport=udp".
    std::string url() const;
    const std::string& workDir() const { return workDir_; }
    std::string logPath() const { return workDir_ + "/turnserver.log"; }
    /// Lines of the server's log that contain `text`.
    int countLogLines(const std::string& text) const;

    /// REST credentials for `user`, valid for `lifetimeSeconds` from now
    /// (negative gives credentials that have already expired).
    Credentials credentialsForUser(const std::string& user, long lifetimeSeconds = 3600) const;
    static std::string restPassword(const std::string& secret, const std::string& username);

  private:
    bool answersStun(double seconds);

    std::string workDir_;
    std::unique_ptr<ChildProcess> process_;
    int port_ = 0;
    std::string secret_;
};
