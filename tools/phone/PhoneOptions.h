// Command-line flags of qxvc-phone.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct PhoneOptions {
    enum class PushMode { Handle, Build };

    std::string host = "127.0.0.1";
    uint16_t port = 0;
    std::string user;
    std::string token;
    std::string channel;
    bool autoAccept = false;
    bool autoAcceptSimultaneous = false;
    std::string scriptPath;  ///< empty: commands come from stdin
    std::string snapshotDir = ".";
    std::string pushFile;
    PushMode pushMode = PushMode::Handle;
    long startCallTimeout = 0;  ///< 0: the library's default
    long logLevel = 0;
};

struct PhoneOptionsResult {
    std::optional<PhoneOptions> options;
    bool help = false;
    std::string error;  ///< set when neither options nor help
};

/// Reads the flags (argv without the program name), each as `--flag value` or
/// `--flag=value`. An error names the flag and what is wrong with it. Never throws.
PhoneOptionsResult parsePhoneOptions(const std::vector<std::string>& args);

/// The usage text printed by --help: one line per flag, from the flag table.
std::string phoneUsage();

/// Parses a whole decimal integer in [min, max]; nullopt for anything else.
std::optional<long> parseWholeNumber(const std::string& text, long min, long max);
/// Parses a finite decimal number in [min, max]; nullopt for anything else.
std::optional<double> parseSeconds(const std::string& text, double min, double max);
