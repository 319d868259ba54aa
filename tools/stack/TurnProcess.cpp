#include "TurnProcess.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <fstream>

namespace {

sockaddr_in loopback(int port) {
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return addr;
}

/// A port free for both UDP and TCP on 127.0.0.1.
int freePort() {
    for (int attempt = 0; attempt < 50; ++attempt) {
        const int udp = socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in addr = loopback(0);
        socklen_t length = sizeof addr;
        if (bind(udp, reinterpret_cast<sockaddr*>(&addr), length) != 0 ||
            getsockname(udp, reinterpret_cast<sockaddr*>(&addr), &length) != 0) {
            close(udp);
            continue;
        }
        const int port = ntohs(addr.sin_port);
        const int tcp = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in tcpAddr = loopback(port);
        const bool free = bind(tcp, reinterpret_cast<sockaddr*>(&tcpAddr), sizeof tcpAddr) == 0;
        close(tcp);
        close(udp);
        if (free) {
            return port;
        }
    }
    return 0;
}

std::string randomHex(size_t bytes) {
    std::string raw(bytes, '\0');
    RAND_bytes(reinterpret_cast<unsigned char*>(raw.data()), static_cast<int>(bytes));
    static const char* digits = "0123456789abcdef";
    std::string out;
    for (unsigned char c : raw) {
        out += digits[c >> 4];
        out += digits[c & 15];
    }
    return out;
}

}  // namespace

TurnProcess::TurnProcess(std::string workDir) : workDir_(std::move(workDir)) {}

TurnProcess::~TurnProcess() {
    stop();
}

std::string TurnProcess::url() const {
    return "turn:127.0.0.1:" + std::to_string(port_) + "?transport=udp";
}

bool TurnProcess::start(std::string& error) {
    port_ = freePort();
    if (port_ == 0) {
        error = "no free port for coturn";
        return false;
    }
    secret_ = randomHex(16);
    // Relay ports away from the listener, and apart for servers on other ports:
    // 64 of them, as allocations of phones that quit stay until they expire.
    constexpr int kRelayPorts = 64;
    const int minPort = 40000 + (port_ % 390) * kRelayPorts;
    ChildProcess::Setup setup;
    setup.argv = {"turnserver", "-n", "--listening-ip=127.0.0.1", "--relay-ip=127.0.0.1",
                  "--listening-port=" + std::to_string(port_),
                  "--min-port=" + std::to_string(minPort),
                  "--max-port=" + std::to_string(minPort + kRelayPorts - 1), "--use-auth-secret",
                  "--static-auth-secret=" + secret_, "--realm=velmorin.local", "--no-tls",
                  "--no-dtls", "--no-cli", "--allow-loopback-peers",
                  // The relay socket is bound to loopback and cannot send anywhere else:
                  // coturn would drop the whole allocation on the first such send (a
                  // check towards a peer's host candidate), so other peers are refused.
                  "--denied-peer-ip=0.0.0.0-255.255.255.255",
                  "--denied-peer-ip=::-ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff",
                  "--allowed-peer-ip=127.0.0.0-127.255.255.255", "--fingerprint",
                  "--userdb=" + workDir_ + "/turndb", "--log-file=" + logPath(), "--simple-log",
                  "--no-stdout-log", "--verbose"};
    setup.logPath = workDir_ + "/turnserver.out";
    process_ = ChildProcess::start(std::move(setup), error);
    if (!process_) {
        error = "cannot run turnserver (is coturn installed?): " + error;
        return false;
    }
    if (!answersStun(10)) {
        error = "turnserver did not answer on port " + std::to_string(port_) + "; see " + logPath();
        stop();
        return false;
    }
    return true;
}

bool TurnProcess::answersStun(double seconds) {
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in addr = loopback(port_);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    bool answered = false;
    while (!answered && std::chrono::steady_clock::now() < deadline && process_->running()) {
        // A STUN binding request; a binding success response starts 0x0101.
        unsigned char request[20] = {0x00, 0x01, 0x00, 0x00, 0x21, 0x12, 0xA4, 0x42};
        RAND_bytes(request + 8, 12);
        sendto(fd, request, sizeof request, 0, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
        pollfd pfd{fd, POLLIN, 0};
        if (poll(&pfd, 1, 50) == 1) {
            unsigned char reply[1500];
            const ssize_t n = recv(fd, reply, sizeof reply, 0);
            answered = n >= 20 && reply[0] == 0x01 && reply[1] == 0x01;
        }
    }
    close(fd);
    return answered;
}

void TurnProcess::stop() {
    if (process_) {
        process_->stop(3);
        process_.reset();
    }
}

void TurnProcess::pause() {
    if (process_) {
        process_->signalGroup(SIGSTOP);
    }
}

void TurnProcess::resume() {
    if (process_) {
        process_->signalGroup(SIGCONT);
    }
}

void TurnProcess::kill() {
    if (process_) {
        process_->signalGroup(SIGKILL);
        process_->waitExit(5);
        process_.reset();
    }
}

int TurnProcess::countLogLines(const std::string& text) const {
    std::ifstream in(logPath());
    int count = 0;
    for (std::string line; std::getline(in, line);) {
        count += line.find(text) != std::string::npos ? 1 : 0;
    }
    return count;
}

TurnProcess::Credentials TurnProcess::credentialsForUser(const std::string& user,
                                                         long lifetimeSeconds) const {
    std::string username =
        std::to_string(static_cast<long long>(std::time(nullptr)) + lifetimeSeconds) + ":" + user;
    return {username, restPassword(secret_, username)};
}

std::string TurnProcess::restPassword(const std::string& secret, const std::string& username) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    HMAC(EVP_sha1(), secret.data(), static_cast<int>(secret.size()),
         reinterpret_cast<const unsigned char*>(username.data()), username.size(), digest, &length);
    std::string out(4 * ((length + 2) / 3) + 1, '\0');
    const int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data()), digest,
                                  static_cast<int>(length));
    out.resize(static_cast<size_t>(n));
    return out;
}
