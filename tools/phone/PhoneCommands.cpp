// The commands of a phone script.
#include <chrono>
#include <filesystem>
#include <future>
#include <thread>

#include "PhoneController.h"
#include "VelmorinVideoChat/Call/QXVCCallOptions.h"
#include "VelmorinVideoChat/QXVCMain.h"

bool PhoneController::run(const PhoneCommand& command, std::string& error) {
    const auto& name = command.name;
    if (name == "call") {
        return placeCall(command.args.at(0) == "audio", error);
    }
    if (name == "accept") {
        auto call = currentCall();
        if (!call || call->myRole() != QXVCRoleCallee || call->state() == QXVCStateClosed) {
            error = "no incoming call to accept";
            return false;
        }
        accept(call);
        return true;
    }
    if (name == "decline" || name == "end") {
        return endCall(error);
    }
    if (name == "wait") {
        if (!log_->waitFor(command.args.at(0), command.seconds)) {
            error = "no " + command.args.at(0) + " within " +
                    std::to_string(static_cast<long>(command.seconds)) + " s";
            return false;
        }
        return true;
    }
    if (name == "wait-frames") {
        return waitForFrames(command.count, command.seconds, error);
    }
    if (name == "sleep") {
        std::this_thread::sleep_for(std::chrono::duration<double>(command.seconds));
        return true;
    }
    if (name == "snapshot") {
        return snapshot(command.args.empty() ? std::string() : command.args.front(), error);
    }
    if (name == "stats") {
        printStats();
        return true;
    }
    if (name == "devices") {
        printDevices();
        return true;
    }
    if (name == "quit") {
        quit_ = true;
        return true;
    }
    return control(name, error);
}

bool PhoneController::placeCall(bool audioOnly, std::string& error) {
    if (QXVCMain::isCalling()) {
        error = "a call is already going on";
        return false;
    }
    auto options = makeCallOptions(audioOnly);
    auto log = log_;
    std::weak_ptr<PhoneController> weak = weak_from_this();
    auto simultaneous = simultaneousStart_;
    QXVCMain::startCallWithAudioOnly(
        audioOnly, options, [log, weak, simultaneous](QXDErrorPtr startError) {
            auto call = QXVCMain::getActiveCall();
            auto self = weak.lock();
            if (self && call && !startError) {
                call->viewIsReady();
                self->remember(call);
            }
            log->completion("startCallCompleted", startError ? nullptr : call, startError);
            if (auto other = simultaneous ? simultaneous->startRefused(startError) : nullptr;
                other && self) {
                log->stamped("INFO", "accepting call=" + other->callId() +
                                         " (our start was refused for it after it came)");
                self->accept(other);
            }
        });
    return true;
}

bool PhoneController::endCall(std::string& error) {
    auto call = QXVCMain::getActiveCall();
    if (!call) {
        call = currentCall();
    }
    if (!call || call->state() == QXVCStateClosed) {
        error = "no call to end";
        return false;
    }
    auto log = log_;
    std::weak_ptr<QXVCCall> weakCall = call;
    call->endWithCompletionHandler([log, weakCall](QXDErrorPtr endError) {
        log->completion("endCompleted", weakCall.lock(), endError);
    });
    return true;
}

bool PhoneController::control(const std::string& name, std::string& error) {
    auto call = QXVCMain::getActiveCall();
    if (!call) {
        error = "no active call";
        return false;
    }
    if (name == "mute") {
        call->muteMicrophone();
    } else if (name == "unmute") {
        call->unmuteMicrophone();
    } else if (name == "video-off") {
        call->stopVideo();
    } else if (name == "video-on") {
        call->startVideo();
    } else if (name == "switch-camera") {
        call->switchCamera();
    } else if (name == "speaker-on") {
        call->turnOnSpeaker();
    } else if (name == "speaker-off") {
        call->turnOffSpeaker();
    } else {
        error = "unknown command '" + name + "'";
        return false;
    }
    return true;
}

