#include <gtest/gtest.h>
#include <zlib.h>

#include <string>

#include "Utils/QXVCBase64.h"
#include "VelmorinVideoChat/QXVCTypes.h"
#include "VelmorinVideoChat/Utils/QXVCUtils.h"

namespace {

/// Inflates with zlib directly (gzip only), independent of the code under test.
std::string gunzip(const std::string& bytes, size_t capacity = 1 << 16) {
    z_stream s{};
    EXPECT_EQ(inflateInit2(&s, 15 + 16), Z_OK);
    s.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    s.avail_in = static_cast<uInt>(bytes.size());
    std::string out(capacity, '\0');
    s.next_out = reinterpret_cast<Bytef*>(out.data());
    s.avail_out = static_cast<uInt>(out.size());
    EXPECT_EQ(inflate(&s, Z_FINISH), Z_STREAM_END);
    out.resize(s.total_out);
    inflateEnd(&s);
    return out;
}

std::string zlibCompress(const std::string& text) {
    uLongf size = compressBound(static_cast<uLong>(text.size()));
    std::string out(size, '\0');
    EXPECT_EQ(
        compress2(reinterpret_cast<Bytef*>(out.data()), &size,
                  reinterpret_cast<const Bytef*>(text.data()), static_cast<uLong>(text.size()), 9),
        Z_OK);
    out.resize(size);
    return out;
}

std::string sampleSdp() {
    std::string sdp = "v=0\r\no=- 4611731400430051336 2 IN IP4 127.0.0.1\r\ns=-\r\nt=0 0\r\n";
    for (int i = 0; i < 40; ++i) {
        sdp += "a=rtpmap:" + std::to_string(96 + i) +
               " VP8/90000\r\na=rtcp-fb:" + std::to_string(96 + i) + " nack pli\r\n";
    }
    return sdp;
}

const QXDErrorPtr kUntouched = QXDError::errorWithDomain("sentinel", 1, std::nullopt);

}  // namespace

TEST(Base64, EncodesStandardAlphabetWithPaddingIn64CharacterCrLfLines) {
    using qxvc::base64::encodeLines64;
    EXPECT_EQ(encodeLines64(""), "");
    EXPECT_EQ(encodeLines64("M"), "TQ==");
    EXPECT_EQ(encodeLines64("Ma"), "TWE=");
    EXPECT_EQ(encodeLines64("Man"), "TWFu");
    EXPECT_EQ(encodeLines64("\xfb\xff\xfe"), "+//+");

    // 48 bytes fill exactly one line: no break at all, and none at the end.
    const std::string one = encodeLines64(std::string(48, 'a'));
    EXPECT_EQ(one.size(), 64u);
    EXPECT_EQ(one.find('\r'), std::string::npos);

    const std::string text = encodeLines64(std::string(1000, 'x'));
    size_t start = 0;
    size_t lines = 0;
    for (;;) {
        const size_t brk = text.find("\r\n", start);
        const std::string line = text.substr(start, brk == std::string::npos ? brk : brk - start);
        ++lines;
        if (brk == std::string::npos) {
            EXPECT_LE(line.size(), 64u);
            EXPECT_FALSE(line.empty());
            break;
        }
        EXPECT_EQ(line.size(), 64u);
        start = brk + 2;
    }
    EXPECT_EQ(lines, (1336u + 63u) / 64u);  // 1000 bytes -> 1336 characters
    EXPECT_EQ(text.find('\n', 0), 64u + 1u);
    EXPECT_NE(text.back(), '\n');
}

TEST(Base64, DecodingSkipsEveryCharacterOutsideTheAlphabet) {
    using qxvc::base64::decodeLenient;
    EXPECT_EQ(decodeLenient("TWFu"), "Man");
    EXPECT_EQ(decodeLenient("T W\r\nF\tu"), "Man");
    EXPECT_EQ(decodeLenient("TWE="), "Ma");
    EXPECT_EQ(decodeLenient("TQ=="), "M");
    EXPECT_EQ(decodeLenient("!!*TWFu#"), "Man");
    EXPECT_EQ(decodeLenient("T"), "");
    EXPECT_EQ(decodeLenient("@@@@"), "");
}

