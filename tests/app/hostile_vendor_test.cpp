#include "tests/app/HostileCases.h"
#include "tests/support/OwnClock.h"
#include "tests/support/StubCommand.h"

#include <signal.h>

using TestSupport::completeLinuxBundle;
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

    static const char *documentAt(const QString &path)
    {
        return path == manifestPath ? "manifest" : "package";
    }

    static QString logPrefixOf(const QString &path)
    {
        return path == manifestPath ? QStringLiteral("Falha ao consultar manifesto: ")
                                    : QStringLiteral("Falha no download: ");
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
        QTest::newRow("address of a device of localhost")
            << QByteArray("packageUrl") << QByteArray("\"file://localhost/dev/zero\"")
            << QStringLiteral("Tempo limite excedido ao acessar: file://localhost/dev/zero");
        QTest::newRow("address of a file of terabytes that says it is empty")
            << QByteArray("packageUrl") << QByteArray("\"file:///proc/self/pagemap\"")
            << QStringLiteral("Tamanho do pacote divergente.");
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
        QVERIFY(memoryGrowth() < 64'000'000 + TestSupport::freedMemoryKept);
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
        publishWith(QStringLiteral("version"), QStringLiteral("0\n").repeated(10000) + u'1');
        updateAndCompare(QStringLiteral("A unidade já está atualizada."), asBefore,
                         QStringLiteral("version of ten thousand lines"));
        const QString logged = newLogLines().join(u'\n');
        QVERIFY(logged.startsWith(
            QStringLiteral("Nenhuma atualização disponível. Instalado: 1.0.0 | Remoto: 0\n0\n")));
        QCOMPARE(logged.size(), 10'005);
        QVERIFY(logged.contains(QStringLiteral("0\n...\n")));
        QVERIFY(logged.endsWith(QStringLiteral("0\n1")));
    }

    void redirectThatLeadsAstrayIsRefused_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QUrl>("target");
        QTest::addColumn<QString>("message");
        for (const QString &path : {manifestPath, packagePath}) {
            QTest::addRow("%s redirected to itself, without an end", documentAt(path))
                << path << server->url(path) << QStringLiteral("Too many redirects");
            QTest::addRow("%s redirected to a file of the host", documentAt(path))
                << path << QUrl(QStringLiteral("file:///etc/passwd"))
                << QStringLiteral("Unknown protocol specified");
            QTest::addRow("%s redirected to plain HTTP", documentAt(path))
                << path << server->plainUrl(path) << QStringLiteral("Insecure redirect");
        }
    }
    void redirectThatLeadsAstrayIsRefused()
    {
        QFETCH(QString, path);
        QFETCH(QUrl, target);
        QFETCH(QString, message);
        server->answer(path, VendorBehaviour::redirect(target));
        updateAndCompare(message, asBefore);
        compareFailedFetch(logPrefixOf(path));
    }

    void bodyThatDripsOrNeverEndsIsGivenUp_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("drips");
        for (const QString &path : {manifestPath, packagePath}) {
            QTest::addRow("%s a byte at a time", documentAt(path)) << path << true;
            QTest::addRow("%s without an end", documentAt(path)) << path << false;
        }
    }
    void bodyThatDripsOrNeverEndsIsGivenUp()
    {
        QFETCH(QString, path);
        QFETCH(bool, drips);
        server->answer(path,
                       drips ? VendorBehaviour::drip(100000, 100) : VendorBehaviour::endlessBody());
        const int limit = path == manifestPath ? 30 : 600;
        QList<std::function<void()>> events{[limit] { TestSupport::advanceClock(limit + 1); }};
        const auto timer = whileFetching(path, &events);
        updateAndCompare(QStringLiteral("Tempo limite excedido ao acessar: "), asBefore);
        compareFailedFetch(logPrefixOf(path));
    }

    void bodyOfUntoldLengthIsHeldInMemory_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("message");
        QTest::newRow("manifest of 100 MB, its length untold")
            << manifestPath << QStringLiteral("Manifesto invalido: ");
        QTest::newRow("package of 100 MB, its length untold")
            << packagePath << QStringLiteral("Tamanho do pacote divergente.");
    }
    void bodyOfUntoldLengthIsHeldInMemory()
    {
        QFETCH(QString, path);
        QFETCH(QString, message);
        constexpr qint64 size = 100'000'000;
        server->answer(path, VendorBehaviour::bodyOfUntoldLength(size));
        updateAndCompare(message, asBefore);
        QVERIFY(memoryGrowth() < 4 * size + TestSupport::freedMemoryKept);
    }

    void compressedBombIsNotUnpackedInMemory_data()
    {
        QTest::addColumn<QString>("path");
        for (const QString &path : {manifestPath, packagePath})
            QTest::addRow("%s that is a compressed bomb of 100 MB", documentAt(path)) << path;
    }
    void compressedBombIsNotUnpackedInMemory()
    {
        QFETCH(QString, path);
        server->answer(path, VendorBehaviour::compressedZeros(100'000'000));
        updateAndCompare(QStringLiteral("Decompression failed: "), asBefore);
        QCOMPARE(newLogLines(),
                 QStringList{logPrefixOf(path) + QStringLiteral("Decompression failed:")});
        QVERIFY(memoryGrowth() < 64'000'000 + TestSupport::freedMemoryKept);
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

    // Also not by the next update, which removes it.
    void linkOfAZipIsTakenAndNotFollowed_data()
    {
        QTest::addColumn<ZipFile>("zip");
        QTest::addColumn<QString>("difference");
        const QString onHost = host.path(QStringLiteral("bundle"));
        QTest::newRow("link to a file of the host")
            << completePackage(QStringLiteral("1.1.0"))
                   .link(QStringLiteral("Tessarine/linux/x"), host.path(QStringLiteral("document")))
            << QStringLiteral("+ `Tessarine/linux/x`");
        QTest::newRow("link to a directory of the host")
            << completePackage(QStringLiteral("1.1.0"))
                   .link(QStringLiteral("Tessarine/linux/x"), host.path())
            << QStringLiteral("+ `Tessarine/linux/x`");
        QTest::newRow("bundle that is a link to the host")
            << completeLinuxBundle(QStringLiteral("1.1.0"))
                   .link(QStringLiteral("Tessarine/windows"), onHost)
            << QStringLiteral("+ `Tessarine/windows`, - `Tessarine/windows/Tessarine.exe`, "
                              "- `Tessarine/windows/`, - `Tessarine/windows/platforms/`, "
                              "- `Tessarine/windows/platforms/qwindows.dll`");
    }
    void linkOfAZipIsTakenAndNotFollowed()
    {
        QFETCH(ZipFile, zip);
        QFETCH(QString, difference);
        host.write(QStringLiteral("bundle/Tessarine.exe"), "precious");
        host.write(QStringLiteral("bundle/platforms/qwindows.dll"), "precious");
        const QStringList onHost = host.tree();
        const auto permissions = QFile::permissions(host.path(QStringLiteral("document")));
        prepareDrive(smallDrive());
        publish(zip.bytes());
        updateAndCompare(QStringLiteral("Atualização concluída."),
                         updated + QStringLiteral(", ") + difference);

        publish(completePackage(QStringLiteral("1.2.0")).bytes());
        publishWith(QStringLiteral("version"), QStringLiteral("1.2.0"));
        agreeToUpdate();
        compareInformation(QStringLiteral("Atualização concluída.\n\nVersão instalada: 1.2.0"));
        QCOMPARE(read(QStringLiteral("windows/Tessarine.exe")), QByteArray("1.2.0"));
        QCOMPARE(drive->tree().filter(QStringLiteral(" -> ")), QStringList());
        QCOMPARE(host.tree(), onHost);
        QCOMPARE(QFile::permissions(host.path(QStringLiteral("document"))), permissions);
    }
};

TESSARINE_UPDATE_TEST_MAIN(HostileVendorTest)
#include "hostile_vendor_test.moc"
