#include <algorithm>

#include "support/FakeRTCPlatform.h"
#include "unit/Coordinator/CoordinatorFixture.h"

namespace {

TEST_F(CoordinatorTest, ConfigSetsUpTheAudioSessionBeforePreparingTheVideoDevice) {
    FakeRTCPlatform::uninstall();
    QXVCMain::prepareVideoDevice();  // forget objects earlier tests prepared
    auto rtc = FakeRTCPlatform::install();

    QXVCMain::config();

    auto entries = rtc->context()->entries();
    auto configured =
        std::find(entries.begin(), entries.end(), "audioSession.unlockForConfiguration()");
    auto factory = std::find_if(entries.begin(), entries.end(), [](const std::string& e) {
        return e.rfind("platform.peerConnectionFactory(", 0) == 0;
    });
    ASSERT_NE(configured, entries.end());
    ASSERT_NE(factory, entries.end());
    EXPECT_LT(configured, factory);
    EXPECT_NE(QXVCMain::getPeerConnectionFactory(), nullptr);
    EXPECT_NE(QXVCMain::getVideoSource(), nullptr);
    EXPECT_NE(QXVCMain::getCameraVideoCapturer(), nullptr);

    FakeRTCPlatform::uninstall();
    QXVCMain::prepareVideoDevice();
}

}  // namespace
