#include "VelmorinVideoChat/Call/QXVCCallManager.h"

#include <map>
#include <mutex>
#include <shared_mutex>

namespace {

struct Registry {
    std::shared_mutex mutex;
    std::map<std::string, std::shared_ptr<QXVCBaseCall>, std::less<>> calls;
};

Registry& registry() {
    static Registry* instance = new Registry();  // lives as long as the process
    return *instance;
}

}  // namespace

void QXVCCallManager::add(const std::shared_ptr<QXVCBaseCall>& call) {
    if (!call) {
        return;
    }
    std::string callId = call->callId();
    if (callId.empty()) {
        return;
    }
    std::shared_ptr<QXVCBaseCall> replaced;  // released outside the lock
    auto& r = registry();
    std::unique_lock lock(r.mutex);
    auto& slot = r.calls[callId];
    replaced = std::move(slot);
    slot = call;
    lock.unlock();
}

void QXVCCallManager::remove(const std::string& callId) {
    if (callId.empty()) {
        return;
    }
    std::shared_ptr<QXVCBaseCall> removed;
    auto& r = registry();
    std::unique_lock lock(r.mutex);
    auto it = r.calls.find(callId);
    if (it != r.calls.end()) {
        removed = std::move(it->second);
        r.calls.erase(it);
    }
    lock.unlock();
}

std::shared_ptr<QXVCBaseCall> QXVCCallManager::getBaseCall(const std::string& callId) {
    if (callId.empty()) {
        return nullptr;
    }
    auto& r = registry();
    std::shared_lock lock(r.mutex);
    auto it = r.calls.find(callId);
    return it == r.calls.end() ? nullptr : it->second;
}

size_t QXVCCallManager::count() {
    auto& r = registry();
    std::shared_lock lock(r.mutex);
    return r.calls.size();
}

void QXVCCallManager::removeAllForTesting() {
    std::map<std::string, std::shared_ptr<QXVCBaseCall>, std::less<>> removed;
    auto& r = registry();
    std::unique_lock lock(r.mutex);
    removed.swap(r.calls);
    lock.unlock();
}
