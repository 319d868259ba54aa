// Reading and writing the signalling wire format: parsing of each message kind,
// and compression of a realistic session description.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>

#include "SdpSample.h"
#include "VelmorinVideoChat/Category/NSDictionary+VelmorinVideoChat.h"
#include "VelmorinVideoChat/MessageParser/QXVCMessageParser.h"
#include "VelmorinVideoChat/Utils/QXVCUtils.h"

namespace {

const std::string& sdp() {
    static const std::string text = qxvc::bench::sampleSessionDescription();
    return text;
}

const std::string& compressedSdp() {
    static const std::string text = QXVCUtils::compressString(sdp());
    return text;
}

std::string startData() {
    return "STCA" + qxvc_toString({
                        {"call_id", "8b0e6c1e-55f4-4d8e-9a57-2f5b1f0c3a77"},
                        {"type", "start"},
                        {"videochat_protocol_ver", 1},
                        {"is_audio_call", false},
                        {"constraints", {{"audio", true}, {"video", true}}},
                        {"caller",
                         {{"user_id", "alice"},
                          {"nickname", "Alice"},
                          {"profile_url", "https://img.example/alice.png"}}},
                        {"callee",
                         {{"user_id", "bob"},
                          {"nickname", "Bob"},
                          {"profile_url", "https://img.example/bob.png"}}},
                        {"turn_server", "turn:turn.example.org:3478?transport=udp"},
                        {"credentials",
                         {{"caller", {{"username", "1700000000:alice"}, {"password", "x0K1c2Ff"}}},
                          {"callee", {{"username", "1700000000:bob"}, {"password", "q9Lm3Zz7"}}}}},
                    });
}

std::string endData() {
    return "ENCA" + qxvc_toString({{"call_id", "8b0e6c1e-55f4-4d8e-9a57-2f5b1f0c3a77"},
                                   {"type", "end"},
                                   {"videochat_protocol_ver", 1},
                                   {"is_audio_call", false},
                                   {"caller", {{"user_id", "alice"}, {"nickname", "Alice"}}},
                                   {"callee", {{"user_id", "bob"}, {"nickname", "Bob"}}},
                                   {"ender", {{"user_id", "bob"}}},
                                   {"period", 73}});
}

std::string offerData() {
    return "SGNL" + qxvc_toString({{"call_id", "8b0e6c1e-55f4-4d8e-9a57-2f5b1f0c3a77"},
                                   {"type", "offer"},
                                   {"videochat_protocol_ver", 1},
                                   {"sdp", compressedSdp()}});
}

std::string candidateData() {
    return "SGNL" +
           qxvc_toString({{"call_id", "8b0e6c1e-55f4-4d8e-9a57-2f5b1f0c3a77"},
                          {"type", "candidate"},
                          {"videochat_protocol_ver", 1},
                          {"sdp",
                           "candidate:3442447574 1 udp 41885439 198.51.100.7 61250 typ relay raddr "
                           "203.0.113.5 rport 50112 generation 0 ufrag Qx7v network-id 1"},
                          {"sdp_mid", "0"},
                          {"sdp_mline_index", 0}});
}

std::string mediaUpdateData() {
    return "SGNL" + qxvc_toString({{"call_id", "8b0e6c1e-55f4-4d8e-9a57-2f5b1f0c3a77"},
                                   {"type", "video"},
                                   {"videochat_protocol_ver", 1},
                                   {"is_enabled", false}});
}

void parse(benchmark::State& state, const std::string& data) {
    for (auto _ : state) {
        auto message = QXVCMessageParser::parseMessageData(data, 1234567);
        if (!message) {
            state.SkipWithError("message did not parse");
            break;
        }
        benchmark::DoNotOptimize(message);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(data.size()));
    state.counters["message_bytes"] = static_cast<double>(data.size());
}

void BM_ParseStart(benchmark::State& state) {
    parse(state, startData());
}
void BM_ParseEnd(benchmark::State& state) {
    parse(state, endData());
}
void BM_ParseOffer(benchmark::State& state) {
    parse(state, offerData());
}
void BM_ParseCandidate(benchmark::State& state) {
    parse(state, candidateData());
}
void BM_ParseMediaUpdate(benchmark::State& state) {
    parse(state, mediaUpdateData());
}

void BM_ParsePushStart(benchmark::State& state) {
    const nlohmann::json payload = {
        {"velmorin",
         {{"message_id", 1234567}, {"data", startData()}, {"custom_type", "QX_VIDEOCHAT"}}}};
    for (auto _ : state) {
        auto message = QXVCMessageParser::parsePushNotification(payload);
        benchmark::DoNotOptimize(message);
    }
}

void BM_CompressSdp(benchmark::State& state) {
    const std::string& text = sdp();
    size_t compressedSize = 0;
    for (auto _ : state) {
        QXDErrorPtr error;
        std::string out = QXVCUtils::compressString(text, &error);
        compressedSize = out.size();
        benchmark::DoNotOptimize(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(text.size()));
    state.counters["sdp_bytes"] = static_cast<double>(text.size());
    state.counters["compressed_bytes"] = static_cast<double>(compressedSize);
    state.counters["ratio"] =
        static_cast<double>(compressedSize) / static_cast<double>(text.size());
}

void BM_DecompressSdp(benchmark::State& state) {
    const std::string& text = compressedSdp();
    for (auto _ : state) {
        QXDErrorPtr error;
        auto out = QXVCUtils::decompressString(text, &error);
        if (!out || out->size() != sdp().size()) {
            state.SkipWithError("decompression failed");
            break;
        }
        benchmark::DoNotOptimize(out);
    }
    // Throughput in plain SDP bytes recovered per second.
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(sdp().size()));
    state.counters["compressed_bytes"] = static_cast<double>(text.size());
}

void BM_WriteOfferBody(benchmark::State& state) {
    const std::string& compressed = compressedSdp();
    for (auto _ : state) {
        std::string body = qxvc_toString({{"call_id", "8b0e6c1e-55f4-4d8e-9a57-2f5b1f0c3a77"},
                                          {"type", "offer"},
                                          {"videochat_protocol_ver", 1},
                                          {"sdp", compressed}});
        benchmark::DoNotOptimize(body);
    }
}

}  // namespace

BENCHMARK(BM_ParseStart);
BENCHMARK(BM_ParseEnd);
BENCHMARK(BM_ParseOffer);
BENCHMARK(BM_ParseCandidate);
BENCHMARK(BM_ParseMediaUpdate);
BENCHMARK(BM_ParsePushStart);
BENCHMARK(BM_CompressSdp);
BENCHMARK(BM_DecompressSdp);
BENCHMARK(BM_WriteOfferBody);
