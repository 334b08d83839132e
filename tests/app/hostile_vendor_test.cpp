#include "tests/app/HostileCases.h"
#include "tests/support/OwnClock.h"
#include "tests/support/StubCommand.h"

#include <signal.h>

using TestSupport::StubCommand;

// What a stolen server, or a man in the middle with a certificate, could publish. However it ends,
// the drive holds the old bundles or the new ones, and nothing outside of them has changed.
class HostileVendorTest : public HostileCases
{
    Q_OBJECT

    void updateAndCompare(const QString &message, const QString &outcome,
                          const QString &name = QString::fromUtf8(QTest::currentDataTag()))
    {
        QCOMPARE(outcomeOf([this] { agreeToUpdate(); }, name), outcome);
        QVERIFY2(lastBox().text.startsWith(message), qPrintable(lastBox().text));
    }

private Q_SLOTS:
    void initTestCase() { openServer(); }
    void cleanupTestCase()
    {
        writeTables(QStringLiteral("vendor"));
        server.reset();
    }
    void init() { begin(); }
    void cleanup() { end(); }

    void manifestLeavesTheDriveAsItIs_data()
    {
        QTest::addColumn<QByteArray>("key");
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<QString>("message");
        const QByteArray digits(1000, '9');
        const QString invalid = QStringLiteral("Manifesto invalido: ");
        const QString current = QStringLiteral("A unidade já está atualizada.");
        QTest::newRow("version of a thousand digits")
            << QByteArray("version") << '"' + digits + '"' << current;
        QTest::newRow("version of a thousand segments")
            << QByteArray("version") << '"' + QByteArray("0.").repeated(1000) + '"' << current;
        QTest::newRow("size of a thousand digits") << QByteArray("size") << digits << invalid;
        QTest::newRow("schema of a thousand digits")
            << QByteArray("schemaVersion") << digits << invalid;
        QTest::newRow("nesting of a hundred thousand levels")
            << QByteArray("releaseNotes") << QByteArray(100000, '[') << invalid;
        QTest::newRow("notes that are no UTF-8") << QByteArray("releaseNotes")
                                                 << QByteArray("\"Corre\xE7\xF5"
                                                               "es\"")
                                                 << invalid;
        QTest::newRow("second version that is empty")
            << QByteArray("version") << QByteArray("\"1.1.0\", \"version\": \"\"")
            << QStringLiteral("Manifesto sem version, packageUrl ou sha256.");
        QTest::newRow("address of another scheme")
            << QByteArray("packageUrl") << QByteArray("\"javascript:alert(1)\"")
            << QStringLiteral("Protocol \"javascript\" is unknown");
        QTest::newRow("address of a device")
            << QByteArray("packageUrl") << QByteArray("\"file:///dev/zero\"")
            << QStringLiteral("Tempo limite excedido ao acessar: file:///dev/zero");
        QTest::newRow("address of a file of the host")
            << QByteArray("packageUrl") << QByteArray("\"file:///etc/passwd\"")
            << QStringLiteral("Tamanho do pacote divergente.");
    }
    void manifestLeavesTheDriveAsItIs()
    {
        QFETCH(QByteArray, key);
        QFETCH(QByteArray, value);
        QFETCH(QString, message);
        QByteArray body = QJsonDocument(manifest).toJson();
        const QRegularExpression pair(QStringLiteral("\"%1\": [^\\n,]+").arg(QString(key)));
        const QByteArray replaced = pair.match(QString(body)).captured().toUtf8();
        QVERIFY(!replaced.isEmpty());
        body.replace(replaced, '"' + key + "\": " + value);
        server->publish(manifestPath, body);
        updateAndCompare(message, asBefore);
    }

    void manifestInUtf16IsRefused()
    {
        const QString text = QString::fromUtf8(QJsonDocument(manifest).toJson());
        server->publish(
            manifestPath,
            "\xFF\xFE" + QByteArray(reinterpret_cast<const char *>(text.utf16()), 2 * text.size()));
        updateAndCompare(QStringLiteral("Manifesto invalido: "), asBefore,
                         QStringLiteral("manifest in UTF-16"));
    }

    void notesOfManyMegabytesAreShown()
    {
        publishWith(QStringLiteral("releaseNotes"),
                    QStringLiteral("<b>Correções.</b>\n").repeated(250000));
        updateAndCompare(QStringLiteral("Atualização concluída."), updated,
                         QStringLiteral("notes of 4.5 million characters"));
        QVERIFY(user->texts().value(0).size() > 4'500'000);
    }

