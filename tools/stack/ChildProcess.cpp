#include "ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>

std::unique_ptr<ChildProcess> ChildProcess::start(Setup setup, std::string& error) {
    if (setup.argv.empty()) {
        error = "nothing to run";
        return nullptr;
    }
    // Writing to a child that has already left must fail, not kill us.
    static const bool sigpipeIgnored = [] { return std::signal(SIGPIPE, SIG_IGN) != SIG_ERR; }();
    (void)sigpipeIgnored;
    std::vector<char*> argv;
    for (auto& arg : setup.argv) {
        argv.push_back(arg.data());
    }
    argv.push_back(nullptr);
    // The child's environment, made before fork: only exec runs after it.
    std::vector<std::string> environment;
    for (char** entry = environ; *entry; ++entry) {
        const std::string text = *entry;
        const auto name = text.substr(0, text.find('=') + 1);
        bool replaced = false;
        for (const auto& extra : setup.environment) {
            replaced = replaced || extra.rfind(name, 0) == 0;
        }
        if (!replaced) {
            environment.push_back(text);
        }
    }
    environment.insert(environment.end(), setup.environment.begin(), setup.environment.end());
    std::vector<char*> envp;
    for (auto& entry : environment) {
        envp.push_back(entry.data());
    }
    envp.push_back(nullptr);

    int out[2] = {-1, -1};
    int in[2] = {-1, -1};
    if (pipe2(out, O_CLOEXEC) != 0 || (setup.pipeStdin && pipe2(in, O_CLOEXEC) != 0)) {
        error = std::string("pipe: ") + std::strerror(errno);
        return nullptr;
    }
    int logFd = -1;
    if (!setup.logPath.empty()) {
        logFd = open(setup.logPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (logFd < 0) {
            error = "cannot write " + setup.logPath + ": " + std::strerror(errno);
            close(out[0]);
            close(out[1]);
            return nullptr;
        }
    }
    const int nullFd = open("/dev/null", O_RDWR | O_CLOEXEC);
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid < 0) {
        error = std::string("fork: ") + std::strerror(errno);
        return nullptr;
    }
    if (pid == 0) {
        // Only async-signal-safe calls from here to exec.
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) {
            _exit(127);
        }
        dup2(setup.pipeStdin ? in[0] : nullFd, 0);
        dup2(out[1], 1);
        dup2(logFd >= 0 ? logFd : nullFd, 2);
        execvpe(argv[0], argv.data(), envp.data());
        const char message[] = "exec failed\n";
        ssize_t ignored = write(2, message, sizeof message - 1);
        (void)ignored;
        _exit(127);
    }
    setpgid(pid, pid);
    close(nullFd);
    close(out[1]);
    std::unique_ptr<ChildProcess> child(new ChildProcess());
    child->pid_ = pid;
    child->logFd_ = logFd;
    child->onLine_ = std::move(setup.onLine);
    if (setup.pipeStdin) {
        close(in[0]);
        child->stdinFd_ = in[1];
    }
    const int readFd = out[0];
    child->reader_ = std::thread([raw = child.get(), readFd] { raw->readLoop(readFd); });
    return child;
}

ChildProcess::~ChildProcess() {
    stop(2);
    if (logFd_ >= 0) {
        close(logFd_);
    }
}

void ChildProcess::readLoop(int fd) {
    std::string pending;
    char buffer[4096];
    while (true) {
        const ssize_t n = read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            break;
        }
        if (logFd_ >= 0) {
            ssize_t ignored = write(logFd_, buffer, static_cast<size_t>(n));
            (void)ignored;
        }
        pending.append(buffer, static_cast<size_t>(n));
        size_t newline;
        while ((newline = pending.find('\n')) != std::string::npos) {
            std::string line = pending.substr(0, newline);
            pending.erase(0, newline + 1);
            if (onLine_) {
                onLine_(line);
            }
            {
                std::lock_guard lock(mutex_);
                lines_.push_back(std::move(line));
            }
            changed_.notify_all();
        }
    }
    close(fd);
    {
        std::lock_guard lock(mutex_);
        outputClosed_ = true;
    }
    changed_.notify_all();
}

bool ChildProcess::writeLine(const std::string& text) {
    std::lock_guard lock(mutex_);
    if (stdinFd_ < 0) {
        return false;
    }
    const std::string data = text + "\n";
    size_t done = 0;
    while (done < data.size()) {
        const ssize_t n = write(stdinFd_, data.data() + done, data.size() - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return true;
}

void ChildProcess::closeStdin() {
    std::lock_guard lock(mutex_);
    if (stdinFd_ >= 0) {
        close(stdinFd_);
        stdinFd_ = -1;
    }
}

void ChildProcess::signalGroup(int signal) {
    std::lock_guard lock(mutex_);
    if (!exited_ && pid_ > 0) {
        ::kill(-pid_, signal);
    }
}

bool ChildProcess::reap(bool block) {
    std::lock_guard lock(mutex_);
    if (exited_) {
        return true;
    }
    int status = 0;
    const pid_t done = waitpid(pid_, &status, block ? 0 : WNOHANG);
    if (done == pid_ || (done < 0 && errno == ECHILD)) {
        exited_ = true;
        status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return true;
    }
    return false;
}

bool ChildProcess::running() {
    return !reap(false);
}

int ChildProcess::waitExit(double seconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!reap(false)) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    std::lock_guard lock(mutex_);
    return status_;
}

int ChildProcess::stop(double graceSeconds) {
    if (pid_ > 0) {
        closeStdin();
        if (!reap(false)) {
            ::kill(-pid_, SIGCONT);
            ::kill(-pid_, SIGTERM);
            if (waitExit(graceSeconds) < 0) {
                ::kill(-pid_, SIGKILL);
                reap(true);
            }
        }
        // Whatever else is left in the group goes too (it would hold stdout open).
        ::kill(-pid_, SIGKILL);
    }
    if (reader_.joinable()) {
        reader_.join();
    }
    std::lock_guard lock(mutex_);
    return status_;
}

std::vector<std::string> ChildProcess::lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
}

long ChildProcess::waitForLine(const std::function<bool(const std::string&)>& match, double seconds,
                               size_t from) const {
    std::unique_lock lock(mutex_);
    long found = -1;
    changed_.wait_for(lock, std::chrono::duration<double>(seconds), [&] {
        for (size_t i = from; i < lines_.size(); ++i) {
            if (match(lines_[i])) {
                found = static_cast<long>(i);
                return true;
            }
        }
        return outputClosed_;
    });
    return found;
}
