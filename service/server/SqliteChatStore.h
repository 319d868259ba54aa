// A ChatStore in an SQLite file (or in memory), with the schema documented in
// VelmorinService/ChatWireProtocol.h. Every change is written before the call
// returns. Thread-safe (the connection is serialized).
#pragma once

#include <memory>
#include <string>

#include "VelmorinService/ChatStore.h"

struct sqlite3;

namespace velmorin::server {

class SqliteChatStore : public ChatStore {
  public:
    /// Opens (creating when needed) the database at `path`; "" or ":memory:"
    /// keeps everything in memory. nullptr with `error` set when it fails.
    static std::shared_ptr<SqliteChatStore> open(const std::string& path, std::string& error);
    ~SqliteChatStore() override;
    SqliteChatStore(const SqliteChatStore&) = delete;
    SqliteChatStore& operator=(const SqliteChatStore&) = delete;

    /// A random id made when the database was created: the same for every
    /// server started on this file, different for another file or in memory.
    const std::string& storeId() const { return storeId_; }

    Snapshot load() override;
    bool messageStored(const QXDUserMessage& message) override;
    void pushPayloadKept(const std::string& userId, const nlohmann::json& payload) override;
    void oldestPushPayloadDropped(const std::string& userId) override;
    void pushPayloadsTaken(const std::string& userId) override;

  private:
    explicit SqliteChatStore(sqlite3* db) : db_(db) {}
    bool execute(const std::string& sql, std::string* error = nullptr);
    sqlite3* db_;
    std::string storeId_;
};

}  // namespace velmorin::server
