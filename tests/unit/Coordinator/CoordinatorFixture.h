// Puts the coordinator's settings back to their initial values around each test
// and routes completion handlers to a manual queue.
#pragma once

#include <gtest/gtest.h>

#include <mutex>

#include "VelmorinVideoChat/QXVCMain.h"

class CoordinatorTest : public ::testing::Test {
  protected:
    void SetUp() override {
        QXVCMain::resetForTesting();
        queue = QXVCManualQueue::create("completion");
        QXVCMain::setCompletionHandlerDelegateQueue(queue);
        QXVCMain::setLogSink([this](const std::string& line) {
            std::lock_guard lock(linesMutex);
            lines.push_back(line);
        });
    }
    void TearDown() override { QXVCMain::resetForTesting(); }

    std::vector<std::string> printed() {
        std::lock_guard lock(linesMutex);
        return lines;
    }

    std::shared_ptr<QXVCManualQueue> queue;
    std::mutex linesMutex;
    std::vector<std::string> lines;
};
