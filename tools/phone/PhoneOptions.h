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
    // Media ends (see the engine's <VelmorinGStreamer/RTCGstMediaOptions.h>).
    std::string microphone;   ///< "" default source, "tone", a file or a source
    std::string speaker;      ///< "" default sink, or a sink of the sound server
    std::string camera;       ///< "" default, "front", "back", a V4L2 device or a file
    std::string recordAudio;  ///< WAV file for the received audio
    bool echoCancellation = true;
    bool window = false;
    bool listDevices = false;  ///< print the devices and leave
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