    void lineOfAnyLengthIsCutInTheLog()
    {
        publishWith(QStringLiteral("version"), QStringLiteral("0\n").repeated(10000));
        updateAndCompare(QStringLiteral("A unidade já está atualizada."), asBefore,
                         QStringLiteral("version of ten thousand lines"));
        const QString logged = newLogLines().join(u'\n');
        QVERIFY(logged.startsWith(
            QStringLiteral("Nenhuma atualização disponível. Instalado: 1.0.0 | Remoto: 0\n0\n")));
        QCOMPARE(logged.size(), 10'003);
        QVERIFY(logged.endsWith(QStringLiteral("...")));
    }

    void redirectThatLeadsAstrayIsRefused_data()
    {
        QTest::addColumn<QUrl>("target");
        QTest::newRow("to itself, without an end") << server->url(packagePath);
        QTest::newRow("to a file of the host") << QUrl(QStringLiteral("file:///etc/passwd"));
        QTest::newRow("to plain HTTP") << server->plainUrl(packagePath);
    }
    void redirectThatLeadsAstrayIsRefused()
    {
        QFETCH(QUrl, target);
        server->answer(packagePath, VendorBehaviour::redirect(target));
        updateAndCompare(QString(), asBefore);
        QVERIFY(newLogLines().value(0).startsWith(QStringLiteral("Falha no download: ")));
    }

    void packageThatDripsOrNeverEndsIsGivenUp_data()
    {
        QTest::addColumn<bool>("drips");
        QTest::newRow("a byte at a time") << true;
        QTest::newRow("a body without an end") << false;
    }
    void packageThatDripsOrNeverEndsIsGivenUp()
    {
        QFETCH(bool, drips);
        server->answer(packagePath,
                       drips ? VendorBehaviour::drip(100000, 100) : VendorBehaviour::endlessBody());
        QList<std::function<void()>> events{[] { TestSupport::advanceClock(601); }};
        const auto timer = whileFetching(packagePath, &events);
        updateAndCompare(QStringLiteral("Tempo limite excedido ao acessar: "), asBefore);
    }

    void zipThatCannotBeTakenLeavesTheDriveAsItIs_data()
    {
        QTest::addColumn<ZipFile>("zip");
        QTest::addColumn<QString>("message");
        const QString refused = QStringLiteral("Falha ao extrair ZIP: ");
        const QString document = host.path(QStringLiteral("document"));
        QTest::newRow("entry with an absolute name")
            << completePackage(QStringLiteral("1.1.0")).file(document, QStringLiteral("x"))
            << refused;
        QTest::newRow("entry behind a link to the host")
            << completePackage(QStringLiteral("1.1.0"))
                   .link(QStringLiteral("out"), host.path())
                   .file(QStringLiteral("out/document"), QStringLiteral("x"))
            << refused;
        QTest::newRow("bomb of zeros")
            << completePackage(QStringLiteral("1.1.0"))
                   .zeros(QStringLiteral("Tessarine/linux/bomb"), 300'000'000)
            << refused;
        QTest::newRow("bomb of a terabyte")
            << completePackage(QStringLiteral("1.1.0"))
                   .manyOfZeros(QStringLiteral("Tessarine/linux/bomb"), 100'000'000, 10'000)
            << refused;
        QTest::newRow("bomb beside the bundles, its names in no encoding")
            << completePackage(QStringLiteral("1.1.0"))
                   .fileOfRawName("Tessarine/\xFF\xFE/\xC3(", false)
                   .zeros(QStringLiteral("bomb"), 300'000'000)
            << refused;
        QTest::newRow("second name that is absolute")
            << completePackage(QStringLiteral("1.1.0"))
                   .fileOfTwoNames(QStringLiteral("Tessarine/linux/a"), document.toUtf8())
            << refused;
    }
    void zipThatCannotBeTakenLeavesTheDriveAsItIs()
    {
        QFETCH(ZipFile, zip);
        QFETCH(QString, message);
        prepareDrive(failingDrive());
        publish(zip.bytes());
        updateAndCompare(message, asBefore);
    }

    void bombThatIsStillUnpackedAfterThreeMinutesIsGivenUp()
    {
        signal(SIGUSR1, [](int) { TestSupport::advanceClock(181); });
        const StubCommand unzip(
            QStringLiteral("unzip"),
            QStringLiteral("(until ls %1/Tessarine/.update-*/extracted/bomb; do :; done\n"
                           "kill -STOP $$\n"
                           "until grep -q '^State:.S' /proc/$PPID/status; do :; done\n"
                           "kill -USR1 $PPID) >/dev/null 2>&1 &\n"
                           "exec /usr/bin/unzip \"$@\"")
                .arg(drive->path())
                .toUtf8());
        publish(completePackage(QStringLiteral("1.1.0"))
                    .zeros(QStringLiteral("bomb"), 300'000'000)
                    .bytes());
        updateAndCompare(QStringLiteral("Falha ao extrair ZIP: "), asBefore,
                         QStringLiteral("bomb that goes on for three minutes"));
        signal(SIGUSR1, SIG_DFL);
    }

    void restOfAZipIsIgnored_data()
    {
        QTest::addColumn<ZipFile>("zip");
        const QString climbing = QStringLiteral("../../../../../../../../../..");
        const QString document = host.path(QStringLiteral("document"));
        QTest::newRow("entry that points upwards")
            << completePackage(QStringLiteral("1.1.0"))
                   .file(climbing + document, QStringLiteral("x"));
        QTest::newRow("entry that replaces the package itself")
            << completePackage(QStringLiteral("1.1.0"))
                   .file(QStringLiteral("../package.zip"), QStringLiteral("x"));
        QTest::newRow("two entries of one name")
            << completePackage(QStringLiteral("1.1.0"))
                   .file(QStringLiteral("Tessarine/linux/Tessarine"), QStringLiteral("1.1.0"));
        QTest::newRow("files of the drive itself")
            << completePackage(QStringLiteral("1.1.0"))
                   .file(QStringLiteral("documento.txt"), QStringLiteral("x"))
                   .file(QStringLiteral("Tessarine/README.txt"), QStringLiteral("x"))
                   .file(QStringLiteral("Tessarine/update-state.json"), QStringLiteral("x"));
        QTest::newRow("entry named as the state of the staging")
            << completePackage(QStringLiteral("1.1.0"))
                   .file(QStringLiteral("package.zip"), QStringLiteral("x"));
        QTest::newRow("name in Latin-1") << completePackage(QStringLiteral("1.1.0"))
                                                .fileOfRawName("outro/corre\xE7\xF5"
                                                               "es",
                                                               false);
        QTest::newRow("name that says it is UTF-8, and isn't")
            << completePackage(QStringLiteral("1.1.0")).fileOfRawName("outro/\xFF\xFE/\xC3(", true);
        QTest::newRow("second name of a file on the host")
            << completePackage(QStringLiteral("1.1.0"))
                   .fileOfTwoNames(QStringLiteral("Tessarine/linux/a"),
                                   (climbing + document).toUtf8());
    }
    void restOfAZipIsIgnored()
    {
        QFETCH(ZipFile, zip);
        prepareDrive(smallDrive());
        publish(zip.bytes());
        updateAndCompare(QStringLiteral("Atualização concluída."), updated);
    }

    void whatAZipBringsInItsBundlesIsTaken_data()
    {
        QTest::addColumn<ZipFile>("zip");
        QTest::addColumn<QString>("difference");
        QTest::newRow("device file") << completePackage(QStringLiteral("1.1.0"))
                                            .device(QStringLiteral("Tessarine/linux/zero"))
                                     << QStringLiteral("+ `Tessarine/linux/zero`");
        QTest::newRow("name of every character")
            << completePackage(QStringLiteral("1.1.0"))
                   .file(QStringLiteral("Tessarine/linux/a\nb\u202e<b>%1"), QStringLiteral("x"))
            << QStringLiteral("+ `Tessarine/linux/ab<b>%1`");
        QTest::newRow("name in the code page of DOS")
            << completePackage(QStringLiteral("1.1.0"))
                   .fileOfRawName("Tessarine/linux/corre\x87\xE4"
                                  "es",
                                  false)
            << QStringLiteral("+ `Tessarine/linux/corre\uFFFD\uFFFDes`");
        QTest::newRow("second name of a file that must be there")
            << completePackage(QStringLiteral("1.1.0"))
                   .fileOfTwoNames(QStringLiteral("outro"), "Tessarine/linux/Tessarine")
            << QStringLiteral("± `Tessarine/linux/Tessarine`");
    }
    void whatAZipBringsInItsBundlesIsTaken()
    {
        QFETCH(ZipFile, zip);
        QFETCH(QString, difference);
        prepareDrive(smallDrive());
        publish(zip.bytes());
        updateAndCompare(QStringLiteral("Atualização concluída."),
                         updated + QStringLiteral(", ") + difference);
    }
};

TESSARINE_UPDATE_TEST_MAIN(HostileVendorTest)
#include "hostile_vendor_test.moc"
