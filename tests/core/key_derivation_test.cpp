#include "core/CryptoManager.h"
#include "tests/core/Reference.h"
#include "tests/core/SeededRandom.h"
#include "tests/core/TestVectors.h"

#include <QFile>
#include <QTest>

#include <sys/resource.h>
#include <unistd.h>

#include <climits>
#include <optional>

using Tessarine::Core::CryptoManager;
using Tessarine::Core::KeyDerivationParams;
using namespace TestSupport;

namespace
{

const QString argon2id = QStringLiteral("Argon2id");
const QString pbkdf2 = QStringLiteral("PBKDF2");
const QByteArray sixteenBytes = "0123456789abcdef";

QByteArray pbkdf2ByOpenssl(const QByteArray &password, const KeyDerivationParams &params)
{
    return outputOf(QStringLiteral("openssl"),
                    {QStringLiteral("kdf"), QStringLiteral("-binary"), QStringLiteral("-keylen"),
                     QString::number(params.keyLength), QStringLiteral("-kdfopt"),
                     QStringLiteral("digest:SHA256"), QStringLiteral("-kdfopt"),
                     QStringLiteral("hexpass:") + hex(password), QStringLiteral("-kdfopt"),
                     QStringLiteral("hexsalt:") + hex(params.salt), QStringLiteral("-kdfopt"),
                     QStringLiteral("iter:") + QString::number(params.iterations),
                     QStringLiteral("PBKDF2")});
}

QByteArray pbkdf2ByPython(const QByteArray &password, const KeyDerivationParams &params)
{
    return outputOfPython(
        QStringLiteral("out(hashlib.pbkdf2_hmac('sha256', bytes.fromhex(argv[1]), "
                       "bytes.fromhex(argv[2]), int(argv[3]), int(argv[4])))"),
        {hex(password), hex(params.salt), QString::number(params.iterations),
         QString::number(params.keyLength)});
}

QByteArray argon2idByArgon2(const QByteArray &password, const KeyDerivationParams &params)
{
    const QString options = QStringLiteral("-id -v 13 -t 3 -m 18 -p 1 -r -l");
    const QByteArray digits =
        outputOf(QStringLiteral("argon2"),
                 QStringList{QString::fromLatin1(params.salt)} + options.split(QLatin1Char(' '))
                     + QStringList{QString::number(params.keyLength)},
                 password);
    return QByteArray::fromHex(digits.trimmed());
}

// Bytes of address space that the process has mapped; none when that can't be told.
std::optional<rlim_t> mappedBytes()
{
    QFile statm(QStringLiteral("/proc/self/statm"));
    if (!statm.open(QIODevice::ReadOnly))
        return std::nullopt;
    const rlim_t pages = statm.readLine().split(' ').first().toULongLong();
    return pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

// Lets the process map `bytes` more of address space, for as long as this stands.
class AddressSpaceLimit
{
public:
    explicit AddressSpaceLimit(rlim_t bytes)
    {
        getrlimit(RLIMIT_AS, &before);
        const std::optional<rlim_t> mapped = mappedBytes();
        const rlimit limit = {mapped.value_or(0) + bytes, before.rlim_max};
        if (!mapped || setrlimit(RLIMIT_AS, &limit) != 0)
            reportMissing(QStringLiteral("A limit of the address space"));
    }
    ~AddressSpaceLimit() { setrlimit(RLIMIT_AS, &before); }
    Q_DISABLE_COPY_MOVE(AddressSpaceLimit)

private:
    rlimit before{};
};

const CryptoManager manager;

} // namespace

class KeyDerivationTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fieldsStandInTheirOrder()
    {
        const auto [algorithm, salt, iterations, keyLength] =
            KeyDerivationParams{pbkdf2, "salt", 7, 42};
        QCOMPARE(algorithm, pbkdf2);
        QCOMPARE(salt, QByteArray("salt"));
        QCOMPARE(iterations, 7);
        QCOMPARE(keyLength, 42);
    }

