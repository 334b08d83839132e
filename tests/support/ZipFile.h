#pragma once

#include "tests/support/Missing.h"
#include "tests/support/Waiting.h"

#include <QByteArray>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QString>

namespace TestSupport
{

// What goes into a zip file; hostile names and links are taken as they are.
class ZipFile
{
public:
    ZipFile &file(const QString &name, const QString &text, bool executable = false)
    {
        return add({{QStringLiteral("name"), name},
                    {QStringLiteral("text"), text},
                    {QStringLiteral("executable"), executable}});
    }

    ZipFile &zeros(const QString &name, qint64 size)
    {
        return add({{QStringLiteral("name"), name}, {QStringLiteral("zeros"), size}});
    }

    // So many files of so many zeros, which take about a hundred bytes each.
    ZipFile &manyOfZeros(const QString &name, qint64 size, int count)
    {
        return add({{QStringLiteral("name"), name},
                    {QStringLiteral("zeros"), size},
                    {QStringLiteral("copies"), count - 1}});
    }

    // A file with any bytes for a name, which says that they are UTF-8, or doesn't.
    ZipFile &fileOfRawName(const QByteArray &name, bool saysUtf8)
    {
        return add({{QStringLiteral("rawName"), QString::fromLatin1(name.toHex())},
                    {QStringLiteral("saysUtf8"), saysUtf8},
                    {QStringLiteral("text"), QStringLiteral("x")}});
    }

    // A file with a second name, which unpackers prefer (APPNOTE.TXT 4.6.9).
    ZipFile &fileOfTwoNames(const QString &name, const QByteArray &unicodeName)
    {
        return add({{QStringLiteral("name"), name},
                    {QStringLiteral("unicodeName"), QString::fromLatin1(unicodeName.toHex())},
                    {QStringLiteral("text"), QStringLiteral("x")}});
    }

    // Bytes that can't be made smaller.
    ZipFile &noise(const QString &name, qint64 size)
    {
        return add({{QStringLiteral("name"), name}, {QStringLiteral("noise"), size}});
    }

    ZipFile &link(const QString &name, const QString &target)
    {
        return add({{QStringLiteral("name"), name}, {QStringLiteral("link"), target}});
    }

    ZipFile &device(const QString &name)
    {
        return add({{QStringLiteral("name"), name}, {QStringLiteral("device"), true}});
    }

    // A name that ends in a slash.
    ZipFile &directory(const QString &name) { return add({{QStringLiteral("name"), name}}); }

    QByteArray bytes() const
    {
        QProcess maker;
        maker.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        maker.start(QStringLiteral(TESSARINE_TEST_SUPPORT_DIR "/make-zip"), QStringList());
        maker.write(QJsonDocument(entries).toJson());
        maker.closeWriteChannel();
        if (!maker.waitForFinished(longestWait) || maker.exitCode() != 0)
            reportMissing(QStringLiteral("make-zip made no zip file"));
        return maker.readAllStandardOutput();
    }

private:
    ZipFile &add(const QJsonObject &entry)
    {
        entries.append(entry);
        return *this;
    }

    QJsonArray entries;
};

// The required entries of a Linux bundle, with the version for their contents.
inline ZipFile completeLinuxBundle(const QString &version)
{
    const QString bundle = QStringLiteral("Tessarine/linux/");
    ZipFile zip;
    zip.file(bundle + QStringLiteral("Tessarine"), version, true)
        .file(bundle + QStringLiteral("Tessarine-Linux.sh"), version, true)
        .file(bundle + QStringLiteral("qt.conf"), version)
        .file(bundle + QStringLiteral("lib/libssl.so.3"), version)
        .file(bundle + QStringLiteral("plugins/tls/libqopensslbackend.so"), version);
    return zip;
}

// A package as the vendor publishes it: every required entry, and the version for their contents.
inline ZipFile completePackage(const QString &version)
{
    const QString bundle = QStringLiteral("Tessarine/windows/");
    return completeLinuxBundle(version)
        .file(bundle + QStringLiteral("Tessarine.exe"), version)
        .file(bundle + QStringLiteral("platforms/qwindows.dll"), version);
}

} // namespace TestSupport
