// The phone's side of the library: it registers the application delegates,
// prints every callback, keeps the call the commands act on, and runs the
// commands of a script. Nothing here knows which chat transport is underneath.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "PhoneCommand.h"
#include "PhoneEventLog.h"
#include "PhoneOptions.h"
#include "PhoneRemoteView.h"
#include "PhoneSimultaneousStart.h"
#include "VelmorinVideoChat/Call/QXVCCall.h"
#include "VelmorinVideoChat/Delegates/QXVCVideoChatDelegate.h"
#include "VelmorinVideoChat/Delegates/QXVCVideoViewDelegate.h"
#include "VelmorinVideoChat/View/QXVCLocalVideoView.h"
#include "VelmorinVideoChat/View/QXVCRemoteVideoView.h"

/// What the phone needs from the media engine, which the controller itself
/// does not know.
struct PhoneMedia {
    PhoneTagReader readTag;
    std::function<int64_t()> wallClockMs;
    /// --window: shows the call's pictures from its opening to its end.
    std::function<void(const QXVCCallPtr& call)> showCall;
    std::function<void()> hideCall;
    /// One line per camera, microphone and speaker.
    std::function<std::vector<std::string>()> devices;
};

/// "remoteUser=alice remoteCamera=front" from a tag label "alice - front".
std::string phoneLabelFields(const std::string& label);

class PhoneController : public std::enable_shared_from_this<PhoneController> {
  public:
    static std::shared_ptr<PhoneController> create(PhoneOptions options,
                                                   std::shared_ptr<PhoneEventLog> log);
    ~PhoneController();
    PhoneController(const PhoneController&) = delete;
    PhoneController& operator=(const PhoneController&) = delete;

    /// Before install(): the engine's side of the phone.
    void setMedia(PhoneMedia media) { media_ = std::move(media); }
    /// Registers the delegates with QXVCMain and starts watching for remote frames.
    void install();
    /// Stops the frame watch and unregisters the delegates.
    void shutdown();

    /// Runs one command. False, with the reason in `error`, when the step failed.
    bool run(const PhoneCommand& command, std::string& error);
    bool quitRequested() const { return quit_; }

    /// Hands push payloads to the library as the push mode says, then accepts the
    /// incoming call they carry. `source` is printed with each result.
    void handlePushPayloads(const std::vector<nlohmann::json>& payloads, const std::string& source);

  private:
    PhoneController(PhoneOptions options, std::shared_ptr<PhoneEventLog> log);

    QXVCCallPtr currentCall() const;
    void remember(const QXVCCallPtr& call);
    /// Fresh views for a new call; the options hold them weakly, the phone keeps them.
    QXVCCallOptionsPtr makeCallOptions(bool audioOnly);
    void accept(const QXVCCallPtr& call);
    void onEvent(const std::string& name, const QXVCCallPtr& call, const std::string& extra = "");
    std::string opponentFlags(const QXVCCallPtr& call) const;
    void watchFrames();

    bool placeCall(bool audioOnly, std::string& error);
    bool endCall(std::string& error);
    bool control(const std::string& name, std::string& error);
    bool waitForFrames(long count, double seconds, std::string& error);
    bool snapshot(const std::string& file, std::string& error);
    void printStats();
    void printDevices();
    void callEnded();

    const PhoneOptions options_;
    const std::shared_ptr<PhoneEventLog> log_;
    PhoneMedia media_;
    QXVCVideoChatDelegatePtr chatDelegate_;
    QXVCVideoViewDelegatePtr viewDelegate_;
    std::shared_ptr<PhoneSimultaneousStart> simultaneousStart_;  // with auto-accept only

    mutable std::mutex mutex_;
    QXVCCallPtr current_;
    QXVCCallOptionsPtr currentOptions_;
    std::shared_ptr<QXVCLocalVideoView> localView_;
    std::shared_ptr<PhoneRemoteView> remoteView_;
    bool acceptFromPush_ = false;
    int snapshots_ = 0;

    std::atomic<bool> quit_{false};
    std::atomic<bool> stopping_{false};
    std::thread frameWatch_;
};
