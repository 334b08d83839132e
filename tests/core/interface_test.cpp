#include "core/CryptoManager.h"

#include <QTest>

#include <sodium.h>

#include <type_traits>

using Tessarine::Core::CryptoManager;
using Tessarine::Core::KeyDerivationParams;

// A libsodium that fails: these stand before the library's own. Each notes how it was called.
namespace
{

struct Calls {
    int initialisations = 0;
    int encryptions = 0;
    int decryptions = 0;
    int codes = 0;
    int derivations = 0;
    unsigned long long keyLength = 0;
    unsigned long long operations = 0;
    size_t memory = 0;
    int algorithm = 0;
};
Calls calls;

} // namespace

int sodium_init()
{
    ++calls.initialisations;
    return -1;
}

int crypto_aead_xchacha20poly1305_ietf_encrypt(unsigned char *, unsigned long long *,
                                               const unsigned char *, unsigned long long,
                                               const unsigned char *, unsigned long long,
                                               const unsigned char *, const unsigned char *,
                                               const unsigned char *)
{
    ++calls.encryptions;
    return -1;
}

int crypto_aead_xchacha20poly1305_ietf_decrypt(unsigned char *, unsigned long long *,
                                               unsigned char *, const unsigned char *,
                                               unsigned long long, const unsigned char *,
                                               unsigned long long, const unsigned char *,
                                               const unsigned char *)
{
    ++calls.decryptions;
    return -1;
}

int crypto_auth_hmacsha256(unsigned char *out, const unsigned char *, unsigned long long,
                           const unsigned char *)
{
    ++calls.codes;
    memset(out, 'c', crypto_auth_hmacsha256_BYTES);
    return -1;
}

int crypto_pwhash(unsigned char *const, unsigned long long keyLength, const char *const,
                  unsigned long long, const unsigned char *const, unsigned long long operations,
                  size_t memory, int algorithm)
{
    ++calls.derivations;
    calls.keyLength = keyLength;
    calls.operations = operations;
    calls.memory = memory;
    calls.algorithm = algorithm;
    return -1;
}

class InterfaceTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { calls = {}; }

    void managerHasNoStateAndNothingVirtual()
    {
        static_assert(std::is_empty_v<CryptoManager>);
        static_assert(!std::is_polymorphic_v<CryptoManager>);
        static_assert(std::is_aggregate_v<KeyDerivationParams>);
    }

    void operationsAreConstAndTakeTheirArgumentsByConstReference()
    {
        using Array = const QByteArray &;
        using Sizes = QByteArray (CryptoManager::*)(int) const;
        using Cipher = QByteArray (CryptoManager::*)(Array, Array, Array, Array) const;
        using Code = QByteArray (CryptoManager::*)(Array, Array) const;
        using Derivation = QByteArray (CryptoManager::*)(Array, const KeyDerivationParams &) const;
        using Comparison = bool (CryptoManager::*)(Array, Array) const;
        static_assert(std::is_same_v<decltype(&CryptoManager::generateSalt), Sizes>);
        static_assert(std::is_same_v<decltype(&CryptoManager::generateNonce), Sizes>);
        static_assert(std::is_same_v<decltype(&CryptoManager::encrypt), Cipher>);
        static_assert(std::is_same_v<decltype(&CryptoManager::decrypt), Cipher>);
        static_assert(std::is_same_v<decltype(&CryptoManager::hmacSha256), Code>);
        static_assert(std::is_same_v<decltype(&CryptoManager::deriveKey), Derivation>);
        static_assert(std::is_same_v<decltype(&CryptoManager::constantTimeEquals), Comparison>);
    }

    void eachInstanceInitialisesLibsodiumOnceAndIgnoresAFailure()
    {
        const CryptoManager first;
        QCOMPARE(calls.initialisations, 1);
        const CryptoManager second;
        QCOMPARE(calls.initialisations, 2);
        QCOMPARE(first.generateSalt(16).size(), 16);
        QCOMPARE(second.generateNonce(24).size(), 24);
        QCOMPARE(calls.initialisations, 2);
    }

    void refusedEncryptionGivesNull()
    {
        const QByteArray key(32, 'k');
        QVERIFY(CryptoManager().encrypt("text", key, QByteArray(24, 'n'), {}).isNull());
        QCOMPARE(calls.encryptions, 1);
    }

    void wrongSizesDoNotReachLibsodium()
    {
        const CryptoManager manager;
        const QByteArray key(32, 'k');
        const QByteArray nonce(24, 'n');
        const QByteArray shortKey(31, 'k');
        const QByteArray shortNonce(23, 'n');
        const QByteArray tag(16, 't');
        QVERIFY(manager.encrypt("text", shortKey, nonce, {}).isNull());
        QVERIFY(manager.encrypt("text", key, shortNonce, {}).isNull());
        QVERIFY(manager.decrypt(tag, shortKey, nonce, {}).isNull());
        QVERIFY(manager.decrypt(tag, key, shortNonce, {}).isNull());
        QVERIFY(manager.decrypt(tag.left(15), key, nonce, {}).isNull());
        QVERIFY(manager.hmacSha256("text", shortKey).isNull());
        QCOMPARE(calls.encryptions + calls.decryptions + calls.codes, 0);
    }

    void resultOfTheMessageCodeIsNotTested()
    {
        QCOMPARE(CryptoManager().hmacSha256("text", QByteArray(32, 'k')), QByteArray(32, 'c'));
        QCOMPARE(calls.codes, 1);
    }

    void argon2idPassesItsFixedLimitsAndARefusalGivesNull()
    {
        const KeyDerivationParams params = {QStringLiteral("Argon2id"), QByteArray(16, 's'), 9, 40};
        QVERIFY(CryptoManager().deriveKey("password", params).isNull());
        QCOMPARE(calls.derivations, 1);
        QCOMPARE(calls.keyLength, 40ULL);
        QCOMPARE(calls.operations, 3ULL);
        QCOMPARE(calls.memory, size_t(268435456));
        QCOMPARE(calls.algorithm, 2);
    }

    void wrongParametersDoNotReachLibsodium()
    {
        const QString argon2id = QStringLiteral("Argon2id");
        const CryptoManager manager;
        QVERIFY(manager.deriveKey("", {argon2id, QByteArray(16, 's'), 1, 32}).isNull());
        QVERIFY(manager.deriveKey("password", {argon2id, "", 1, 32}).isNull());
        QVERIFY(manager.deriveKey("password", {argon2id, QByteArray(16, 's'), 1, 0}).isNull());
        QCOMPARE(calls.derivations, 0);
    }

    void pbkdf2DoesNotCallLibsodium()
    {
        const KeyDerivationParams params = {QStringLiteral("argon2id"), QByteArray(16, 's'), 1, 40};
        QCOMPARE(CryptoManager().deriveKey("password", params).size(), 40);
        QCOMPARE(calls.derivations + calls.codes, 0);
    }
};

QTEST_GUILESS_MAIN(InterfaceTest)

#include "interface_test.moc"
