// What a peer connection's media transport has carried so far
// (`statisticsWithCompletionHandler:`), per kind of media, summed over its RTP
// streams. Counters only grow during a connection; a connection that is closed
// or has not negotiated yet reports zeros.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

struct RTCMediaTransportCounters {
    uint64_t bytesSent = 0;
    uint64_t bytesReceived = 0;
    uint64_t packetsSent = 0;
    uint64_t packetsReceived = 0;
};

struct RTCStatisticsReport {
    /// When the counters were read, in microseconds of a steady clock.
    int64_t timestampUs = 0;
    RTCMediaTransportCounters audio;
    RTCMediaTransportCounters video;
};
using RTCStatisticsReportPtr = std::shared_ptr<const RTCStatisticsReport>;
using RTCStatisticsCompletionHandler = std::function<void(RTCStatisticsReportPtr report)>;
