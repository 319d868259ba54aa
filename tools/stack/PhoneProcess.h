// A qxvc-phone child process driven through its stdin, and its output read
// back as events (see tools/phone/PhoneEventLog.h for the line format).
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ChildProcess.h"

/// One line of a phone's output: "<KIND> t=<ms> wall=<time> [name] key=value ...".
struct PhoneLine {
    std::string kind;  ///< EVENT, STATS, SNAPSHOT, READY, CMD, FAIL, INFO, EXIT
    std::string name;  ///< the event's name (EVENT lines only)
    int64_t t = -1;    ///< ms since the phone started
    std::string wall;
    std::map<std::string, std::string> fields;
    std::string text;  ///< the whole line

    std::string field(const std::string& key) const {
        auto it = fields.find(key);
        return it == fields.end() ? std::string() : it->second;
    }
    long number(const std::string& key) const;
};

/// Reads a phone's output line; nullopt for lines of another form.
std::optional<PhoneLine> parsePhoneLine(const std::string& text);

class PhoneProcess {
  public:
    struct Setup {
        std::string user;
        std::string token;
        std::string channel;
        std::string server;  ///< host:port
        std::string snapshotDir;
        std::string logPath;
        std::vector<std::string> extraArgs;
        /// Added to the phone's environment ("NAME=value").
        std::vector<std::string> environment;
        /// Called with each parsed line, on the reader thread (demo progress).
        std::function<void(const PhoneLine&)> onLine;
    };

    /// Starts the phone and waits until it has logged in (READY).
    static std::unique_ptr<PhoneProcess> start(Setup setup, std::string& error,
                                               double readySeconds = 20);
    /// Starts the phone without waiting for anything.
    static std::unique_ptr<PhoneProcess> launch(Setup setup, std::string& error);

    const std::string& user() const { return user_; }
    bool send(const std::string& command);

    /// The first event `name` (matching `match`, if given) after the last one
    /// an earlier wait for `name` returned; nullopt after `seconds`.
    std::optional<PhoneLine> waitEvent(const std::string& name, double seconds,
                                       const std::function<bool(const PhoneLine&)>& match = {});
    /// Sends `stats` and returns the STATS line it prints.
    std::optional<PhoneLine> stats(double seconds = 5);
    /// The first line of `kind` printed after line index `from`.
    std::optional<PhoneLine> waitKind(const std::string& kind, double seconds, size_t from = 0);

    std::vector<PhoneLine> parsedLines() const;
    std::vector<PhoneLine> events(const std::string& name = "") const;
    size_t lineCount() const { return process_->lines().size(); }

    /// Sends quit and waits for the phone to leave; stops it otherwise. Returns
    /// its exit status.
    int quit(double seconds = 10);
    ChildProcess& process() { return *process_; }

  private:
    std::string user_;
    std::unique_ptr<ChildProcess> process_;
    std::map<std::string, size_t> cursors_;
};
