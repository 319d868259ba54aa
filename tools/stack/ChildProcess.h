// A child process in its own process group, for the demo and the end-to-end
// tests. Its stdout is read line by line (kept, and copied to a log file with
// stderr); stdin can be a pipe. Whatever happens, the group is stopped: by
// stop(), by the destructor, and by the kernel when this process dies
// (PR_SET_PDEATHSIG).
#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class ChildProcess {
  public:
    struct Setup {
        std::vector<std::string> argv;  ///< argv[0] is the program (searched on PATH)
        std::string logPath;            ///< stdout and stderr are copied here
        bool pipeStdin = false;
        /// "NAME=value" entries added to (or replacing in) the inherited environment.
        std::vector<std::string> environment;
        /// Called with each stdout line, on the reader thread.
        std::function<void(const std::string&)> onLine;
    };

    /// Starts the process; nullptr with the reason in `error` when it cannot.
    static std::unique_ptr<ChildProcess> start(Setup setup, std::string& error);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t pid() const { return pid_; }
    /// Writes `text` and a line break to stdin; false when stdin is closed.
    bool writeLine(const std::string& text);
    void closeStdin();

    /// Sends `signal` to the whole group.
    void signalGroup(int signal);
    /// Waits up to `seconds` for the process to exit by itself. Its exit status
    /// (128 + signal when killed), or -1 while it still runs.
    int waitExit(double seconds);
    /// SIGCONT and SIGTERM to the group, SIGKILL after `graceSeconds`. Returns
    /// the exit status. Idempotent.
    int stop(double graceSeconds = 3);
    bool running();

    /// The stdout lines read so far.
    std::vector<std::string> lines() const;
    /// Waits until a line at index >= `from` matches; returns its index, or -1
    /// when none did within `seconds` or before the output closed.
    long waitForLine(const std::function<bool(const std::string&)>& match, double seconds,
                     size_t from = 0) const;

  private:
    ChildProcess() = default;
    void readLoop(int fd);
    bool reap(bool block);

    pid_t pid_ = -1;
    int stdinFd_ = -1;
    int logFd_ = -1;
    bool exited_ = false;
    bool outputClosed_ = false;
    int status_ = -1;
    std::thread reader_;
    std::function<void(const std::string&)> onLine_;
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<std::string> lines_;
};
