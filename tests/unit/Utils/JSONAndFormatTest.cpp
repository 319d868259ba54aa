#include <limits>

#include "VelmorinVideoChat/Utils/QXVCFormat.h"
#include "VelmorinVideoChat/Utils/QXVCJSON.h"

namespace js = qxvc::json;

TEST(LenientJSON, AbsentNullAndWrongContainersGiveTheDefault) {
    const auto doc = *js::parse(R"({"n":null,"s":"x","o":{"a":1},"arr":[1]})");
    EXPECT_EQ(js::getString(doc, "missing", "dflt"), "dflt");
    EXPECT_EQ(js::getString(doc, "n", "dflt"), "dflt");
    EXPECT_FALSE(js::getString(doc, "arr").has_value());
    EXPECT_TRUE(js::getBool(doc, "o", true));
    EXPECT_EQ(js::getInt64(doc, "arr", 7), 7);
    EXPECT_EQ(js::getInt64(js::Json::array(), "s", 9), 9);  // not an object at all
    EXPECT_NE(js::objectMember(doc, "o"), nullptr);
    EXPECT_EQ(js::objectMember(doc, "s"), nullptr);
}

TEST(LenientJSON, ConvertsAcrossTypesLikeThePlatformDoes) {
    const auto doc = *js::parse(
        R"({"digits":"1234","neg":" -12abc","junk":"abc","yes":"YES","t":"true","no":"no",
            "zero":0,"two":2,"flt":3.99,"big":1e300,"b":true,"bf":false,"num":42,"ten":"010",
            "huge":"99999999999999999999","fneg":-2.5})");
    std::vector<int64_t> numbers;
    for (const char* key : {"digits", "neg", "junk", "flt", "fneg", "big", "huge", "b"}) {
        numbers.push_back(js::getInt64(doc, key, 5));
    }
    constexpr auto kMax = std::numeric_limits<int64_t>::max();
    EXPECT_EQ(numbers, (std::vector<int64_t>{1234, -12, 0, 3, -2, kMax, kMax, 1}));
    EXPECT_EQ(js::getInt32(doc, "huge", 0), std::numeric_limits<int32_t>::max());
    // Each is read with the opposite default, so that a default coming back shows.
    std::vector<bool> bools;
    for (const auto& [key, value] :
         {std::pair("yes", true), std::pair("t", true), std::pair("ten", true),
          std::pair("two", true), std::pair("no", false), std::pair("zero", false),
          std::pair("bf", false)}) {
        bools.push_back(js::getBool(doc, key, !value));
    }
    EXPECT_EQ(bools, (std::vector<bool>{true, true, true, true, false, false, false}));
    EXPECT_EQ(js::getString(doc, "num", ""), "42");
    EXPECT_EQ(js::getString(doc, "b", ""), "1");
}

TEST(LenientJSON, ParseNeverThrowsAndRefusesNestingDeeperThanTheLimit) {
    EXPECT_FALSE(js::parse("") || js::parse("{\"a\":") || js::parse("\xff\xfe"));
    EXPECT_TRUE(js::parse("[1,2]").has_value());
    const auto nested = [](size_t depth) {
        return std::string(depth, '[') + std::string(depth, ']');
    };
    EXPECT_TRUE(js::parse(nested(js::kMaxDepth)).has_value());
    EXPECT_FALSE(js::parse(nested(js::kMaxDepth + 1)).has_value());
    EXPECT_TRUE(js::nestsTooDeep(nested(60000)));
    EXPECT_FALSE(js::nestsTooDeep(nested(js::kMaxDepth)));
    EXPECT_FALSE(js::nestsTooDeep(std::string(60000, '[')));  // not JSON: malformed, not deep
    // Brackets inside strings, after escaped quotes too, are text.
    const std::string text = R"({"s":"\"[[{{)" + std::string(200, '[') + R"(","n":[[1]]})";
    ASSERT_TRUE(js::parse(text).has_value());
    EXPECT_EQ(js::parse(text)->at("n").dump(), "[[1]]");
}

struct Described {
    std::string description() const { return "<described>"; }
};

TEST(Format, ObjectsByDescriptionAndPrintfConversions) {
    auto shared = std::make_shared<Described>();
    std::shared_ptr<Described> none;
    EXPECT_EQ(qxvc::format("[QXVC] %@ and %@", shared, none), "[QXVC] <described> and (null)");
    EXPECT_EQ(qxvc::format("%d|%5ld|%lld|%u|%x", -3, 42L, 1LL << 40, 7u, 255),
              "-3|   42|1099511627776|7|ff");
    EXPECT_EQ(qxvc::format("%.2f %s %c %%", 1.5, "txt", 'z'), "1.50 txt z %");
    EXPECT_EQ(qxvc::format("%@ %@", std::string("s"), std::optional<std::string>{}), "s (null)");
    EXPECT_EQ(qxvc::format("audio: %d", true), "audio: 1");
    int x = 0;
    EXPECT_EQ(qxvc::format("%p", static_cast<const void*>(&x)).rfind("0x", 0), 0u);
}

TEST(Format, MismatchedAndMissingArgumentsDoNotCrash) {
    EXPECT_EQ(qxvc::format("%d and %@", "text"), "text and ");
    EXPECT_EQ(qxvc::format("trailing %"), "trailing %");
    EXPECT_EQ(qxvc::format("%s", static_cast<const char*>(nullptr)), "(null)");
    EXPECT_EQ(qxvc::format("%@", 12), "12");
}
