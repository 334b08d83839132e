#include "tests/deployment/OperationSituation.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TestMain.h"

#include <QCoreApplication>

#include <sys/stat.h>

using TestSupport::asUnprivileged;

// Directories that are made on the drive, and trees that are copied into them.
class DirectoryCopyTest : public OperationSituation
{
    Q_OBJECT

    QString makeDirectory(const QString &path)
    {
        return outcome(m_manager.ensureDirectory(path, &m_result));
    }

    QString copyDirectory(const QString &source, const QString &target)
    {
        return outcome(m_manager.copyDirectoryContents(source, target, &m_result));
    }

private Q_SLOTS:
    void init() { begin(); }
    void cleanup() { end(); }

    // ---- a directory

    void missingDirectoriesAreCreatedWithTheirParents()
    {
        const Drive drive;
        QCOMPARE(makeDirectory(drive.path("a/b/c")), done);
        QCOMPARE(drive.tree(), (QStringList{"a/", "a/b/", "a/b/c/"}));
        QCOMPARE(m_result.touchedPaths, QStringList{drive.path("a/b/c")});
    }

    void aDirectoryInPlaceIsTouchedAgain()
    {
        const Drive drive;
        drive.write("a/file", "kept");
        QCOMPARE(makeDirectory(drive.path("a")), done);
        QCOMPARE(drive.tree(), (QStringList{"a/", "a/file: kept"}));
        QCOMPARE(m_result.touchedPaths, QStringList{drive.path("a")});
    }

    void aFileInTheWayOfADirectoryIsNamedAndKept()
    {
        const Drive drive;
        drive.write("100%1", "kept");
        QCOMPARE(makeDirectory(drive.path("100%1/b")),
                 "Nao foi possivel criar a pasta: " + drive.path("100%1/b"));
        QCOMPARE(m_result.touchedPaths, QStringList());
        QCOMPARE(drive.tree(), QStringList{"100%1: kept"});
    }

    void aDirectoryOnAReadOnlyDriveIsNotCreated()
    {
        const Drive drive = Drive::tmpfs(mebibyte);
        drive.makeReadOnly();
        QCOMPARE(makeDirectory(drive.path("a")),
                 "Nao foi possivel criar a pasta: " + drive.path("a"));
    }

    void aDirectoryWithoutPermissionIsNotCreated()
    {
        const Drive drive;
        QCOMPARE(asUnprivileged([&] { return QStringList{makeDirectory(drive.path("a"))}; }),
                 QStringList{"Nao foi possivel criar a pasta: " + drive.path("a")});
    }

    // ---- a tree

    void aTreeIsCopiedWhole()
    {
        const Drive source;
        const Drive drive;
        source.write("a", "1");
        source.write("b c/ção", "2");
        source.write("b c/d/e", "");
        source.makeDirectory("empty");
        QCOMPARE(copyDirectory(source.path(), drive.path("x/y")), done);
        QCOMPARE(drive.tree("x/y"), source.tree());
        QCOMPARE(sorted(m_result.touchedPaths),
                 (QStringList{drive.path("x/y"), drive.path("x/y/a"), drive.path("x/y/b c"),
                              drive.path("x/y/b c/d"), drive.path("x/y/b c/d/e"),
                              drive.path("x/y/b c/ção"), drive.path("x/y/empty")}));
    }

    void whatTheSourceLacksStaysInTheTarget()
    {
        const Drive source;
        const Drive drive;
        source.write("a", "new");
        drive.write("a", "older");
        drive.write("mine/letter", "kept");
        QCOMPARE(copyDirectory(source.path(), drive.path()), done);
        QCOMPARE(drive.tree(), (QStringList{"a: new", "mine/", "mine/letter: kept"}));
    }

    void hiddenEntriesStayBehind()
    {
        const Drive source;
        const Drive drive;
        source.write(".hidden", "1");
        source.write(".directory/file", "2");
        source.write("seen", "3");
        QCOMPARE(copyDirectory(source.path(), drive.path()), done);
        QCOMPARE(drive.tree(), QStringList{"seen: 3"});
    }

    void linksBecomeWhatTheyLeadTo()
    {
        const Drive source;
        const Drive drive;
        source.write("file", "1");
        source.write("directory/inner", "2");
        source.link("linkToFile", "file");
        source.link("linkToDirectory", "directory");
        QCOMPARE(copyDirectory(source.path(), drive.path()), done);
        QCOMPARE(drive.tree(),
                 (QStringList{"directory/", "directory/inner: 2", "file: 1", "linkToDirectory/",
                              "linkToDirectory/inner: 2", "linkToFile: 1"}));
    }

    void danglingLinksAndSpecialFilesArePassedOver()
    {
        const Drive source;
        const Drive drive;
        source.write("file", "1");
        source.link("dangling", "nowhere");
        QCOMPARE(mkfifo(QFile::encodeName(source.path("pipe")).constData(), 0644), 0);
        QCOMPARE(copyDirectory(source.path(), drive.path()), done);
        QCOMPARE(drive.tree(), QStringList{"file: 1"});
    }

    void unreadableEntriesStayBehind()
    {
        const Drive source;
        const Drive drive;
        source.write("file", "1");
        source.write("secret", "2");
        source.write("private/file", "3");
        QFile::setPermissions(source.path("secret"), QFile::Permissions());
        QFile::setPermissions(source.path("private"), QFile::Permissions());
        source.giveAway();
        drive.giveAway();
        QCOMPARE(
            asUnprivileged([&] { return QStringList{copyDirectory(source.path(), drive.path())}; }),
            QStringList{done});
        QCOMPARE(drive.tree(), QStringList{"file: 1"});
    }

