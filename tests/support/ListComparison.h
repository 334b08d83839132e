#pragma once

#include <QTest>

namespace QTest
{

// QCOMPARE of two lists names the lines that differ, where Qt itself only counts them.
inline bool qCompare(const QStringList &actual, const QStringList &expected, const char *statement,
                     const char * /*expectedStatement*/, const char *file, int line)
{
    QStringList unexpected = actual;
    QStringList missing;
    for (const QString &entry : expected) {
        if (!unexpected.removeOne(entry))
            missing << entry;
    }
    const auto quoted = [](const QStringList &list) {
        return u'"' + list.join(QStringLiteral("\", \"")) + u'"';
    };
    QStringList differences;
    if (!unexpected.isEmpty())
        differences << QStringLiteral("unexpected: ") + quoted(unexpected);
    if (!missing.isEmpty())
        differences << QStringLiteral("missing: ") + quoted(missing);
    if (differences.isEmpty())
        differences << QStringLiteral("another order: ") + quoted(actual);
    return qVerify(actual == expected, statement,
                   qPrintable(differences.join(QStringLiteral("; "))), file, line);
}

} // namespace QTest
