#include "tests/deployment/PreparationSituation.h"

#include <QTimer>

// Drives that are not prepared: it is said why, and what stood on them still stands.
class PreparationFailureTest : public PreparationSituation
{
    Q_OBJECT

    static bool saysThatAFileWasNotWritten(const QString &message)
    {
        return message.startsWith("Nao foi possivel gravar o arquivo: ")
               || message.startsWith("Nao foi possivel finalizar o arquivo: ")
               || message.startsWith("Nao foi possivel salvar o arquivo: ")
               || message.startsWith("Nao foi possivel criar o arquivo: ");
    }

private Q_SLOTS:
    void init() { begin(); }
    void cleanup() { end(); }

    // ---- refused from the start

    void anAbsentDriveIsInvalid()
    {
        const Bundles bundles;
        const Drive drive;
        QCOMPARE(prepare(drive.path("absent"), bundles.both()), "Unidade USB invalida.");
        QCOMPARE(m_result.touchedPaths, QStringList());
        QCOMPARE(m_reports, QStringList{"0/7 Validando unidade USB..."});
        QCOMPARE(drive.tree(), QStringList());
    }

    void aDriveThatIsAFileIsInvalid()
    {
        const Bundles bundles;
        const Drive drive;
        QCOMPARE(prepare(drive.write("file", "kept"), bundles.both()), "Unidade USB invalida.");
        QCOMPARE(drive.tree(), QStringList{"file: kept"});
    }

    void withoutBundlesOnlyTheDirectoriesAreMade()
    {
        const Drive drive;
        QCOMPARE(prepare(drive, {}),
                 "Nenhum bundle valido foi encontrado para preparar a unidade USB.");
        QCOMPARE(drive.tree(),
                 (QStringList{"Tessarine/", "Tessarine/linux/", "Tessarine/windows/"}));
        QCOMPARE(m_result.touchedPaths,
                 pathsOn(drive, {"Tessarine", "Tessarine/windows", "Tessarine/linux"}));
        QCOMPARE(m_reports.size(), 2);
    }

    void aRefusedDriveKeepsItsNewDirectories()
    {
        const Drive host;
        const Drive drive = Drive::tmpfs(mebibyte);
        drive.write("letter", "kept");
        const QString message =
            prepare(drive, {host.writeSparse("a.exe", mebibyte / 4 + 1), {}, {}, {}});
        QVERIFY2(message.startsWith("A unidade USB nao e recomendada para Tessarine."),
                 qPrintable(message));
        QCOMPARE(drive.tree(), (QStringList{"Tessarine/", "Tessarine/linux/", "Tessarine/windows/",
                                            "letter: kept"}));
        QCOMPARE(m_reports.size(), 2);
    }

    void aReadOnlyDriveIsLeftAsItIs()
    {
        const Bundles bundles;
        const Drive drive = Drive::tmpfs(mebibyte);
        drive.write("letter", "kept");
        drive.makeReadOnly();
        QCOMPARE(prepare(drive, bundles.both()),
                 "Nao foi possivel criar a pasta: " + drive.path("Tessarine"));
        QCOMPARE(drive.tree(), QStringList{"letter: kept"});
    }

    // ---- ended at a stage

    // Each thing in the way ends the run at its stage, and what was there stays.
    void whatIsInTheWayIsNamedAndEndsTheRun_data()
    {
        QTest::addColumn<QString>("obstacle");
        QTest::addColumn<QString>("message");
        QTest::addColumn<int>("reports");
        const auto directory = [](const char *path, const QString &message, int reports) {
            QTest::newRow(path) << path + QStringLiteral("/kept") << message << reports;
        };
        const auto file = [](const char *path, const QString &message, int reports) {
            QTest::newRow(path) << QString(path) << message << reports;
        };
        const QString noDirectory = "Nao foi possivel criar a pasta: ";
        const QString noFile = "Nao foi possivel criar o arquivo: ";
        file("Tessarine", noDirectory + "DRIVE/Tessarine", 2);
        file("Tessarine/windows", noDirectory + "DRIVE/Tessarine/windows", 2);
        file("Tessarine/linux", noDirectory + "DRIVE/Tessarine/linux", 2);
        file("Tessarine/windows/platforms", noDirectory + "DRIVE/Tessarine/windows/platforms", 3);
        directory("Tessarine/windows/Qt6Core.dll", noFile + "DRIVE/Tessarine/windows/Qt6Core.dll",
                  3);
        file("Tessarine/linux/lib", noDirectory + "DRIVE/Tessarine/linux/lib", 4);
        directory("Tessarine-Windows.bat", noFile + "DRIVE/Tessarine-Windows.bat", 5);
        directory("Tessarine-Linux.sh", noFile + "DRIVE/Tessarine-Linux.sh", 6);
        directory("Tessarine/README.txt", noFile + "DRIVE/Tessarine/README.txt", 6);
    }

