#include "tests/app/UpdateSituation.h"

// A package that does not arrive, or is not the one that was announced.
class UpdateDownloadTest : public UpdateSituation
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { openServer(); }
    void cleanupTestCase() { server.reset(); }
    void init() { begin(); }
    void cleanup() { end(); }

    // ---- download and verification

    void packageThatCannotBeFetchedIsReported()
    {
        server->answer(packagePath, VendorBehaviour::resetHalfWay());
        const QStringList before = drive->tree();
        agreeToUpdate();
        compareFailedFetch(QStringLiteral("Falha no download: "));
        QCOMPARE(drive->tree(), before);
    }

    void emptyPackageIsAFailureWithoutWords()
    {
        server->answer(packagePath, VendorBehaviour::status(200));
        agreeToUpdate();
        compareWarning(QString());
        QCOMPARE(window->logView->toPlainText().section(u'\n', -1),
                 QStringLiteral("Falha no download: "));
    }

    void packageOfAnotherSizeIsRefusedWithoutALogLine_data()
    {
        QTest::addColumn<qint64>("size");
        QTest::newRow("other") << qint64(17);
        QTest::newRow("zero") << qint64(0);
    }
    void packageOfAnotherSizeIsRefusedWithoutALogLine()
    {
        QFETCH(qint64, size);
        const qint64 received = manifest.value(QStringLiteral("size")).toInteger();
        publishWith(QStringLiteral("size"), size);
        const QStringList before = drive->tree();
        agreeToUpdate();
        compareWarning(QStringLiteral("Tamanho do pacote divergente. Esperado: %1 bytes. "
                                      "Recebido: %2 bytes.")
                           .arg(size)
                           .arg(received));
        QCOMPARE(newLogLines(), QStringList());
        QCOMPARE(drive->tree(), before);
    }

    void negativeSizeSwitchesTheCheckOff_data()
    {
        QTest::addColumn<QJsonValue>("size");
        QTest::newRow("absent") << QJsonValue(QJsonValue::Null);
        QTest::newRow("-5") << QJsonValue(-5);
    }
    void negativeSizeSwitchesTheCheckOff()
    {
        QFETCH(QJsonValue, size);
        publishWith(QStringLiteral("size"), size);
        agreeToUpdate();
        QCOMPARE(read(QStringLiteral("linux/Tessarine")), QByteArray("1.1.0"));
    }

    void packageOfAnotherHashIsRefusedInABoxAndThenInTheLog()
    {
        const QString calculated = manifest.value(QStringLiteral("sha256")).toString();
        publishWith(QStringLiteral("sha256"), QStringLiteral("00ff"));
        user->willPress(QStringLiteral("Sim"));
        QStringList seen{QStringLiteral("none yet")};
        whenBoxShows([&] { seen = newLogLines(); });
        const QStringList before = drive->tree();
        update();
        compareWarning(QStringLiteral("Hash SHA-256 divergente. O pacote não será aplicado."));
        QCOMPARE(seen, QStringList());
        QCOMPARE(
            newLogLines(),
            QStringList{
                QStringLiteral("Hash divergente. Esperado: 00ff | Calculado: %1").arg(calculated)});
        QCOMPARE(drive->tree(), before);
    }

    void hashInCapitalsPasses()
    {
        publishWith(QStringLiteral("sha256"),
                    manifest.value(QStringLiteral("sha256")).toString().toUpper());
        agreeToUpdate();
        QCOMPARE(read(QStringLiteral("linux/Tessarine")), QByteArray("1.1.0"));
    }

    void hashWithABlankAroundItFails()
    {
        publishWith(QStringLiteral("sha256"),
                    QStringLiteral(" ") + manifest.value(QStringLiteral("sha256")).toString());
        agreeToUpdate();
        compareWarning(QStringLiteral("Hash SHA-256 divergente. O pacote não será aplicado."));
    }
};

TESSARINE_UPDATE_TEST_MAIN(UpdateDownloadTest)
#include "update_download_test.moc"
