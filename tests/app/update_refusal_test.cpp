#include "tests/app/UpdateSituation.h"
#include "tests/support/FakeDeviceManager.h"
#include "tests/support/StubCommand.h"

using TestSupport::SearchPath;
using TestSupport::StubCommand;
using TestSupport::unmountedVolume;

// An update that ends before a package is fetched: the drive, the vendor or the user says no.
class UpdateRefusalTest : public UpdateSituation
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { openServer(); }
    void cleanupTestCase() { server.reset(); }
    void init() { begin(); }
    void cleanup() { end(); }

    // ---- before anything is fetched

    void noSelectionIsRefused()
    {
        window->deviceCombo->setCurrentIndex(-1);
        update();
        compareInformation(QStringLiteral("Selecione uma unidade USB primeiro."));
        QCOMPARE(newLogLines(), QStringList());
    }

    void emptyListIsRefused()
    {
        openWindowOver({});
        update();
        compareInformation(QStringLiteral("Selecione uma unidade USB primeiro."));
        QCOMPARE(newLogLines(), QStringList());
    }

    void unmountedDriveIsRefused()
    {
        openWindowOver({unmountedVolume(QStringLiteral("PEN"), QStringLiteral("/dev/sdz1"))});
        window->deviceCombo->setCurrentIndex(0);
        update();
        compareInformation(QStringLiteral(
            "Monte a unidade USB e atualize a lista antes de verificar atualizações."));
        QCOMPARE(newLogLines(), QStringList());
    }

    void mountedDriveWithoutAMountPointIsRefused()
    {
        openWindowOver({mountedVolume(QStringLiteral("PEN"), QString())});
        window->deviceCombo->setCurrentIndex(0);
        update();
        compareInformation(QStringLiteral(
            "Monte a unidade USB e atualize a lista antes de verificar atualizações."));
    }

    void driveThatIsNotPreparedIsRefusedBeforeAskingForTheMainApplication()
    {
        const Drive empty;
        openWindowOver({mountedVolume(QStringLiteral("PEN"), empty.path())});
        const StubCommand pgrep(QStringLiteral("pgrep"), "touch \"$(dirname \"$0\")/called\"");
        update();
        compareInformation(QStringLiteral(
            "A unidade selecionada ainda não possui uma estrutura Tessarine preparada."));
        QCOMPARE(newLogLines(), QStringList());
        QVERIFY(!pgrep.directory().exists(QStringLiteral("called")));
    }

    void runningMainApplicationIsRefused_data()
    {
        QTest::addColumn<QByteArray>("pgrep");
        QTest::addColumn<bool>("running");
        QTest::newRow("exit 0 with output") << QByteArray("echo 4711") << true;
        QTest::newRow("exit 0 with blanks") << QByteArray("echo '  '") << false;
        QTest::newRow("exit 0 without output") << QByteArray("true") << false;
        QTest::newRow("exit 1 with output") << QByteArray("echo 4711; exit 1") << false;
        QTest::newRow("exit 2") << QByteArray("exit 2") << false;
        QTest::newRow("no answer for five seconds") << QByteArray("exec sleep 60") << true;
    }
    void runningMainApplicationIsRefused()
    {
        QFETCH(QByteArray, pgrep);
        QFETCH(bool, running);
        const StubCommand stub(QStringLiteral("pgrep"), pgrep);
        const qsizetype requestsBefore = server->requests().size();
        updateAnswering(QStringLiteral("Não"));
        QCOMPARE(server->requests().size() == requestsBefore, running);
        if (running) {
            compareWarning(
                QStringLiteral("Feche o Tessarine antes de atualizar os bundles da unidade USB."));
            QCOMPARE(newLogLines(), QStringList());
        }
    }

    void missingPgrepIsRefusedToo()
    {
        const Drive empty;
        const SearchPath path(empty.path());
        update();
        compareWarning(
            QStringLiteral("Feche o Tessarine antes de atualizar os bundles da unidade USB."));
    }

    // ---- manifest and question

    void manifestThatCannotBeFetchedIsReported()
    {
        server->answer(manifestPath, VendorBehaviour::status(404));
        const QStringList before = drive->tree();
        update();
        compareFailedFetch(QStringLiteral("Falha ao consultar manifesto: "));
        QCOMPARE(drive->tree(), before);
    }

    void emptyManifestIsAFailureWithoutWords()
    {
        server->answer(manifestPath, VendorBehaviour::status(200));
        update();
        compareWarning(QString());
        QCOMPARE(window->logView->toPlainText().section(u'\n', -1),
                 QStringLiteral("Falha ao consultar manifesto: "));
    }

    void manifestThatCannotBeParsedCarriesItsPrefixTwiceInTheLog()
    {
        server->publish(manifestPath, "[]");
        const QStringList before = drive->tree();
        update();
        const QString text =
            QStringLiteral("Manifesto invalido: %1").arg(QJsonParseError().errorString());
        compareWarning(text);
        QCOMPARE(newLogLines(), QStringList{QStringLiteral("Manifesto invalido: ") + text});
        QCOMPARE(drive->tree(), before);
    }

    void driveThatIsUpToDateIsToldInABoxAndThenInTheLog()
    {
        publishWith(QStringLiteral("version"), QStringLiteral("1.0.0"));
        QStringList seen{QStringLiteral("none yet")};
        bool isCovered = true;
        whenBoxShows([&] {
            seen = newLogLines();
            isCovered = window->findChild<QProgressDialog *>()->isVisible();
        });
        const QStringList before = drive->tree();
        update();
        QVERIFY2(!isCovered, "The dialog stands behind the box");
        compareInformation(QStringLiteral("A unidade já está atualizada.\n\n"
                                          "Versão instalada: 1.0.0\nVersão disponível: 1.0.0"));
        QCOMPARE(seen, QStringList());
        QCOMPARE(newLogLines(),
                 QStringList{QStringLiteral(
                     "Nenhuma atualização disponível. Instalado: 1.0.0 | Remoto: 1.0.0")});
        QCOMPARE(drive->tree(), before);
    }

    void driveWithoutStateIsTreatedAsVersionZero_data()
    {
        QTest::addColumn<QByteArray>("state");
        QTest::newRow("no file") << QByteArray();
        QTest::newRow("no object") << QByteArray("[]");
        QTest::newRow("another app")
            << QByteArray(R"({"app": "tessarine", "installedVersion": "9"})");
        QTest::newRow("empty version")
            << QByteArray(R"({"app": "Tessarine", "installedVersion": ""})");
        QTest::newRow("version as number")
            << QByteArray(R"({"app": "Tessarine", "installedVersion": 9})");
    }
    void driveWithoutStateIsTreatedAsVersionZero()
    {
        QFETCH(QByteArray, state);
        const QString path = updateStatePath(drive->path());
        if (state.isNull())
            QFile::remove(path);
        else
            drive->write(QStringLiteral("Tessarine/update-state.json"), state);
        updateAnswering(QStringLiteral("Não"));
        QCOMPARE(
            newLogLines().first(),
            QStringLiteral("Estado local ausente em %1; a unidade será tratada como atualizável.")
                .arg(path));
        QVERIFY2(lastBox().text.contains(QStringLiteral("Versão instalada: desconhecida\n")),
                 qPrintable(lastBox().text));
    }

    void driveWithoutStateAgainstVersionZeroIsUpToDate()
    {
        QFile::remove(updateStatePath(drive->path()));
        publishWith(QStringLiteral("version"), QStringLiteral("0.0.0"));
        update();
        compareInformation(
            QStringLiteral("A unidade já está atualizada.\n\n"
                           "Versão instalada: desconhecida\nVersão disponível: 0.0.0"));
    }

    void questionNamesDriveVersionsAndNotes()
    {
        updateAnswering(QStringLiteral("Não"));
        QCOMPARE(user->boxes.size(), 1);
        QCOMPARE(lastBox().title, QStringLiteral("Atualização disponível"));
        QCOMPARE(lastBox().icon, QMessageBox::Question);
        QCOMPARE(lastBox().text,
                 QStringLiteral("Atualizar Tessarine na unidade %1?\n\nVersão instalada: 1.0.0\n"
                                "Versão disponível: 1.1.0\n\nCorreções.")
                     .arg(drive->path()));
        QCOMPARE(lastBox().buttons, QStringList({QStringLiteral("Sim"), QStringLiteral("Não")}));
        QCOMPARE(lastBox().defaultButton, QStringLiteral("Não"));
    }

    void questionWithoutNotesSaysSo()
    {
        publishWith(QStringLiteral("releaseNotes"), QString());
        updateAnswering(QStringLiteral("Não"));
        QVERIFY2(lastBox().text.endsWith(QStringLiteral("\n\nSem notas de versão.")),
                 qPrintable(lastBox().text));
    }

    void placeholdersInTheNotesStayAsTheyAre()
    {
        publishWith(QStringLiteral("releaseNotes"), QStringLiteral("100 %1 %2 %4"));
        updateAnswering(QStringLiteral("Não"));
        QVERIFY2(lastBox().text.endsWith(QStringLiteral("\n\n100 %1 %2 %4")),
                 qPrintable(lastBox().text));
    }

    void storedTextThatIsNoVersionIsShownAsItStands()
    {
        drive->write(QStringLiteral("Tessarine/update-state.json"),
                     R"({"app": "Tessarine", "installedVersion": "novembro"})");
        updateAnswering(QStringLiteral("Não"));
        QVERIFY2(lastBox().text.contains(QStringLiteral("Versão instalada: novembro\n")),
                 qPrintable(lastBox().text));
    }

    void refusalIsLoggedWithoutABox()
    {
        const QStringList before = drive->tree();
        updateAnswering(QStringLiteral("Não"));
        QCOMPARE(newLogLines(), QStringList{QStringLiteral("Atualização cancelada pelo usuário.")});
        QCOMPARE(user->boxes.size(), 1);
        QCOMPARE(drive->tree(), before);
    }
};

TESSARINE_UPDATE_TEST_MAIN(UpdateRefusalTest)
#include "update_refusal_test.moc"
