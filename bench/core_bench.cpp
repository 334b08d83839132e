// Measures CryptoManager beside bare calls of the libraries that a user would reach for instead,
// in turns within one run, and prints medians and ratios as Markdown tables.

#include "core/CryptoManager.h"

#include <openssl/evp.h>
#include <sodium.h>

#include <algorithm>
#include <cstdio>
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

// Ways to the same result, the first of them ours, and the amount of work that each does.
struct Comparison {
    std::string subject;
    double amount;
    std::vector<Operation> ways;
};

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
            size / 1e6,
            {[=] { return !manager.encrypt(plaintext, key, nonce, salt).isNull(); },
             [=] { return encryptBare(plaintext, newBuffer(outputSize).get()); },
             [=, ready = std::vector<unsigned char>(outputSize)]() mutable {
                 return encryptBare(plaintext, ready.data());
             }}};
}

Comparison decryption(int size)
{
    const QByteArray ciphertext = manager.encrypt(QByteArray(size, 'p'), key, nonce, salt);
    const auto outputSize = static_cast<size_t>(size);
    return {"decrypt, " + std::to_string(size) + " bytes",
            size / 1e6,
            {[=] { return !manager.decrypt(ciphertext, key, nonce, salt).isNull(); },
             [=] { return decryptBare(ciphertext, newBuffer(outputSize).get()); },
             [=, ready = std::vector<unsigned char>(outputSize)]() mutable {
                 return decryptBare(ciphertext, ready.data());
             }}};
}

Comparison pbkdf2(int iterations)
{
    const KeyDerivationParams params = {QStringLiteral("PBKDF2"), salt, iterations, 32};
    return {"PBKDF2, " + std::to_string(iterations) + " iterations; OpenSSL",
            1,
            {[=] { return !manager.deriveKey(password, params).isNull(); },
             [=] {
                 return PKCS5_PBKDF2_HMAC(password.constData(), static_cast<int>(password.size()),
                                          bytesOf(salt), static_cast<int>(salt.size()), iterations,
                                          EVP_sha256(), params.keyLength, newBuffer(32).get())
                        == 1;
             }}};
}

Comparison argon2id()
{
    const KeyDerivationParams params = {QStringLiteral("Argon2id"), salt, 0, 32};
    return {"Argon2id; libsodium",
            1,
            {[=] { return !manager.deriveKey(password, params).isNull(); },
             [=] {
                 return crypto_pwhash(newBuffer(32).get(), 32, password.constData(),
                                      sizeOf(password), bytesOf(salt),
                                      crypto_pwhash_OPSLIMIT_MODERATE,
                                      crypto_pwhash_MEMLIMIT_MODERATE, crypto_pwhash_ALG_ARGON2ID13)
                        == 0;
             }}};
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

// How often to repeat an operation for a measurement of a millisecond or more.
int repetitionsFor(const Operation &operation)
{
    int repetitions = 1;
    while (secondsFor(operation, repetitions) < 0.001)
        repetitions *= 2;
    return repetitions;
}

double median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// Measures the ways in turns, for two seconds but at least 15 rounds, and prints a row. A ratio is
// the median over the rounds: a slow moment of the machine meets all sides of a round.
void measure(const Comparison &comparison)
{
    const std::vector<Operation> &ways = comparison.ways;
    const int repetitions = repetitionsFor(ways.front());
    std::vector<std::vector<double>> rates(ways.size());
    std::vector<std::vector<double>> ratios(ways.size());
    double spent = 0;
    for (size_t round = 0; round < 15 || spent < 2; ++round) {
        for (size_t turn = 0; turn < ways.size(); ++turn) {
            const size_t way = (round + turn) % ways.size();
            const double seconds = secondsFor(ways[way], repetitions);
            rates[way].push_back(comparison.amount * repetitions / seconds);
            spent += seconds;
        }
        for (size_t way = 1; way < ways.size(); ++way)
            ratios[way].push_back(rates.front().back() / rates[way].back());
    }

    std::printf("| %s | %.4g |", comparison.subject.c_str(), median(rates.front()));
    for (size_t way = 1; way < ways.size(); ++way)
        std::printf(" %.4g | %.3f |", median(rates[way]), median(ratios[way]));
    std::printf("\n");
    std::fflush(stdout);
}

} // namespace

int main()
{
    std::puts("MB/s of processor time. A new buffer: the bare call's output is allocated for each "
              "call, as ours is.\nA ready buffer: it was there before.\n\n"
              "| operation | CryptoManager | bare libsodium, new buffer | ratio "
              "| bare libsodium, ready buffer | ratio |\n|---|---:|---:|---:|---:|---:|");
    for (const int size : {64, 1024, 4096, 16384, 65536, 1 << 20, 16 << 20, 64 << 20}) {
        measure(encryption(size));
        measure(decryption(size));
    }

    std::puts("\nKeys of 32 bytes a second.\n\n"
              "| operation; beside | CryptoManager | bare call | ratio |\n|---|---:|---:|---:|");
    measure(pbkdf2(1000));
    measure(pbkdf2(10000));
    measure(argon2id());
    return 0;
}
