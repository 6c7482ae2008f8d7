#include "privatebus.h"

#include <QDBusConnection>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <cerrno>
#include <csignal>
#include <unistd.h>

namespace kestro::test {

namespace {

PrivateBus *g_bus = nullptr;

// Registered before main runs, so the bus exists before any test.
[[maybe_unused]] ::testing::Environment *const g_environment = ::testing::AddGlobalTestEnvironment(
        new PrivateBus);

} // namespace

PrivateBus::~PrivateBus() = default;

PrivateBus *PrivateBus::instance()
{
    return g_bus;
}

void PrivateBus::SetUp()
{
    g_bus = this;
    imageSourceProgram();
    ASSERT_TRUE(m_dir.isValid());
    const QString config = m_dir.filePath(QStringLiteral("bus.conf"));
    QFile file(config);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QStringLiteral(
                       "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration "
                       "1.0//EN\" \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
                       "<busconfig>\n"
                       "  <type>session</type>\n"
                       "  <listen>unix:path=%1</listen>\n"
                       "  <auth>EXTERNAL</auth>\n"
                       "  <policy context=\"default\">\n"
                       "    <allow send_destination=\"*\" eavesdrop=\"true\"/>\n"
                       "    <allow eavesdrop=\"true\"/>\n"
                       "    <allow own=\"*\"/>\n"
                       "  </policy>\n"
                       "</busconfig>\n")
                       .arg(m_dir.filePath(QStringLiteral("bus")))
                       .toUtf8());
    file.close();

    m_daemon = new QProcess;
    m_daemon->setStandardErrorFile(QProcess::nullDevice());
    m_daemon->start(QStringLiteral("dbus-daemon"),
                    {QStringLiteral("--config-file=") + config, QStringLiteral("--nofork"),
                     QStringLiteral("--print-address=1")});
    ASSERT_TRUE(m_daemon->waitForStarted(10000))
            << "dbus-daemon: " << qPrintable(m_daemon->errorString());
    QByteArray address;
    while (!address.contains('\n') && m_daemon->waitForReadyRead(10000))
        address += m_daemon->readAllStandardOutput();
    address = address.trimmed();
    ASSERT_FALSE(address.isEmpty()) << "the bus daemon printed no address";
    qputenv("DBUS_SESSION_BUS_ADDRESS", address);
    ASSERT_TRUE(QDBusConnection::sessionBus().isConnected());
}

void PrivateBus::TearDown()
{
    if (m_daemon) {
        m_daemon->terminate();
        if (!m_daemon->waitForFinished(5000)) {
            m_daemon->kill();
            m_daemon->waitForFinished(5000);
        }
        delete m_daemon;
        m_daemon = nullptr;
    }
}

std::vector<pid_t> zombieChildren()
{
    std::vector<pid_t> zombies;
    const pid_t self = getpid();
    for (const QString &entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
        bool isPid = false;
        const pid_t pid = entry.toInt(&isPid);
        if (!isPid)
            continue;
        QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
        if (!stat.open(QIODevice::ReadOnly))
            continue;
        // "pid (command) state ppid ...": the command may hold spaces and
        // parentheses, so read after its last ')'.
        const QByteArray line = stat.readAll();
        const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
        if (fields.size() >= 2 && fields[0] == "Z" && fields[1].toInt() == self)
            zombies.push_back(pid);
    }
    return zombies;
}

bool processExists(qint64 pid)
{
    return pid > 0 && (::kill(pid_t(pid), 0) == 0 || errno != ESRCH);
}

QString imageSourceProgram()
{
    // As the test was started with it: tests change the variable.
    static const QString program = QString::fromLocal8Bit(qgetenv("KESTRO_IMAGESOURCE_PROGRAM"));
    return program;
}

} // namespace kestro::test
