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
    if (workDir().empty()) {
        error_ = "cannot make a folder for coturn in /tmp";
        return false;
    }
    return running() || TurnProcess::start(error_);
}
