#include "TurnServerFixture.h"

#include <cstdlib>

namespace {

std::string temporaryFolder() {
    char name[] = "/tmp/velmorin-turn.XXXXXX";
    return mkdtemp(name) ? name : "";
}

}  // namespace

TurnServerFixture::TurnServerFixture() : TurnProcess(temporaryFolder()) {}

bool TurnServerFixture::start() {
    if (isRunning()) {
        return true;
    }
    if (workDir().empty()) {
        error_ = "cannot make a folder for coturn in /tmp";
        return false;
    }
    return TurnProcess::start(error_);
}
