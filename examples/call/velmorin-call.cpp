// velmorin-call: the smallest application that makes a real call. It installs
// the GStreamer engine and the WebSocket chat client, logs in to a
// velmorin-chat-server, then places a video call in CHANNEL (or answers the
// first one that comes), prints every callback, lets the media flow for
// SECONDS and ends the call. Exit status 0 when the call opened, frames arrived
// and the call ended.
//
//   velmorin-call HOST:PORT USER TOKEN CHANNEL call|answer [SECONDS]
#include <VelmorinChat/QXDWebSocketChatClient.h>
#include <VelmorinGStreamer/RTCGstPlatform.h>
#include <VelmorinVideoChat/VelmorinVideoChat.h>

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>

namespace {

std::mutex mutex;
std::condition_variable changed;
bool opened = false;
bool ended = false;

void print(const char* what, const QXVCCallPtr& call) {
    std::printf("callback %s call=%s\n", what, call ? call->callId().c_str() : "-");
    std::fflush(stdout);
}

void mark(bool& flag) {
    std::lock_guard lock(mutex);
    flag = true;
    changed.notify_all();
}

bool waitFor(const bool& flag, int seconds) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, std::chrono::seconds(seconds), [&] { return flag; });
}

}  // namespace

int main(int argc, char** argv) {
    // An application that stays up for many calls starts with this: on GLib
    // before 2.76 it makes GLib allocate with malloc, so ended calls give
    // their memory back (it starts the program again once).
    RTCGstPlatform::restartWithSystemAllocator(argv);
    const std::string server = argc > 1 ? argv[1] : "";
    const std::string mode = argc > 5 ? argv[5] : "";
    if (argc < 6 || argc > 7 || server.find(':') == std::string::npos ||
        (mode != "call" && mode != "answer")) {
        std::fprintf(stderr,
                     "usage: velmorin-call HOST:PORT USER TOKEN CHANNEL call|answer [SECONDS]\n");
        return 2;
    }
    const int seconds = argc > 6 ? std::atoi(argv[6]) : 3;

    // 1. The engines: media over GStreamer, signalling over the chat server.
    auto engine = RTCGstPlatform::create();
    if (!engine) {
        std::fprintf(stderr, "velmorin-call: GStreamer lacks webrtcbin, VP8 or Opus\n");
        return 1;
    }
    RTCPlatform::install(engine);
    QXDWebSocketChatClient::Options chat;
    chat.host = server.substr(0, server.rfind(':'));
    chat.port = static_cast<uint16_t>(std::atoi(server.substr(server.rfind(':') + 1).c_str()));
    chat.userId = argv[2];
    chat.token = argv[3];
    auto client = QXDWebSocketChatClient::create(chat);
    QXDMain::setChatClient(client);
    QXVCMain::config();

    // 2. Callbacks, and the views a call draws into.
    auto options = QXVCCallOptions::initWithChannelUrl(argv[4]);
    auto localView = QXVCLocalVideoView::create();
    auto remoteView = QXVCRemoteVideoView::create();
    options->setLocalVideoView(localView);
    options->setRemoteVideoView(remoteView);
    auto events = std::make_shared<QXVCVideoChatDelegate>();
    events->didReceiveStartCall = [&](const QXVCCallPtr& call) {
        print("didReceiveStartCall", call);
        if (mode == "answer") {
            call->viewIsReady();
            call->acceptWithOptions(options, [](QXDErrorPtr error) {
                if (error) {
                    std::printf("accept failed: %s\n", error->localizedDescription().c_str());
                }
            });
        }
    };
    events->didSendStartCall = [](const QXVCCallPtr& call, const QXDUserMessagePtr&) {
        print("didSendStartCall", call);
        call->viewIsReady();
    };
    events->didReceiveAcceptCall = [](const QXVCCallPtr& call) {
        print("didReceiveAcceptCall", call);
    };
    events->didSendAcceptCall = [](const QXVCCallPtr& call) { print("didSendAcceptCall", call); };
    events->didOpenCall = [](const QXVCCallPtr& call) {
        print("didOpenCall", call);
        mark(opened);
    };
    events->didReceiveEndCall = [](const QXVCCallPtr& call) {
        print("didReceiveEndCall", call);
        mark(ended);
    };
    events->didSendEndCall = [](const QXVCCallPtr& call, const QXDUserMessagePtr&) {
        print("didSendEndCall", call);
        mark(ended);
    };
    QXVCMain::addVideoChatDelegate(events, "velmorin-call");

    // 3. Log in, then call or wait to be called.
    if (auto error = client->connect()) {
        std::fprintf(stderr, "velmorin-call: cannot log in: %s\n",
                     error->localizedDescription().c_str());
        return 1;
    }
    std::printf("logged in as %s\n", argv[2]);
    if (mode == "call") {
        QXVCMain::startCallWithAudioOnly(false, options, [](QXDErrorPtr error) {
            if (error) {
                std::printf("call failed: %ld (%s)\n", static_cast<long>(error->code()),
                            error->localizedDescription().c_str());
                mark(ended);
            }
        });
    }
    if (!waitFor(opened, 60)) {
        std::printf("the call did not open\n");
        return 1;
    }
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    const auto frames = remoteView->frameCount();
    std::printf("remote frames: %llu\n", static_cast<unsigned long long>(frames));
    if (auto call = QXVCMain::getActiveCall(); call && mode == "call") {
        call->endWithCompletionHandler(nullptr);
    }
    const bool done = waitFor(ended, 30);
    client->disconnect();
    return done && frames > 0 ? 0 : 1;
}