    void whatIsInTheWayIsNamedAndEndsTheRun()
    {
        QFETCH(QString, obstacle);
        QFETCH(QString, message);
        QFETCH(int, reports);
        const Bundles bundles;
        const Drive drive;
        drive.write("100%1 %2/" + obstacle, "kept");
        const QString root = drive.path("100%1 %2");
        QCOMPARE(prepare(root, bundles.both()), message.replace("DRIVE", root));
        QCOMPARE(m_reports.size(), reports);
        QCOMPARE(drive.read("100%1 %2/" + obstacle), QByteArray("kept"));
    }

    void anExecutableThatCannotBeCopiedEndsTheRun_data()
    {
        QTest::addColumn<bool>("isWindows");
        QTest::newRow("Windows") << true;
        QTest::newRow("Linux") << false;
    }

    void anExecutableThatCannotBeCopiedEndsTheRun()
    {
        QFETCH(bool, isWindows);
        const Drive host;
        const Drive drive;
        const QString program = host.write(isWindows ? "m.exe" : "m", "program");
        const QString place =
            isWindows ? "Tessarine/windows/Tessarine.exe" : "Tessarine/linux/Tessarine";
        drive.write(place + "/kept", "kept");
        const PortableBundleOptions options = isWindows
                                                  ? PortableBundleOptions{program, {}, {}, {}}
                                                  : PortableBundleOptions{{}, {}, program, {}};
        QCOMPARE(prepare(drive, options),
                 "Nao foi possivel copiar o executavel para: " + drive.path(place));
        QCOMPARE(m_reports.size(), isWindows ? 3 : 4);
        QCOMPARE(drive.read(place + "/kept"), QByteArray("kept"));
    }

    void aWindowsLibraryThatCannotBeCopiedEndsTheRun()
    {
        const Drive host;
        const Drive drive;
        host.write("m.exe", "program");
        host.write("a.dll", "library");
        drive.write("Tessarine/windows/a.dll/kept", "kept");
        QCOMPARE(prepare(drive, {host.path("m.exe"), {}, {}, {}}),
                 "Nao foi possivel copiar a biblioteca: a.dll");
        QCOMPARE(m_reports.size(), 3);
        QCOMPARE(drive.tree("Tessarine/windows"),
                 (QStringList{"Tessarine.exe: program", "a.dll/", "a.dll/kept: kept"}));
    }

    void aLinuxExecutableThatCannotBeExaminedEndsTheRun_data()
    {
        QTest::addColumn<QString>("lddScript");
        QTest::addColumn<QString>("ldconfigScript");
        QTest::addColumn<QString>("message");
        QTest::newRow("ldd fails") << "exit 1"
                                   << "exit 0"
                                   << "Nao foi possivel identificar dependencias Linux para: "
                                      "DRIVE/Tessarine/linux/Tessarine";
        QTest::newRow("ldconfig fails") << "echo 'a => /bin/sh'"
                                        << "exit 1"
                                        << "Nao foi possivel localizar bibliotecas TLS do Linux.";
        QTest::newRow("no libssl") << "echo 'a => /bin/sh'"
                                   << "exit 0"
                                   << "Biblioteca libssl.so nao encontrada no ambiente Linux.";
    }

    void aLinuxExecutableThatCannotBeExaminedEndsTheRun()
    {
        QFETCH(QString, lddScript);
        QFETCH(QString, ldconfigScript);
        QFETCH(QString, message);
        const Drive drive;
        const LoneExecutable program;
        const StubCommand ldd("ldd", lddScript.toUtf8());
        const StubCommand ldconfig("ldconfig", ldconfigScript.toUtf8());
        QCOMPARE(prepare(drive, program.options()), message.replace("DRIVE", drive.path()));
        QCOMPARE(m_reports.size(), 4);
        QVERIFY(!drive.exists("Tessarine-Linux.sh"));
    }

    void aFailedRunKeepsAnEarlierPreparationsLaunchers()
    {
        const Bundles bundles;
        const Drive drive;
        drive.write("Tessarine-Windows.bat", "earlier");
        drive.write("Tessarine-Linux.sh", "earlier");
        drive.write("Tessarine/README.txt", "earlier");
        drive.write("Tessarine/linux/lib", "in the way");
        QCOMPARE(prepare(drive, bundles.both()),
                 "Nao foi possivel criar a pasta: " + drive.path("Tessarine/linux/lib"));
        for (const char *name :
             {"Tessarine-Windows.bat", "Tessarine-Linux.sh", "Tessarine/README.txt"})
            QCOMPARE(drive.read(name), QByteArray("earlier"));
    }

    // ---- ended by what happens meanwhile

