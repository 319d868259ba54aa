#include "SqliteChatStore.h"

#include <sqlite3.h>

#include <utility>
#include <vector>

#include "ServerLog.h"
#include "VelmorinService/ChatWireCodec.h"
#include "VelmorinService/TurnCredentials.h"
#include "VelmorinVideoChat/Utils/QXVCJSON.h"

namespace velmorin::server {

namespace {

constexpr const char* kSchema = R"(
CREATE TABLE IF NOT EXISTS messages(
  message_id INTEGER PRIMARY KEY,
  channel_url TEXT NOT NULL,
  sender_id TEXT NOT NULL,
  message TEXT NOT NULL,
  custom_type TEXT NOT NULL,
  data TEXT NOT NULL,
  created_at INTEGER NOT NULL,
  sender_nickname TEXT NOT NULL DEFAULT '',
  sender_profile_url TEXT NOT NULL DEFAULT '');
CREATE INDEX IF NOT EXISTS messages_by_channel ON messages(channel_url, message_id);
CREATE TABLE IF NOT EXISTS meta(
  key TEXT PRIMARY KEY,
  value TEXT NOT NULL);
CREATE TABLE IF NOT EXISTS push_payloads(
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  user_id TEXT NOT NULL,
  payload TEXT NOT NULL);
)";

/// A prepared statement that finalizes itself.
class Statement {
  public:
    Statement(sqlite3* db, const char* sql) : db_(db) {
        if (sqlite3_prepare_v2(db, sql, -1, &statement_, nullptr) != SQLITE_OK) {
            log(LogLevel::Error, std::string("database: ") + sqlite3_errmsg(db));
            statement_ = nullptr;
        }
    }
    ~Statement() { sqlite3_finalize(statement_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    bool ok() const { return statement_ != nullptr; }
    void bind(int index, const std::string& text) {
        sqlite3_bind_text(statement_, index, text.data(), static_cast<int>(text.size()),
                          SQLITE_TRANSIENT);
    }
    void bind(int index, int64_t value) { sqlite3_bind_int64(statement_, index, value); }
    /// Steps once: SQLITE_ROW, SQLITE_DONE or an error code (logged).
    int step() {
        if (!statement_) {
            return SQLITE_ERROR;
        }
        const int rc = sqlite3_step(statement_);
        if (rc != SQLITE_ROW && rc != SQLITE_DONE) {
            log(LogLevel::Error, std::string("database: ") + sqlite3_errmsg(db_));
        }
        return rc;
    }
    std::string text(int column) const {
        const auto* bytes = sqlite3_column_text(statement_, column);
        return bytes ? std::string(reinterpret_cast<const char*>(bytes),
                                   static_cast<size_t>(sqlite3_column_bytes(statement_, column)))
                     : std::string();
    }
    int64_t integer(int column) const { return sqlite3_column_int64(statement_, column); }

  private:
    sqlite3* db_;
    sqlite3_stmt* statement_ = nullptr;
};

}  // namespace

std::shared_ptr<SqliteChatStore> SqliteChatStore::open(const std::string& path,
                                                       std::string& error) {
    const bool inMemory = path.empty() || path == ":memory:";
    sqlite3* db = nullptr;
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX;
    if (sqlite3_open_v2(inMemory ? ":memory:" : path.c_str(), &db, flags, nullptr) != SQLITE_OK) {
        error = "cannot open database " + path + ": " + (db ? sqlite3_errmsg(db) : "out of memory");
        sqlite3_close(db);
        return nullptr;
    }
    std::shared_ptr<SqliteChatStore> store(new SqliteChatStore(db));
    sqlite3_busy_timeout(db, 5000);
    // WAL lets readers (sqlite3 on the command line) look while the server writes.
    const std::string pragmas =
        inMemory ? "" : "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;";
    std::string detail;
    if (!store->execute(pragmas + kSchema, &detail)) {
        error = "cannot use database " + path + ": " + detail;
        return nullptr;
    }
    Statement create(db, "INSERT OR IGNORE INTO meta(key, value) VALUES('store_id', ?)");
    create.bind(1, makeUuidV4());
    Statement read(db, "SELECT value FROM meta WHERE key = 'store_id'");
    if (create.step() != SQLITE_DONE || read.step() != SQLITE_ROW) {
        error = "cannot use database " + path + ": " + sqlite3_errmsg(db);
        return nullptr;
    }
    store->storeId_ = read.text(0);
    return store;
}

SqliteChatStore::~SqliteChatStore() {
    sqlite3_close(db_);
}

bool SqliteChatStore::execute(const std::string& sql, std::string* error) {
    char* message = nullptr;
    if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &message) != SQLITE_OK) {
        const std::string text = message ? message : "unknown error";
        sqlite3_free(message);
        if (error) {
            *error = text;
        }
        log(LogLevel::Error, "database: " + text);
        return false;
    }
    return true;
}

ChatStore::Snapshot SqliteChatStore::load() {
    Snapshot snapshot;
    Statement messages(db_,
                       "SELECT message_id, channel_url, sender_id, message, custom_type, data, "
                       "created_at, sender_nickname, sender_profile_url FROM messages "
                       "ORDER BY message_id");
    while (messages.step() == SQLITE_ROW) {
        auto sender =
            std::make_shared<const QXDUser>(messages.text(2), messages.text(7), messages.text(8));
        auto message = std::make_shared<const QXDUserMessage>(
            messages.integer(0), messages.text(1), messages.text(3), messages.text(4),
            messages.text(5), std::move(sender), messages.integer(6));
        snapshot.lastMessageId = message->messageId();
        snapshot.messages[message->channelUrl()].push_back(std::move(message));
    }
    Statement payloads(db_, "SELECT user_id, payload FROM push_payloads ORDER BY id");
    while (payloads.step() == SQLITE_ROW) {
        if (auto payload = qxvc::json::parse(payloads.text(1))) {
            snapshot.pushPayloads[payloads.text(0)].push_back(std::move(*payload));
        }
    }
    return snapshot;
}

bool SqliteChatStore::messageStored(const QXDUserMessage& message) {
    Statement insert(db_,
                     "INSERT INTO messages(message_id, channel_url, sender_id, message, "
                     "custom_type, data, created_at, sender_nickname, sender_profile_url) "
                     "VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?)");
    insert.bind(1, message.messageId());
    insert.bind(2, message.channelUrl());
    const QXDUser sender = message.sender() ? *message.sender() : QXDUser();
    insert.bind(3, sender.userId());
    insert.bind(4, message.message());
    insert.bind(5, message.customType());
    insert.bind(6, message.data());
    insert.bind(7, message.createdAt());
    insert.bind(8, sender.nickname());
    insert.bind(9, sender.profileUrl());
    return insert.step() == SQLITE_DONE;
}

void SqliteChatStore::pushPayloadKept(const std::string& userId, const nlohmann::json& payload) {
    Statement insert(db_, "INSERT INTO push_payloads(user_id, payload) VALUES(?, ?)");
    insert.bind(1, userId);
    insert.bind(2, wire::dump(payload));
    insert.step();
}

void SqliteChatStore::oldestPushPayloadDropped(const std::string& userId) {
    Statement remove(db_,
                     "DELETE FROM push_payloads WHERE id = "
                     "(SELECT MIN(id) FROM push_payloads WHERE user_id = ?)");
    remove.bind(1, userId);
    remove.step();
}

void SqliteChatStore::pushPayloadsTaken(const std::string& userId) {
    Statement remove(db_, "DELETE FROM push_payloads WHERE user_id = ?");
    remove.bind(1, userId);
    remove.step();
}

}  // namespace velmorin::server
