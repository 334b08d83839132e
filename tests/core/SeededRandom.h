#pragma once

#include <QByteArray>
#include <QRandomGenerator>

namespace TestSupport
{

// Random data that a failed test can be given again: it prints seed(), and the variable
// TESSARINE_TEST_SEED sets it.
class SeededRandom
{
public:
    // From 0 to `highest`.
    int number(int highest) { return generator.bounded(highest + 1); }

    QByteArray bytes(int size)
    {
        QByteArray bytes(size, Qt::Uninitialized);
        generator.generate(bytes.begin(), bytes.end());
        return bytes;
    }

    const char *seed() const { return seedText.constData(); }

private:
    static quint32 chosenSeed()
    {
        bool given = false;
        const int seed = qEnvironmentVariableIntValue("TESSARINE_TEST_SEED", &given);
        return given ? static_cast<quint32>(seed) : QRandomGenerator::global()->generate() >> 1;
    }

    const quint32 seedValue = chosenSeed();
    const QByteArray seedText = "TESSARINE_TEST_SEED=" + QByteArray::number(seedValue);
    QRandomGenerator generator{seedValue};
};

} // namespace TestSupport
