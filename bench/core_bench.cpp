// core_bench [ROUNDS]: measures CryptoManager beside bare calls of the libraries that a user would
// reach for instead, in turns. Prints a line of JSON for each comparison: what was done, and for
// each way the processor seconds that it took in each round.

#include "core/CryptoManager.h"

#include <openssl/evp.h>
#include <sodium.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <vector>

using Tessarine::Core::CryptoManager;
using Tessarine::Core::KeyDerivationParams;

namespace
{

// Returns whether it did its work.
using Operation = std::function<bool()>;

struct Way {
    const char *name;
    Operation operation;
};

// Ways to the same result, the first of them ours.
struct Comparison {
    std::string subject;
    std::vector<Way> ways;
};

const char ours[] = "CryptoManager";
// A result is allocated for each call, as ours is, or was there before.
const char newResult[] = "libsodium, new buffer";
const char readyResult[] = "libsodium, ready buffer";

const CryptoManager manager;
const QByteArray key(32, 'k');
const QByteArray nonce(24, 'n');
const QByteArray salt(16, 's');
const QByteArray password = "correct horse battery staple";

const unsigned char *bytesOf(const QByteArray &array)
{
    return reinterpret_cast<const unsigned char *>(array.constData());
}

size_t sizeOf(const QByteArray &array)
{
    return static_cast<size_t>(array.size());
}

// Memory that nothing has been written into, as malloc gives it.
std::unique_ptr<unsigned char[]> newBuffer(size_t size)
{
    return std::unique_ptr<unsigned char[]>(new unsigned char[size]);
}

bool encryptBare(const QByteArray &plaintext, unsigned char *output)
{
    return crypto_aead_xchacha20poly1305_ietf_encrypt(
               output, nullptr, bytesOf(plaintext), sizeOf(plaintext), bytesOf(salt), sizeOf(salt),
               nullptr, bytesOf(nonce), bytesOf(key))
           == 0;
}

bool decryptBare(const QByteArray &ciphertext, unsigned char *output)
{
    return crypto_aead_xchacha20poly1305_ietf_decrypt(output, nullptr, nullptr, bytesOf(ciphertext),
                                                      sizeOf(ciphertext), bytesOf(salt),
                                                      sizeOf(salt), bytesOf(nonce), bytesOf(key))
           == 0;
}

Comparison encryption(int size)
{
    const QByteArray plaintext(size, 'p');
    const size_t outputSize = sizeOf(plaintext) + 16;
    return {"encrypt, " + std::to_string(size) + " bytes",
            {{ours, [=] { return !manager.encrypt(plaintext, key, nonce, salt).isNull(); }},
             {newResult, [=] { return encryptBare(plaintext, newBuffer(outputSize).get()); }},
             {readyResult, [=, ready = std::vector<unsigned char>(outputSize)]() mutable {
                  return encryptBare(plaintext, ready.data());
              }}}};
}

Comparison decryption(int size)
{
    const QByteArray ciphertext = manager.encrypt(QByteArray(size, 'p'), key, nonce, salt);
    const auto outputSize = static_cast<size_t>(size);
    return {"decrypt, " + std::to_string(size) + " bytes",
            {{ours, [=] { return !manager.decrypt(ciphertext, key, nonce, salt).isNull(); }},
             {newResult, [=] { return decryptBare(ciphertext, newBuffer(outputSize).get()); }},
             {readyResult, [=, ready = std::vector<unsigned char>(outputSize)]() mutable {
                  return decryptBare(ciphertext, ready.data());
              }}}};
}

Comparison hmac(int size)
{
    const QByteArray message(size, 'm');
    return {"hmacSha256, " + std::to_string(size) + " bytes",
            {{ours, [=] { return !manager.hmacSha256(message, key).isNull(); }},
             {newResult, [=] {
                  return crypto_auth_hmacsha256(newBuffer(32).get(), bytesOf(message),
                                                sizeOf(message), bytesOf(key))
                         == 0;
              }}}};
}

Comparison pbkdf2(int iterations)
{
    const KeyDerivationParams params = {QStringLiteral("PBKDF2"), salt, iterations, 32};
    return {"PBKDF2, " + std::to_string(iterations) + " iterations",
            {{ours, [=] { return !manager.deriveKey(password, params).isNull(); }},
             {"OpenSSL", [=] {
                  return PKCS5_PBKDF2_HMAC(password.constData(), static_cast<int>(password.size()),
                                           bytesOf(salt), static_cast<int>(salt.size()), iterations,
                                           EVP_sha256(), params.keyLength, newBuffer(32).get())
                         == 1;
              }}}};
}

Comparison argon2id()
{
    const KeyDerivationParams params = {QStringLiteral("Argon2id"), salt, 0, 32};
    return {"Argon2id",
            {{ours, [=] { return !manager.deriveKey(password, params).isNull(); }},
             {"libsodium", [=] {
                  return crypto_pwhash(
                             newBuffer(32).get(), 32, password.constData(), sizeOf(password),
                             bytesOf(salt), crypto_pwhash_OPSLIMIT_MODERATE,
                             crypto_pwhash_MEMLIMIT_MODERATE, crypto_pwhash_ALG_ARGON2ID13)
                         == 0;
              }}}};
}

// Processor time, since wall time counts what else the machine does.
double secondsFor(const Operation &operation, int repetitions)
{
    const std::clock_t start = std::clock();
    for (int i = 0; i < repetitions; ++i) {
        if (!operation())
            qFatal("An operation failed");
    }
    return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

// How often to repeat an operation for a measurement of ten milliseconds or more.
int repetitionsFor(const Operation &operation)
{
    int repetitions = 1;
    while (secondsFor(operation, repetitions) < 0.01)
        repetitions *= 2;
    return repetitions;
}

void print(const Comparison &comparison, const std::vector<std::vector<double>> &seconds)
{
    std::printf("{\"what\": \"%s\", \"sides\": {", comparison.subject.c_str());
    for (size_t way = 0; way < seconds.size(); ++way) {
        std::printf("%s\"%s\": [", way == 0 ? "" : ", ", comparison.ways[way].name);
        for (size_t round = 0; round < seconds[way].size(); ++round)
            std::printf("%s%.4g", round == 0 ? "" : ", ", seconds[way][round]);
        std::printf("]");
    }
    std::puts("}}");
    std::fflush(stdout);
}

void measure(const Comparison &comparison, size_t rounds)
{
    const std::vector<Way> &ways = comparison.ways;
    const int repetitions = repetitionsFor(ways.front().operation);
    std::vector<std::vector<double>> seconds(ways.size());
    for (size_t round = 0; round < rounds; ++round) {
        for (size_t turn = 0; turn < ways.size(); ++turn) {
            const size_t way = (round + turn) % ways.size();
            seconds[way].push_back(secondsFor(ways[way].operation, repetitions) / repetitions);
        }
    }
    print(comparison, seconds);
}

} // namespace

int main(int argc, char *argv[])
{
    const size_t rounds = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 15;
    for (const int size : {64, 1024, 4096, 16384, 65536, 1 << 20, 16 << 20, 64 << 20}) {
        measure(encryption(size), rounds);
        measure(decryption(size), rounds);
        measure(hmac(size), rounds);
    }
    measure(pbkdf2(1000), rounds);
    measure(pbkdf2(10000), rounds);
    measure(argon2id(), rounds);
    return 0;
}
