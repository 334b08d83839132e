#include "core/CryptoManager.h"

#include <QSet>
#include <QTest>

#include <algorithm>
#include <array>
#include <climits>

using Tessarine::Core::CryptoManager;

namespace
{

using Generator = QByteArray (CryptoManager::*)(int) const;

const CryptoManager manager;

void addGenerators()
{
    QTest::addColumn<Generator>("generate");
    QTest::newRow("salt") << &CryptoManager::generateSalt;
    QTest::newRow("nonce") << &CryptoManager::generateNonce;
}

} // namespace

Q_DECLARE_METATYPE(Generator)

class RandomBytesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void lengthIsTheOneAskedFor_data() { addGenerators(); }
    void lengthIsTheOneAskedFor()
    {
        QFETCH(Generator, generate);
        for (const int length : {1, 15, 16, 24, 32, 4097, 1 << 20})
            QCOMPARE((manager.*generate)(length).size(), length);
    }

    void zeroOrNegativeLengthGivesAnEmptyArrayThatIsNotNull_data() { addGenerators(); }
    void zeroOrNegativeLengthGivesAnEmptyArrayThatIsNotNull()
    {
        QFETCH(Generator, generate);
        for (const int length : {0, -1, INT_MIN}) {
            QVERIFY((manager.*generate)(length).isEmpty());
            QVERIFY(!(manager.*generate)(length).isNull());
        }
    }

    // In 20 draws each place holds about 19 values; one that isn't filled holds what the memory
    // held before.
    void everyByteIsFilled_data() { addGenerators(); }
    void everyByteIsFilled()
    {
        QFETCH(Generator, generate);
        QList<QSet<char>> valuesAt(1000);
        for (int draw = 0; draw < 20; ++draw) {
            const QByteArray bytes = (manager.*generate)(1000);
            for (qsizetype place = 0; place < bytes.size(); ++place)
                valuesAt[place].insert(bytes.at(place));
        }
        for (const QSet<char> &values : valuesAt)
            QVERIFY(values.size() > 9);
    }

    // The least frequent of 256 values is expected 4096 times, give or take 64.
    void everyValueIsAboutAsFrequent_data() { addGenerators(); }
    void everyValueIsAboutAsFrequent()
    {
        QFETCH(Generator, generate);
        std::array<int, 256> frequencies{};
        for (const char byte : (manager.*generate)(1 << 20))
            ++frequencies.at(static_cast<unsigned char>(byte));
        const auto [least, most] = std::minmax_element(frequencies.begin(), frequencies.end());
        QVERIFY2(*least > 3500 && *most < 4700, qPrintable(QString::number(*least)));
    }
};

QTEST_GUILESS_MAIN(RandomBytesTest)

#include "random_bytes_test.moc"
