#include <gtest/gtest.h>

#include "VelmorinVideoChat/QXVCTypesInternal.h"

namespace {
std::string describe(const std::optional<QXDUserInfo>& info) {
    return info ? info->at(NSLocalizedDescriptionKey) : "<none>";
}
}  // namespace

TEST(ErrorTable, MessagesAndTemplates) {
    EXPECT_EQ(describe(ErrorUserInfoFromErrorCode(820000, std::nullopt)),
              "Unknows error occurred.");
    EXPECT_EQ(describe(ErrorUserInfoFromErrorCode(820100, "x")),
              "Velmorin connection is required.");
    EXPECT_EQ(describe(ErrorUserInfoFromErrorCode(820130, "x")), "Velmorin instance is required.");
    EXPECT_EQ(describe(ErrorUserInfoFromErrorCode(820200, "x")), "Invalid action. (x)");
    EXPECT_EQ(describe(ErrorUserInfoFromErrorCode(820200, std::nullopt)),
              "Invalid action. ((null))");
    EXPECT_EQ(describe(ErrorUserInfoFromErrorCode(820300, "x")), "Cannot accept call.");
    EXPECT_EQ(describe(ErrorUserInfoFromErrorCode(820400, "y")), "Invalid parameter. (y)");
    EXPECT_EQ(describe(ErrorUserInfoFromErrorCode(820401, "x")), "The channel is not suitable.");
    EXPECT_EQ(describe(ErrorUserInfoFromErrorCode(820510, "x")), "Already camera is switching.");
    EXPECT_EQ(describe(ErrorUserInfoFromErrorCode(820620, "x")), "This platform is not supported.");
    EXPECT_FALSE(ErrorUserInfoFromErrorCode(900600, "x").has_value());
    EXPECT_FALSE(ErrorUserInfoFromErrorCode(0, std::nullopt).has_value());
    // Each call owns its map: a later detail does not leak into an earlier result.
    auto first = ErrorUserInfoFromErrorCode(820200, "first");
    ErrorUserInfoFromErrorCode(820200, "second");
    EXPECT_EQ(describe(first), "Invalid action. (first)");
}

TEST(ErrorTable, PairedCodesKeepBothValues) {
    auto accept = QXVCMakeError(QXVCErrorInvalidAction, QXVCErrorInvalidParameter,
                                "The options cannot be nil.");
    EXPECT_EQ(accept->domain(), "Velmorin VideoChat Error");
    EXPECT_EQ(accept->code(), 820200);
    EXPECT_EQ(accept->localizedDescription(), "Invalid parameter. (The options cannot be nil.)");
    auto compress = QXVCMakeError(QXVCErrorInvalidParameter, QXVCErrorUnknown);
    EXPECT_EQ(compress->code(), 820400);
    EXPECT_EQ(compress->localizedDescription(), "Unknows error occurred.");
    auto refused = QXVCMakeError(QXVCErrorAlreadyCallGoingOn, QXVCErrorAlreadyCallGoingOn);
    EXPECT_FALSE(refused->userInfo().has_value());
}

TEST(EndType, WireWords) {
    EXPECT_EQ(NSStringFromEndType(QXVCEndTypeNone), "unknown");
    EXPECT_EQ(NSStringFromEndType(QXVCEndTypeUnknown), "unknown");
    EXPECT_EQ(NSStringFromEndType(QXVCEndTypeEnd), "end");
    EXPECT_EQ(NSStringFromEndType(QXVCEndTypeCancel), "cancel");
    EXPECT_EQ(NSStringFromEndType(QXVCEndTypeDecline), "decline");
    EXPECT_EQ(NSStringFromEndType(QXVCEndTypeTimeout), "timeout");
    EXPECT_EQ(NSStringFromEndType(static_cast<QXVCEndType>(6)), "unknown");
}

TEST(Enumerations, ValuesAreFixedAndSignednessAsDeclared) {
    static_assert(QXVCStateClosed == 4 && QXVCRoleCallee == 2 && QXVCLogLevelInfo == 3);
    static_assert(QXVCInternalLogLevelDebug == 1112017);
    static_assert(QXVCOperationModeAutoAcceptSimultaneousStartCall == 1);
    static_assert(QXVCCameraPositionBack == 2 && QXVCRenderingMessageTypeNotRender == 3);
    static_assert(std::is_unsigned_v<std::underlying_type_t<QXVCErrorCode>>);
    static_assert(std::is_unsigned_v<std::underlying_type_t<QXVCEndType>>);
    static_assert(std::is_unsigned_v<std::underlying_type_t<QXVCCameraPosition>>);
    static_assert(std::is_signed_v<std::underlying_type_t<QXVCState>>);
    static_assert(std::is_signed_v<std::underlying_type_t<QXVCRenderingMessageType>>);
    EXPECT_STREQ(kQXVCMediaStreamId, "ARDAMS");
    EXPECT_STREQ(kQXVCAudioTrackId, "ARDAMSa0");
    EXPECT_STREQ(kQXVCVideoTrackId, "ARDAMSv0");
    EXPECT_EQ(kQXVCProtocolVersion, 1);
}
