#include "tests/deployment/OperationSituation.h"
#include "tests/support/TestMain.h"

#include <QCoreApplication>

#include <sys/stat.h>

// Texts that the preparation itself writes.
class TextFileTest : public OperationSituation
{
    Q_OBJECT

    QString write(const QString &path, const QString &text)
    {
        return outcome(m_manager.writeTextFile(path, text, &m_result));
    }

private Q_SLOTS:
    void init() { begin(); }
    void cleanup() { end(); }

    void aTextIsWrittenAsItIs_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("line ends of both kinds, none added")
            << "a\nb\r\nc" << QByteArray("a\nb\r\nc");
        QTest::newRow("UTF-8 without a mark")
            << QStringLiteral("ação €") << QByteArray("a\xc3\xa7\xc3\xa3o \xe2\x82\xac");
        QTest::newRow("percent signs") << "%~dp0 %1 %2" << QByteArray("%~dp0 %1 %2");
        QTest::newRow("empty") << "" << QByteArray("");
        QTest::newRow("longer than every buffer")
            << QString(100'000, u'x') << QByteArray(100'000, 'x');
    }

    void aTextIsWrittenAsItIs()
    {
        QFETCH(QString, text);
        QFETCH(QByteArray, bytes);
        const Drive drive;
        QCOMPARE(write(drive.path("text"), text), done);
        QCOMPARE(drive.read("text"), bytes);
        QCOMPARE(drive.names(), QStringList{"text"});
        QCOMPARE(m_result.touchedPaths, QStringList{drive.path("text")});
    }

    void aTextReplacesAFileOfTheSameSize()
    {
        const Drive drive;
        drive.write("text", "old!");
        QCOMPARE(write(drive.path("text"), "new!"), done);
        QCOMPARE(drive.tree(), QStringList{"text: new!"});
    }

    void aNewTextFileHasTheProcesssPermissions()
    {
        const Drive drive;
        const mode_t before = umask(027);
        const bool written = m_manager.writeTextFile(drive.path("text"), "text", &m_result);
        umask(before);
        QVERIFY(written);
        QCOMPARE(QFile::permissions(drive.path("text")), QFile::ReadOwner | QFile::WriteOwner
                                                             | QFile::ReadUser | QFile::WriteUser
                                                             | QFile::ReadGroup);
    }

    void aTextThatCannotBeCreatedIsNamed()
    {
        const Drive drive;
        drive.makeDirectory("text%1");
        QCOMPARE(write(drive.path("text%1"), "new"),
                 "Nao foi possivel criar o arquivo: " + drive.path("text%1"));
        QCOMPARE(m_result.touchedPaths, QStringList());
        QCOMPARE(drive.tree(), QStringList{"text%1/"});
    }

    void aFullDriveKeepsTheOldText_data()
    {
        QTest::addColumn<qint64>("room");
        QTest::addColumn<int>("size");
        QTest::newRow("less than a buffer, no room") << qint64(0) << 100;
        QTest::newRow("less than a buffer, too little room") << qint64(4096) << 9000;
        QTest::newRow("more than a buffer") << qint64(4096) << 100'000;
        QTest::newRow("more than a buffer, all but the last page") << qint64(40'960) << 40'961;
    }

    void aFullDriveKeepsTheOldText()
    {
        QFETCH(qint64, room);
        QFETCH(int, size);
        const Drive drive = Drive::tmpfs(mebibyte);
        drive.write("text%1", "kept");
        drive.fill(room);
        const QStringList before = drive.tree();
        QCOMPARE(write(drive.path("text%1"), QString(size, u'n')),
                 "Nao foi possivel salvar o arquivo: " + drive.path("text%1"));
        QCOMPARE(m_result.touchedPaths, QStringList());
        QCOMPARE(drive.tree(), before);
    }
};

TESSARINE_MOUNTING_TEST_MAIN(QCoreApplication, TextFileTest)
#include "text_file_test.moc"