    void recordThatIsNotFilledInGivesNoKey()
    {
        QVERIFY(manager.deriveKey("password", KeyDerivationParams()).isNull());
    }

    void emptyPasswordOrSaltOrNoLengthGivesNull_data()
    {
        QTest::addColumn<QByteArray>("password");
        QTest::addColumn<QByteArray>("salt");
        QTest::addColumn<int>("keyLength");
        QTest::newRow("null password") << QByteArray() << sixteenBytes << 32;
        QTest::newRow("empty password") << QByteArray("") << sixteenBytes << 32;
        QTest::newRow("null salt") << QByteArray("p") << QByteArray() << 32;
        QTest::newRow("empty salt") << QByteArray("p") << QByteArray("") << 32;
        QTest::newRow("length 0") << QByteArray("p") << sixteenBytes << 0;
        QTest::newRow("negative length") << QByteArray("p") << sixteenBytes << -1;
        QTest::newRow("most negative length") << QByteArray("p") << sixteenBytes << INT_MIN;
    }
    void emptyPasswordOrSaltOrNoLengthGivesNull()
    {
        QFETCH(QByteArray, password);
        QFETCH(QByteArray, salt);
        QFETCH(int, keyLength);
        QVERIFY(manager.deriveKey(password, {argon2id, salt, 1, keyLength}).isNull());
        QVERIFY(manager.deriveKey(password, {pbkdf2, salt, 1, keyLength}).isNull());
    }

    void publishedPbkdf2Vectors_data()
    {
        addVectorRows(QStringLiteral("pbkdf2-hmac-sha-256.json"));
    }
    void publishedPbkdf2Vectors()
    {
        QFETCH(QJsonObject, vector);
        const QByteArray key = bytesIn(vector, "key");
        const int iterations = vector.value(QStringLiteral("iterations")).toInt();
        QCOMPARE(manager.deriveKey(bytesIn(vector, "password"),
                                   {pbkdf2, bytesIn(vector, "salt"), iterations, int(key.size())}),
                 key);
    }

    void pbkdf2AgreesWithOpensslAndPython()
    {
        SeededRandom random;
        for (int round = 0; round < 12; ++round) {
            const QByteArray password = random.bytes(1 + random.number(200));
            const KeyDerivationParams params = {pbkdf2, random.bytes(1 + random.number(200)),
                                                1 + random.number(50), 1 + random.number(200)};
            const QByteArray key = manager.deriveKey(password, params);
            QVERIFY2(key == pbkdf2ByOpenssl(password, params), random.seed());
            QVERIFY2(key == pbkdf2ByPython(password, params), random.seed());
        }
    }

    void pbkdf2CutsItsLastBlock_data()
    {
        QTest::addColumn<int>("keyLength");
        for (const int keyLength : {1, 31, 32, 33, 63, 64, 65})
            QTest::addRow("%d bytes", keyLength) << keyLength;
    }
    void pbkdf2CutsItsLastBlock()
    {
        QFETCH(int, keyLength);
        const KeyDerivationParams params = {pbkdf2, "salt", 2, keyLength};
        const QByteArray key = manager.deriveKey("password", params);
        QCOMPARE(key.size(), keyLength);
        QCOMPARE(key, pbkdf2ByPython("password", params));
    }

    // From block 256 and block 65536 on, the block number takes a second and a third byte.
    void pbkdf2NumbersItsBlocksWithTheMostSignificantByteFirst()
    {
        const KeyDerivationParams params = {pbkdf2, "salt", 1, 65537 * 32 + 1};
        QCOMPARE(manager.deriveKey("password", params), pbkdf2ByPython("password", params));
    }