    void aSourceThatVanishesDuringThePreparationEndsIt()
    {
        const Drive host;
        const Drive drive;
        host.writeSparse("qt.conf", 3 * mebibyte);
        host.writeSparse("Tessarine", 3 * mebibyte);
        QTimer::singleShot(0, [&] {
            QFile::remove(host.path("qt.conf"));
            QFile::remove(host.path("Tessarine"));
        });
        const QString message = prepare(drive, {{}, {}, host.path("Tessarine"), {}});
        const QStringList copied = drive.names("Tessarine/linux");
        QCOMPARE(copied.size(), 1);
        QCOMPARE(message,
                 "Nao foi possivel copiar o arquivo: "
                     + QString(copied == QStringList{"qt.conf"} ? "Tessarine" : "qt.conf"));
    }

    void aDriveThatFailsAtTheLastSyncIsNotPrepared()
    {
        const Bundles bundles;
        const Drive drive = Drive::ext4(16 * mebibyte);
        int lastStep = -1;
        whenSynced = [&] { drive.loseMedium(); };
        QCOMPARE(prepare(drive, bundles.both(),
                         [&](int step, int, const QString &) { lastStep = step; }),
                 "Nao foi possivel finalizar o arquivo: " + drive.path());
        QCOMPARE(lastStep, 6);
    }

    // What an earlier bundle takes counts as room although it isn't given back, so that a drive
    // which passes the check can still fill up, at any point. Page by page more room, until it
    // suffices: after each failure every file is the old one or the new one, never a part of it.
    void aDriveThatFillsUpAnywhereHoldsWholeFilesOnly()
    {
        const Drive host;
        host.write("w/Qt6Core.dll", QByteArray(9'000, 'c'));
        host.write("w/platforms/qwindows.dll", QByteArray(20'000, 'p'));
        host.write("w/Tessarine.exe", QByteArray(5'000, 't'));
        host.write("l/lib/libQt6Core.so.6", QByteArray(30'000, 'l'));
        host.write("l/Tessarine", QByteArray(3'000, 'm'));
        const PortableBundleOptions options{
            host.path("w/Tessarine.exe"), {}, host.path("l/Tessarine"), {}};
        const QMap<QString, QByteArray> newFiles{
            {"Tessarine/windows/Qt6Core.dll", host.read("w/Qt6Core.dll")},
            {"Tessarine/windows/platforms/qwindows.dll", host.read("w/platforms/qwindows.dll")},
            {"Tessarine/windows/Tessarine.exe", host.read("w/Tessarine.exe")},
            {"Tessarine/linux/lib/libQt6Core.so.6", host.read("l/lib/libQt6Core.so.6")},
            {"Tessarine/linux/Tessarine", host.read("l/Tessarine")},
            {"Tessarine-Windows.bat", expectedWindowsLauncher},
            {"Tessarine-Linux.sh", expectedLinuxLauncher},
            {"Tessarine/README.txt", expectedReadme}};
        const QMap<QString, QByteArray> oldFiles{{"Tessarine/windows/Qt6Core.dll", "old core"},
                                                 {"Tessarine/linux/Tessarine", "old program"},
                                                 {"Tessarine-Windows.bat", "old launcher"},
                                                 {"Tessarine/README.txt", "old text"}};
        const QStringList known =
            newFiles.keys() + QStringList{"fill", "Tessarine/old", "tessarine.tsrn"};
        int drives = 0;
        for (qint64 room = 0; !m_result.success; room += 4096, ++drives) {
            const Drive drive = Drive::tmpfs(mebibyte);
            drive.write("tessarine.tsrn", "the user's vault");
            for (auto file = oldFiles.begin(); file != oldFiles.end(); ++file)
                drive.write(file.key(), file.value());
            drive.writeSparse("Tessarine/old", 200'000);
            for (const char *directory : {"windows/platforms", "linux/lib"})
                drive.makeDirectory(QStringLiteral("Tessarine/") + directory);
            drive.fill(room);
            const QString message = prepare(drive, options);
            QVERIFY2(message == prepared || saysThatAFileWasNotWritten(message),
                     qPrintable(message));
            QCOMPARE(drive.read("tessarine.tsrn"), QByteArray("the user's vault"));
            for (auto file = newFiles.begin(); file != newFiles.end(); ++file) {
                const bool isNew = drive.read(file.key()) == file.value();
                const bool isAsBefore = drive.exists(file.key()) == oldFiles.contains(file.key())
                                        && drive.read(file.key()) == oldFiles.value(file.key());
                QVERIFY2(isNew || (isAsBefore && !m_result.success), qPrintable(file.key()));
            }
            for (const QString &name : drive.names())
                QVERIFY2(name.endsWith(u'/') || known.contains(name), qPrintable(name));
        }
        QVERIFY2(drives > 10, qPrintable(QString::number(drives)));
    }
};

TESSARINE_MOUNTING_TEST_MAIN(QCoreApplication, PreparationFailureTest)
#include "preparation_failure_test.moc"
