#pragma once

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QString>

namespace TestSupport
{

// The vectors of a file in tests/core/data; each file says where its vectors come from.
// Ends the program when there are none, since every test over them would then pass.
inline QList<QJsonObject> testVectors(const QString &fileName)
{
    QFile file(QStringLiteral(TESSARINE_TEST_VECTORS_DIR "/") + fileName);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("Can't read %s", qPrintable(file.fileName()));
    QList<QJsonObject> vectors;
    const QJsonObject root = QJsonDocument::fromJson(file.readAll()).object();
    const QJsonArray array = root.value(QStringLiteral("vectors")).toArray();
    for (const auto &vector : array)
        vectors.append(vector.toObject());
    if (vectors.isEmpty())
        qFatal("No vectors in %s", qPrintable(file.fileName()));
    return vectors;
}

// A field that holds hexadecimal digits, as bytes.
inline QByteArray bytesIn(const QJsonObject &vector, const char *field)
{
    return QByteArray::fromHex(vector.value(QLatin1String(field)).toString().toLatin1());
}

// A field that holds text, as UTF-8.
inline QByteArray textIn(const QJsonObject &vector, const char *field)
{
    return vector.value(QLatin1String(field)).toString().toUtf8();
}

} // namespace TestSupport
