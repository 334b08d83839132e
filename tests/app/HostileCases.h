#pragma once

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>
#include <QString>
#include <QStringList>
#include <QTest>

// What became of each case of a hostile suite: a table in Markdown,
// $TESSARINE_HOSTILE_TABLES/NAME.md, where that directory is given.
class HostileCases
{
public:
    explicit HostileCases(const QString &name)
        : m_name(name)
    {
    }

    // The case is the test's row, if it isn't named.
    void note(QString message, const QElapsedTimer &clock, const QString &drive,
              const QString &name = QString::fromUtf8(QTest::currentDataTag()))
    {
        const QString seconds = QString::number(double(clock.elapsed()) / 1000, 'f', 1);
        message.replace(QRegularExpression(QRegularExpression::escape(QDir::tempPath())
                                           + QStringLiteral("/[^/]+/drive")),
                        QStringLiteral("DRIVE"));
        message.replace(QRegularExpression(QStringLiteral("\\b\\d{14}\\b")),
                        QStringLiteral("TIME"));
        // Characters that turn the direction of a line would turn the table's.
        message = message.remove(QRegularExpression(QStringLiteral("\\p{Cf}"))).simplified();
        if (message.size() > 100)
            message = message.left(100) + QStringLiteral("...");
        m_rows << QStringLiteral("| %1 | `%2` | %3 | %4 |").arg(name, message, seconds, drive);
    }

    void write() const
    {
        const QString directory = qEnvironmentVariable("TESSARINE_HOSTILE_TABLES");
        if (directory.isEmpty())
            return;
        QFile file(directory + u'/' + m_name + QStringLiteral(".md"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("| case | message | seconds | the drive |\n|---|---|---|---|\n"
                   + m_rows.join(u'\n').toUtf8() + '\n');
    }

private:
    QString m_name;
    QStringList m_rows;
};
