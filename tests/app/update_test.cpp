#define main tessarineConfigMain
// The suite's own server, on the loopback interface of its private network.
#undef TESSARINE_UPDATE_ENDPOINT
#define TESSARINE_UPDATE_ENDPOINT "https://127.0.0.1"
#include "app/TessarineConfig.cpp"
#undef main

#include "tests/support/BindMount.h"
#include "tests/support/Drive.h"
#include "tests/support/FakeDeviceManager.h"
#include "tests/support/LiveMemory.h"
#include "tests/support/MessageBoxUser.h"
#include "tests/support/StubCommand.h"
#include "tests/support/SyncWatch.h"
#include "tests/support/TestMain.h"
#include "tests/support/VendorServer.h"
#include "tests/support/ZipFile.h"

#include <QTest>

using TestSupport::BindMount;
using TestSupport::completePackage;
using TestSupport::Drive;
using TestSupport::FakeDeviceManager;
using TestSupport::MessageBoxUser;
using TestSupport::mountedVolume;
using TestSupport::SearchPath;
using TestSupport::SeenBox;
using TestSupport::StubCommand;
using TestSupport::unmountedVolume;
using TestSupport::VendorBehaviour;
using TestSupport::VendorServer;
using TestSupport::whenSynced;
using TestSupport::ZipFile;

namespace
{

const QString manifestPath = QStringLiteral("/000Updates/tessarine/manifest.json");
const QString packagePath = QStringLiteral("/tessarine-1.1.0.zip");

const QStringList requiredNames{QStringLiteral("windows/Tessarine.exe"),
                                QStringLiteral("windows/platforms/qwindows.dll"),
                                QStringLiteral("linux/Tessarine"),
                                QStringLiteral("linux/Tessarine-Linux.sh"),
                                QStringLiteral("linux/qt.conf"),
                                QStringLiteral("linux/lib/libssl.so.3"),
                                QStringLiteral("linux/plugins/tls/libqopensslbackend.so")};

QString sha256(const QByteArray &bytes)
{
    return QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex());
}

std::unique_ptr<Drive> smallDrive()
{
    return std::unique_ptr<Drive>(new Drive(Drive::tmpfs(1 << 20)));
}

// The dialog over a running command, while there is one.
QProgressDialog *progressDialog()
{
    const QWidgetList widgets = QApplication::topLevelWidgets();
    for (QWidget *widget : widgets) {
        if (auto *dialog = qobject_cast<QProgressDialog *>(widget))
            return dialog;
    }
    return nullptr;
}

// Notes what the dialog of a command shows, and counts how often the window behind it is painted.
class Onlooker : public QObject
{
public:
    Onlooker() { qApp->installEventFilter(this); }

    QMap<int, QString> labels; // of each value, the one that it began with
    int windowPaints = 0;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() != QEvent::Paint)
            return false;
        const QProgressDialog *dialog = progressDialog();
        if (dialog == nullptr)
            return false;
        if (!labels.contains(dialog->value()))
            labels.insert(dialog->value(), dialog->labelText());
        if (dynamic_cast<BackgroundWidget *>(watched) != nullptr)
            ++windowPaints;
        return false;
    }
};

} // namespace

class UpdateTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<VendorServer> server;
    std::unique_ptr<Drive> drive;
    std::unique_ptr<MessageBoxUser> user;
    std::unique_ptr<ConfigWindow> window;
    QString logAtStart;
    QJsonObject manifest;

    // ---- the situation

    void prepareDrive(std::unique_ptr<Drive> newDrive)
    {
        drive = std::move(newDrive);
        for (const QString &name : requiredNames)
            drive->write(QStringLiteral("Tessarine/") + name, "1.0.0");
        drive->write(QStringLiteral("Tessarine/windows/old.dll"), "1.0.0");
        drive->write(QStringLiteral("Tessarine/README.txt"), "text");
        drive->write(QStringLiteral("Tessarine-Linux.sh"), "launcher");
        drive->write(QStringLiteral("documento.txt"), "precious");
        QString error;
        if (!writeUpdateState(drive->path(), QStringLiteral("1.0.0"), {}, &error))
            qFatal("%s", qPrintable(error));
        openWindowOver({mountedVolume(QStringLiteral("PEN"), drive->path())});
    }

    void openWindowOver(const QList<UsbDevice> &devices)
    {
        window = std::make_unique<ConfigWindow>();
        window->deviceManager = std::make_unique<FakeDeviceManager>(devices);
        window->refreshDevices();
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        logAtStart = window->logView->toPlainText();
    }

    void publish(const QByteArray &package)
    {
        manifest = {{QStringLiteral("schemaVersion"), 1},
                    {QStringLiteral("app"), QStringLiteral("Tessarine")},
                    {QStringLiteral("version"), QStringLiteral("1.1.0")},
                    {QStringLiteral("packageUrl"), server->url(packagePath).toString()},
                    {QStringLiteral("sha256"), sha256(package)},
                    {QStringLiteral("size"), package.size()},
                    {QStringLiteral("releaseNotes"), QStringLiteral("Correções.")}};
        server->publish(packagePath, package);
        publishManifest();
    }

    void publishWith(const QString &key, const QJsonValue &value)
    {
        manifest.insert(key, value);
        publishManifest();
    }

    void publishManifest() { server->publish(manifestPath, QJsonDocument(manifest).toJson()); }

    // ---- what the user does and sees

    void update() { window->updateAction->trigger(); }

    void updateAnswering(const QString &answer)
    {
        user->willPress(answer);
        update();
    }
    void agreeToUpdate() { updateAnswering(QStringLiteral("Sim")); }

    QStringList newLogLines() const
    {
        const QString text = window->logView->toPlainText().mid(logAtStart.size()).trimmed();
        return text.isEmpty() ? QStringList() : text.split(u'\n');
    }

    // The box that ends the command, behind the question if there was one.
    SeenBox lastBox() const { return user->boxes.isEmpty() ? SeenBox() : user->boxes.last(); }

    void compareLastBox(QMessageBox::Icon icon, const QString &text) const
    {
        QCOMPARE(lastBox().text, text);
        QCOMPARE(lastBox().icon, icon);
        QCOMPARE(lastBox().title, QStringLiteral("Tessarine - Gerenciador"));
        QCOMPARE(lastBox().buttons, QStringList{QStringLiteral("OK")});
        QCOMPARE(lastBox().parent, window.get());
    }
    void compareWarning(const QString &text) const { compareLastBox(QMessageBox::Warning, text); }
    void compareInformation(const QString &text) const
    {
        compareLastBox(QMessageBox::Information, text);
    }

    // Runs what a box comes up with, then dismisses it.
    void whenBoxShows(const std::function<void()> &look)
    {
        user->willAnswer([look](QMessageBox *box) {
            look();
            box->close();
        });
    }

    QStringList bundleNames() const
    {
        QStringList names = QDir(drive->path(QStringLiteral("Tessarine")))
                                .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
        names.sort();
        return names;
    }

    // The entries of the bundle root with the digits of time stamps made alike.
    QStringList stampedBundleNames() const
    {
        QStringList names = bundleNames();
        return names.replaceInStrings(QRegularExpression(QStringLiteral("\\d{14}")),
                                      QStringLiteral("TIME"));
    }

    QByteArray read(const QString &name) const
    {
        return drive->read(QStringLiteral("Tessarine/") + name);
    }

    QJsonObject state() const
    {
        return QJsonDocument::fromJson(read(QStringLiteral("update-state.json"))).object();
    }

    // A directory that another file system is mounted on can't be renamed.
    void compareFailedSwap(const QString &platform)
    {
        const Drive other;
        other.write(QStringLiteral("a"), "1.0.0");
        const QString target = drive->path(QStringLiteral("Tessarine/") + platform);
        const BindMount mount(other.path(), target);
        const QStringList before = drive->tree();
        agreeToUpdate();
        const QString text = QStringLiteral("Não foi possível criar backup de: %1").arg(target);
        compareWarning(text);
        QCOMPARE(newLogLines(),
                 QStringList{QStringLiteral("Falha ao aplicar atualização: ") + text});
        QCOMPARE(drive->tree(), before);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QCoreApplication::setApplicationVersion(QStringLiteral(TESSARINE_VERSION));
        server = std::make_unique<VendorServer>(443);
    }

    void cleanupTestCase() { server.reset(); }

    void init()
    {
        user = std::make_unique<MessageBoxUser>();
        prepareDrive(std::make_unique<Drive>());
        publish(completePackage(QStringLiteral("1.1.0")).bytes());
    }

    void cleanup()
    {
        whenSynced = nullptr;
        window.reset();
        user.reset();
        drive.reset();
        server->answerWithFile(manifestPath);
        server->answerWithFile(packagePath);
    }

    // ---- success

    void bothBundlesAreReplacedAndNothingElse()
    {
        agreeToUpdate();
        QStringList expected;
        for (const QString &name : requiredNames)
            expected << QStringLiteral("Tessarine/") + name + QStringLiteral(": 1.1.0");
        expected << QStringLiteral("Tessarine/README.txt: text")
                 << QStringLiteral("Tessarine-Linux.sh: launcher")
                 << QStringLiteral("documento.txt: precious");
        QStringList found = drive->tree().filter(QRegularExpression(QStringLiteral("[^/]$")));
        found.removeIf([](const QString &line) { return line.contains(u"update-state"); });
        expected.sort();
        QCOMPARE(found, expected);
        QCOMPARE(bundleNames(),
                 QStringList({"README.txt", "linux", "update-state.json", "windows"}));
    }

    void successIsReportedInTheLogAndThenInABox()
    {
        user->willPress(QStringLiteral("Sim"));
        QStringList seen;
        whenBoxShows([&] { seen = newLogLines(); });
        update();
        QCOMPARE(seen, QStringList{QStringLiteral("Unidade atualizada para Tessarine 1.1.0.")});
        QCOMPARE(newLogLines(), seen);
        QCOMPARE(user->boxes.size(), 2);
        compareInformation(QStringLiteral("Atualização concluída.\n\nVersão instalada: 1.1.0"));
    }

    void stateNamesTheNewVersionAndThePackage()
    {
        agreeToUpdate();
        QCOMPARE(state().value(QStringLiteral("installedVersion")).toString(),
                 QStringLiteral("1.1.0"));
        QCOMPARE(state().value(QStringLiteral("lastPackageSha256")),
                 manifest.value(QStringLiteral("sha256")));
    }

    void executeBitsOfThePackageReachTheDrive()
    {
        agreeToUpdate();
        QVERIFY(QFileInfo(drive->path(QStringLiteral("Tessarine/linux/Tessarine"))).isExecutable());
    }

    void driveWithoutBundleDirectoriesGetsThem()
    {
        QDir(drive->path(QStringLiteral("Tessarine/windows"))).removeRecursively();
        QDir(drive->path(QStringLiteral("Tessarine/linux"))).removeRecursively();
        agreeToUpdate();
        QCOMPARE(read(QStringLiteral("linux/Tessarine")), QByteArray("1.1.0"));
        QCOMPARE(read(QStringLiteral("windows/Tessarine.exe")), QByteArray("1.1.0"));
    }

    void secondUpdateRightAwayFindsNothingToDo()
    {
        agreeToUpdate();
        update();
        compareInformation(QStringLiteral("A unidade já está atualizada.\n\n"
                                          "Versão instalada: 1.1.0\nVersão disponível: 1.1.0"));
    }

    void leftoversOfEarlierRunsStay()
    {
        drive->write(QStringLiteral("Tessarine/.update-20200101000000/package.zip"), "x");
        drive->write(QStringLiteral("Tessarine/windows.backup-20200101000000/a"), "x");
        agreeToUpdate();
        QVERIFY(drive->exists(QStringLiteral("Tessarine/.update-20200101000000/package.zip")));
        QVERIFY(drive->exists(QStringLiteral("Tessarine/windows.backup-20200101000000/a")));
    }

    void packageCannotChangeAnythingBesideTheBundles()
    {
        const QStringList before = drive->tree();
        ZipFile zip = completePackage(QStringLiteral("1.1.0"));
        zip.file(QStringLiteral("documento.txt"), QStringLiteral("evil"))
            .file(QStringLiteral("Tessarine/README.txt"), QStringLiteral("evil"))
            .file(QStringLiteral("Tessarine/update-state.json"), QStringLiteral("evil"))
            .file(QStringLiteral("../../../documento.txt"), QStringLiteral("evil"))
            .link(QStringLiteral("link"), drive->path());
        publish(zip.bytes());
        agreeToUpdate();
        QCOMPARE(drive->read(QStringLiteral("documento.txt")), QByteArray("precious"));
        QCOMPARE(read(QStringLiteral("README.txt")), QByteArray("text"));
        QCOMPARE(bundleNames(),
                 QStringList({"README.txt", "linux", "update-state.json", "windows"}));
    }

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
        QVERIFY(!lastBox().text.isEmpty());
        compareWarning(lastBox().text);
        QCOMPARE(newLogLines(),
                 QStringList{QStringLiteral("Falha ao consultar manifesto: ") + lastBox().text});
        QCOMPARE(drive->tree(), before);
    }

    void emptyManifestIsAFailureWithoutWords()
    {
        server->answer(manifestPath, VendorBehaviour::status(200));
        update();
        compareWarning(QString());
        QVERIFY(window->logView->toPlainText().endsWith(
            QStringLiteral("Falha ao consultar manifesto: ")));
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
        whenBoxShows([&] { seen = newLogLines(); });
        const QStringList before = drive->tree();
        update();
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
        QVERIFY(lastBox().text.contains(QStringLiteral("Versão instalada: desconhecida\n")));
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
        QVERIFY(lastBox().text.endsWith(QStringLiteral("\n\nSem notas de versão.")));
    }

    void placeholdersInTheNotesStayAsTheyAre()
    {
        publishWith(QStringLiteral("releaseNotes"), QStringLiteral("100 %1 %2 %4"));
        updateAnswering(QStringLiteral("Não"));
        QVERIFY(lastBox().text.endsWith(QStringLiteral("\n\n100 %1 %2 %4")));
    }

    void storedTextThatIsNoVersionIsShownAsItStands()
    {
        drive->write(QStringLiteral("Tessarine/update-state.json"),
                     R"({"app": "Tessarine", "installedVersion": "novembro"})");
        updateAnswering(QStringLiteral("Não"));
        QVERIFY(lastBox().text.contains(QStringLiteral("Versão instalada: novembro\n")));
    }

    void refusalIsLoggedWithoutABox()
    {
        const QStringList before = drive->tree();
        updateAnswering(QStringLiteral("Não"));
        QCOMPARE(newLogLines(), QStringList{QStringLiteral("Atualização cancelada pelo usuário.")});
        QCOMPARE(user->boxes.size(), 1);
        QCOMPARE(drive->tree(), before);
    }

    // ---- download and verification

    void packageThatCannotBeFetchedIsReported()
    {
        server->answer(packagePath, VendorBehaviour::resetHalfWay());
        const QStringList before = drive->tree();
        agreeToUpdate();
        QVERIFY(!lastBox().text.isEmpty());
        compareWarning(lastBox().text);
        QCOMPARE(newLogLines(),
                 QStringList{QStringLiteral("Falha no download: ") + lastBox().text});
        QCOMPARE(drive->tree(), before);
    }

    void emptyPackageIsAFailureWithoutWords()
    {
        server->answer(packagePath, VendorBehaviour::status(200));
        agreeToUpdate();
        compareWarning(QString());
        QVERIFY(window->logView->toPlainText().endsWith(QStringLiteral("Falha no download: ")));
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

    // ---- staging

    void readOnlyDriveIsReportedWithoutALogLine()
    {
        prepareDrive(smallDrive());
        drive->makeReadOnly();
        const QStringList before = drive->tree();
        agreeToUpdate();
        compareWarning(QStringLiteral("Não foi possível criar área temporária na unidade USB."));
        QCOMPARE(newLogLines(), QStringList());
        QCOMPARE(drive->tree(), before);
    }

    void driveWithoutRoomForThePackageIsReportedWithoutALogLine()
    {
        prepareDrive(smallDrive());
        ZipFile zip = completePackage(QStringLiteral("1.1.0"));
        QByteArray package = zip.bytes();
        package.append(QByteArray(2 << 20, 'x'));
        publish(package);
        const QStringList before = drive->tree();
        agreeToUpdate();
        compareWarning(
            QStringLiteral("Não foi possível gravar o pacote temporário na unidade USB."));
        QCOMPARE(newLogLines(), QStringList());
        QCOMPARE(drive->tree(), before);
    }

    void packageWhoseLastBytesDoNotFitIsRefusedByTheExtraction()
    {
        prepareDrive(smallDrive());
        drive->fill();
        const QStringList before = drive->tree();
        agreeToUpdate();
        QVERIFY(lastBox().text.startsWith(QStringLiteral("Falha ao extrair ZIP: ")));
        QCOMPARE(drive->tree(), before);
    }

    void driveThatFillsUpDuringTheExtractionIsReported()
    {
        prepareDrive(smallDrive());
        ZipFile zip = completePackage(QStringLiteral("1.1.0"));
        publish(zip.zeros(QStringLiteral("Tessarine/linux/bomb"), 100000000).bytes());
        const QStringList before = drive->tree();
        agreeToUpdate();
        compareWarning(lastBox().text);
        QVERIFY2(lastBox().text.contains(QStringLiteral("write error (disk full?)")),
                 qPrintable(lastBox().text));
        QVERIFY(window->logView->toPlainText().contains(QStringLiteral("Falha ao preparar pacote: ")
                                                        + lastBox().text.section(u'\n', 0, 0)));
        QCOMPARE(drive->tree(), before);
    }

    void incompletePackageIsRefusedAndStagingRemoved()
    {
        publish(ZipFile()
                    .file(QStringLiteral("Tessarine/windows/Tessarine.exe"), QStringLiteral("x"))
                    .bytes());
        const QStringList before = drive->tree();
        agreeToUpdate();
        QVERIFY2(lastBox().text.startsWith(QStringLiteral("Pacote sem arquivo obrigatório: "))
                     && lastBox().text.endsWith(QStringLiteral("platforms/qwindows.dll")),
                 qPrintable(lastBox().text));
        compareWarning(lastBox().text);
        QCOMPARE(newLogLines(),
                 QStringList{QStringLiteral("Falha ao preparar pacote: ") + lastBox().text});
        QCOMPARE(drive->tree(), before);
    }

    void stagingLiesInTheBundleRootUnderATimeStamp()
    {
        QStringList seen;
        whenSynced = [&] {
            if (seen.isEmpty())
                seen = drive->names(QStringLiteral("Tessarine")).filter(QStringLiteral(".update-"));
        };
        agreeToUpdate();
        QVERIFY(QRegularExpression(QStringLiteral("^\\.update-\\d{14}/$"))
                    .match(seen.first())
                    .hasMatch());
        const QString staging = seen.first().chopped(1);
        const auto made = QDateTime::fromString(staging.mid(8) + QStringLiteral("Z"),
                                                QStringLiteral("yyyyMMddHHmmsst"));
        QVERIFY(qAbs(made.secsTo(QDateTime::currentDateTimeUtc())) < 60);
        QVERIFY(seen.contains(staging + QStringLiteral("/package.zip")));
        QVERIFY(seen.contains(staging + QStringLiteral("/extracted/Tessarine/linux/Tessarine")));
    }

    // ---- replacement

    void failedWindowsSwapLeavesBothOldBundles() { compareFailedSwap(QStringLiteral("windows")); }

    void failedLinuxSwapBringsTheWindowsBundleBack() { compareFailedSwap(QStringLiteral("linux")); }

    void failedStateFileKeepsNewBundlesAndBothBackups()
    {
        const QString statePath = QStringLiteral("Tessarine/update-state.json");
        QFile::remove(drive->path(statePath));
        drive->makeDirectory(statePath);
        agreeToUpdate();
        const QString text = QStringLiteral("Não foi possível abrir o arquivo de estado: %1")
                                 .arg(drive->path(statePath));
        compareWarning(text);
        QCOMPARE(newLogLines().last(), QStringLiteral("Falha ao aplicar atualização: ") + text);
        QCOMPARE(stampedBundleNames(),
                 QStringList({"README.txt", "linux", "linux.backup-TIME", "update-state.json",
                              "windows", "windows.backup-TIME"}));
        QCOMPARE(read(QStringLiteral("windows/Tessarine.exe")), QByteArray("1.1.0"));
        QCOMPARE(read(QStringLiteral("linux/Tessarine")), QByteArray("1.1.0"));
        const QString backup = bundleNames().filter(QStringLiteral("windows.backup-")).first();
        QCOMPARE(read(backup + QStringLiteral("/old.dll")), QByteArray("1.0.0"));
    }

    void fullDriveKeepsTheOldStateAndReportsIt()
    {
        prepareDrive(smallDrive());
        const QByteArray before = read(QStringLiteral("update-state.json"));
        int syncs = 0;
        whenSynced = [&] { // the last one before the state file is written
            if (++syncs == 5)
                drive->fill();
        };
        agreeToUpdate();
        compareWarning(QStringLiteral("Não foi possível salvar o arquivo de estado: %1")
                           .arg(updateStatePath(drive->path())));
        QCOMPARE(read(QStringLiteral("update-state.json")), before);
        QCOMPARE(stampedBundleNames(),
                 QStringList({"README.txt", "linux", "linux.backup-TIME", "update-state.json",
                              "windows", "windows.backup-TIME"}));
    }

    void driveIsSyncedBeforeTheFirstRenameAfterEachAndBeforeTheBackupsGo()
    {
        QList<QStringList> seen;
        QStringList versions;
        whenSynced = [&] {
            seen.append(stampedBundleNames());
            versions.append(readInstalledVersion(drive->path()));
        };
        agreeToUpdate();
        const QString staging = QStringLiteral(".update-TIME");
        const QString readme = QStringLiteral("README.txt");
        const QString stateFile = QStringLiteral("update-state.json");
        QCOMPARE(seen, QList<QStringList>(
                           {{staging, readme, "linux", stateFile, "windows"},
                            {staging, readme, "linux", stateFile, "windows.backup-TIME"},
                            {staging, readme, "linux", stateFile, "windows", "windows.backup-TIME"},
                            {staging, readme, "linux.backup-TIME", stateFile, "windows",
                             "windows.backup-TIME"},
                            {staging, readme, "linux", "linux.backup-TIME", stateFile, "windows",
                             "windows.backup-TIME"},
                            {staging, readme, "linux", "linux.backup-TIME", stateFile, "windows",
                             "windows.backup-TIME"}}));
        QCOMPARE(versions, QStringList({"1.0.0", "1.0.0", "1.0.0", "1.0.0", "1.0.0", "1.1.0"}));
    }

    // ---- the dialog

    void dialogGoesThroughItsStages()
    {
        const Onlooker onlooker;
        agreeToUpdate();
        const QString query = QStringLiteral("Consultando manifesto de atualização...");
        QCOMPARE(onlooker.labels,
                 (QMap<int, QString>{{-1, query},
                                     {1, query},
                                     {2, QStringLiteral("Baixando pacote de atualização...")},
                                     {3, QStringLiteral("Validando hash SHA-256...")},
                                     {4, QStringLiteral("Extraindo pacote...")},
                                     {5, QStringLiteral("Substituindo bundles...")},
                                     {6, QStringLiteral("Substituindo bundles...")}}));
    }

    void dialogIsModalAndHasNoCancelButton()
    {
        bool looked = false;
        user->willAnswer([&](QMessageBox *box) {
            const QProgressDialog *dialog = progressDialog();
            QVERIFY(dialog != nullptr && dialog->isVisible());
            QCOMPARE(dialog->windowModality(), Qt::ApplicationModal);
            QCOMPARE(dialog->minimum(), 0);
            QCOMPARE(dialog->maximum(), 6);
            QCOMPARE(dialog->minimumDuration(), 0);
            QCOMPARE(dialog->parentWidget(), window.get());
            QVERIFY(dialog->findChildren<QPushButton *>().isEmpty());
            looked = true;
            box->close();
        });
        update();
        QVERIFY(looked);
        QVERIFY(progressDialog() == nullptr);
    }

    void dialogCannotBeDismissedDuringAFetch_data()
    {
        QTest::addColumn<QString>("path");
        QTest::newRow("manifest") << manifestPath;
        QTest::newRow("package") << packagePath;
    }
    void dialogCannotBeDismissedDuringAFetch()
    {
        QFETCH(QString, path);
        const QString gate = QStringLiteral("dismiss ") + QString::number(path.size());
        server->answer(path, VendorBehaviour::gateHalfWay(gate));
        const qsizetype requestsBefore = server->requests().size();
        int checks = 0;
        QTimer timer;
        connect(&timer, &QTimer::timeout, this, [&] {
            QProgressDialog *dialog = progressDialog();
            const auto requests = server->requests();
            if (dialog == nullptr || requests.size() == requestsBefore
                || requests.last().path != path)
                return;
            timer.stop();
            QTest::keyClick(dialog, Qt::Key_Escape);
            checks += dialog->isVisible() ? 1 : 0;
            dialog->close();
            checks += dialog->isVisible() ? 1 : 0;
            QCloseEvent closeFromOutside;
            QApplication::sendEvent(dialog, &closeFromOutside);
            checks += dialog->isVisible() ? 1 : 0;
            server->openGate(gate);
        });
        timer.start(10);
        agreeToUpdate();
        QCOMPARE(checks, 3);
        QCOMPARE(read(QStringLiteral("linux/Tessarine")), QByteArray("1.1.0"));
    }

    void nothingElseStartsDuringAFetch()
    {
        const QString gate = QStringLiteral("nothing else");
        server->answer(manifestPath, VendorBehaviour::gateHalfWay(gate));
        const qsizetype requestsBefore = server->requests().size();
        QStringList logDuring;
        QTimer timer;
        connect(&timer, &QTimer::timeout, this, [&] {
            if (progressDialog() == nullptr || server->requests().size() == requestsBefore)
                return;
            timer.stop();
            for (QPushButton *button :
                 {window->refreshButton, window->prepareButton, window->updateButton}) {
                const QPoint place = button->mapTo(window.get(), button->rect().center());
                QTest::mouseClick(window->windowHandle(), Qt::LeftButton, {}, place);
                button->click();
            }
            for (QAction *action : {window->refreshAction, window->prepareAction,
                                    window->updateAction, window->aboutAction})
                action->trigger();
            logDuring = newLogLines();
            server->openGate(gate);
        });
        timer.start(10);
        updateAnswering(QStringLiteral("Não"));
        QCOMPARE(logDuring, QStringList());
        QCOMPARE(server->requests().size(), requestsBefore + 1);
        QCOMPARE(user->boxes.size(), 1);
    }

    void windowRepaintsDuringBothFetches_data() { dialogCannotBeDismissedDuringAFetch_data(); }
    void windowRepaintsDuringBothFetches()
    {
        QFETCH(QString, path);
        const QString gate = QStringLiteral("repaint ") + QString::number(path.size());
        server->answer(path, VendorBehaviour::gateHalfWay(gate));
        const qsizetype requestsBefore = server->requests().size();
        Onlooker onlooker;
        QTimer timer;
        int before = -1;
        connect(&timer, &QTimer::timeout, this, [&] {
            const auto requests = server->requests();
            if (requests.size() == requestsBefore || requests.last().path != path)
                return;
            if (before < 0)
                before = onlooker.windowPaints;
            window->centralWidget()->update();
            if (onlooker.windowPaints > before + 3)
                server->openGate(gate);
        });
        timer.start(10);
        agreeToUpdate();
        QVERIFY(before >= 0 && onlooker.windowPaints > before + 3);
        QCOMPARE(read(QStringLiteral("linux/Tessarine")), QByteArray("1.1.0"));
    }

    // Twice by Qt's reply, whose pieces may take twice the room of what they hold; then once.
    void aPackageIsHeldNoMoreThanTwiceInMemory()
    {
        constexpr qint64 size = 16 << 20;
        publish(completePackage(QStringLiteral("1.1.0"))
                    .noise(QStringLiteral("Tessarine/linux/lib/large"), size)
                    .bytes());
        const TestSupport::LiveMemoryWatch memory;
        agreeToUpdate();
        const qint64 growth = memory.growth();
        QVERIFY2(growth > size && growth < size * 9 / 4, qPrintable(QString::number(growth)));
        QCOMPARE(read(QStringLiteral("linux/Tessarine")), QByteArray("1.1.0"));
    }

    void listIsNotRefreshedAtTheEnd()
    {
        window->deviceManager = std::make_unique<FakeDeviceManager>(QList<UsbDevice>());
        agreeToUpdate();
        QCOMPARE(window->deviceCombo->count(), 1);
    }
};

int main(int argc, char *argv[])
{
    TestSupport::enterPrivateMountNamespace();
    TestSupport::enterPrivateNetwork();
    QApplication application(argc, argv);
    UpdateTest suite;
    return QTest::qExec(&suite, argc, argv);
}

#include "update_test.moc"
