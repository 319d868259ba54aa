// The chat service with a store: what it tells the store, and starting again
// from what the store kept.
#include "VelmorinService/ChatService.h"
#include "VelmorinService/ChatStore.h"
#include "VelmorinVideoChat/Platform/Chat/QXDMain.h"

using velmorin::ChatService;
using velmorin::ChatStore;

namespace {

/// A store in memory that also says what it was told.
class MemoryStore : public ChatStore {
  public:
    Snapshot load() override { return kept; }
    bool messageStored(const QXDUserMessage& message) override {
        if (refuseMessages) {
            return false;
        }
        kept.lastMessageId = message.messageId();
        kept.messages[message.channelUrl()].push_back(
            std::make_shared<const QXDUserMessage>(message));
        return true;
    }
    void pushPayloadKept(const std::string& userId, const nlohmann::json& payload) override {
        kept.pushPayloads[userId].push_back(payload);
    }
    void oldestPushPayloadDropped(const std::string& userId) override {
        auto& list = kept.pushPayloads[userId];
        list.erase(list.begin());
    }
    void pushPayloadsTaken(const std::string& userId) override { kept.pushPayloads.erase(userId); }

    Snapshot kept;
    bool refuseMessages = false;
};

std::shared_ptr<ChatService> serviceOn(const std::shared_ptr<MemoryStore>& store,
                                       size_t maxPushPayloads = 1000) {
    velmorin::ServiceSettings settings;
    settings.maxPushPayloadsPerUser = maxPushPayloads;
    auto service = ChatService::create(settings, nullptr, store);
    service->upsertUser(QXDUser("alice", "Alice"));
    service->upsertUser(QXDUser("bob", "Bob"));
    service->createGroupChannel({"ab", "", false, false, {"alice", "bob"}});
    return service;
}

velmorin::ServiceResult<QXDUserMessagePtr> send(ChatService& service, const std::string& data) {
    auto params = QXDUserMessageParams::initWithMessage("QX_VIDEOCHAT");
    params->setData(data);
    return service.send("alice", "ab", *params);
}

}  // namespace

TEST(ChatServiceStoreTest, TheStoreFollowsThePushPayloadLimit) {
    auto store = std::make_shared<MemoryStore>();
    auto service = serviceOn(store, 2);
    for (const char* data : {"a", "b", "c"}) {
        send(*service, data);
    }
    ASSERT_EQ(store->kept.pushPayloads["bob"].size(), 2u);
    EXPECT_EQ(store->kept.pushPayloads["bob"][0]["velmorin"]["data"], "b");
}

TEST(ChatServiceStoreTest, AMessageTheStoreCannotKeepIsNeitherAcknowledgedNorDelivered) {
    auto store = std::make_shared<MemoryStore>();
    auto service = serviceOn(store);
    int delivered = 0;
    service->connect("bob",
                     [&](const QXDUserMessagePtr&, const velmorin::ChannelInfo&) { ++delivered; });
    store->refuseMessages = true;
    auto refused = send(*service, "lost");
    EXPECT_EQ(refused.value, nullptr);
    EXPECT_EQ(refused.error ? refused.error->code() : 0, QXDErrorRequestFailed);
    EXPECT_EQ(delivered, 0);
    EXPECT_TRUE(service->messages("alice", "ab").value.empty());

    store->refuseMessages = false;
    EXPECT_TRUE(send(*service, "kept").value);
    EXPECT_EQ(delivered, 1);
}
