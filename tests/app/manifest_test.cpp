#define main tessarineConfigMain
#include "app/TessarineConfig.cpp"
#undef main

#include <QJsonArray>
#include <QTest>

namespace
{

const QString foreignText =
    QStringLiteral("Manifesto não pertence ao Tessarine ou usa schema não suportado.");
const QString incompleteText = QStringLiteral("Manifesto sem version, packageUrl ou sha256.");

QJsonObject completeManifest()
{
    return {{QStringLiteral("schemaVersion"), 1},
            {QStringLiteral("app"), QStringLiteral("Tessarine")},
            {QStringLiteral("version"), QStringLiteral("1.1.0")},
            {QStringLiteral("packageUrl"), QStringLiteral("https://velmora.example/p.zip")},
            {QStringLiteral("sha256"), QStringLiteral("ab12")},
            {QStringLiteral("size"), 4096},
            {QStringLiteral("publishedAt"), QStringLiteral("2026-11-01")},
            {QStringLiteral("releaseNotes"), QStringLiteral("Correções.")}};
}

QByteArray completeManifestWith(const QString &key, const QJsonValue &value)
{
    QJsonObject manifest = completeManifest();
    if (value.isUndefined())
        manifest.remove(key);
    else
        manifest.insert(key, value);
    return QJsonDocument(manifest).toJson();
}

const QString accepted = QStringLiteral("accepted");

struct Parsed {
    QString outcome; // that it was accepted, or the reason why it wasn't
    UpdateManifest manifest;
};

Parsed parse(const QByteArray &body)
{
    Parsed parsed;
    QString error;
    const bool isAccepted = parseUpdateManifest(body, &parsed.manifest, &error);
    parsed.outcome = isAccepted ? accepted + error : error;
    return parsed;
}

void compareNotJson(const QByteArray &body)
{
    const QString outcome = parse(body).outcome;
    QVERIFY2(outcome.startsWith(QStringLiteral("Manifesto invalido: ")), qPrintable(outcome));
}

} // namespace

class ManifestTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void newRecordHasEmptyTextsAndUnknownSize()
    {
        const UpdateManifest manifest;
        QCOMPARE(manifest.version, QString());
        QCOMPARE(manifest.packageUrl, QString());
        QCOMPARE(manifest.sha256, QString());
        QCOMPARE(manifest.publishedAt, QString());
        QCOMPARE(manifest.releaseNotes, QString());
        QCOMPARE(manifest.size, -1);
    }

    void manifestLiesBelowTheEndpoint()
    {
        QCOMPARE(manifestUrl(), QUrl(QStringLiteral(TESSARINE_UPDATE_ENDPOINT)
                                     + QStringLiteral("/000Updates/tessarine/manifest.json")));
        QCOMPARE(manifestUrl().scheme(), QStringLiteral("https"));
    }

    void everyKeyOfACompleteManifestIsRead()
    {
        const Parsed parsed = parse(QJsonDocument(completeManifest()).toJson());
        QCOMPARE(parsed.outcome, accepted);
        QCOMPARE(parsed.manifest.version, QStringLiteral("1.1.0"));
        QCOMPARE(parsed.manifest.packageUrl, QStringLiteral("https://velmora.example/p.zip"));
        QCOMPARE(parsed.manifest.sha256, QStringLiteral("ab12"));
        QCOMPARE(parsed.manifest.size, 4096);
        QCOMPARE(parsed.manifest.publishedAt, QStringLiteral("2026-11-01"));
        QCOMPARE(parsed.manifest.releaseNotes, QStringLiteral("Correções."));
    }

    void unknownKeysAreIgnored()
    {
        QCOMPARE(parse(completeManifestWith(QStringLiteral("channel"), 7)).outcome, accepted);
    }

    void byteOrderMarkAtTheStartIsSkipped()
    {
        const QByteArray body = QJsonDocument(completeManifest()).toJson();
        QCOMPARE(parse("\xEF\xBB\xBF" + body).outcome, accepted);
    }

    void byteOrderMarkElsewhereIsAParseError()
    {
        const QByteArray body = QJsonDocument(completeManifest()).toJson();
        compareNotJson(" \xEF\xBB\xBF" + body);
        compareNotJson(body + "\xEF\xBB\xBF");
    }

    void parseErrorCarriesTheParsersWords()
    {
        QJsonParseError expected;
        QJsonDocument::fromJson("{\"app\":", &expected);
        QCOMPARE(parse("{\"app\":").outcome,
                 QStringLiteral("Manifesto invalido: %1").arg(expected.errorString()));
    }

    void arrayCarriesTheParsersWordsForNoError()
    {
        QCOMPARE(parse("[1]").outcome,
                 QStringLiteral("Manifesto invalido: %1").arg(QJsonParseError().errorString()));
    }

    void foreignManifestIsRefused_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QJsonValue>("value");
        QTest::newRow("schema 2") << QStringLiteral("schemaVersion") << QJsonValue(2);
        QTest::newRow("schema 1.5") << QStringLiteral("schemaVersion") << QJsonValue(1.5);
        QTest::newRow("schema as text")
            << QStringLiteral("schemaVersion") << QJsonValue(QStringLiteral("1"));
        QTest::newRow("no schema")
            << QStringLiteral("schemaVersion") << QJsonValue(QJsonValue::Undefined);
        QTest::newRow("app in other capitals")
            << QStringLiteral("app") << QJsonValue(QStringLiteral("tessarine"));
        QTest::newRow("no app") << QStringLiteral("app") << QJsonValue(QJsonValue::Undefined);
        QTest::newRow("app as number") << QStringLiteral("app") << QJsonValue(1);
    }
    void foreignManifestIsRefused()
    {
        QFETCH(QString, key);
        QFETCH(QJsonValue, value);
        QCOMPARE(parse(completeManifestWith(key, value)).outcome, foreignText);
    }

    void schemaOnePointZeroIsTheNumberOne()
    {
        QByteArray body = completeManifestWith(QStringLiteral("schemaVersion"), 1);
        body.replace("\"schemaVersion\": 1", "\"schemaVersion\": 1.0");
        QVERIFY2(body.contains("1.0,"), body.constData());
        QCOMPARE(parse(body).outcome, accepted);
    }

    void missingRequiredTextIsRefused_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QJsonValue>("value");
        for (const char *key : {"version", "packageUrl", "sha256"}) {
            QTest::addRow("no %s", key)
                << QString::fromLatin1(key) << QJsonValue(QJsonValue::Undefined);
            QTest::addRow("empty %s", key) << QString::fromLatin1(key) << QJsonValue(QString());
            QTest::addRow("%s as number", key) << QString::fromLatin1(key) << QJsonValue(11);
        }
    }
    void missingRequiredTextIsRefused()
    {
        QFETCH(QString, key);
        QFETCH(QJsonValue, value);
        QCOMPARE(parse(completeManifestWith(key, value)).outcome, incompleteText);
    }

    void hashIsLowerCasedAndNotTrimmed()
    {
        const Parsed parsed =
            parse(completeManifestWith(QStringLiteral("sha256"), QStringLiteral(" AB12 ")));
        QCOMPARE(parsed.manifest.sha256, QStringLiteral(" ab12 "));
    }

    void versionOfBlanksPassesAsItStands()
    {
        const Parsed parsed =
            parse(completeManifestWith(QStringLiteral("version"), QStringLiteral("  ")));
        QCOMPARE(parsed.outcome, accepted);
        QCOMPARE(parsed.manifest.version, QStringLiteral("  "));
    }

    void sizeIsReadAsAByteCount_data()
    {
        QTest::addColumn<QJsonValue>("value");
        QTest::addColumn<bool>("checked");
        QTest::addColumn<qint64>("size");
        QTest::newRow("fraction") << QJsonValue(10.9) << true << qint64(10);
        QTest::newRow("zero") << QJsonValue(0) << true << qint64(0);
        QTest::newRow("absent") << QJsonValue(QJsonValue::Undefined) << false << qint64(-1);
        QTest::newRow("text") << QJsonValue(QStringLiteral("10")) << false << qint64(-1);
        QTest::newRow("negative") << QJsonValue(-7) << false << qint64(-7);
        QTest::newRow("above 2^63") << QJsonValue(1e19) << false << qint64(-1);
        QTest::newRow("2^63") << QJsonValue(9223372036854775808.0) << false << qint64(-1);
        QTest::newRow("far below -2^63") << QJsonValue(-1e300) << false << qint64(-1);
        QTest::newRow("below 2^63")
            << QJsonValue(9223372036854774784.0) << true << qint64(9223372036854774784LL);
    }
    void sizeIsReadAsAByteCount()
    {
        QFETCH(QJsonValue, value);
        QFETCH(bool, checked);
        const Parsed parsed = parse(completeManifestWith(QStringLiteral("size"), value));
        QCOMPARE(parsed.outcome, accepted);
        QTEST(parsed.manifest.size, "size");
        QCOMPARE(parsed.manifest.size >= 0, checked);
    }

    void optionalTextsOfAnotherTypeAreEmpty()
    {
        QCOMPARE(
            parse(completeManifestWith(QStringLiteral("releaseNotes"), 1)).manifest.releaseNotes,
            QString());
        QCOMPARE(parse(completeManifestWith(QStringLiteral("publishedAt"), QJsonArray{1}))
                     .manifest.publishedAt,
                 QString());
    }

    void hostileBodiesAreRefused_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::newRow("nothing") << QByteArray();
        QTest::newRow("only a byte order mark") << QByteArray("\xEF\xBB\xBF");
        QTest::newRow("null") << QByteArray("null");
        QTest::newRow("HTML") << QByteArray("<!DOCTYPE html><html></html>");
        QTest::newRow("bytes that are no UTF-8") << QByteArray("{\"app\":\"\xFF\xFE\"}");
        QTest::newRow("nested too deeply") << QByteArray(100000, '[');
        QTest::newRow("a zero byte in front") << QByteArray("\0{}", 3);
    }
    void hostileBodiesAreRefused()
    {
        QFETCH(QByteArray, body);
        const QString outcome = parse(body).outcome;
        QVERIFY2(outcome.startsWith(QStringLiteral("Manifesto")), qPrintable(outcome));
    }

    void onlyAStrictlyNewerVersionIsAnUpdate_data()
    {
        QTest::addColumn<QString>("remote");
        QTest::addColumn<QString>("installed");
        QTest::addColumn<bool>("newer");
        const auto row = [](const char *remote, const char *installed, bool newer) {
            QTest::addRow("%s against %s", remote, installed)
                << QString::fromLatin1(remote) << QString::fromLatin1(installed) << newer;
        };
        row("1.10.0", "1.9.0", true);
        row("1.2.0", "1.2", true);
        row("1.2", "1.2.0", false);
        row("1.2.3", "1.2.3", false);
        row("1.2.3-rc1", "1.2.3", false);
        row("1.2.3", "1.2.3-rc1", false);
        row("1.0.0", "1.1.0", false);
        row("0.0.0", "0.0.0", false);
        row("1.0.0", "novembro", true);
        row("novembro", "0.0.0", false);
        row("  ", "0.0.0", false);
    }
    void onlyAStrictlyNewerVersionIsAnUpdate()
    {
        QFETCH(QString, remote);
        QFETCH(QString, installed);
        QFETCH(bool, newer);
        QCOMPARE(isNewer(remote, installed), newer);
    }
};

QTEST_GUILESS_MAIN(ManifestTest)

#include "manifest_test.moc"
