#include "core/CryptoManager.h"

#include <QCryptographicHash>
#include <QMessageAuthenticationCode>
#include <QtEndian>

#include <sodium.h>

namespace Tessarine::Core
{

namespace
{

constexpr qsizetype keySize = crypto_aead_xchacha20poly1305_ietf_KEYBYTES;
constexpr qsizetype nonceSize = crypto_aead_xchacha20poly1305_ietf_NPUBBYTES;
constexpr qsizetype tagSize = crypto_aead_xchacha20poly1305_ietf_ABYTES;

// libsodium's "moderate" limits as numbers: if a later libsodium chose others, keys derived from
// the same password would change.
constexpr unsigned long long argon2idOperations = 3;
constexpr size_t argon2idMemory = 268435456;

const unsigned char *bytesOf(const QByteArray &array)
{
    return reinterpret_cast<const unsigned char *>(array.constData());
}

unsigned char *writableBytesOf(QByteArray *array)
{
    return reinterpret_cast<unsigned char *>(array->data());
}

unsigned long long sizeOf(const QByteArray &array)
{
    return static_cast<unsigned long long>(array.size());
}

} // namespace

CryptoManager::CryptoManager()
{
    [[maybe_unused]] const int outcome = sodium_init();
}

QByteArray CryptoManager::generateSalt(int length) const
{
    QByteArray salt;
    salt.resize(length);
    randombytes_buf(salt.data(), static_cast<size_t>(salt.size()));
    return salt;
}

QByteArray CryptoManager::generateNonce(int length) const
{
    return generateSalt(length);
}

QByteArray CryptoManager::encrypt(const QByteArray &plaintext, const QByteArray &key,
                                  const QByteArray &nonce, const QByteArray &associatedData) const
{
    if (key.size() != keySize || nonce.size() != nonceSize)
        return {};

    QByteArray ciphertext(plaintext.size() + tagSize, Qt::Uninitialized);
    unsigned long long length = 0;
    if (crypto_aead_xchacha20poly1305_ietf_encrypt(
            writableBytesOf(&ciphertext), &length, bytesOf(plaintext), sizeOf(plaintext),
            bytesOf(associatedData), sizeOf(associatedData), nullptr, bytesOf(nonce), bytesOf(key))
        != 0)
        return {};
    ciphertext.resize(static_cast<qsizetype>(length));
    return ciphertext;
}

QByteArray CryptoManager::decrypt(const QByteArray &ciphertext, const QByteArray &key,
                                  const QByteArray &nonce, const QByteArray &associatedData) const
{
    if (key.size() != keySize || nonce.size() != nonceSize || ciphertext.size() < tagSize)
        return {};

    QByteArray plaintext(ciphertext.size() - tagSize, Qt::Uninitialized);
    unsigned long long length = 0;
    if (crypto_aead_xchacha20poly1305_ietf_decrypt(
            writableBytesOf(&plaintext), &length, nullptr, bytesOf(ciphertext), sizeOf(ciphertext),
            bytesOf(associatedData), sizeOf(associatedData), bytesOf(nonce), bytesOf(key))
        != 0)
        return {};
    plaintext.resize(static_cast<qsizetype>(length));
    return plaintext;
}

QByteArray CryptoManager::hmacSha256(const QByteArray &message, const QByteArray &key) const
{
    if (key.size() < qsizetype(crypto_auth_hmacsha256_KEYBYTES))
        return {};

    QByteArray code(crypto_auth_hmacsha256_BYTES, Qt::Uninitialized);
    crypto_auth_hmacsha256(writableBytesOf(&code), bytesOf(message), sizeOf(message), bytesOf(key));
    return code;
}

QByteArray CryptoManager::deriveKey(const QByteArray &password,
                                    const KeyDerivationParams &params) const
{
    if (password.isEmpty() || params.salt.isEmpty())
        return {};
    if (params.keyLength < 1)
        return {};

    if (params.algorithm == QLatin1String("Argon2id")) {
        QByteArray key(params.keyLength, Qt::Uninitialized);
        if (crypto_pwhash(writableBytesOf(&key), sizeOf(key), password.constData(),
                          sizeOf(password), bytesOf(params.salt), argon2idOperations,
                          argon2idMemory, crypto_pwhash_ALG_ARGON2ID13)
            != 0)
            return {};
        return key;
    }

    if (params.iterations < 1)
        return {};
    const auto hmac = [&password](const QByteArray &message) {
        return QMessageAuthenticationCode::hash(message, password, QCryptographicHash::Sha256);
    };
    // PBKDF2: each block is the function F of RFC 8018, section 5.2.
    QByteArray key;
    for (quint32 blockNumber = 1; key.size() < params.keyLength; ++blockNumber) {
        QByteArray bigEndianNumber(sizeof blockNumber, Qt::Uninitialized);
        qToBigEndian(blockNumber, bigEndianNumber.data());
        QByteArray block = hmac(params.salt + bigEndianNumber);
        QByteArray accumulated = block;
        for (int iteration = 1; iteration < params.iterations; ++iteration) {
            block = hmac(block);
            char *const target = accumulated.data();
            for (qsizetype i = 0; i < block.size(); ++i)
                target[i] = static_cast<char>(target[i] ^ block.at(i));
        }
        key.append(accumulated);
    }
    key.truncate(params.keyLength);
    return key;
}

bool CryptoManager::constantTimeEquals(const QByteArray &left, const QByteArray &right) const
{
    if (left.size() != right.size())
        return false;

    const unsigned char *const leftBytes = bytesOf(left);
    const unsigned char *const rightBytes = bytesOf(right);
    unsigned char difference = 0;
    for (qsizetype i = 0; i < left.size(); ++i)
        difference |= leftBytes[i] ^ rightBytes[i];
    return difference == 0;
}

} // namespace Tessarine::Core
