// Connectivity of a peer connection: candidates, the ICE and peer-connection
// states as WebRTC reports them, the packet watchdog, the TURN deadline and
// the check of the peer's DTLS certificate. Everything here runs on the
// signalling queue.
#include "RTCGstCertificates.h"
#include "RTCGstFrames.h"
#include "RTCGstPeerConnectionImpl.h"
#include "RTCGstPlatform.h"
#include "VelmorinVideoChat/Platform/RTC/RTCLogging.h"

using Impl = RTCGstPeerConnection::Impl;

namespace {
constexpr double kWatchdogPeriod = 0.25;
}

void Impl::onIceCandidate(unsigned mline, const std::string& candidate) {
    if (candidate.empty()) {
        return;
    }
    if (relayOnly && !rtcgst::isRelayCandidate(candidate)) {
        counters->dropped.fetch_add(1);
        return;  // host and server-reflexive addresses never leave the device
    }
    if (rtcgst::isRelayCandidate(candidate)) {
        sawRelayCandidate = true;
        if (turnTimer) {
            turnTimer->cancel();
        }
    }
    std::string line = rtcgst::sanitizeRelayCandidate(candidate);
    if (line.rfind("a=", 0) == 0) {
        line.erase(0, 2);
    }
    std::optional<std::string> mid;
    if (mline < localMids.size()) {
        mid = localMids[mline];
    }
    std::optional<std::string> server;
    if (!turnServers.empty()) {
        server = turnServers.front().redacted;
    }
    auto ice = std::make_shared<RTCIceCandidate>(line, static_cast<int32_t>(mline), mid, server);
    notify([ice](RTCPeerConnectionDelegate& delegate, const RTCPeerConnectionPtr& p) {
        delegate.peerConnectionDidGenerateIceCandidate(p, ice);
    });
}

void Impl::startTurnTimer() {
    if (!relayOnly || sawRelayCandidate || turnTimer || failed) {
        return;
    }
    double seconds = pc.platform_->options().turnTimeout;
    turnTimer = pc.queue_->asyncAfter(seconds, [weak = pc.weak_from_this(), seconds] {
        auto strong = weak.lock();
        if (!strong || strong->closed_) {
            return;
        }
        Impl& impl = *strong->impl_;
        if (impl.sawRelayCandidate || impl.failed) {
            return;
        }
        std::string servers;
        for (const auto& server : impl.turnServers) {
            servers += (servers.empty() ? "" : ", ") + server.redacted;
        }
        impl.fail("No relay candidate from the TURN server" +
                  std::string(servers.empty() ? "" : " ") + servers + " within " +
                  std::to_string(static_cast<int>(seconds)) +
                  " s: the credentials were refused, have expired, or the server is unreachable.");
    });
}

void Impl::onGstIceState(RTCIceConnectionState state) {
    gstIce = state;
    if (failed) {
        return;
    }
    auto reported = pc.ice_.load();
    switch (state) {
        case RTCIceConnectionStateChecking:
            if (reported == RTCIceConnectionStateNew) {
                reportIce(RTCIceConnectionStateChecking);
            }
            break;
        case RTCIceConnectionStateConnected:
        case RTCIceConnectionStateCompleted:
            if (reported == RTCIceConnectionStateNew || reported == RTCIceConnectionStateChecking) {
                if (reported == RTCIceConnectionStateNew) {
                    reportIce(RTCIceConnectionStateChecking);
                }
                counters->lastPacketNs.store(rtcgst::monotonicNs());
                reportIce(RTCIceConnectionStateConnected);
                if (!watchdog) {
                    watchdogTick();
                }
            }
            break;
        case RTCIceConnectionStateFailed:
            fail("ICE failed: no candidate pair works.");
            break;
        default:
            break;  // disconnections are the watchdog's to report
    }
    updateConnectionState();
}

void Impl::watchdogTick() {
    if (failed || pc.closed_) {
        return;
    }
    const auto& options = pc.platform_->options();
    int64_t now = rtcgst::monotonicNs();
    int64_t last = counters->lastPacketNs.load();
    double silence = double(now - last) / 1e9;
    auto reported = pc.ice_.load();
    if ((reported == RTCIceConnectionStateConnected ||
         reported == RTCIceConnectionStateCompleted) &&
        silence >= options.disconnectedTimeout) {
        disconnectedAtNs = now;
        reportIce(RTCIceConnectionStateDisconnected);
        updateConnectionState();
    } else if (reported == RTCIceConnectionStateDisconnected) {
        if (last > disconnectedAtNs) {
            reportIce(RTCIceConnectionStateConnected);
            updateConnectionState();
        } else if (silence >= options.failedTimeout) {
            fail("No packets for " + std::to_string(static_cast<int>(silence)) + " s.");
            return;
        }
    }
    watchdog = pc.queue_->asyncAfter(kWatchdogPeriod, [weak = pc.weak_from_this()] {
        if (auto strong = weak.lock(); strong && !strong->closed_) {
            strong->impl_->watchdogTick();
        }
    });
}

