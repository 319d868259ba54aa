#include "VelmorinVideoChat/QXVCTypesInternal.h"

namespace {
std::string describe(const std::optional<QXDUserInfo>& info) {
    return info ? info->at(NSLocalizedDescriptionKey) : "<none>";
}
}  // namespace

TEST(ErrorTable, MessagesTemplatesAndPairedCodes) {
    const std::pair<unsigned long, const char*> rows[] = {
        {820000, "Unknows error occurred."},
        {820100, "Velmorin connection is required."},
        {820130, "Velmorin instance is required."},
        {820200, "Invalid action. (x)"},
        {820300, "Cannot accept call."},
        {820400, "Invalid parameter. (x)"},
        {820401, "The channel is not suitable."},
        {820510, "Already camera is switching."},
        {820620, "This platform is not supported."},
        {900600, "<none>"},
        {0, "<none>"}};
    for (const auto& [code, text] : rows) {
        EXPECT_EQ(describe(ErrorUserInfoFromErrorCode(code, "x")), text) << code;
    }
    EXPECT_EQ(describe(ErrorUserInfoFromErrorCode(820200, std::nullopt)),
              "Invalid action. ((null))");
    // Each call owns its map: a later detail does not leak into an earlier result.
    auto first = ErrorUserInfoFromErrorCode(820200, "first");
    ErrorUserInfoFromErrorCode(820200, "second");
    EXPECT_EQ(describe(first), "Invalid action. (first)");

    auto accept = QXVCMakeError(QXVCErrorInvalidAction, QXVCErrorInvalidParameter,
                                "The options cannot be nil.");
    EXPECT_EQ(accept->domain(), "Velmorin VideoChat Error");
    EXPECT_EQ(accept->code(), 820200);
    EXPECT_EQ(accept->localizedDescription(), "Invalid parameter. (The options cannot be nil.)");
    EXPECT_FALSE(QXVCMakeError(QXVCErrorAlreadyCallGoingOn, QXVCErrorAlreadyCallGoingOn)
                     ->userInfo()
                     .has_value());
}

static_assert(QXVCStateClosed == 4 && QXVCRoleCallee == 2 && QXVCLogLevelInfo == 3 &&
              QXVCInternalLogLevelDebug == 1112017 &&
              QXVCOperationModeAutoAcceptSimultaneousStartCall == 1 &&
              QXVCCameraPositionBack == 2 && QXVCRenderingMessageTypeNotRender == 3);
static_assert(std::is_unsigned_v<std::underlying_type_t<QXVCErrorCode>> &&
              std::is_unsigned_v<std::underlying_type_t<QXVCEndType>> &&
              std::is_signed_v<std::underlying_type_t<QXVCState>>);
