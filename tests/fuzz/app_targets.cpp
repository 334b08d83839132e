#define main tessarineConfigMain
#include "app/TessarineConfig.cpp"
#undef main

#include "tests/fuzz/Fuzz.h"

#include <QTemporaryDir>

using Fuzz::require;

namespace
{

void readManifest(const QByteArray &body)
{
    UpdateManifest manifest;
    QString error;
    const bool accepted = parseUpdateManifest(body, &manifest, &error);
    require(accepted == error.isEmpty(), "a refusal has a reason");
    require(accepted || error.startsWith(QStringLiteral("Manifesto")), "the reason is a message");
    if (!body.startsWith("\xEF\xBB\xBF")) {
        UpdateManifest marked;
        require(parseUpdateManifest("\xEF\xBB\xBF" + body, &marked, &error) == accepted,
                "a byte order mark changes nothing");
        require(marked.version == manifest.version && marked.size == manifest.size,
                "a byte order mark changes no field");
    }
    if (!accepted)
        return;
    require(!manifest.version.isEmpty(), "an accepted manifest has a version");
    require(!manifest.packageUrl.isEmpty(), "an accepted manifest has an address");
    require(!manifest.sha256.isEmpty(), "an accepted manifest has a hash");
    require(manifest.sha256 == manifest.sha256.toLower(), "the hash is in lower case");
    const int mark = body.startsWith("\xEF\xBB\xBF") ? 3 : 0;
    const QJsonObject object = QJsonDocument::fromJson(body.mid(mark)).object();
    require(object.value(QStringLiteral("app")) == QStringLiteral("Tessarine"),
            "an accepted manifest is of this program");
    require(object.value(QStringLiteral("schemaVersion")) == 1,
            "an accepted manifest is of the known schema");
}

// A drive whose state file holds these bytes.
const QString &driveWithState(const QByteArray &bytes)
{
    static const QTemporaryDir directory;
    static const QString drive = directory.path();
    static const bool isPrepared = QDir(drive).mkpath(QStringLiteral("Tessarine"));
    QFile file(updateStatePath(drive));
    require(isPrepared && file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size(),
            "the state file can be written");
    return drive;
}

void readState(const QByteArray &bytes)
{
    const QString version = readInstalledVersion(driveWithState(bytes));
    if (version.isEmpty())
        return;
    require(bytes.contains('{'), "only an object has a version");
    // What isn't a character in UTF-16 alone has no UTF-8.
    const QString written = QString::fromUtf8(version.toUtf8());
    const QByteArray own = QJsonDocument(updateState(written, {})).toJson();
    require(readInstalledVersion(driveWithState(own)) == written,
            "a version is read as it was written");
}

void compareVersions(const QByteArray &bytes)
{
    QStringList versions = QString::fromUtf8(bytes).split(u'\n');
    versions.resize(3);
    const QString &first = versions[0];
    const QString &second = versions[1];
    const QString &third = versions[2];
    require(!isNewer(first, first), "no version is newer than itself");
    require(!isNewer(first, second) || !isNewer(second, first), "only one of two is newer");
    require(!isNewer(first, second) || !isNewer(second, third) || isNewer(first, third),
            "what is newer than a newer one is newer");
    require(!isNewer(QStringLiteral("x") + first, second), "a text is older than any version");
    require(isNewer(QStringLiteral("1.") + first, {}), "a version is newer than none");
}

// Every tag in it is one that makes literal text of a text.
bool holdsNoForeignMarkup(QString html)
{
    for (const char *tag : {"<p>", "</p>", "<p style=\"white-space:pre\">", "<br>", "\n"})
        html.remove(QLatin1String(tag));
    return !html.contains(u'<') && !html.contains(u'>');
}

void showDrive(const QByteArray &bytes)
{
    QStringList texts = QString::fromLocal8Bit(bytes).split(QChar(0));
    texts.resize(3);
    UsbDevice device{.id = {},
                     .devicePath = texts[2],
                     .label = texts[0],
                     .mountPoint = texts[1],
                     .fileSystem = {},
                     .removable = true,
                     .mounted = true};
    const QString name = texts[0].isEmpty() ? texts[1] : texts[0];
    require(deviceLine(device) == name + QStringLiteral(" (") + texts[1] + u')',
            "a mounted drive's line holds name and place as they stand");
    const QString shown = asLiteralText(deviceLine(device));
    require(shown == deviceLine(device) ? !Qt::mightBeRichText(shown) : holdsNoForeignMarkup(shown),
            "no markup of a label is obeyed");

    device.mounted = false;
    require(deviceLine(device).endsWith(QStringLiteral(") | não montado")),
            "a drive that isn't mounted says so at the end");
}

const Fuzz::Registration registrations[] = {{"manifest", readManifest},
                                            {"state", readState},
                                            {"version", compareVersions},
                                            {"drive_line", showDrive}};

} // namespace
