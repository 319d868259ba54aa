#include "XServerProcess.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

bool XServerProcess::start(std::string& error) {
    for (int number = 90; number < 200; ++number) {
        std::error_code ignored;
        if (std::filesystem::exists("/tmp/.X11-unix/X" + std::to_string(number), ignored) ||
            std::filesystem::exists("/tmp/.X" + std::to_string(number) + "-lock", ignored)) {
            continue;
        }
        display_ = ":" + std::to_string(number);
        ChildProcess::Setup setup;
        setup.argv = {"Xvfb",
                      display_,
                      "-screen",
                      "0",
                      std::to_string(kWidth) + "x" + std::to_string(kHeight) + "x24",
                      "-nolisten",
                      "tcp"};
        setup.logPath = workDir_ + "/xvfb.log";
        process_ = ChildProcess::start(std::move(setup), error);
        if (!process_) {
            return false;
        }
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (std::chrono::steady_clock::now() < deadline && process_->running()) {
            if (std::filesystem::exists("/tmp/.X11-unix/X" + std::to_string(number), ignored)) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        process_->stop(1);
        process_.reset();  // another server took the number meanwhile: try the next
    }
    error = "Xvfb did not start (see " + workDir_ + "/xvfb.log)";
    return false;
}

void XServerProcess::stop() {
    if (process_) {
        process_->stop(2);
        process_.reset();
    }
}

std::vector<uint8_t> XServerProcess::screenshot(std::string& error) {
    const std::string file = workDir_ + "/screenshot.gray";
    ChildProcess::Setup setup;
    setup.argv = {"gst-launch-1.0",
                  "-q",
                  "ximagesrc",
                  "display-name=" + display_,
                  "num-buffers=1",
                  "use-damage=false",
                  "!",
                  "videoconvert",
                  "!",
                  "video/x-raw,format=GRAY8",
                  "!",
                  "filesink",
                  "location=" + file};
    setup.logPath = file + ".log";
    auto child = ChildProcess::start(std::move(setup), error);
    if (!child) {
        return {};
    }
    if (child->waitExit(20) != 0) {
        error = "the screenshot failed (see " + file + ".log)";
        return {};
    }
    std::ifstream in(file, std::ios::binary);
    std::vector<uint8_t> pixels((std::istreambuf_iterator<char>(in)),
                                std::istreambuf_iterator<char>());
    if (pixels.size() != size_t(kWidth) * kHeight) {
        error = "the screenshot has " + std::to_string(pixels.size()) + " bytes";
        return {};
    }
    return pixels;
}
