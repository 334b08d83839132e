#pragma once

#include "tests/app/UpdateSituation.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/PeakMemory.h"

#include <sys/sysmacros.h>

namespace
{

// Text for a cell of a table in Markdown. Characters that turn the direction of a line would turn
// the table's.
inline QString inCell(QString text)
{
    return text.remove(QRegularExpression(QStringLiteral("\\p{Cf}"))).simplified();
}

// The situation that somebody hostile has made. Each case is noted: what was said, how long it
// took, how far the memory grew, and what the drive's whole tree is afterwards, compared with that
// before. Where $TESSARINE_HOSTILE_TABLES names a directory, the suite writes NAME.md there, a
// table in Markdown, and outcomes.md, the trees that the table's words stand for after an update.
class HostileCases : public UpdateSituation
{
protected:
    static inline const QString asBefore = QStringLiteral("as before");
    static inline const QString updated = QStringLiteral("new bundles");
    static inline const QString updatedWithBackups = QStringLiteral("new bundles, both backups");
    static inline const QString hostChanged = QStringLiteral("the host's files have changed");

    struct Outcome {
        QString words;
        QStringList tree;
    };

    const QString stateName = QStringLiteral("Tessarine/update-state.json");
    const dev_t deviceWithoutEnd = makedev(1, 5); // /dev/zero, see null(4)

    // What a hostile link or entry would like to write to.
    const Drive host;

    HostileCases() { host.write(QStringLiteral("document"), "precious"); }

    // Lets the command run, and says what the drive is behind it, in the table's words. The case is
    // the test's row, if it isn't named.
    QString outcomeOf(const std::function<void()> &command,
                      const QString &name = QString::fromUtf8(QTest::currentDataTag()))
    {
        const QStringList onHost = host.tree();
        const QStringList whole = drive->tree();
        const QStringList before = comparable(whole);
        const TestSupport::PeakMemoryWatch memory;
        QElapsedTimer clock;
        clock.start();
        command();
        m_milliseconds = clock.elapsed();
        m_memoryGrowth = memory.growth();
        const QString seconds = QString::number(double(m_milliseconds) / 1000, 'f', 1);
        const QString megabytes = QString::number(double(m_memoryGrowth) / 1'000'000, 'f', 0);
        const QStringList now = drive->tree();
        const QString outcome = now == whole ? asBefore : inWords(comparable(now), before);
        m_rows << QStringLiteral("| %1 | `%2` | %3 | %4 | %5 |")
                      .arg(name, messageInCell(), seconds, megabytes, outcome);
        return host.tree() == onHost ? outcome : hostChanged;
    }

    // Does so without root's rights over permissions.
    static void withoutPrivileges(const std::function<void()> &action)
    {
        QCOMPARE(setegid(TestSupport::unprivilegedUser), 0);
        QCOMPARE(seteuid(TestSupport::unprivilegedUser), 0);
        action();
        QCOMPARE(seteuid(0), 0);
        QCOMPARE(setegid(0), 0);
    }

    // What the last case took: bytes, and milliseconds of this process's own clock.
    qint64 memoryGrowth() const { return m_memoryGrowth; }
    qint64 milliseconds() const { return m_milliseconds; }

    void writeCases(const QString &name) const
    {
        writeTable(name, QStringLiteral("| case | message | seconds | MB | the drive |"), m_rows);
    }

    void writeTables(const QString &name)
    {
        writeCases(name);
        begin();
        writeTable(
            QStringLiteral("outcomes"),
            QStringLiteral("| file | %1 | %2 | %3 |").arg(asBefore, updated, updatedWithBackups),
            rowsOf(outcomesAfter(comparable(drive->tree()))));
        end();
    }

    // The trees that the command may leave of one.
    virtual QList<Outcome> outcomesAfter(const QStringList &before) const
    {
        const Drive package;
        for (const QString &name : requiredNames)
            package.write(QStringLiteral("Tessarine/") + name, "1.1.0");
        const QStringList newBundles = package.tree().filter(m_bundle);
        const QStringList newState{stateName + QStringLiteral(": 1.1.0")};
        QStringList backups = before.filter(m_bundle);
        backups.replaceInStrings(m_bundle, QStringLiteral("\\1.backup-TIME"));
        QStringList rest;
        QStringList oldState;
        for (const QString &line : before) {
            if (line.startsWith(stateName))
                oldState << line;
            else if (!m_bundle.match(line).hasMatch())
                rest << line;
        }
        return {{asBefore, before},
                {updated, rest + newBundles + newState},
                {updatedWithBackups, rest + newBundles + oldState + backups}};
    }

