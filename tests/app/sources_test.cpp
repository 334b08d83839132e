// A directory that exists on no machine, so that each test makes its own source tree there.
#undef TESSARINE_SOURCE_DIR
#define TESSARINE_SOURCE_DIR "/mnt/tools/TessarineConfig/../Tessarine"
#define main tessarineConfigMain
#include "app/TessarineConfig.cpp"
#undef main

#include "tests/support/ListComparison.h"
#include "tests/support/TemporaryFileSystem.h"
#include "tests/support/TestMain.h"

#include <QTest>

namespace
{

using TestSupport::TemporaryFileSystem;

const QString buildTree = QStringLiteral(TESSARINE_SOURCE_DIR);

const QStringList packagedWindows{QStringLiteral("bundles/windows-x64/Tessarine.exe"),
                                  QStringLiteral("../windows-x64/Tessarine.exe"),
                                  QStringLiteral("Tessarine.exe")};
const QStringList builtWindows{QStringLiteral("bundles/windows-x64/Tessarine.exe"),
                               QStringLiteral("../out/build/x64-release/Tessarine/Tessarine.exe"),
                               QStringLiteral("out/build/x64-release/Tessarine.exe"),
                               QStringLiteral("out/build/x64-release/Release/Tessarine.exe"),
                               QStringLiteral("out/install/x64-release/bin/Tessarine.exe")};
const QStringList packagedLinux{
    QStringLiteral("bundles/linux-x64/Tessarine"), QStringLiteral("../linux-x64/Tessarine"),
    QStringLiteral("../../linux-x64/Tessarine"), QStringLiteral("Tessarine")};
const QStringList builtLinux{QStringLiteral("../out/build/linux-x64-release/Tessarine/Tessarine"),
                             QStringLiteral("bundles/linux-x64/Tessarine"),
                             QStringLiteral("out/build/linux-x64-release/Tessarine")};

// The program's directory and the source tree, empty, with nothing around them.
struct Surroundings {
    Surroundings()
    {
        makeDirectory(QCoreApplication::applicationDirPath());
        makeDirectory(QStringLiteral("/mnt/tools/TessarineConfig"));
        makeDirectory(QStringLiteral("/mnt/tools/Tessarine"));
    }

    QString put(const QString &base, const QString &name) const
    {
        QString path = QDir(base).filePath(name);
        makeDirectory(QFileInfo(path).absolutePath());
        QFile file(path);
        if (isPrivate())
            file.open(QIODevice::WriteOnly);
        return path;
    }

    QString putBesideProgram(const QString &name) const
    {
        return put(QCoreApplication::applicationDirPath(), name);
    }

    void makeDirectory(const QString &path) const
    {
        if (isPrivate())
            QDir().mkpath(path);
    }

    bool isPrivate() const
    {
        return aroundTheProgram.isMounted() && aroundTheSourceTree.isMounted();
    }

    TemporaryFileSystem aroundTheProgram{
        QDir(QCoreApplication::applicationDirPath()).absoluteFilePath(QStringLiteral("../.."))};
    TemporaryFileSystem aroundTheSourceTree{QStringLiteral("/mnt")};
};

void addRows(const char *name, const QString &base, const QStringList &candidates, bool isWindows)
{
    for (int i = 0; i < candidates.size(); ++i)
        QTest::addRow("%s, candidate %d", name, i + 1)
            << base << candidates.mid(i) << isWindows << (base == buildTree);
}

BundleSource locate(bool isWindows)
{
    return isWindows ? locateWindowsSource() : locateLinuxSource();
}

} // namespace

class SourcesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void newRecordIsEmptyAndNotFromTheBuildTree()
    {
        const BundleSource source;
        QCOMPARE(source.executablePath, QString());
        QCOMPARE(source.directoryPath, QString());
        QVERIFY(!source.fromBuildTree);
    }

    void firstExistingCandidateIsTaken_data()
    {
        QTest::addColumn<QString>("base");
        QTest::addColumn<QStringList>("existing");
        QTest::addColumn<bool>("isWindows");
        QTest::addColumn<bool>("fromBuildTree");
        const QString program = QCoreApplication::applicationDirPath();
        addRows("Windows beside the program", program, packagedWindows, true);
        addRows("Windows in the source tree", buildTree, builtWindows, true);
        addRows("Linux beside the program", program, packagedLinux, false);
        addRows("Linux in the source tree", buildTree, builtLinux, false);
    }
    void firstExistingCandidateIsTaken()
    {
        QFETCH(QString, base);
        QFETCH(QStringList, existing);
        QFETCH(bool, isWindows);
        const Surroundings surroundings;
        for (const QString &candidate : std::as_const(existing))
            surroundings.put(base, candidate);
        const BundleSource source = locate(isWindows);
        QCOMPARE(source.executablePath, base + u'/' + existing.first());
        QCOMPARE(source.directoryPath, QFileInfo(source.executablePath).absolutePath());
        QTEST(source.fromBuildTree, "fromBuildTree");
    }

    void sourceBesideTheProgramWinsOverTheSourceTree_data()
    {
        QTest::addColumn<bool>("isWindows");
        QTest::newRow("Windows") << true;
        QTest::newRow("Linux") << false;
    }
    void sourceBesideTheProgramWinsOverTheSourceTree()
    {
        QFETCH(bool, isWindows);
        const Surroundings surroundings;
        surroundings.put(buildTree, (isWindows ? builtWindows : builtLinux).first());
        const QString last = (isWindows ? packagedWindows : packagedLinux).last();
        const QString packaged = surroundings.putBesideProgram(last);
        const BundleSource source = locate(isWindows);
        QCOMPARE(source.executablePath, packaged);
        QVERIFY(!source.fromBuildTree);
    }

    void nothingFoundIsTheEmptyRecord()
    {
        const Surroundings surroundings;
        for (const bool isWindows : {true, false}) {
            const BundleSource source = locate(isWindows);
            QCOMPARE(source.executablePath, QString());
            QCOMPARE(source.directoryPath, QString());
            QVERIFY(!source.fromBuildTree);
        }
    }

    void missingSourceTreeYieldsNothing()
    {
        const Surroundings surroundings;
        QDir(QStringLiteral("/mnt/tools")).removeRecursively();
        QCOMPARE(locateWindowsSource().executablePath, QString());
        QCOMPARE(locateLinuxSource().executablePath, QString());
    }

    void directoryOfTheBundlesBesideTheProgramIsNamed()
    {
        const Surroundings surroundings;
        surroundings.putBesideProgram(packagedLinux.first());
        const QString directory = locateLinuxSource().directoryPath;
        QVERIFY2(directory.endsWith(QStringLiteral("bundles/linux-x64")), qPrintable(directory));
    }

    void pathKeepsItsDotsAndDirectoryIsAbsolute()
    {
        const Surroundings surroundings;
        surroundings.putBesideProgram(QStringLiteral("../windows-x64/Tessarine.exe"));
        const BundleSource source = locateWindowsSource();
        QCOMPARE(source.executablePath, QCoreApplication::applicationDirPath()
                                            + QStringLiteral("/../windows-x64/Tessarine.exe"));
        QCOMPARE(source.directoryPath, QFileInfo(source.executablePath).absolutePath());
    }

    void directoryOfThatNameCountsAsASource()
    {
        const Surroundings surroundings;
        surroundings.makeDirectory(QCoreApplication::applicationDirPath()
                                   + QStringLiteral("/Tessarine"));
        QCOMPARE(locateLinuxSource().executablePath,
                 QCoreApplication::applicationDirPath() + QStringLiteral("/Tessarine"));
    }

    void workingDirectoryPlaysNoPart()
    {
        const Surroundings surroundings;
        const QString before = QDir::currentPath();
        surroundings.makeDirectory(QStringLiteral("/mnt/here"));
        QDir::setCurrent(QStringLiteral("/mnt/here"));
        surroundings.put(QStringLiteral("/mnt/here"), packagedWindows.first());
        const BundleSource source = locateWindowsSource();
        QDir::setCurrent(before);
        QCOMPARE(source.executablePath, QString());
    }

    void windowShowsWhichSourcesThereAre_data()
    {
        QTest::addColumn<bool>("hasWindows");
        QTest::addColumn<bool>("hasLinux");
        QTest::newRow("both") << true << true;
        QTest::newRow("only Windows") << true << false;
        QTest::newRow("only Linux") << false << true;
        QTest::newRow("none") << false << false;
    }
    void windowShowsWhichSourcesThereAre()
    {
        QFETCH(bool, hasWindows);
        QFETCH(bool, hasLinux);
        const Surroundings surroundings;
        if (hasWindows)
            surroundings.putBesideProgram(packagedWindows.first());
        if (hasLinux)
            surroundings.put(buildTree, builtLinux.first());
        const ConfigWindow window;
        QCOMPARE(window.windowsSourceLabel->text(),
                 hasWindows ? QStringLiteral("Disponível") : QStringLiteral("Ausente"));
        QCOMPARE(window.linuxSourceLabel->text(),
                 hasLinux ? QStringLiteral("Disponível") : QStringLiteral("Ausente"));
        const QStringList log = window.logView->toPlainText().split(QLatin1Char('\n'));
        QCOMPARE(log.at(0), hasWindows ? QStringLiteral("Fonte Windows para preparação encontrada.")
                                       : QStringLiteral("Fonte Windows para preparação ausente."));
        QCOMPARE(log.at(1), hasLinux ? QStringLiteral("Fonte Linux para preparação encontrada.")
                                     : QStringLiteral("Fonte Linux para preparação ausente."));
        QCOMPARE(log.size(), 3);
        QCOMPARE(!window.windowsSource.executablePath.isEmpty(), hasWindows);
        QCOMPARE(!window.linuxSource.executablePath.isEmpty(), hasLinux);
    }

    void sourceThatTurnsUpLaterIsSeenAtTheNextStartOnly()
    {
        const Surroundings surroundings;
        ConfigWindow window;
        surroundings.putBesideProgram(packagedWindows.first());
        window.refreshButton->click();
        QCOMPARE(window.windowsSource.executablePath, QString());
        QCOMPARE(window.windowsSourceLabel->text(), QStringLiteral("Ausente"));
        QCOMPARE(ConfigWindow().windowsSourceLabel->text(), QStringLiteral("Disponível"));
    }
};

TESSARINE_MOUNTING_TEST_MAIN(QApplication, SourcesTest)

#include "sources_test.moc"
