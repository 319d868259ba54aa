// The demo's closing report: both phones' callbacks on one timeline, the call's
// figures, and what the signalling cost, read from the chat server's database.
#pragma once

#include <optional>
#include <string>
#include <vector>

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
    std::string snapshot;                  ///< PNG written, or empty
};

/// Prints the timeline, the figures and the signalling audit.
void printDemoReport(const DemoSide& caller, const DemoSide& callee, const SignallingAudit& audit);
