// What a call's signalling left in the chat server's database: messages and
// bytes per call and per sender, and any candidate that is not a relay one —
// in the messages themselves and inside the compressed session descriptions.
#pragma once

#include <map>
#include <string>
#include <vector>

struct SignallingTotals {
    int messages = 0;
    size_t bytes = 0;  ///< message text, custom type and data, as stored
};

struct SignallingAudit {
    std::string error;  ///< set when the database could not be read
    SignallingTotals all;
    std::map<std::string, SignallingTotals> byCall;    ///< by call id ("-": none in the message)
    std::map<std::string, SignallingTotals> bySender;  ///< by sender id
    std::map<std::string, int> byCommand;              ///< "STCA", "SGNL offer", ...
    int relayCandidates = 0;                           ///< "typ relay" seen, in candidates and SDP
    std::vector<std::string> leaks;                    ///< one line per host/srflx candidate found
    /// The TURN passwords the service handed out, to check that no log shows them.
    std::vector<std::string> turnPasswords;
};

/// Reads the `messages` table of the chat server's SQLite database.
SignallingAudit auditSignalling(const std::string& dbPath);
