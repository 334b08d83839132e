#include "platform/linux/LinuxDeviceManager.cpp"

#include "tests/fuzz/Fuzz.h"

using Fuzz::require;

namespace Tessarine::Platform::Linux
{

namespace
{

// As the kernel writes a field of the table, see proc(5).
QString escaped(QString text)
{
    text.replace(QStringLiteral("\\"), QStringLiteral("\\134"));
    text.replace(QStringLiteral(" "), QStringLiteral("\\040"));
    text.replace(QStringLiteral("\t"), QStringLiteral("\\011"));
    text.replace(QStringLiteral("\n"), QStringLiteral("\\012"));
    return text;
}

void decodeMountField(const QByteArray &bytes)
{
    const QString text = QString::fromUtf8(bytes);
    require(decodeMountInfoToken(escaped(text)) == text, "a field is read as it was written");
    const QString decoded = decodeMountInfoToken(text);
    require(decoded.size() <= text.size(), "decoding lengthens nothing");
    for (const char *code : {"\\040", "\\011", "\\012"})
        require(text.contains(QStringLiteral("\\134")) || !decoded.contains(QLatin1String(code)),
                "no escape is left");
}

void readMountTable(const QByteArray &bytes)
{
    for (const QString &line : QString::fromUtf8(bytes).split(u'\n')) {
        const auto entry = parseMountTableLine(line);
        require(!entry || line.contains(QStringLiteral(" - ")), "an entry has a separator");
        if (!entry)
            continue;
        const QString again = QStringLiteral("1 2 3:4 / %1 rw shared:1 - %2 %3 rw")
                                  .arg(escaped(entry->mountPoint), escaped(entry->fileSystemType),
                                       escaped(entry->mountSource));
        const auto same = parseMountTableLine(again);
        require(same && same->mountPoint == entry->mountPoint
                    && same->fileSystemType == entry->fileSystemType
                    && same->mountSource == entry->mountSource,
                "what was read, written as the kernel does, is read alike");
    }
}

const Fuzz::Registration registrations[] = {{"mount_field", decodeMountField},
                                            {"mount_table", readMountTable}};

} // namespace

} // namespace Tessarine::Platform::Linux