    void pbkdf2TakesAllOfTheSalt()
    {
        const QByteArray longer = sixteenBytes + 'x';
        const QByteArray key = manager.deriveKey("password", {pbkdf2, longer, 1, 32});
        QVERIFY(key != manager.deriveKey("password", {pbkdf2, sixteenBytes, 1, 32}));
        const KeyDerivationParams withZeros = {pbkdf2, QByteArray("\0s\0", 3), 3, 32};
        QCOMPARE(manager.deriveKey("password", withZeros), pbkdf2ByOpenssl("password", withZeros));
    }

    void everyOtherNameSelectsPbkdf2_data()
    {
        QTest::addColumn<QString>("algorithm");
        QTest::newRow("null") << QString();
        QTest::newRow("empty") << QStringLiteral("");
        QTest::newRow("lower case") << QStringLiteral("argon2id");
        QTest::newRow("capitals") << QStringLiteral("ARGON2ID");
        QTest::newRow("blank behind") << QStringLiteral("Argon2id ");
        QTest::newRow("blank in front") << QStringLiteral(" Argon2id");
        QTest::newRow("relative") << QStringLiteral("Argon2i");
        QTest::newRow("zero behind") << argon2id + QChar(0);
        QTest::newRow("unknown") << QStringLiteral("novembro");
    }
    void everyOtherNameSelectsPbkdf2()
    {
        QFETCH(QString, algorithm);
        QCOMPARE(manager.deriveKey("password", {algorithm, sixteenBytes, 2, 32}),
                 manager.deriveKey("password", {pbkdf2, sixteenBytes, 2, 32}));
        QVERIFY(manager.deriveKey("password", {algorithm, sixteenBytes, 0, 32}).isNull());
        QVERIFY(manager.deriveKey("password", {algorithm, sixteenBytes, -1, 32}).isNull());
    }

    // They also show that the number of iterations, 0 or negative, isn't looked at.
    void argon2idVectors_data()
    {
        QTest::addColumn<QJsonObject>("vector");
        QTest::addColumn<int>("iterations");
        int iterations = 0;
        for (const QJsonObject &vector : testVectors(QStringLiteral("argon2id.json")))
            QTest::newRow(textIn(vector, "name")) << vector << iterations--;
    }
    void argon2idVectors()
    {
        QFETCH(QJsonObject, vector);
        QFETCH(int, iterations);
        const QByteArray key = bytesIn(vector, "key");
        QCOMPARE(manager.deriveKey(textIn(vector, "password"),
                                   {argon2id, textIn(vector, "salt"), iterations, int(key.size())}),
                 key);
    }

    void argon2idAgreesWithTheArgon2Program()
    {
        SeededRandom random;
        const QByteArray password = random.bytes(1 + random.number(100));
        const KeyDerivationParams params = {argon2id, random.bytes(8).toHex(), 1,
                                            16 + random.number(100)};
        QVERIFY2(manager.deriveKey(password, params) == argon2idByArgon2(password, params),
                 random.seed());
    }

    void argon2idReadsTheFirst16BytesOfTheSalt()
    {
        const KeyDerivationParams exact = {argon2id, sixteenBytes, 1, 16};
        const KeyDerivationParams longer = {argon2id, sixteenBytes + "more", 1, 16};
        QCOMPARE(manager.deriveKey("password", longer), manager.deriveKey("password", exact));
    }

    void argon2idRefusesAKeyBelow16Bytes()
    {
        QVERIFY(manager.deriveKey("password", {argon2id, sixteenBytes, 1, 15}).isNull());
        QVERIFY(manager.deriveKey("password", {argon2id, sixteenBytes, 1, 1}).isNull());
    }

    void argon2idWithoutMemoryGivesNull()
    {
        QByteArray key;
        {
            const AddressSpaceLimit halfOfWhatItNeeds(128 << 20);
            key = manager.deriveKey("password", {argon2id, sixteenBytes, 1, 32});
        }
        QVERIFY(key.isNull());
    }
};

QTEST_GUILESS_MAIN(KeyDerivationTest)

#include "key_derivation_test.moc"