void Impl::onDtlsState(GstElement* decoder, bool connected, bool failedState) {
    if (failed) {
        return;
    }
    if (failedState) {
        fail("The DTLS handshake failed.");
        return;
    }
    if (!connected || dtlsConnected) {
        return;
    }
    rtcgst::GChars peerPem;
    g_object_get(decoder, "peer-pem", peerPem.out(), nullptr);
    std::string pem = peerPem.str();
    bool matches = false;
    for (const auto& expected : remoteFingerprints) {
        auto actual = RTCGstCertificates::fingerprintOfPem(pem, expected.algorithm);
        matches = matches || (actual && *actual == expected.value);
    }
    if (!matches) {
        fail("The peer's DTLS certificate does not match the fingerprint of its description.");
        return;
    }
    dtlsConnected = true;
    forceKeyFrames();  // the far side can decode from the first packet it gets
    updateConnectionState();
}

void Impl::fail(const std::string& reason) {
    if (failed || pc.closed_) {
        return;
    }
    failed = true;
    ref->live = false;
    RTCLogEx(RTCLoggingSeverityError, "Peer connection failed: " + reason);
    // The media path goes with the pipeline: a connection whose ICE had
    // connected reports the loss first, as a path that breaks does.
    auto reported = pc.ice_.load();
    if (reported == RTCIceConnectionStateConnected || reported == RTCIceConnectionStateCompleted) {
        reportIce(RTCIceConnectionStateDisconnected);
    }
    reportIce(RTCIceConnectionStateFailed);
    updateConnectionState();
    tearDown();
}

void Impl::reportIce(RTCIceConnectionState state) {
    if (pc.ice_.exchange(state) == state) {
        return;
    }
    notify([state](RTCPeerConnectionDelegate& delegate, const RTCPeerConnectionPtr& p) {
        delegate.peerConnectionDidChangeIceConnectionState(p, state);
    });
}

void Impl::reportGathering(RTCIceGatheringState state) {
    if (pc.gathering_.exchange(state) == state) {
        return;
    }
    notify([state](RTCPeerConnectionDelegate& delegate, const RTCPeerConnectionPtr& p) {
        delegate.peerConnectionDidChangeIceGatheringState(p, state);
    });
}

void Impl::reportSignaling(RTCSignalingState state) {
    if (pc.signaling_.exchange(state) == state) {
        return;
    }
    notify([state](RTCPeerConnectionDelegate& delegate, const RTCPeerConnectionPtr& p) {
        delegate.peerConnectionDidChangeSignalingState(p, state);
    });
}

void Impl::updateConnectionState() {
    auto ice = pc.ice_.load();
    RTCPeerConnectionState state;
    if (failed) {
        state = RTCPeerConnectionStateFailed;
    } else if (ice == RTCIceConnectionStateDisconnected) {
        state = RTCPeerConnectionStateDisconnected;
    } else if ((ice == RTCIceConnectionStateConnected || ice == RTCIceConnectionStateCompleted) &&
               dtlsConnected) {
        state = RTCPeerConnectionStateConnected;
    } else if (ice == RTCIceConnectionStateNew && !dtlsConnected) {
        state = RTCPeerConnectionStateNew;
    } else {
        state = RTCPeerConnectionStateConnecting;
    }
    if (pc.connection_.exchange(state) != state) {
        notify([state](RTCPeerConnectionDelegate& delegate, const RTCPeerConnectionPtr& p) {
            delegate.peerConnectionDidChangeConnectionState(p, state);
        });
    }
    // WebRTC reports Completed after Connected; report it once the connection
    // is up, so that Connected and the connection state meet first.
    if (state == RTCPeerConnectionStateConnected && !reportedCompleted &&
        gstIce == RTCIceConnectionStateCompleted && ice == RTCIceConnectionStateConnected) {
        reportedCompleted = true;
        reportIce(RTCIceConnectionStateCompleted);
    }
}
