#include "core/CryptoManager.h"
#include "tests/core/FlippedBit.h"
#include "tests/core/Reference.h"
#include "tests/core/SeededRandom.h"
#include "tests/core/TestVectors.h"

#include <QCryptographicHash>
#include <QTest>

using Tessarine::Core::CryptoManager;
using namespace TestSupport;

namespace
{

// A key of 32 bytes that HMAC-SHA-256 can't tell from the given one (RFC 2104, section 2): keys
// above 64 bytes are hashed, keys below 64 bytes are filled up with zeros.
QByteArray equivalentKeyOf32Bytes(const QByteArray &key)
{
    if (key.size() > 64)
        return QCryptographicHash::hash(key, QCryptographicHash::Sha256);
    return key.leftJustified(32, '\0');
}

QByteArray codeByOpenssl(const QByteArray &message, const QByteArray &key)
{
    return outputOf(QStringLiteral("openssl"),
                    {QStringLiteral("dgst"), QStringLiteral("-sha256"), QStringLiteral("-binary"),
                     QStringLiteral("-mac"), QStringLiteral("HMAC"), QStringLiteral("-macopt"),
                     QStringLiteral("hexkey:") + hex(key)},
                    message);
}

QByteArray codeByPython(const QByteArray &message, const QByteArray &key)
{
    return outputOfPython(QStringLiteral("out(hmac.new(bytes.fromhex(argv[1]), "
                                         "stdin.buffer.read(), hashlib.sha256).digest())"),
                          {hex(key)}, message);
}

const CryptoManager manager;

} // namespace

class MessageCodeTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void publishedVectors_data() { addVectorRows(QStringLiteral("hmac-sha-256.json")); }
    void publishedVectors()
    {
        QFETCH(QJsonObject, vector);
        const QByteArray expected = bytesIn(vector, "code");
        const QByteArray code = manager.hmacSha256(bytesIn(vector, "message"),
                                                   equivalentKeyOf32Bytes(bytesIn(vector, "key")));
        QCOMPARE(code.size(), 32);
        QCOMPARE(code.left(expected.size()), expected);
    }

    void publishedKeysCountWithTheirFirst32BytesOnly_data()
    {
        addVectorRows(QStringLiteral("hmac-sha-256.json"));
    }
    void publishedKeysCountWithTheirFirst32BytesOnly()
    {
        QFETCH(QJsonObject, vector);
        const QByteArray message = bytesIn(vector, "message");
        const QByteArray key = bytesIn(vector, "key");
        const QByteArray code = manager.hmacSha256(message, key);
        if (key.size() < 32) {
            QVERIFY(code.isNull());
            return;
        }
        QCOMPARE(code, codeByOpenssl(message, key.left(32)));
        QVERIFY(code != bytesIn(vector, "code"));
    }

    void codesAgreeWithOpensslAndPython()
    {
        SeededRandom random;
        for (int round = 0; round < 12; ++round) {
            const QByteArray message = random.bytes(random.number(1 << 20));
            const QByteArray key = random.bytes(32);
            const QByteArray code = manager.hmacSha256(message, key);
            QVERIFY2(code == codeByOpenssl(message, key), random.seed());
            QVERIFY2(code == codeByPython(message, key), random.seed());
        }
    }

    void keysThatAgreeInTheirFirst32BytesGiveTheSameCode()
    {
        const QByteArray key(32, 'k');
        const QByteArray code = manager.hmacSha256("message", key);
        QCOMPARE(manager.hmacSha256("message", key + 'x'), code);
        QCOMPARE(manager.hmacSha256("message", key + QByteArray(100, 'y')), code);
        QVERIFY(manager.hmacSha256("message", QByteArray(31, 'k') + 'x') != code);
    }

    void anyFlippedBitOfMessageOrKeyChangesTheCode()
    {
        const QByteArray message = "a short message";
        const QByteArray key(32, 'k');
        const QByteArray code = manager.hmacSha256(message, key);
        for (qsizetype bit = 0; bit < message.size() * 8; ++bit)
            QVERIFY(manager.hmacSha256(flippedBit(message, bit), key) != code);
        for (qsizetype bit = 0; bit < key.size() * 8; ++bit)
            QVERIFY(manager.hmacSha256(message, flippedBit(key, bit)) != code);
    }

    void keyBelow32BytesGivesNull()
    {
        QVERIFY(manager.hmacSha256("message", QByteArray(31, 'k')).isNull());
        QVERIFY(manager.hmacSha256("message", QByteArray("k")).isNull());
        QVERIFY(manager.hmacSha256("message", QByteArray("")).isNull());
        QVERIFY(manager.hmacSha256("message", QByteArray()).isNull());
    }

    void nullAndEmptyMessageHaveTheSameCode()
    {
        const QByteArray key(32, 'k');
        const QByteArray code = manager.hmacSha256(QByteArray(), key);
        QCOMPARE(code, codeByOpenssl(QByteArray(), key));
        QCOMPARE(manager.hmacSha256(QByteArray(""), key), code);
    }
};

QTEST_GUILESS_MAIN(MessageCodeTest)

#include "message_code_test.moc"
