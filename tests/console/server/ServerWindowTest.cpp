#include "tests/console/server/ServerWindowTest.h"

#include "tests/support/Console.h"

namespace tessaly::test {

void ServerWindowTest::init() {
    script_ = {};
    database_ = std::make_unique<ScratchDatabase>();
    database_->openConsoleConnection();
    window_ = std::make_unique<TessalyManager>(script_.factory());
    window_->load();
    window_->show();
    window_->setConnectionTimerEnabled(false);
    script_.calls.clear();
}

void ServerWindowTest::cleanup() {
    window_.reset();
    database_.reset();
    (void)takeConsoleEnd();
}

}  // namespace tessaly::test
