// Entry point of the widget tests: one QApplication for the whole run.

#include <gtest/gtest.h>

#include <QApplication>

int main(int argc, char* argv[])
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
