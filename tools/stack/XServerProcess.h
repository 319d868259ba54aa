// A headless X server (Xvfb) for the phone's window, on the first free display
// number from :90, and screenshots of it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ChildProcess.h"

class XServerProcess {
  public:
    static constexpr int kWidth = 1024;
    static constexpr int kHeight = 768;

    explicit XServerProcess(std::string workDir) : workDir_(std::move(workDir)) {}
    ~XServerProcess() { stop(); }

    bool start(std::string& error);
    void stop();
    /// ":<n>".
    const std::string& display() const { return display_; }
    std::vector<std::string> clientEnvironment() const { return {"DISPLAY=" + display_}; }

    /// The screen's luma, kWidth x kHeight bytes, top row first; empty on failure.
    std::vector<uint8_t> screenshot(std::string& error);

  private:
    std::string workDir_;
    std::string display_;
    std::unique_ptr<ChildProcess> process_;
};
