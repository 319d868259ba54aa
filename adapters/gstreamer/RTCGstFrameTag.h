// A frame tag: the capture time and a short label, drawn into the top rows of
// a picture as black and white squares large enough to survive video
// compression and scaling by whole factors. The built-in test cameras tag every
// frame; whoever receives the picture can read back who sent it, from which
// camera, and when it was captured (so glass-to-glass delay can be measured on
// one machine).
//
// Layout: squares of width/80 pixels (at least 4), left to right, row by row:
// 8 sync bits, the capture time (48 bits, milliseconds since the Unix epoch),
// the label's length (8 bits, at most kRTCGstFrameTagMaxLabel) and bytes, then
// a CRC-16 of everything after the sync bits. Only luma carries the tag; the
// chroma beneath it is made neutral.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

inline constexpr size_t kRTCGstFrameTagMaxLabel = 24;

struct RTCGstFrameTag {
    int64_t captureTimeMs = 0;
    std::string label;
};

/// Draws `tag` into a tightly packed I420 picture (labels are cut to
/// kRTCGstFrameTagMaxLabel bytes). False when the picture is too small.
bool RTCGstDrawFrameTag(uint8_t* i420, int width, int height, const RTCGstFrameTag& tag);

/// Reads the tag at the top-left of a luma (or grey) plane; nullopt when none
/// is there or its check fails.
std::optional<RTCGstFrameTag> RTCGstReadFrameTag(const uint8_t* luma, int width, int height,
                                                 int stride);

/// Milliseconds since the Unix epoch, the clock tags are stamped with.
int64_t RTCGstWallClockMs();
