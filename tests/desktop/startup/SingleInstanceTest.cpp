// A second copy finds the first, which restores and raises its window.

#include "desktop/startup/SingleInstance.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QWidget>

#include <future>

namespace dorvane {
namespace {

// The second copy runs in another thread, as it would in another process,
// while this thread's event loop serves the first copy.
bool activateFromAnotherCopy()
{
    auto second = std::async(std::launch::async, [] { return SingleInstance().ActivateInstance(); });
    QDeadlineTimer deadline(5000);
    while (second.wait_for(std::chrono::milliseconds(0)) != std::future_status::ready && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    return second.get();
}

TEST(SingleInstanceTest, ASecondCopyRestoresTheFirstCopysMinimisedWindowOnItsDisplayOnly)
{
    qputenv("DISPLAY", ":dorvane-test-none");
    EXPECT_FALSE(SingleInstance().ActivateInstance()) << "without a first copy the program starts normally";

    qputenv("DISPLAY", ":dorvane-test-raise");
    QWidget window;
    window.showMinimized();
    SingleInstance first;
    first.Listen(&window);
    EXPECT_TRUE(activateFromAnotherCopy());
    EXPECT_TRUE(!window.isMinimized() && window.isVisible());

    qputenv("DISPLAY", ":dorvane-test-other");
    EXPECT_FALSE(activateFromAnotherCopy()) << "copies on other displays do not meet";
}

} // namespace
} // namespace dorvane