    // A tree without what differs between two runs: the stamp in a name, and the time in a state
    // file, of which the version is left.
    QStringList comparable(QStringList tree) const
    {
        tree.replaceInStrings(QRegularExpression(QStringLiteral("\\b\\d{14}\\b")),
                              QStringLiteral("TIME"));
        for (QString &line : tree) {
            if (m_writtenState.match(line).hasMatch())
                line = stateName + QStringLiteral(": ") + stateInWords();
        }
        tree.sort();
        return tree;
    }

    // Of a line of a tree.
    static QString nameIn(const QString &line)
    {
        return line.section(QRegularExpression(QStringLiteral(": | -> ")), 0, 0);
    }

private:
    qint64 m_memoryGrowth = 0;
    qint64 m_milliseconds = 0;
    QStringList m_rows;
    const QRegularExpression m_bundle{QStringLiteral("^(Tessarine/(?:windows|linux))(?=/|:| ->)")};
    const QRegularExpression m_writtenState{u'^' + stateName + QStringLiteral(": \\d{3} bytes")};

    // The version, if all the rest is as the program writes it.
    QString stateInWords() const
    {
        const auto withoutTime = [](QJsonObject object) {
            object.remove(QStringLiteral("installedAt"));
            return object;
        };
        const QString hash = manifest.value(QStringLiteral("sha256")).toString();
        if (withoutTime(state()) == withoutTime(updateState(QStringLiteral("1.1.0"), hash)))
            return QStringLiteral("1.1.0");
        for (const QString &version : {QStringLiteral("1.0.0"), QStringLiteral(TESSARINE_VERSION)})
            if (withoutTime(state()) == withoutTime(updateState(version, {})))
                return version;
        return QStringLiteral("foreign");
    }

    // The one that is most like it, and by what it differs from that.
    QString inWords(const QStringList &now, const QStringList &before) const
    {
        const QList<Outcome> outcomes = outcomesAfter(before);
        const auto nearest = std::min_element(
            outcomes.begin(), outcomes.end(), [&now](const Outcome &one, const Outcome &other) {
                return difference(now, one.tree).size() < difference(now, other.tree).size();
            });
        return (QStringList{nearest->words} + difference(now, nearest->tree))
            .join(QStringLiteral(", "));
    }

    static QStringList without(QStringList lines, const QStringList &taken)
    {
        for (const QString &line : taken)
            lines.removeOne(line);
        return lines;
    }

    static QStringList difference(const QStringList &now, const QStringList &then)
    {
        QSet<QString> gone;
        QSet<QString> come;
        for (const QString &line : without(then, now))
            gone << nameIn(line);
        for (const QString &line : without(now, then))
            come << nameIn(line);
        QStringList differences;
        for (const QString &name : gone | come) {
            const QChar sign = !come.contains(name) ? u'-' : gone.contains(name) ? u'±' : u'+';
            differences << QStringLiteral("%1 `%2`").arg(sign, inCell(name));
        }
        differences.sort();
        return differences;
    }

    // A file a row, and what it holds in each of the trees.
    static QStringList rowsOf(const QList<Outcome> &outcomes)
    {
        QMap<QString, QStringList> cells;
        for (qsizetype column = 0; column < outcomes.size(); ++column) {
            for (const QString &line : outcomes[column].tree) {
                if (line.endsWith(u'/'))
                    continue;
                QStringList &row = cells[nameIn(line)];
                row.resize(outcomes.size());
                row[column] = line.section(QStringLiteral(": "), 1);
            }
        }
        QStringList rows;
        for (auto row = cells.cbegin(); row != cells.cend(); ++row)
            rows
                << QStringLiteral("| `%1` | %2 |").arg(row.key(), row->join(QStringLiteral(" | ")));
        return rows;
    }

    QString messageInCell() const
    {
        QString message = lastBox().text;
        message.replace(QRegularExpression(QRegularExpression::escape(QDir::tempPath())
                                           + QStringLiteral("/[^/]+/drive")),
                        QStringLiteral("DRIVE"));
        message.replace(host.path(), QStringLiteral("HOST"));
        message.replace(QRegularExpression(QStringLiteral("\\b\\d{14}\\b")),
                        QStringLiteral("TIME"));
        message = inCell(message);
        return message.size() <= 100 ? message : message.left(100) + QStringLiteral("...");
    }

    static void writeTable(const QString &name, const QString &head, const QStringList &rows)
    {
        const QString directory = qEnvironmentVariable("TESSARINE_HOSTILE_TABLES");
        if (directory.isEmpty())
            return;
        QFile file(directory + u'/' + name + QStringLiteral(".md"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        const QString rule = QStringLiteral("|---").repeated(head.count(u'|') - 1) + u'|';
        file.write((QStringList{head, rule} + rows).join(u'\n').toUtf8() + '\n');
    }
};

} // namespace
