#pragma once

#include <QByteArray>

namespace TestSupport
{

// `bytes` with one bit changed; 0 is the least significant bit of the first byte.
inline QByteArray flippedBit(QByteArray bytes, qsizetype bit)
{
    bytes[bit / 8] = static_cast<char>(bytes.at(bit / 8) ^ (1 << (bit % 8)));
    return bytes;
}

} // namespace TestSupport
