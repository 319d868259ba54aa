#include "RTCGstFrameTag.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <vector>

namespace {

constexpr uint8_t kSync = 0b10110010;
constexpr uint8_t kWhite = 235;
constexpr uint8_t kBlack = 16;
constexpr int kColumnsWanted = 80;
constexpr int kMinCell = 4;
constexpr int kTimeBits = 48;

int cellSize(int width) {
    return std::max(kMinCell, width / kColumnsWanted);
}

uint16_t crc16(const std::vector<uint8_t>& bytes) {
    uint16_t crc = 0xFFFF;
    for (uint8_t byte : bytes) {
        crc ^= uint16_t(byte) << 8;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 0x8000) ? uint16_t((crc << 1) ^ 0x1021) : uint16_t(crc << 1);
        }
    }
    return crc;
}

/// Time, length and label: what the check covers.
std::vector<uint8_t> payload(int64_t timeMs, const std::string& label) {
    std::vector<uint8_t> bytes;
    for (int shift = kTimeBits - 8; shift >= 0; shift -= 8) {
        bytes.push_back(uint8_t((uint64_t(timeMs) >> shift) & 0xFF));
    }
    bytes.push_back(uint8_t(label.size()));
    bytes.insert(bytes.end(), label.begin(), label.end());
    return bytes;
}

void appendBits(std::vector<bool>& bits, uint64_t value, int count) {
    for (int i = count - 1; i >= 0; --i) {
        bits.push_back(((value >> i) & 1) != 0);
    }
}

/// Reads consecutive cells as bits.
class CellReader {
  public:
    CellReader(const uint8_t* luma, int width, int height, int stride)
        : luma_(luma),
          height_(height),
          stride_(stride),
          cell_(cellSize(width)),
          columns_(width / cell_) {}

    std::optional<uint64_t> read(int count) {
        uint64_t value = 0;
        for (int i = 0; i < count; ++i) {
            auto bit = next();
            if (!bit) {
                return std::nullopt;
            }
            value = (value << 1) | (*bit ? 1 : 0);
        }
        return value;
    }

  private:
    std::optional<bool> next() {
        const int row = index_ / columns_;
        const int column = index_ % columns_;
        ++index_;
        if ((row + 1) * cell_ > height_) {
            return std::nullopt;
        }
        // The middle half of the square, away from blurred edges.
        const int inset = cell_ / 4;
        const int span = std::max(1, cell_ / 2);
        uint32_t sum = 0;
        for (int y = 0; y < span; ++y) {
            const uint8_t* line =
                luma_ + size_t(row * cell_ + inset + y) * size_t(stride_) + column * cell_ + inset;
            for (int x = 0; x < span; ++x) {
                sum += line[x];
            }
        }
        return sum / uint32_t(span * span) > (kWhite + kBlack) / 2;
    }

    const uint8_t* luma_;
    int height_;
    int stride_;
    int cell_;
    int columns_;
    int index_ = 0;
};

}  // namespace

bool RTCGstDrawFrameTag(uint8_t* i420, int width, int height, const RTCGstFrameTag& tag) {
    if (!i420 || width < kMinCell * 16 || height < kMinCell) {
        return false;
    }
    const std::string label = tag.label.substr(0, kRTCGstFrameTagMaxLabel);
    const auto bytes = payload(tag.captureTimeMs, label);
    std::vector<bool> bits;
    appendBits(bits, kSync, 8);
    for (uint8_t byte : bytes) {
        appendBits(bits, byte, 8);
    }
    appendBits(bits, crc16(bytes), 16);

    const int cell = cellSize(width);
    const int columns = width / cell;
    const int rows = int((bits.size() + size_t(columns) - 1) / size_t(columns));
    if (rows * cell > height) {
        return false;
    }
    for (int y = 0; y < rows * cell; ++y) {
        uint8_t* line = i420 + size_t(y) * size_t(width);
        for (int x = 0; x < width; ++x) {
            const int column = x / cell;
            const size_t index = size_t(y / cell) * size_t(columns) + size_t(column);
            line[x] = column < columns && index < bits.size() && bits[index] ? kWhite : kBlack;
        }
    }
    const int chromaWidth = (width + 1) / 2;
    const int chromaHeight = (height + 1) / 2;
    uint8_t* u = i420 + size_t(width) * size_t(height);
    uint8_t* v = u + size_t(chromaWidth) * size_t(chromaHeight);
    const int chromaRows = std::min(chromaHeight, (rows * cell + 1) / 2);
    std::memset(u, 128, size_t(chromaWidth) * size_t(chromaRows));
    std::memset(v, 128, size_t(chromaWidth) * size_t(chromaRows));
    return true;
}

std::optional<RTCGstFrameTag> RTCGstReadFrameTag(const uint8_t* luma, int width, int height,
                                                 int stride) {
    if (!luma || width < kMinCell * 16 || height < kMinCell || stride < width) {
        return std::nullopt;
    }
    CellReader reader(luma, width, height, stride);
    auto sync = reader.read(8);
    auto time = reader.read(kTimeBits);
    auto length = reader.read(8);
    if (!sync || *sync != kSync || !time || !length || *length > kRTCGstFrameTagMaxLabel) {
        return std::nullopt;
    }
    std::string label;
    for (uint64_t i = 0; i < *length; ++i) {
        auto byte = reader.read(8);
        if (!byte) {
            return std::nullopt;
        }
        label.push_back(char(*byte));
    }
    auto check = reader.read(16);
    if (!check || *check != crc16(payload(int64_t(*time), label))) {
        return std::nullopt;
    }
    return RTCGstFrameTag{int64_t(*time), label};
}

int64_t RTCGstWallClockMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}
