#include <mutex>

#include "VelmorinVideoChat/Platform/Dispatch/QXVCDispatchQueue.h"

namespace {

struct MainQueueSlot {
    std::mutex mutex;
    QXVCDispatchQueuePtr queue;
    bool used = false;
};

MainQueueSlot& slot() {
    static MainQueueSlot* instance = new MainQueueSlot();  // lives as long as the process
    return *instance;
}

}  // namespace

QXVCDispatchQueuePtr QXVCMainQueue::get() {
    auto& s = slot();
    std::lock_guard lock(s.mutex);
    if (!s.queue) {
        s.queue = QXVCSerialQueue::create("velmorin.videochat.main");
    }
    s.used = true;
    return s.queue;
}

bool QXVCMainQueue::install(QXVCDispatchQueuePtr queue) {
    auto& s = slot();
    std::lock_guard lock(s.mutex);
    if (s.used || !queue) {
        return false;
    }
    s.queue = std::move(queue);
    return true;
}

void QXVCMainQueue::replaceForTesting(QXVCDispatchQueuePtr queue) {
    auto& s = slot();
    std::lock_guard lock(s.mutex);
    s.queue = std::move(queue);
}