TEST(Compression, WritesAGzipStreamAtLevelNineInBase64Lines) {
    const std::string sdp = sampleSdp();
    QXDErrorPtr error = kUntouched;
    const std::string text = QXVCUtils::compressString(sdp, &error);
    EXPECT_EQ(error, kUntouched);
    ASSERT_FALSE(text.empty());

    const std::string gzip = qxvc::base64::decodeLenient(text);
    ASSERT_GT(gzip.size(), 18u);
    EXPECT_EQ(static_cast<unsigned char>(gzip[0]), 0x1f);
    EXPECT_EQ(static_cast<unsigned char>(gzip[1]), 0x8b);
    EXPECT_EQ(static_cast<unsigned char>(gzip[2]), 0x08);  // deflate
    EXPECT_EQ(static_cast<unsigned char>(gzip[8]), 0x02);  // XFL: maximum compression
    EXPECT_EQ(gunzip(gzip), sdp);
    // The text is exactly the encoder's lines: re-encoding the bytes gives it back.
    EXPECT_EQ(qxvc::base64::encodeLines64(gzip), text);
    EXPECT_LT(text.size(), sdp.size());
}

TEST(Compression, RoundTripsAnyTextIncludingEmptyAndNonAscii) {
    for (const std::string& text :
         {std::string(), std::string("a"), std::string("Grüße, 東京 🎥 \"quoted\"\r\n"), sampleSdp(),
          std::string(100000, 'z')}) {
        QXDErrorPtr error = kUntouched;
        const std::string compressed = QXVCUtils::compressString(text, &error);
        ASSERT_FALSE(compressed.empty());
        const auto back = QXVCUtils::decompressString(compressed, &error);
        EXPECT_EQ(error, kUntouched);
        ASSERT_TRUE(back.has_value());
        EXPECT_EQ(*back, text);
    }
    // The empty text still makes a complete gzip stream of empty content.
    EXPECT_EQ(gunzip(qxvc::base64::decodeLenient(QXVCUtils::compressString(""))), "");
}

TEST(Compression, NilAndEmptyInputsFailWithTheirDeliberateCodes) {
    QXDErrorPtr error;
    EXPECT_EQ(QXVCUtils::compressString(std::nullopt, &error), "");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), 820400);
    EXPECT_EQ(error->domain(), "Velmorin VideoChat Error");
    EXPECT_EQ(error->localizedDescription(), "Unknows error occurred.");

    for (const std::optional<std::string>& input :
         {std::optional<std::string>(), std::optional<std::string>("")}) {
        error = nullptr;
        const auto result = QXVCUtils::decompressString(input, &error);
        EXPECT_EQ(result, std::optional<std::string>(""));
        ASSERT_TRUE(error);
        EXPECT_EQ(error->code(), 820000);
        EXPECT_EQ(error->localizedDescription(), "Unknows error occurred.");
    }
    // No error slot: still no crash, same result.
    EXPECT_EQ(QXVCUtils::compressString(std::nullopt), "");
    EXPECT_EQ(QXVCUtils::decompressString(std::nullopt), std::optional<std::string>(""));
}

TEST(Compression, ReaderAcceptsZlibWrapperAndIgnoresLineBreaksAndStrayCharacters) {
    const std::string sdp = sampleSdp();
    const std::string text = QXVCUtils::compressString(sdp);

    std::string flat;
    for (char c : text) {
        if (c != '\r' && c != '\n') {
            flat += c;
        }
    }
    std::string noisy;
    for (size_t i = 0; i < flat.size(); ++i) {
        noisy += flat[i];
        if (i % 7 == 3) {
            noisy += i % 2 ? " " : "\n\t";
        }
    }
    for (const std::string& variant : {flat, noisy, "\r\n" + text + "\r\n"}) {
        QXDErrorPtr error;
        EXPECT_EQ(QXVCUtils::decompressString(variant, &error), std::optional<std::string>(sdp));
        EXPECT_FALSE(error);
    }

    QXDErrorPtr error;
    EXPECT_EQ(QXVCUtils::decompressString(qxvc::base64::encodeLines64(zlibCompress(sdp)), &error),
              std::optional<std::string>(sdp));
    EXPECT_FALSE(error);
}

