#pragma once

#include <QByteArray>
#include <QString>

namespace Tessarine::Core
{

// How CryptoManager::deriveKey turns a password into a key. A record that isn't filled in gives no
// key: its salt and lengths are refused.
struct KeyDerivationParams {
    // Exactly "Argon2id" selects Argon2id; every other text, "argon2id" and "" among them, selects
    // PBKDF2-HMAC-SHA-256.
    QString algorithm;
    // At least 1 byte. Argon2id reads exactly the first 16 bytes, which must exist; PBKDF2 takes
    // all of it.
    QByteArray salt;
    // Iteration count of PBKDF2, at least 1. Argon2id ignores it: its limits are fixed.
    int iterations = 0;
    // Length of the derived key in bytes, at least 1; Argon2id needs at least 16.
    int keyLength = 0;
};

// A toolbox of cryptographic primitives on libsodium. It has no state: any thread may call any
// operation on any instance.
//
// An operation that fails returns a null QByteArray, without a message, so the caller must test
// every result with isNull(): an empty array can be a good result. Null and empty arguments mean
// the same.
//
// Nothing is wiped: the class makes no promise on how long keys stay in memory.
class CryptoManager
{
public:
    // Initialises libsodium, which may be done any number of times. A failure is not reported.
    CryptoManager();

    // `length` bytes from the system's random source (getrandom(2), through libsodium). 0 or less
    // gives an empty array that isn't null; never fails.
    // Argon2id takes a salt of 16 bytes.
    QByteArray generateSalt(int length) const;

    // The same as generateSalt. Ask for 24 bytes for a nonce of encrypt: that many, drawn at
    // random, never repeat in practice.
    QByteArray generateNonce(int length) const;

    // Encrypts and authenticates with XChaCha20-Poly1305 (draft-irtf-cfrg-xchacha-03, "IETF" form).
    //
    // key: exactly 32 bytes; nonce: exactly 24 bytes; plaintext and associatedData: any size.
    // Returns the ciphertext, as long as the plaintext, and right behind it the tag of 16 bytes,
    // thus never an empty array. Null when key or nonce have another size, or libsodium refuses.
    //
    // Neither nonce nor associatedData is part of the result: the caller keeps both, and decrypt
    // needs the same ones. The caller must never use a nonce twice with one key: that gives away
    // the plaintexts and lets others forge tags.
    QByteArray encrypt(const QByteArray &plaintext, const QByteArray &key, const QByteArray &nonce,
                       const QByteArray &associatedData) const;

    // Verifies and decrypts what encrypt returned.
    //
    // key: exactly 32 bytes; nonce: exactly 24 bytes; ciphertext, with its tag: at least 16 bytes.
    // Returns the plaintext, 16 bytes shorter than the ciphertext. Null when a size is wrong or
    // the tag doesn't verify, that is when key, nonce, ciphertext, tag or associatedData differ in
    // any bit. An empty plaintext comes back empty but not null.
    QByteArray decrypt(const QByteArray &ciphertext, const QByteArray &key, const QByteArray &nonce,
                       const QByteArray &associatedData) const;

    // HMAC-SHA-256 (RFC 2104, FIPS 180-4) of a message of any size under the first 32 bytes of the
    // key.
    //
    // key: at least 32 bytes. Bytes after the 32nd have no effect, so for a longer key this is not
    // the HMAC that RFC 2104 gives for it. Returns 32 bytes; null when the key is shorter.
    // Compare codes with constantTimeEquals.
    QByteArray hmacSha256(const QByteArray &message, const QByteArray &key) const;

    // Derives a key of params.keyLength bytes from a password.
    //
    // Argon2id: version 1.3 (RFC 9106) with 3 passes over 256 MiB (268435456 bytes) in 1 lane;
    // it needs that memory and blocks the calling thread for a good part of a second.
    // The caller must give a salt of 16 bytes: a shorter one is read beyond its end, a longer one
    // is cut.
    // PBKDF2: with HMAC-SHA-256 (RFC 8018, section 5.2); the time grows with iterations and with
    // every started 32 bytes of the key.
    //
    // Null when password or salt are empty, when keyLength is below 1, when iterations is below 1
    // (PBKDF2 only), or when libsodium refuses (Argon2id only: keyLength below 16, out of memory).
    QByteArray deriveKey(const QByteArray &password, const KeyDerivationParams &params) const;

    // Whether two arrays hold the same bytes, in a time that depends on their size only and not
    // on where they differ. Arrays of different sizes are told apart at once: the size is no
    // secret. Two empty arrays are equal.
    bool constantTimeEquals(const QByteArray &left, const QByteArray &right) const;
};

} // namespace Tessarine::Core
