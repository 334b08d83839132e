#include "core/CryptoManager.h"
#include "tests/core/FlippedBit.h"
#include "tests/core/SeededRandom.h"
#include "tests/core/TestVectors.h"

#include <QTest>

#include <array>
#include <atomic>
#include <thread>

using Tessarine::Core::CryptoManager;
using namespace TestSupport;

namespace
{

const CryptoManager manager;
const QByteArray key(32, 'k');
const QByteArray nonce(24, 'n');
const QByteArray plaintext = "a short message";
const QByteArray associatedData = "its header";

} // namespace

class EncryptionTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void publishedVectors_data() { addVectorRows(QStringLiteral("xchacha20-poly1305.json")); }
    void publishedVectors()
    {
        QFETCH(QJsonObject, vector);
        const QByteArray sealed = bytesIn(vector, "ciphertext") + bytesIn(vector, "tag");
        QCOMPARE(manager.encrypt(bytesIn(vector, "plaintext"), bytesIn(vector, "key"),
                                 bytesIn(vector, "nonce"), bytesIn(vector, "associatedData")),
                 sealed);
        QCOMPARE(manager.decrypt(sealed, bytesIn(vector, "key"), bytesIn(vector, "nonce"),
                                 bytesIn(vector, "associatedData")),
                 bytesIn(vector, "plaintext"));
    }

    void whatWasEncryptedComesBack()
    {
        SeededRandom random;
        for (int round = 0; round < 40; ++round) {
            const QByteArray text = random.bytes(random.number(1 << 20));
            const QByteArray header = random.bytes(random.number(1 << 20));
            const QByteArray roundKey = random.bytes(32);
            const QByteArray roundNonce = random.bytes(24);
            const QByteArray sealed = manager.encrypt(text, roundKey, roundNonce, header);
            QVERIFY2(sealed.size() == text.size() + 16, random.seed());
            const QByteArray opened = manager.decrypt(sealed, roundKey, roundNonce, header);
            QVERIFY2(!opened.isNull() && opened == text, random.seed());
        }
    }

    void oneChangedByteOfALongMessageIsRefused()
    {
        SeededRandom random;
        for (int round = 0; round < 40; ++round) {
            const QByteArray text = random.bytes(random.number(1 << 20));
            const QByteArray header = random.bytes(1 + random.number(1 << 20));
            const QByteArray sealed = manager.encrypt(text, key, nonce, header);
            const QByteArray badSealed =
                flippedBit(sealed, random.number(int(sealed.size()) * 8 - 1));
            QVERIFY2(manager.decrypt(badSealed, key, nonce, header).isNull(), random.seed());
            const QByteArray badHeader =
                flippedBit(header, random.number(int(header.size()) * 8 - 1));
            QVERIFY2(manager.decrypt(sealed, key, nonce, badHeader).isNull(), random.seed());
        }
    }

    void anyFlippedBitOfMessageOrTagIsRefused()
    {
        const QByteArray sealed = manager.encrypt(plaintext, key, nonce, associatedData);
        for (qsizetype bit = 0; bit < sealed.size() * 8; ++bit)
            QVERIFY(manager.decrypt(flippedBit(sealed, bit), key, nonce, associatedData).isNull());
    }

    void anyFlippedBitOfTheAssociatedDataIsRefused()
    {
        const QByteArray sealed = manager.encrypt(plaintext, key, nonce, associatedData);
        for (qsizetype bit = 0; bit < associatedData.size() * 8; ++bit)
            QVERIFY(manager.decrypt(sealed, key, nonce, flippedBit(associatedData, bit)).isNull());
    }

    void anyFlippedBitOfKeyOrNonceIsRefused()
    {
        const QByteArray sealed = manager.encrypt(plaintext, key, nonce, associatedData);
        for (qsizetype bit = 0; bit < key.size() * 8; ++bit)
            QVERIFY(manager.decrypt(sealed, flippedBit(key, bit), nonce, associatedData).isNull());
        for (qsizetype bit = 0; bit < nonce.size() * 8; ++bit)
            QVERIFY(manager.decrypt(sealed, key, flippedBit(nonce, bit), associatedData).isNull());
    }

    void anyCutOrLengthenedMessageIsRefused()
    {
        const QByteArray sealed = manager.encrypt(plaintext, key, nonce, associatedData);
        for (qsizetype size = 0; size < sealed.size(); ++size)
            QVERIFY(manager.decrypt(sealed.left(size), key, nonce, associatedData).isNull());
        QVERIFY(manager.decrypt(sealed + '\0', key, nonce, associatedData).isNull());
    }

    void nonceAndAssociatedDataAreNotPartOfTheResult()
    {
        const QByteArray sealed = manager.encrypt(plaintext, key, nonce, associatedData);
        QCOMPARE(sealed.size(), plaintext.size() + 16);
        QVERIFY(!sealed.contains(nonce) && !sealed.contains(associatedData));
    }

    void anotherSizeOfKeyOrNonceGivesNull_data()
    {
        QTest::addColumn<int>("keySize");
        QTest::addColumn<int>("nonceSize");
        for (const int size : {0, 1, 16, 31, 33, 64})
            QTest::addRow("key of %d bytes", size) << size << 24;
        for (const int size : {0, 1, 8, 12, 23, 25, 32})
            QTest::addRow("nonce of %d bytes", size) << 32 << size;
        QTest::newRow("sizes exchanged") << 24 << 32;
    }
    void anotherSizeOfKeyOrNonceGivesNull()
    {
        QFETCH(int, keySize);
        QFETCH(int, nonceSize);
        const QByteArray oddKey(keySize, 'k');
        const QByteArray oddNonce(nonceSize, 'n');
        QVERIFY(manager.encrypt(plaintext, oddKey, oddNonce, associatedData).isNull());
        const QByteArray sealed = manager.encrypt(plaintext, key, nonce, associatedData);
        QVERIFY(manager.decrypt(sealed, oddKey, oddNonce, associatedData).isNull());
    }

    void nullKeyOrNonceGivesNull()
    {
        QVERIFY(manager.encrypt(plaintext, QByteArray(), nonce, associatedData).isNull());
        QVERIFY(manager.encrypt(plaintext, key, QByteArray(), associatedData).isNull());
        const QByteArray sealed = manager.encrypt(plaintext, key, nonce, associatedData);
        QVERIFY(manager.decrypt(sealed, QByteArray(), nonce, associatedData).isNull());
        QVERIFY(manager.decrypt(sealed, key, QByteArray(), associatedData).isNull());
    }

    void emptyPlaintextBecomesTheTagAlone_data()
    {
        QTest::addColumn<QByteArray>("nothing");
        QTest::newRow("null") << QByteArray();
        QTest::newRow("empty") << QByteArray("");
    }
    void emptyPlaintextBecomesTheTagAlone()
    {
        QFETCH(QByteArray, nothing);
        const QByteArray tag = manager.encrypt(nothing, key, nonce, associatedData);
        QCOMPARE(tag.size(), 16);
        const QByteArray opened = manager.decrypt(tag, key, nonce, associatedData);
        QVERIFY(opened.isEmpty());
        QVERIFY(!opened.isNull());
    }

    void sixteenBytesThatAreNoTagGiveNull()
    {
        QVERIFY(manager.decrypt(QByteArray(16, 'x'), key, nonce, associatedData).isNull());
    }

    void fewerBytesThanATagGiveNull()
    {
        QVERIFY(manager.decrypt(QByteArray(15, 'x'), key, nonce, associatedData).isNull());
        QVERIFY(manager.decrypt(QByteArray(""), key, nonce, associatedData).isNull());
        QVERIFY(manager.decrypt(QByteArray(), key, nonce, associatedData).isNull());
    }

    void nullAndEmptyAssociatedDataAreTheSame()
    {
        const QByteArray sealed = manager.encrypt(plaintext, key, nonce, QByteArray());
        QCOMPARE(manager.encrypt(plaintext, key, nonce, QByteArray("")), sealed);
        QCOMPARE(manager.decrypt(sealed, key, nonce, QByteArray("")), plaintext);
        QVERIFY(manager.decrypt(sealed, key, nonce, QByteArray(1, '\0')).isNull());
    }

    void argumentsAreLeftAsTheyAre()
    {
        const QByteArray text = plaintext;
        const QByteArray sealed = manager.encrypt(text, key, nonce, associatedData);
        const QByteArray sealedBefore(sealed.constData(), sealed.size());
        QVERIFY(!manager.decrypt(sealed, key, nonce, associatedData).isNull());
        QCOMPARE(text, QByteArray("a short message"));
        QCOMPARE(sealed, sealedBefore);
        QCOMPARE(key, QByteArray(32, 'k'));
        QCOMPARE(nonce, QByteArray(24, 'n'));
    }

    void threadsShareAnInstance()
    {
        std::atomic<int> good = 0;
        const auto work = [&good](char letter) {
            const QByteArray text(1000, letter);
            for (int round = 0; round < 200; ++round) {
                const QByteArray threadNonce = manager.generateNonce(24);
                const QByteArray sealed = manager.encrypt(text, key, threadNonce, {});
                good += manager.decrypt(sealed, key, threadNonce, {}) == text;
            }
        };
        std::array threads = {std::thread(work, 'a'), std::thread(work, 'b'),
                              std::thread(work, 'c'), std::thread(work, 'd')};
        for (std::thread &thread : threads)
            thread.join();
        QCOMPARE(good.load(), 800);
    }
};

QTEST_GUILESS_MAIN(EncryptionTest)

#include "encryption_test.moc"
