#include "core/CryptoManager.h"
#include "tests/core/FlippedBit.h"
#include "tests/core/SeededRandom.h"

#include <QTest>

using Tessarine::Core::CryptoManager;
using namespace TestSupport;

namespace
{

const CryptoManager manager;

} // namespace

class ComparisonTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void arraysWithoutBytesAreEqual()
    {
        QVERIFY(manager.constantTimeEquals(QByteArray(), QByteArray()));
        QVERIFY(manager.constantTimeEquals(QByteArray(""), QByteArray("")));
        QVERIFY(manager.constantTimeEquals(QByteArray(), QByteArray("")));
    }

    void differentSizesAreDifferent()
    {
        QVERIFY(!manager.constantTimeEquals("same", "same "));
        QVERIFY(!manager.constantTimeEquals("same ", "same"));
        QVERIFY(!manager.constantTimeEquals(QByteArray(), "x"));
        QVERIFY(!manager.constantTimeEquals(QByteArray(1, '\0'), QByteArray()));
    }

    void equalBytesAreEqual()
    {
        SeededRandom random;
        for (int round = 0; round < 20; ++round) {
            const QByteArray bytes = random.bytes(random.number(1 << 20));
            const QByteArray copy(bytes.constData(), bytes.size());
            QVERIFY2(manager.constantTimeEquals(bytes, copy), random.seed());
        }
        const QByteArray bytes = "itself";
        QVERIFY(manager.constantTimeEquals(bytes, bytes));
    }

    // 67 bytes: whole vectors of every width, and a rest.
    void anyFlippedBitMakesADifference()
    {
        const QByteArray bytes(67, 'x');
        for (qsizetype bit = 0; bit < bytes.size() * 8; ++bit) {
            QVERIFY(!manager.constantTimeEquals(bytes, flippedBit(bytes, bit)));
            QVERIFY(!manager.constantTimeEquals(flippedBit(bytes, bit), bytes));
        }
    }

    void differencesDoNotCancelEachOther()
    {
        QVERIFY(!manager.constantTimeEquals("ab", "ba"));
        QVERIFY(!manager.constantTimeEquals(QByteArray(256, '\0'), QByteArray(256, '\1')));
    }

    void differenceInOneByteOfALongArrayIsSeen()
    {
        SeededRandom random;
        for (int round = 0; round < 20; ++round) {
            const QByteArray bytes = random.bytes(1 + random.number(1 << 20));
            QByteArray changed = bytes;
            const int place = random.number(int(bytes.size()) - 1);
            changed[place] = static_cast<char>(changed.at(place) + 1 + random.number(254));
            QVERIFY2(!manager.constantTimeEquals(bytes, changed), random.seed());
        }
    }

    void bytesBehindTheEndDoNotCount()
    {
        QVERIFY(manager.constantTimeEquals(QByteArray::fromRawData("abcX", 3),
                                           QByteArray::fromRawData("abcY", 3)));
    }

    void bytesBehindAZeroByteCount()
    {
        QVERIFY(!manager.constantTimeEquals(QByteArray("a\0b", 3), QByteArray("a\0c", 3)));
    }
};

QTEST_GUILESS_MAIN(ComparisonTest)

#include "comparison_test.moc"
