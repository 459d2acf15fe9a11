#include <QCoreApplication>

#include <gtest/gtest.h>

// Every test binary gets an application object so event loops, queued calls and
// timers work as they do in the programs.
int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
