#define main tessarineConfigMain
#include "app/TessarineConfig.cpp"
#undef main

#include "tests/support/ChildProcess.h"
#include "tests/support/Drive.h"
#include "tests/support/ListComparison.h"
#include "tests/support/TestMain.h"

#include <QRegularExpression>
#include <QTest>

namespace
{

using TestSupport::asUnprivileged;
using TestSupport::Drive;

const QStringList keysWithoutAHash{
    "app", "bundles", "installedAt", "installedVersion", "schemaVersion", "updatedByConfigVersion"};
const QString stateFile = QStringLiteral("Tessarine/update-state.json");

const QString written = QStringLiteral("written");

// What comes of writing the state: that it was written, or the reason why it wasn't.
QString writeTo(const Drive &drive, const QString &version = QStringLiteral("1.1.0"),
                const QString &hash = QStringLiteral("ab12"))
{
    QString error;
    return writeUpdateState(drive.path(), version, hash, &error) ? written : error;
}

QJsonObject stateOn(const Drive &drive)
{
    return QJsonDocument::fromJson(drive.read(stateFile)).object();
}

QString openingFailed(const Drive &drive)
{
    return QStringLiteral("Não foi possível abrir o arquivo de estado: ") + drive.path(stateFile);
}

QString savingFailed(const Drive &drive)
{
    return QStringLiteral("Não foi possível salvar o arquivo de estado: ") + drive.path(stateFile);
}

} // namespace

class StateTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fileLiesInTheBundleRoot()
    {
        QCOMPARE(updateStatePath(QStringLiteral("/media/u/PEN")),
                 QStringLiteral("/media/u/PEN/Tessarine/update-state.json"));
        QCOMPARE(updateStatePath(QStringLiteral("/media/%1/PEN/")),
                 QStringLiteral("/media/%1/PEN/Tessarine/update-state.json"));
    }

    void askingForThePathTouchesNothing()
    {
        const Drive drive;
        updateStatePath(drive.path());
        QCOMPARE(drive.names(), QStringList());
    }

    void fileHasItsExactText()
    {
        const Drive drive;
        QCOMPARE(writeTo(drive), written);
        QByteArray text = drive.read(stateFile);
        const QRegularExpression time(
            QStringLiteral("\"\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ\""));
        const QString withoutTime =
            QString::fromUtf8(text).replace(time, QStringLiteral("\"NOW\""));
        const QString expected = QStringLiteral("{\n"
                                                "    \"app\": \"Tessarine\",\n"
                                                "    \"bundles\": {\n"
                                                "        \"linux-x64\": {\n"
                                                "            \"entryPoint\": \"Tessarine\",\n"
                                                "            \"path\": \"Tessarine/linux\"\n"
                                                "        },\n"
                                                "        \"windows-x64\": {\n"
                                                "            \"entryPoint\": \"Tessarine.exe\",\n"
                                                "            \"path\": \"Tessarine/windows\"\n"
                                                "        }\n"
                                                "    },\n"
                                                "    \"installedAt\": \"NOW\",\n"
                                                "    \"installedVersion\": \"1.1.0\",\n"
                                                "    \"lastPackageSha256\": \"ab12\",\n"
                                                "    \"schemaVersion\": 1,\n"
                                                "    \"updatedByConfigVersion\": \"7.8.9-test\"\n"
                                                "}\n");
        QCOMPARE(withoutTime.split(u'\n'), expected.split(u'\n'));
    }

    void timeIsThatOfTheWritingInUtc()
    {
        const Drive drive;
        const QDateTime before = QDateTime::currentDateTimeUtc();
        QCOMPARE(writeTo(drive), written);
        const QString text = stateOn(drive).value(QStringLiteral("installedAt")).toString();
        const QDateTime time = QDateTime::fromString(text, Qt::ISODate);
        QCOMPARE(time.timeSpec(), Qt::UTC);
        QVERIFY2(before.secsTo(time) >= -1 && time <= QDateTime::currentDateTimeUtc(),
                 qPrintable(text));
    }

    void emptyHashLeavesItsKeyOut()
    {
        const Drive drive;
        QCOMPARE(writeTo(drive, QStringLiteral("1.0.0"), QString()), written);
        QCOMPARE(stateOn(drive).keys(), keysWithoutAHash);
    }

    void versionAndHashAreKeptUnchanged()
    {
        const Drive drive;
        const QString version = QStringLiteral(" \"1\" ção %1\n");
        writeTo(drive, version, QStringLiteral("AB 12"));
        QCOMPARE(stateOn(drive).value(QStringLiteral("installedVersion")).toString(), version);
        QCOMPARE(stateOn(drive).value(QStringLiteral("lastPackageSha256")).toString(),
                 QStringLiteral("AB 12"));
    }

    void directoryIsCreatedAndNothingIsLeftBesideTheFile()
    {
        const Drive drive;
        QCOMPARE(writeTo(drive), written);
        QCOMPARE(drive.names(), QStringList({QStringLiteral("Tessarine/"), stateFile}));
    }

    void newStateReplacesTheWholeOldOne()
    {
        const Drive drive;
        drive.write(stateFile, R"({"app":"Tessarine","channel":7,"lastPackageSha256":"ff"})");
        QCOMPARE(writeTo(drive, QStringLiteral("1.0.0"), QString()), written);
        QCOMPARE(stateOn(drive).keys(), keysWithoutAHash);
    }

    void fileInTheWayOfTheDirectoryIsReported()
    {
        const Drive drive;
        drive.write(QStringLiteral("Tessarine"), "a file");
        QCOMPARE(writeTo(drive),
                 QStringLiteral("Não foi possível criar a pasta de estado da atualização."));
        QCOMPARE(drive.tree(), QStringList{QStringLiteral("Tessarine: a file")});
    }

    void directoryInTheWayOfTheFileIsReported()
    {
        const Drive drive;
        drive.makeDirectory(stateFile);
        QCOMPARE(writeTo(drive), openingFailed(drive));
        QCOMPARE(drive.names(stateFile), QStringList());
    }

    void readOnlyDriveKeepsItsOldState()
    {
        const Drive drive = Drive::tmpfs(1 << 20);
        drive.write(stateFile, "old state");
        drive.makeReadOnly();
        QCOMPARE(writeTo(drive), openingFailed(drive));
        QCOMPARE(drive.read(stateFile), QByteArray("old state"));
    }

    void readOnlyFileKeepsItsOldState()
    {
        const Drive drive;
        drive.write(stateFile, "old state");
        drive.giveAway();
        QFile::setPermissions(drive.path(stateFile), QFile::ReadOwner);
        const QStringList report = asUnprivileged([&drive] { return QStringList{writeTo(drive)}; });
        QCOMPARE(report, QStringList{openingFailed(drive)});
        QCOMPARE(drive.read(stateFile), QByteArray("old state"));
    }

    void stateThatDoesNotFitKeepsTheOldOne_data()
    {
        QTest::addColumn<int>("room");
        QTest::addColumn<int>("length");
        QTest::newRow("no room") << 0 << 5;
        QTest::newRow("the beginning fits") << 4096 << 9000;
        QTest::newRow("written past the buffer") << 8192 << 40000;
    }
    void stateThatDoesNotFitKeepsTheOldOne()
    {
        QFETCH(int, room);
        QFETCH(int, length);
        const Drive drive = Drive::tmpfs(1 << 20);
        drive.write(stateFile, "old state");
        drive.fill(room);
        const QStringList before = drive.tree();
        QCOMPARE(writeTo(drive, QString(length, u'1')), savingFailed(drive));
        QCOMPARE(drive.tree(), before);
    }

    void errorTextIsLeftAloneOnSuccess()
    {
        const Drive drive;
        QString error = QStringLiteral("earlier");
        writeUpdateState(drive.path(), QStringLiteral("1"), QString(), &error);
        QCOMPARE(error, QStringLiteral("earlier"));
    }

    void whatWasWrittenIsReadBack()
    {
        const Drive drive;
        writeTo(drive, QStringLiteral("2.0.1"));
        QCOMPARE(readInstalledVersion(drive.path()), QStringLiteral("2.0.1"));
    }

    void installedVersionIsReadFromTheState_data()
    {
        QTest::addColumn<QByteArray>("state");
        QTest::addColumn<QString>("version");
        const auto row = [](const char *name, const QByteArray &state, const char *version) {
            QTest::newRow(name) << state << QString::fromUtf8(version);
        };
        row("only what is needed", R"({"app":"Tessarine","installedVersion":"1.2"})", "1.2");
        row("any schema", R"({"schemaVersion":9,"app":"Tessarine","installedVersion":"1.2"})",
            "1.2");
        row("not numeric", R"({"app":"Tessarine","installedVersion":"ção"})", "ção");
        row("blanks", R"({"app":"Tessarine","installedVersion":" "})", " ");
        row("empty", R"({"app":"Tessarine","installedVersion":""})", "");
        row("no version", R"({"app":"Tessarine"})", "");
        row("version of another type", R"({"app":"Tessarine","installedVersion":1.2})", "");
        row("no app", R"({"installedVersion":"1.2"})", "");
        row("app in other capitals", R"({"app":"tessarine","installedVersion":"1.2"})", "");
        row("app of another type", R"({"app":1,"installedVersion":"1.2"})", "");
        row("an array", R"([{"app":"Tessarine","installedVersion":"1.2"}])", "");
        row("no JSON", "Tessarine 1.2", "");
        row("cut off", R"({"app":"Tessarine","installedVersion":"1.2")", "");
        row("nothing", "", "");
    }
    void installedVersionIsReadFromTheState()
    {
        QFETCH(QByteArray, state);
        const Drive drive;
        drive.write(stateFile, state);
        QTEST(readInstalledVersion(drive.path()), "version");
    }

    void withoutAStateFileThereIsNoVersion()
    {
        const Drive drive;
        QCOMPARE(readInstalledVersion(drive.path()), QString());
        drive.makeDirectory(stateFile);
        QCOMPARE(readInstalledVersion(drive.path()), QString());
        QCOMPARE(readInstalledVersion(drive.path(QStringLiteral("gone"))), QString());
    }

    void stateThatMayNotBeReadIsNone()
    {
        const Drive drive;
        drive.write(stateFile, R"({"app":"Tessarine","installedVersion":"1.2"})");
        QFile::setPermissions(drive.path(stateFile), {});
        const QStringList report = asUnprivileged(
            [&drive] { return QStringList{u'[' + readInstalledVersion(drive.path()) + u']'}; });
        QCOMPARE(report, QStringList{QStringLiteral("[]")});
    }
};

int main(int argc, char *argv[])
{
    TestSupport::enterPrivateMountNamespace();
    qputenv("TZ", "BRT3"); // local time is never UTC here
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationVersion(QStringLiteral("7.8.9-test"));
    StateTest suite;
    return QTest::qExec(&suite, argc, argv);
}

#include "state_test.moc"