bool PhoneController::waitForFrames(long count, double seconds, std::string& error) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    uint64_t frames = 0;
    while (true) {
        std::shared_ptr<QXVCRemoteVideoView> view;
        {
            std::lock_guard lock(mutex_);
            view = remoteView_;
        }
        frames = view ? view->frameCount() : 0;
        if (frames >= static_cast<uint64_t>(count)) {
            return true;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    error = std::to_string(frames) + " of " + std::to_string(count) + " remote frames within " +
            std::to_string(static_cast<long>(seconds)) + " s";
    return false;
}

bool PhoneController::snapshot(const std::string& file, std::string& error) {
    std::shared_ptr<PhoneRemoteView> view;
    std::string path;
    {
        std::lock_guard lock(mutex_);
        view = remoteView_;
        ++snapshots_;
        if (file.empty()) {
            path = options_.snapshotDir + "/" + options_.user + "-remote-" +
                   std::to_string(snapshots_) + ".png";
        } else if (file.find('/') == std::string::npos) {
            path = options_.snapshotDir + "/" + file;
        } else {
            path = file;
        }
    }
    if (!view || view->frameCount() == 0) {
        error = "no remote frame to write yet";
        return false;
    }
    const auto tag = view->latestTag();
    if (!view->writeLatestFrameToPNG(path)) {
        error = "cannot write " + path;
        return false;
    }
    std::error_code ignored;
    const auto bytes = std::filesystem::file_size(path, ignored);
    const auto size = view->videoSize();
    log_->stamped("SNAPSHOT", "file=" + path + " bytes=" + std::to_string(bytes) +
                                  " width=" + std::to_string(static_cast<long>(size.width)) +
                                  " height=" + std::to_string(static_cast<long>(size.height)) +
                                  " " + phoneLabelFields(tag ? tag->label : ""));
    return true;
}

void PhoneController::printStats() {
    auto call = currentCall();
    std::shared_ptr<PhoneRemoteView> remote;
    std::shared_ptr<QXVCLocalVideoView> local;
    {
        std::lock_guard lock(mutex_);
        remote = remoteView_;
        local = localView_;
    }
    const auto id = call ? call->callId() : std::string();
    const auto size = remote ? remote->videoSize() : CGSize{};
    const auto delay = remote ? remote->medianDelayMs() : std::nullopt;
    // What the transport carried so far, from the engine (zeros without a call).
    RTCStatisticsReport counters;
    auto active = QXVCMain::getActiveCall();
    if (auto connection = active ? active->peerConnection() : nullptr) {
        auto reply = std::make_shared<std::promise<RTCStatisticsReportPtr>>();
        auto future = reply->get_future();
        connection->statisticsWithCompletionHandler(
            [reply](RTCStatisticsReportPtr report) { reply->set_value(std::move(report)); });
        if (future.wait_for(std::chrono::seconds(2)) == std::future_status::ready) {
            if (auto report = future.get()) {
                counters = *report;
            }
        }
    }
    log_->stamped("STATS",
                  "call=" + (id.empty() ? std::string("-") : id) + " state=" +
                      (call ? PhoneEventLog::stateName(call->state()) : std::string("-")) +
                      " frames=" + std::to_string(remote ? remote->frameCount() : 0) +
                      " width=" + std::to_string(static_cast<long>(size.width)) +
                      " height=" + std::to_string(static_cast<long>(size.height)) +
                      " localFrames=" + std::to_string(local ? local->previewFrameCount() : 0) +
                      " videoBytesSent=" + std::to_string(counters.video.bytesSent) +
                      " videoBytesReceived=" + std::to_string(counters.video.bytesReceived) +
                      " audioBytesSent=" + std::to_string(counters.audio.bytesSent) +
                      " audioBytesReceived=" + std::to_string(counters.audio.bytesReceived) +
                      " countersUs=" + std::to_string(counters.timestampUs) + " " +
                      phoneLabelFields(remote ? remote->latestLabel() : "") +
                      " videoDelayMs=" + (delay ? std::to_string(*delay) : std::string("-")));
}

void PhoneController::printDevices() {
    if (!media_.devices) {
        return;
    }
    for (const auto& line : media_.devices()) {
        log_->stamped("DEVICE", line);
    }
}
