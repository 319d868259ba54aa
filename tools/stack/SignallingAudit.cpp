#include "SignallingAudit.h"

#include <sqlite3.h>

#include <nlohmann/json.hpp>

#include "VelmorinVideoChat/Utils/QXVCJSON.h"
#include "VelmorinVideoChat/Utils/QXVCUtils.h"

namespace {

int countOf(const std::string& text, const std::string& needle) {
    int count = 0;
    for (auto at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1)) {
        ++count;
    }
    return count;
}

/// Looks for candidates in `text`; `where` names it in a leak report.
void inspect(const std::string& text, const std::string& where, SignallingAudit& audit) {
    audit.relayCandidates += countOf(text, "typ relay");
    for (const char* bad : {"typ host", "typ srflx", "typ prflx"}) {
        if (text.find(bad) != std::string::npos) {
            audit.leaks.push_back(where + ": " + bad);
        }
    }
}

/// The session description of an offer or answer travels gzip-compressed and
/// base64-encoded in "sdp"; candidates travel as plain text in the same field.
void inspectSdp(const nlohmann::json& body, const std::string& type, const std::string& where,
                SignallingAudit& audit) {
    if ((type != "offer" && type != "answer") || !body.contains("sdp") ||
        !body["sdp"].is_string()) {
        return;
    }
    QXDErrorPtr error;
    auto sdp = QXVCUtils::decompressString(body["sdp"].get<std::string>(), &error);
    if (error || !sdp || sdp->empty()) {
        audit.leaks.push_back(where + ": an " + type + " whose sdp does not decompress");
        return;
    }
    inspect(*sdp, where + " (" + type + " sdp)", audit);
}

void collectPasswords(const nlohmann::json& json, SignallingAudit& audit) {
    if (json.is_object()) {
        for (auto it = json.begin(); it != json.end(); ++it) {
            if (it.key() == "password" && it.value().is_string()) {
                audit.turnPasswords.push_back(it.value().get<std::string>());
            } else {
                collectPasswords(it.value(), audit);
            }
        }
    }
}

std::string column(sqlite3_stmt* statement, int index) {
    const auto* text = sqlite3_column_text(statement, index);
    return text ? reinterpret_cast<const char*>(text) : "";
}

}  // namespace

SignallingAudit auditSignalling(const std::string& dbPath) {
    SignallingAudit audit;
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(dbPath.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        audit.error = "cannot open " + dbPath + ": " + (db ? sqlite3_errmsg(db) : "no memory");
        sqlite3_close(db);
        return audit;
    }
    sqlite3_busy_timeout(db, 3000);
    sqlite3_stmt* statement = nullptr;
    const char* query =
        "SELECT message_id, sender_id, data, message, custom_type FROM messages ORDER BY "
        "message_id";
    if (sqlite3_prepare_v2(db, query, -1, &statement, nullptr) != SQLITE_OK) {
        audit.error = std::string("cannot read messages: ") + sqlite3_errmsg(db);
        sqlite3_close(db);
        return audit;
    }
    int step;
    while ((step = sqlite3_step(statement)) == SQLITE_ROW) {
        const std::string id = column(statement, 0);
        const std::string sender = column(statement, 1);
        const std::string data = column(statement, 2);
        const std::string text = column(statement, 3);
        const std::string customType = column(statement, 4);
        const std::string where = "message " + id + " from " + sender;
        std::string command = data.substr(0, 4);
        std::string callId = "-";
        const std::string prefix = "QX_VIDEOCHAT_";
        if (customType.rfind(prefix, 0) == 0 && customType.size() > prefix.size()) {
            callId = customType.substr(prefix.size());
        }
        // Bounded depth: the walk below recurses, and a member may have sent anything.
        const auto parsed = qxvc::json::parse(data.size() > 4 ? data.substr(4) : "");
        const nlohmann::json body = parsed ? *parsed : nlohmann::json();
        if (body.is_object()) {
            if (body.contains("call_id") && body["call_id"].is_string()) {
                callId = body["call_id"].get<std::string>();
            }
            const std::string type = body.contains("type") && body["type"].is_string()
                                         ? body["type"].get<std::string>()
                                         : std::string();
            if (!type.empty()) {
                command += " " + type;
            }
            inspectSdp(body, type, where, audit);
            collectPasswords(body, audit);
        }
        inspect(data, where, audit);
        for (auto* totals : {&audit.all, &audit.byCall[callId], &audit.bySender[sender]}) {
            totals->messages += 1;
            totals->bytes += text.size() + customType.size() + data.size();
        }
        ++audit.byCommand[command];
    }
    if (step != SQLITE_DONE) {
        audit.error = std::string("reading messages failed: ") + sqlite3_errmsg(db);
    }
    sqlite3_finalize(statement);
    sqlite3_close(db);
    return audit;
}