    void anAbsentSourceDirectoryIsNamed()
    {
        const Drive drive;
        QCOMPARE(copyDirectory(drive.path("absent%1"), drive.path("target")),
                 "Pasta de origem nao encontrada: " + drive.path("absent%1"));
        QCOMPARE(m_result.touchedPaths, QStringList());
        QCOMPARE(drive.tree(), QStringList());
    }

    void aSourceThatIsAFileIsNoSourceDirectory()
    {
        const Drive drive;
        const QString source = drive.write("file", "contents");
        QCOMPARE(copyDirectory(source, drive.path("target")),
                 "Pasta de origem nao encontrada: " + source);
    }

    void aFileInTheWayOfTheTargetDirectoryIsKept()
    {
        const Drive source;
        const Drive drive;
        source.write("a/b", "1");
        drive.write("a", "in the way");
        QCOMPARE(copyDirectory(source.path(), drive.path()),
                 "Nao foi possivel criar a pasta: " + drive.path("a"));
        QCOMPARE(drive.tree(), QStringList{"a: in the way"});
    }

    void theFirstFailureEndsTheWalk()
    {
        const Drive source;
        const Drive drive = Drive::tmpfs(2 * mebibyte);
        for (const char *name : {"a", "b", "c", "d"})
            source.writeSparse(name, 3 * mebibyte / 2);
        const QString target = drive.path("target");
        const QString message = copyDirectory(source.path(), target);
        QCOMPARE(drive.names("target").size(), 1);
        const QString copied = target + u'/' + drive.names("target").first();
        QCOMPARE(m_result.touchedPaths, (QStringList{target, copied}));
        QVERIFY2(message.startsWith("Nao foi possivel gravar o arquivo: " + target),
                 qPrintable(message));
    }

    void aFileThatVanishesDuringTheWalkEndsIt()
    {
        const Drive source;
        const Drive drive;
        source.writeSparse("a", 3 * mebibyte);
        source.writeSparse("b", 3 * mebibyte);
        afterTheFirstChunk([&] {
            QFile::remove(source.path("a"));
            QFile::remove(source.path("b"));
        });
        const QString message = copyDirectory(source.path(), drive.path());
        const QString copied = drive.names().value(0);
        const QString vanished = copied == "a" ? "b" : "a";
        QCOMPARE(message, "Nao foi possivel copiar o arquivo: " + vanished);
        QCOMPARE(drive.names(), QStringList{copied});
    }

    void aDirectoryThatVanishesDuringTheWalkEndsIt()
    {
        const Drive source;
        const Drive drive;
        source.writeSparse("a/file", 3 * mebibyte);
        source.writeSparse("b/file", 3 * mebibyte);
        QString vanished;
        afterTheFirstChunk([&] {
            vanished = QFileInfo::exists(drive.path("new/a")) ? "b" : "a";
            QDir(source.path(vanished)).removeRecursively();
        });
        const QString message = copyDirectory(source.path(), drive.path("new"));
        QCOMPARE(message, "Pasta de origem nao encontrada: " + source.path(vanished));
        QVERIFY(!QFileInfo::exists(drive.path("new/" + vanished)));
    }

    void aTargetInsideTheSourceIsNotCopiedIntoItself()
    {
        const Drive drive;
        drive.write("manager", "1");
        drive.write("lib/library", "2");
        drive.makeDirectory("Tessarine/linux");
        QCOMPARE(copyDirectory(drive.path(), drive.path("Tessarine/linux")), done);
        QCOMPARE(drive.tree("Tessarine"),
                 (QStringList{"linux/", "linux/lib/", "linux/lib/library: 2", "linux/manager: 1"}));
    }

    void aTargetInsideTheSourceIsRecognisedThroughALinkToo()
    {
        const Drive drive;
        drive.write("manager", "1");
        drive.makeDirectory("Tessarine/linux");
        const Drive elsewhere;
        const QString link = elsewhere.link("link", drive.path("Tessarine"));
        QCOMPARE(copyDirectory(drive.path(), link + "/linux"), done);
        QCOMPARE(drive.tree("Tessarine"), (QStringList{"linux/", "linux/manager: 1"}));
    }

    void aLinkBackIntoItsOwnTreeIsPassedOver_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("target");
        QTest::newRow("to its own directory") << "lib/self"
                                              << ".";
        QTest::newRow("to the directory above") << "lib/up"
                                                << "..";
        QTest::newRow("to a directory further up") << "lib/deep/root"
                                                   << "../..";
    }

    void aLinkBackIntoItsOwnTreeIsPassedOver()
    {
        QFETCH(QString, name);
        QFETCH(QString, target);
        const Drive source;
        source.write("lib/deep/library", "1");
        source.link(name, target);
        const Drive drive;
        QCOMPARE(copyDirectory(source.path(), drive.path()), done);
        QCOMPARE(drive.tree(), (QStringList{"lib/", "lib/deep/", "lib/deep/library: 1"}));
    }

    void aDirectoryThatIsLinkedTwiceSideBySideIsCopiedTwice()
    {
        const Drive source;
        source.write("1/library", "1");
        source.link("2", "1");
        const Drive drive;
        QCOMPARE(copyDirectory(source.path(), drive.path()), done);
        QCOMPARE(drive.tree(), (QStringList{"1/", "1/library: 1", "2/", "2/library: 1"}));
    }
};

TESSARINE_MOUNTING_TEST_MAIN(QCoreApplication, DirectoryCopyTest)
#include "directory_copy_test.moc"
