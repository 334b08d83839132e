#include "tests/app/HostileCases.h"
#include "tests/deployment/LinuxTools.h"
#include "tests/support/OwnClock.h"

#include <signal.h>

using TestSupport::StubCommand;

// A host whose commands somebody has replaced. Whatever they do, their time limits hold, and what
// they print doesn't fill the memory.
class HostileHostTest : public HostileCases
{
    Q_OBJECT

    const Drive source;

    // The script of a command that runs into its time limit: five seconds pass each time that the
    // program waits for it.
    static QByteArray endless()
    {
        return "while :; do\n"
               "until grep -q '^State:.S' /proc/$PPID/status; do :; done\n"
               "kill -USR1 $PPID\ndone";
    }

    static QByteArray leavingAChild(const QByteArray &command)
    {
        return "tail -f /dev/null &\necho $! >>\"$0.pid\"\nexec " + command + " \"$@\"";
    }

    static void addRows(const QByteArray &command, const QByteArray &path, const QString &message,
                        const QString &outcome, int limit, const QString &success,
                        const QString &outcomeOfSuccess)
    {
        const auto addRow = [&command](const char *what, const QByteArray &script,
                                       const QString &text, const QString &drive, int seconds) {
            QTest::addRow("`%s` that %s", command.constData(), what)
                << QString(command) << script << text << drive << seconds;
        };
        addRow("prints gigabytes", "exec yes", message, outcome, 0);
        addRow("never ends", endless(), message, outcome, limit);
        addRow("leaves a child that holds the pipe", leavingAChild(path), success, outcomeOfSuccess,
               0);
        addRow("dies by a signal", "kill -SEGV $$", message, outcome, 0);
    }

    void openWindowWithDrive()
    {
        prepareDrive(std::unique_ptr<Drive>(new Drive(Drive::tmpfs(64 << 20))));
        window->windowsSource = {};
        window->linuxSource = {.executablePath = source.path(QStringLiteral("Tessarine")),
                               .directoryPath = source.path(),
                               .fromBuildTree = false};
    }

    void prepareOrUpdate(const QString &command)
    {
        if (command.startsWith(QStringLiteral("ld"))) {
            const QtPlugins none; // each would be asked ldd about
            user->willPress(QStringLiteral("Sim"));
            window->prepareAction->trigger();
        } else {
            agreeToUpdate();
        }
    }

private Q_SLOTS:
    void initTestCase()
    {
        openServer();
        signal(SIGUSR1, [](int) { TestSupport::advanceClock(5); });
        QVERIFY(QFile::copy(QStringLiteral("/bin/true"), source.path(QStringLiteral("Tessarine"))));
    }
    void cleanupTestCase()
    {
        writeTables(QStringLiteral("host"));
        signal(SIGUSR1, SIG_DFL);
        server.reset();
    }
    void init() { begin(); }
    void cleanup() { end(); }

    void commandHasItsTimeAndItsMemory_data()
    {
        QTest::addColumn<QString>("command");
        QTest::addColumn<QByteArray>("script");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("outcome");
        QTest::addColumn<int>("seconds");
        const QString prepared = QStringLiteral("USB preparado com estrutura portatil Tessarine.");
        const QString program = QStringLiteral("± `Tessarine/linux/Tessarine`");
        const QString libraries = QStringLiteral("+ `Tessarine/linux/lib/ld-linux-x86-64.so.2`, "
                                                 "+ `Tessarine/linux/lib/libc.so.6`, ");
        const QString rest = QStringLiteral(
            "+ `Tessarine-Windows.bat`, + `Tessarine/linux/lib/ld-linux-x86-64.so.2`, "
            "+ `Tessarine/linux/lib/libc.so.6`, ± `Tessarine-Linux.sh`, ± `Tessarine/README.txt`, "
            "± `Tessarine/linux/Tessarine`, ± `Tessarine/linux/lib/libssl.so.3`");
        const auto with = [](const QString &changes) {
            return asBefore + QStringLiteral(", ") + changes;
        };
        const QString installed = QStringLiteral("Atualização concluída.");
        // For the size of the bundle, and for the bundle.
        addRows("ldd", "/usr/bin/ldd",
                QStringLiteral("Nao foi possivel identificar dependencias Linux para: "),
                with(program), 60, prepared, with(rest));
        addRows("ldconfig", "/sbin/ldconfig",
                QStringLiteral("Nao foi possivel localizar bibliotecas TLS do Linux."),
                with(libraries + program), 30, prepared, with(rest));
        addRows("unzip", "/usr/bin/unzip", QStringLiteral("Falha ao extrair ZIP: "), asBefore, 180,
                installed, updated);
        addRows("pgrep", "/usr/bin/pgrep",
                QStringLiteral("Feche o Tessarine antes de atualizar os bundles da unidade USB."),
                asBefore, 5, installed, updated);
    }
    void commandHasItsTimeAndItsMemory()
    {
        QFETCH(QString, command);
        QFETCH(QByteArray, script);
        QFETCH(QString, message);
        QFETCH(QString, outcome);
        QFETCH(int, seconds);
        openWindowWithDrive();
        const StubCommand stub(command, script);
        QCOMPARE(outcomeOf([&] { prepareOrUpdate(command); }), outcome);
        QVERIFY2(lastBox().text.startsWith(message), qPrintable(lastBox().text.left(1000)));
        QVERIFY2(milliseconds() >= seconds * 1000 && milliseconds() < (seconds + 30) * 1000,
                 qPrintable(QString::number(milliseconds())));
        QVERIFY(memoryGrowth() < 256'000'000);
        const QString children(stub.directory().read(command + QStringLiteral(".pid")));
        for (const QString &child : children.split(u'\n', Qt::SkipEmptyParts))
            kill(child.toInt(), SIGKILL);
    }
};

TESSARINE_UPDATE_TEST_MAIN(HostileHostTest)
#include "hostile_host_test.moc"
