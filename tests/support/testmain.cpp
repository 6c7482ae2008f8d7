// Test entry: a QApplication exists for the whole run (offscreen for headless
// tests, the Xvfb display for GUI tests), then GoogleTest runs.
#include <QApplication>
#include <gtest/gtest.h>

int main(int argc, char **argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    QApplication app(argc, argv);
    return RUN_ALL_TESTS();
}
