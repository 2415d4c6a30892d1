// A second copy finds the first, which restores and raises its window.

#include "startup/SingleInstance.h"

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
    auto second = std::async(std::launch::async, [] {
        SingleInstance instance;
        return instance.ActivateInstance();
    });
    QDeadlineTimer deadline(5000);
    while (second.wait_for(std::chrono::milliseconds(0)) != std::future_status::ready && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    return second.get();
}

TEST(SingleInstanceTest, WithoutAFirstCopyTheProgramStartsNormally)
{
    qputenv("DISPLAY", ":dorvane-test-none");
    SingleInstance instance;
    EXPECT_FALSE(instance.ActivateInstance());
}

TEST(SingleInstanceTest, ASecondCopyRestoresTheFirstCopysMinimisedWindow)
{
    qputenv("DISPLAY", ":dorvane-test-raise");
    QWidget window;
    window.showMinimized();
    SingleInstance first;
    first.Listen(&window);

    EXPECT_TRUE(activateFromAnotherCopy());
    EXPECT_FALSE(window.isMinimized());
    EXPECT_TRUE(window.isVisible());
}

TEST(SingleInstanceTest, CopiesOnOtherDisplaysDoNotMeet)
{
    qputenv("DISPLAY", ":dorvane-test-a");
    QWidget window;
    SingleInstance first;
    first.Listen(&window);

    qputenv("DISPLAY", ":dorvane-test-b");
    EXPECT_FALSE(activateFromAnotherCopy());
}

} // namespace
} // namespace dorvane
