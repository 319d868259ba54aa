#include "Utils/QXVCBase64.h"

#include <array>
#include <cstdint>

namespace qxvc::base64 {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr size_t kLineLength = 64;

constexpr std::array<int8_t, 256> makeDecodeTable() {
    std::array<int8_t, 256> table{};
    for (auto& entry : table) {
        entry = -1;
    }
    for (int i = 0; i < 64; ++i) {
        table[static_cast<unsigned char>(kAlphabet[i])] = static_cast<int8_t>(i);
    }
    return table;
}

constexpr std::array<int8_t, 256> kDecodeTable = makeDecodeTable();

}  // namespace

std::string encodeLines64(std::string_view bytes) {
    const size_t encodedLength = (bytes.size() + 2) / 3 * 4;
    const size_t breaks = encodedLength == 0 ? 0 : (encodedLength - 1) / kLineLength;
    std::string out;
    out.reserve(encodedLength + 2 * breaks);
    size_t lineUsed = 0;
    auto put = [&](char c) {
        if (lineUsed == kLineLength) {
            out += "\r\n";
            lineUsed = 0;
        }
        out.push_back(c);
        ++lineUsed;
    };
    size_t i = 0;
    for (; i + 3 <= bytes.size(); i += 3) {
        const uint32_t group = static_cast<uint32_t>(static_cast<unsigned char>(bytes[i])) << 16 |
                               static_cast<uint32_t>(static_cast<unsigned char>(bytes[i + 1]))
                                   << 8 |
                               static_cast<uint32_t>(static_cast<unsigned char>(bytes[i + 2]));
        put(kAlphabet[(group >> 18) & 63]);
        put(kAlphabet[(group >> 12) & 63]);
        put(kAlphabet[(group >> 6) & 63]);
        put(kAlphabet[group & 63]);
    }
    const size_t rest = bytes.size() - i;
    if (rest > 0) {
        uint32_t group = static_cast<uint32_t>(static_cast<unsigned char>(bytes[i])) << 16;
        if (rest == 2) {
            group |= static_cast<uint32_t>(static_cast<unsigned char>(bytes[i + 1])) << 8;
        }
        put(kAlphabet[(group >> 18) & 63]);
        put(kAlphabet[(group >> 12) & 63]);
        put(rest == 2 ? kAlphabet[(group >> 6) & 63] : '=');
        put('=');
    }
    return out;
}

std::string decodeLenient(std::string_view text) {
    std::string out;
    out.reserve(text.size() / 4 * 3 + 2);
    uint32_t bits = 0;
    int count = 0;
    for (const char c : text) {
        const int8_t value = kDecodeTable[static_cast<unsigned char>(c)];
        if (value < 0) {
            continue;
        }
        bits = bits << 6 | static_cast<uint32_t>(value);
        if (++count == 4) {
            out.push_back(static_cast<char>((bits >> 16) & 0xFF));
            out.push_back(static_cast<char>((bits >> 8) & 0xFF));
            out.push_back(static_cast<char>(bits & 0xFF));
            bits = 0;
            count = 0;
        }
    }
    if (count == 2) {
        out.push_back(static_cast<char>((bits >> 4) & 0xFF));
    } else if (count == 3) {
        out.push_back(static_cast<char>((bits >> 10) & 0xFF));
        out.push_back(static_cast<char>((bits >> 2) & 0xFF));
    }
    return out;
}

}  // namespace qxvc::base64
