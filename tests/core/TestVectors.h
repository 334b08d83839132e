#pragma once

#include "tests/support/Missing.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QString>

namespace TestSupport
{

// The vectors of a file in tests/core/data; each file says where its vectors come from.
// A test that finds none fails.
inline QList<QJsonObject> testVectors(const QString &fileName)
{
    QFile file(QStringLiteral(TESSARINE_TEST_VECTORS_DIR "/") + fileName);
    if (!file.open(QIODevice::ReadOnly))
        reportMissing(QStringLiteral("Can't read ") + file.fileName());
    QList<QJsonObject> vectors;
    const QJsonObject root = QJsonDocument::fromJson(file.readAll()).object();
    const QJsonArray array = root.value(QStringLiteral("vectors")).toArray();
    for (const auto &vector : array)
        vectors.append(vector.toObject());
    if (vectors.isEmpty())
        reportMissing(QStringLiteral("No vectors in ") + file.fileName());
    return vectors;
}

// The vectors of a file, a row each, in the column "vector".
inline void addVectorRows(const QString &fileName)
{
    QTest::addColumn<QJsonObject>("vector");
    for (const QJsonObject &vector : testVectors(fileName))
        QTest::newRow(vector.value(QStringLiteral("name")).toString().toUtf8()) << vector;
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
