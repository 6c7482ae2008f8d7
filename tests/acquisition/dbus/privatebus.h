#pragma once
// A private session bus for the tests that talk to the image source: each
// test program starts its own bus daemon before anything in the process
// connects to a session bus, so that parallel test programs (and the
// developer's own session) never share the image source's name.

#include <QString>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <sys/types.h>
#include <vector>

class QProcess;

namespace kestro::test {

class PrivateBus : public ::testing::Environment
{
public:
    ~PrivateBus() override;
    void SetUp() override;
    void TearDown() override;

    // The bus of the running test program.
    static PrivateBus *instance();

private:
    QTemporaryDir m_dir;
    QProcess *m_daemon = nullptr;
};

// Children of this process that ended and were never waited for.
std::vector<pid_t> zombieChildren();
// True while a process with this id exists.
bool processExists(qint64 pid);

// The image-source program of the build.
QString imageSourceProgram();

} // namespace kestro::test
