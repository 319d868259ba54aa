#include <zlib.h>

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

/// Deflates at level 9 in the zlib wrapper, independent of the code under test.
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
using qxvc::base64::decodeLenient;
using qxvc::base64::encodeLines64;

/// What decompressing `text` gives, and the code of the error it reports ("-" for none).
std::pair<std::optional<std::string>, std::string> inflated(const std::string& text) {
    QXDErrorPtr error;
    auto result = QXVCUtils::decompressString(text, &error);
    return {result, error ? std::to_string(error->code()) : "-"};
}
const std::pair<std::optional<std::string>, std::string> kRefused{"", "820000"};

}  // namespace

TEST(Base64, StandardAlphabetIn64CharacterCrLfLinesAndLenientReading) {
    EXPECT_EQ(encodeLines64(""), "");
    EXPECT_EQ(encodeLines64("M"), "TQ==");
    EXPECT_EQ(encodeLines64("Ma"), "TWE=");
    EXPECT_EQ(encodeLines64("\xfb\xff\xfe"), "+//+");
    EXPECT_EQ(encodeLines64(std::string(48, 'a')).size(), 64u);  // one full line, no break
    // 1000 bytes are 1336 characters: 20 full lines and one of 56, no break at the end.
    const std::string text = encodeLines64(std::string(1000, 'x'));
    EXPECT_EQ(text.size(), 1336u + 20 * 2);
    for (size_t line = 0; line < 20; ++line) {
        EXPECT_EQ(text.substr(line * 66 + 64, 2), "\r\n") << line;
    }

    EXPECT_EQ(decodeLenient("T W\r\nF\tu"), "Man");
    EXPECT_EQ(decodeLenient("TWE="), "Ma");
    EXPECT_EQ(decodeLenient("!!*TWFu#"), "Man");
    EXPECT_EQ(decodeLenient("T"), "");
}

TEST(Compression, WritesAGzipStreamAtLevelNineInBase64Lines) {
    const std::string sdp = sampleSdp();
    QXDErrorPtr error = kUntouched;
    const std::string text = QXVCUtils::compressString(sdp, &error);
    EXPECT_EQ(error, kUntouched);
    ASSERT_FALSE(text.empty());

    const std::string gzip = decodeLenient(text);
    ASSERT_GT(gzip.size(), 18u);
    EXPECT_EQ(gzip.substr(0, 3), "\x1f\x8b\x08");  // gzip, deflate
    EXPECT_EQ(gzip[8], '\x02');                    // XFL: maximum compression
    EXPECT_EQ(gunzip(gzip), sdp);
    // The text is exactly the encoder's lines: re-encoding the bytes gives it back.
    EXPECT_EQ(encodeLines64(gzip), text);
}

TEST(Compression, RoundTripsAnyTextAndReadsZlibOrReflowedBase64Too) {
    for (const std::string& text :
         {std::string(), std::string("a"), std::string("Grüße, 東京 🎥 \"quoted\"\r\n"), sampleSdp(),
          std::string(100000, 'z')}) {
        const std::string compressed = QXVCUtils::compressString(text);
        ASSERT_FALSE(compressed.empty());
        EXPECT_EQ(inflated(compressed), std::pair(std::optional(text), std::string("-")));
    }
    // The empty text still makes a complete gzip stream of empty content.
    EXPECT_EQ(gunzip(decodeLenient(QXVCUtils::compressString(""))), "");

    // Line breaks and stray characters are ignored; the zlib wrapper is read too.
    const std::string sdp = sampleSdp();
    const std::string text = QXVCUtils::compressString(sdp);
    std::string flat = text;
    std::erase_if(flat, [](char c) { return c == '\r' || c == '\n'; });
    std::string noisy = flat;
    noisy.insert(40, " \n\t");
    for (const std::string& variant :
         {flat, noisy, "\r\n" + text + "\r\n", encodeLines64(zlibCompress(sdp))}) {
        EXPECT_EQ(inflated(variant), std::pair(std::optional(sdp), std::string("-")));
    }
}

TEST(Compression, NilAndEmptyInputsFailWithTheirDeliberateCodes) {
    QXDErrorPtr error;
    EXPECT_EQ(QXVCUtils::compressString(std::nullopt, &error), "");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), 820400);
    EXPECT_EQ(error->domain(), "Velmorin VideoChat Error");
    EXPECT_EQ(error->localizedDescription(), "Unknows error occurred.");

    EXPECT_EQ(inflated(""), kRefused);
    error = nullptr;
    EXPECT_EQ(QXVCUtils::decompressString(std::nullopt, &error), std::optional<std::string>(""));
    EXPECT_EQ(error ? error->code() : 0, 820000);
    EXPECT_EQ(QXVCUtils::compressString(std::nullopt), "");  // no error slot: no crash
}

TEST(Compression, BrokenStreamsFailWithUnknownErrorAndNeverPartialText) {
    const std::string sdp = sampleSdp();
    const std::string gzip = decodeLenient(QXVCUtils::compressString(sdp));
    const std::string second = decodeLenient(QXVCUtils::compressString("more"));
    std::string corrupt = gzip;
    corrupt[gzip.size() / 2] = static_cast<char>(corrupt[gzip.size() / 2] ^ 0x55);

    const std::string cases[] = {
        encodeLines64(gzip + "x"),                       // trailing byte
        encodeLines64(gzip + second),                    // a second stream
        encodeLines64(gzip.substr(0, gzip.size() - 9)),  // truncated
        encodeLines64(corrupt),                          // bit errors
        "this is not base64 at all!",                    // decodes to garbage
        sdp,                                             // plain, never compressed
    };
    for (const auto& input : cases) {
        EXPECT_EQ(inflated(input), kRefused) << input;
    }
}

TEST(Compression, InflatingFarBeyondAnySessionDescriptionIsRefused) {
    const std::string justFits(QXVCUtils::kMaxDecompressedSize, 'a');
    EXPECT_EQ(QXVCUtils::decompressString(QXVCUtils::compressString(justFits)), justFits);

    // A few kilobytes on the wire that would inflate to 64 MiB.
    const std::string bomb = QXVCUtils::compressString(std::string(64 * 1024 * 1024, 'a'));
    EXPECT_GT(bomb.size(), 1000u);  // writing has no limit
    EXPECT_LT(bomb.size(), 150u * 1024);
    EXPECT_EQ(inflated(bomb), kRefused);
}

TEST(Compression, InflatedBytesThatAreNotUtf8GiveNilWithoutError) {
    QXDErrorPtr error = kUntouched;
    EXPECT_EQ(
        QXVCUtils::decompressString(encodeLines64(zlibCompress("v=0\r\n\xff\xfe\xc0\x80")), &error),
        std::nullopt);
    EXPECT_EQ(error, kUntouched);
}
