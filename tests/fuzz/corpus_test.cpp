// Every file of the corpora, without a fuzzer: what once was found stays mended.

#include "tests/fuzz/Fuzz.h"

#include <QDir>
#include <QTest>

class CorpusTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyPropertyHoldsForTheCorpus_data()
    {
        QTest::addColumn<QString>("name");
        for (const auto &[name, target] : Fuzz::targets())
            QTest::newRow(name.c_str()) << QString::fromStdString(name);
    }
    void everyPropertyHoldsForTheCorpus()
    {
        QFETCH(QString, name);
        const QDir corpus(QStringLiteral(TESSARINE_FUZZ_DIR "/corpus/") + name);
        const QStringList files = corpus.entryList(QDir::Files);
        QVERIFY(files.size() >= 3);
        for (const QString &fileName : files) {
            QFile file(corpus.filePath(fileName));
            QVERIFY(file.open(QIODevice::ReadOnly));
            Fuzz::targets().at(name.toStdString())(file.readAll());
        }
    }

    void everyCorpusHasItsTarget()
    {
        QStringList names;
        for (const auto &[name, target] : Fuzz::targets())
            names << QString::fromStdString(name);
        const QDir corpora(QStringLiteral(TESSARINE_FUZZ_DIR "/corpus"));
        QCOMPARE(corpora.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name), names);
    }
};

QTEST_GUILESS_MAIN(CorpusTest)

#include "corpus_test.moc"