TEST(Compression, BrokenStreamsFailWithUnknownErrorAndNeverPartialText) {
    const std::string sdp = sampleSdp();
    const std::string gzip = qxvc::base64::decodeLenient(QXVCUtils::compressString(sdp));
    const std::string second = qxvc::base64::decodeLenient(QXVCUtils::compressString("more"));
    std::string corrupt = gzip;
    corrupt[gzip.size() / 2] = static_cast<char>(corrupt[gzip.size() / 2] ^ 0x55);

    const std::string cases[] = {
        qxvc::base64::encodeLines64(gzip + "x"),                       // trailing byte
        qxvc::base64::encodeLines64(gzip + second),                    // a second stream
        qxvc::base64::encodeLines64(gzip.substr(0, gzip.size() - 9)),  // truncated
        qxvc::base64::encodeLines64(gzip.substr(0, 5)),                // header only
        qxvc::base64::encodeLines64(corrupt),                          // bit errors
        "this is not base64 at all!",                                  // decodes to garbage
        "!!!! ???? ....",                                              // decodes to nothing
        sdp,                                                           // plain, never compressed
    };
    for (const auto& input : cases) {
        QXDErrorPtr error;
        EXPECT_EQ(QXVCUtils::decompressString(input, &error), std::optional<std::string>(""))
            << input;
        ASSERT_TRUE(error) << input;
        EXPECT_EQ(error->code(), 820000);
    }
}

TEST(Compression, InflatingFarBeyondAnySessionDescriptionIsRefused) {
    const std::string justFits(QXVCUtils::kMaxDecompressedSize, 'a');
    EXPECT_EQ(QXVCUtils::decompressString(QXVCUtils::compressString(justFits)), justFits);

    // A few kilobytes on the wire that would inflate to 64 MiB.
    const std::string bomb = QXVCUtils::compressString(std::string(64 * 1024 * 1024, 'a'));
    EXPECT_LT(bomb.size(), 150u * 1024);
    QXDErrorPtr error;
    EXPECT_EQ(QXVCUtils::decompressString(bomb, &error), std::optional<std::string>(""));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), 820000);
}

TEST(Compression, CompressesAnyTextAndOnlyReadingBackHasALimit) {
    // 2 MiB of printable noise: its gzip stream is well over 1 MiB.
    std::string text(2 * 1024 * 1024, ' ');
    uint32_t seed = 12345;
    for (auto& c : text) {
        seed = seed * 1664525u + 1013904223u;
        c = static_cast<char>('!' + (seed >> 24) % 94);
    }
    QXDErrorPtr error = kUntouched;
    const std::string packed = QXVCUtils::compressString(text, &error);
    EXPECT_EQ(error, kUntouched);
    const std::string stream = qxvc::base64::decodeLenient(packed);
    EXPECT_GT(stream.size(), QXVCUtils::kMaxDecompressedSize);
    EXPECT_EQ(gunzip(stream, text.size()), text);
    // A peer's text that inflates beyond the limit is refused.
    EXPECT_EQ(QXVCUtils::decompressString(packed, &error), std::optional<std::string>(""));
    ASSERT_NE(error, kUntouched);
    EXPECT_EQ(error->code(), 820000);
}

TEST(Compression, InflatedBytesThatAreNotUtf8GiveNilWithoutError) {
    const std::string bytes = "v=0\r\n\xff\xfe\xc0\x80";
    uLongf size = compressBound(static_cast<uLong>(bytes.size()));
    std::string packed(size, '\0');
    ASSERT_EQ(compress2(reinterpret_cast<Bytef*>(packed.data()), &size,
                        reinterpret_cast<const Bytef*>(bytes.data()),
                        static_cast<uLong>(bytes.size()), 9),
              Z_OK);
    packed.resize(size);
    QXDErrorPtr error = kUntouched;
    EXPECT_EQ(QXVCUtils::decompressString(qxvc::base64::encodeLines64(packed), &error),
              std::nullopt);
    EXPECT_EQ(error, kUntouched);
}
