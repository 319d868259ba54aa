// The demo's closing report: both phones' callbacks on one timeline, the call's
// figures, and what the signalling cost, read from the chat server's database.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "AudioAnalysis.h"
#include "PhoneProcess.h"
#include "SignallingAudit.h"

/// Milliseconds since midnight UTC of a phone line's wall time (both phones run
/// on this machine, so their wall clocks agree); nullopt when absent.
std::optional<long> wallMs(const PhoneLine& line);

struct DemoSide {
    std::string user;
    std::vector<PhoneLine> lines;          ///< everything the phone printed
    std::optional<PhoneLine> firstStats;   ///< taken once media flow
    std::optional<PhoneLine> steadyStats;  ///< 4 s later, before any control
    std::optional<PhoneLine> finalStats;   ///< taken just before the end
    std::vector<PhoneLine> snapshots;      ///< the PNGs written, with whose picture each shows
};

/// What the call did to sound: speech each way, and the echo.
struct DemoSound {
    struct Speech {
        std::string from;
        std::string to;
        std::optional<AudioMatch> match;  ///< nullopt when the step failed
    };
    std::vector<Speech> speech;
    /// Alice's voice as bob's microphone picked it up from his loudspeaker, and
    /// what of it came back to alice (dBFS), while bob was silent.
    std::optional<double> echoAtMicrophoneDb;
    std::optional<double> echoReturnedDb;
    std::vector<std::string> recordings;  ///< each side's received audio
};

/// Prints the timeline, the figures and the signalling audit.
void printDemoReport(const DemoSide& caller, const DemoSide& callee, const DemoSound& sound,
                     const SignallingAudit& audit);
