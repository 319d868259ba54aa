#include "TurnServerFixture.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

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
        int udp = socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in addr = loopback(0);
        socklen_t len = sizeof addr;
        if (bind(udp, reinterpret_cast<sockaddr*>(&addr), len) != 0 ||
            getsockname(udp, reinterpret_cast<sockaddr*>(&addr), &len) != 0) {
            close(udp);
            continue;
        }
        int port = ntohs(addr.sin_port);
        int tcp = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in taddr = loopback(port);
        bool ok = bind(tcp, reinterpret_cast<sockaddr*>(&taddr), sizeof taddr) == 0;
        close(tcp);
        close(udp);
        if (ok) {
            return port;
        }
    }
    return 0;
}

std::string randomHex(size_t bytes) {
    std::vector<unsigned char> raw(bytes);
    RAND_bytes(raw.data(), static_cast<int>(raw.size()));
    static const char* digits = "0123456789abcdef";
    std::string out;
    for (unsigned char c : raw) {
        out += digits[c >> 4];
        out += digits[c & 15];
    }
    return out;
}

}  // namespace

TurnServerFixture::~TurnServerFixture() {
    stop();
}

bool TurnServerFixture::start() {
    if (pid_ > 0) {
        return true;
    }
    char tmpl[] = "/tmp/velmorin-turn.XXXXXX";
    if (!mkdtemp(tmpl)) {
        error_ = "mkdtemp failed";
        return false;
    }
    dir_ = tmpl;
    logPath_ = dir_ + "/turnserver.log";
    port_ = freePort();
    secret_ = randomHex(16);
    int minPort = 40000 + (port_ % 1000) * 16;
    std::vector<std::string> args = {
        "turnserver", "-n", "--listening-ip=127.0.0.1", "--relay-ip=127.0.0.1",
        "--listening-port=" + std::to_string(port_), "--min-port=" + std::to_string(minPort),
        "--max-port=" + std::to_string(minPort + 15), "--use-auth-secret",
        "--static-auth-secret=" + secret_, "--realm=velmorin.local", "--no-tls", "--no-dtls",
        "--no-cli", "--allow-loopback-peers",
        // The relay socket is bound to loopback and cannot send anywhere else:
        // coturn would drop the whole allocation on the first such send (a
        // check towards a peer's host candidate), so other peers are refused.
        "--denied-peer-ip=0.0.0.0-255.255.255.255",
        "--denied-peer-ip=::-ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff",
        "--allowed-peer-ip=127.0.0.0-127.255.255.255", "--fingerprint",
        "--userdb=" + dir_ + "/turndb", "--pidfile=" + dir_ + "/turnserver.pid",
        "--log-file=" + logPath_, "--simple-log", "--no-stdout-log", "--verbose"};
    std::vector<char*> argv;
    for (auto& arg : args) {
        argv.push_back(arg.data());
    }
    argv.push_back(nullptr);
    // The server dies with the test process, even one that crashes before
    // stop() runs. Only async-signal-safe calls between fork and exec.
    const pid_t parent = getpid();
    pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) {
            _exit(127);
        }
        int devNull = open("/dev/null", O_WRONLY);
        if (devNull >= 0) {
            dup2(devNull, 1);
            dup2(devNull, 2);
        }
        execvp("turnserver", argv.data());
        _exit(127);
    }
    if (pid < 0) {
        error_ = "cannot run turnserver (is coturn installed?)";
        return false;
    }
    pid_ = pid;
    if (!waitUntilAnswering(10.0)) {
        error_ = "turnserver did not answer on port " + std::to_string(port_) + "; see " + logPath_;
        stop();
        return false;
    }
    return true;
}

bool TurnServerFixture::waitUntilAnswering(double seconds) {
    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in addr = loopback(port_);
    auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    bool answered = false;
    while (!answered && std::chrono::steady_clock::now() < deadline) {
        int status = 0;
        if (waitpid(pid_, &status, WNOHANG) == pid_) {
            pid_ = -1;
            break;
        }
        // A STUN binding request; a binding success response starts 0x0101.
        unsigned char request[20] = {0x00, 0x01, 0x00, 0x00, 0x21, 0x12, 0xA4, 0x42};
        RAND_bytes(request + 8, 12);
        sendto(fd, request, sizeof request, 0, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
        pollfd pfd{fd, POLLIN, 0};
        if (poll(&pfd, 1, 50) == 1) {
            unsigned char reply[1500];
            ssize_t n = recv(fd, reply, sizeof reply, 0);
            answered = n >= 20 && reply[0] == 0x01 && reply[1] == 0x01;
        }
    }
    close(fd);
    return answered;
}

void TurnServerFixture::stop() {
    if (pid_ <= 0) {
        return;
    }
    ::kill(pid_, SIGCONT);
    ::kill(pid_, SIGTERM);
    for (int i = 0; i < 50; ++i) {
        int status = 0;
        if (waitpid(pid_, &status, WNOHANG) == pid_) {
            pid_ = -1;
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    ::kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
}

void TurnServerFixture::pause() {
    if (pid_ > 0) {
        ::kill(pid_, SIGSTOP);
    }
}

void TurnServerFixture::resume() {
    if (pid_ > 0) {
        ::kill(pid_, SIGCONT);
    }
}

void TurnServerFixture::kill() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }
}

std::string TurnServerFixture::url() const {
    return "turn:127.0.0.1:" + std::to_string(port_) + "?transport=udp";
}

int TurnServerFixture::countLogLines(const std::string& text) const {
    std::ifstream in(logPath_);
    int count = 0;
    for (std::string line; std::getline(in, line);) {
        count += line.find(text) != std::string::npos ? 1 : 0;
    }
    return count;
}

TurnServerFixture::Credentials TurnServerFixture::credentialsForUser(const std::string& user,
                                                                     long lifetimeSeconds) const {
    std::string username =
        std::to_string(static_cast<long long>(std::time(nullptr)) + lifetimeSeconds) + ":" + user;
    return {username, restPassword(secret_, username)};
}

std::string TurnServerFixture::restPassword(const std::string& secret,
                                            const std::string& username) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    HMAC(EVP_sha1(), secret.data(), static_cast<int>(secret.size()),
         reinterpret_cast<const unsigned char*>(username.data()), username.size(), digest, &length);
    std::string out(4 * ((length + 2) / 3) + 1, '\0');
    int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data()), digest,
                            static_cast<int>(length));
    out.resize(static_cast<size_t>(n));
    return out;
}
