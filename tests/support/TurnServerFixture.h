// A coturn TURN server on loopback for tests: its own process, a random free
// port, a fresh shared secret, and time-limited REST credentials.
#pragma once

#include <sys/types.h>
#include <string>

class TurnServerFixture {
  public:
    struct Credentials {
        std::string username;  ///< "<expiry unix time>:<user>"
        std::string password;  ///< base64(HMAC-SHA1(secret, username))
    };

    TurnServerFixture() = default;
    ~TurnServerFixture();
    TurnServerFixture(const TurnServerFixture&) = delete;
    TurnServerFixture& operator=(const TurnServerFixture&) = delete;

    /// Starts coturn and waits until it answers a STUN binding request. Returns
    /// false (with the reason in `error()`) when turnserver is missing or does not
    /// come up within a few seconds.
    bool start();
    /// SIGTERM, then SIGKILL if needed; idempotent.
    void stop();
    /// Freezes (SIGSTOP) and resumes (SIGCONT) the server.
    void pause();
    void resume();
    /// SIGKILL: the server vanishes without releasing anything.
    void kill();

    bool isRunning() const { return pid_ > 0; }
    int port() const { return port_; }
    const std::string& secret() const { return secret_; }
    /// "turn:127.0.0.1:<port>?transport=udp".
    std::string url() const;
    const std::string& logPath() const { return logPath_; }
    const std::string& error() const { return error_; }
    /// Lines of the server's log that contain `text`.
    int countLogLines(const std::string& text) const;

    /// REST credentials for `user`, valid for `lifetimeSeconds` from now
    /// (negative gives credentials that have already expired).
    Credentials credentialsForUser(const std::string& user, long lifetimeSeconds = 3600) const;
    /// The REST password for `username` under `secret`.
    static std::string restPassword(const std::string& secret, const std::string& username);

  private:
    bool waitUntilAnswering(double seconds);
    pid_t pid_ = -1;
    int port_ = 0;
    std::string secret_;
    std::string dir_;
    std::string logPath_;
    std::string error_;
};
