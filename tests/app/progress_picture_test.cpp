// What the screen shows of a progress dialog while a stage's work holds the program's one thread.
// The picture is taken by the command that the stage waits for, or while the drive is synced.
#define main tessarineConfigMain
#undef TESSARINE_UPDATE_ENDPOINT
#define TESSARINE_UPDATE_ENDPOINT "https://127.0.0.1"
#include "app/TessarineConfig.cpp"
#undef main

#include "tests/support/Drive.h"
#include "tests/support/FakeDeviceManager.h"
#include "tests/support/MessageBoxUser.h"
#include "tests/support/ProgressWatch.h"
#include "tests/support/StubCommand.h"
#include "tests/support/SyncWatch.h"
#include "tests/support/TestMain.h"
#include "tests/support/VendorServer.h"
#include "tests/support/Waiting.h"
#include "tests/support/ZipFile.h"

#include <QProgressBar>
#include <QTest>

namespace
{

using TestSupport::completePackage;
using TestSupport::Drive;
using TestSupport::FakeDeviceManager;
using TestSupport::longestWait;
using TestSupport::MessageBoxUser;
using TestSupport::mountedVolume;
using TestSupport::ProgressWatch;
using TestSupport::StubCommand;
using TestSupport::VendorServer;
using TestSupport::whenFileSynced;
using TestSupport::whenSynced;

const QString packagePath = QStringLiteral("/tessarine-1.1.0.zip");

// A command line that saves what the screen shows in the window's place.
QByteArray pictureOf(const QWidget &window, const QString &file)
{
    const QRect place = window.geometry();
    return QStringLiteral("import -window root -crop %1x%2+%3+%4 -depth 8 '%5'")
        .arg(QString::number(place.width()), QString::number(place.height()),
             QString::number(place.x()), QString::number(place.y()), file)
        .toUtf8();
}

QImage dialogAt(int value, int maximum, const QString &caption, const QSize &size)
{
    CommandProgressDialog dialog(QString(), caption, maximum, nullptr);
    dialog.findChild<QProgressBar *>()->setValue(value);
    dialog.resize(size);
    return dialog.grab().toImage().convertToFormat(QImage::Format_RGB32);
}

bool showsAt(const QPoint &place, const QImage &picture, const QImage &part)
{
    for (int y = 0; y < part.height(); ++y) {
        const auto *row = reinterpret_cast<const QRgb *>(picture.constScanLine(place.y() + y));
        const auto *expected = reinterpret_cast<const QRgb *>(part.constScanLine(y));
        if (!std::equal(expected, expected + part.width(), row + place.x()))
            return false;
    }
    return true;
}

// Whether the dialog stands in the middle of the picture, give or take its frame.
bool showsInTheMiddle(const QImage &picture, const QImage &dialog)
{
    constexpr int tolerance = 40; // pixels
    const QPoint middle = picture.rect().center() - dialog.rect().center();
    for (int y = -tolerance; y <= tolerance; ++y) {
        for (int x = -tolerance; x <= tolerance; ++x) {
            if (showsAt(middle + QPoint(x, y), picture, dialog))
                return true;
        }
    }
    return false;
}

void thirtyRuns()
{
    QTest::addColumn<int>("run");
    for (int run = 1; run <= 30; ++run)
        QTest::addRow("run %d", run) << run;
}

} // namespace

class ProgressPictureTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<VendorServer> server;
    std::unique_ptr<Drive> drive;
    std::unique_ptr<Drive> pictures;
    std::unique_ptr<ConfigWindow> window;
    std::unique_ptr<MessageBoxUser> user;
    std::unique_ptr<ProgressWatch> progress;
    QSize dialogSize;

    void takePicture(const QString &name)
    {
        const QByteArray command = pictureOf(*window, pictures->path(name));
        QCOMPARE(QProcess::execute(QStringLiteral("/bin/sh"),
                                   {QStringLiteral("-c"), QString::fromUtf8(command)}),
                 0);
        dialogSize = window->findChild<QProgressDialog *>()->size();
        progress->asItCloses = nullptr; // by then it may have grown
    }

    // The drive takes its time over the sync of that number.
    void takePictureAtSync(int number, const QString &name)
    {
        whenSynced = [=, this, syncs = 0]() mutable {
            if (++syncs == number)
                takePicture(name);
        };
    }

    void giveWindowOnlyAWindowsBundle(const Drive &bundle)
    {
        window->windowsSource = {bundle.write(QStringLiteral("Tessarine.exe"), "program"),
                                 bundle.path(), false};
        window->linuxSource = {};
    }

    void comparePicture(const QString &name, int value, int maximum, const QString &caption) const
    {
        const QImage picture = QImage(pictures->path(name)).convertToFormat(QImage::Format_RGB32);
        QVERIFY2(!picture.isNull(), qPrintable(QStringLiteral("No picture of ") + caption));
        QVERIFY2(showsInTheMiddle(picture, dialogAt(value, maximum, caption, dialogSize)),
                 qPrintable(QStringLiteral("The screen doesn't show the dialog: ") + caption));
    }

private Q_SLOTS:
    void initTestCase()
    {
        QCoreApplication::setApplicationVersion(QStringLiteral(TESSARINE_VERSION));
        server = std::make_unique<VendorServer>(443);
        const QByteArray package = completePackage(QStringLiteral("1.1.0")).bytes();
        server->publish(packagePath, package);
        const QByteArray hash = QCryptographicHash::hash(package, QCryptographicHash::Sha256);
        const QJsonObject manifest{
            {QStringLiteral("schemaVersion"), 1},
            {QStringLiteral("app"), QStringLiteral("Tessarine")},
            {QStringLiteral("version"), QStringLiteral("1.1.0")},
            {QStringLiteral("packageUrl"), server->url(packagePath).toString()},
            {QStringLiteral("sha256"), QString::fromLatin1(hash.toHex())}};
        server->publish(QStringLiteral("/000Updates/tessarine/manifest.json"),
                        QJsonDocument(manifest).toJson());
    }

    void cleanupTestCase() { server.reset(); }

    void init()
    {
        drive.reset(new Drive(Drive::tmpfs(1 << 30)));
        pictures = std::make_unique<Drive>();
        window = std::make_unique<ConfigWindow>();
        window->deviceManager = std::make_unique<FakeDeviceManager>(
            QList<UsbDevice>{mountedVolume(QStringLiteral("PEN"), drive->path())});
        window->refreshDevices();
        window->show();
        QVERIFY(QTest::qWaitForWindowActive(window.get(), longestWait));
        user = std::make_unique<MessageBoxUser>();
        user->willPress(QStringLiteral("Sim"));
        progress = std::make_unique<ProgressWatch>();
        progress->asItAppears = [this](QProgressDialog *dialog) { dialogSize = dialog->size(); };
        progress->asItCloses = progress->asItAppears;
    }

    void cleanup()
    {
        whenSynced = nullptr;
        whenFileSynced = nullptr;
        progress.reset();
        user.reset();
        window.reset();
    }

    void dialogOfAPreparationIsPaintedWhileLddRuns_data() { thirtyRuns(); }
    void dialogOfAPreparationIsPaintedWhileLddRuns()
    {
        const Drive bundle;
        window->windowsSource = {};
        window->linuxSource = {bundle.write(QStringLiteral("Tessarine"), "program"), bundle.path(),
                               false};
        // The fit check asks for the bundle's libraries, the assembly for those of its copy.
        const StubCommand ldd(
            QStringLiteral("ldd"),
            "case $1 in\n"
            "*/Tessarine/linux/Tessarine) "
                + pictureOf(*window, pictures->path(QStringLiteral("copying.ppm")))
                + ";;\n"
                  "*/Tessarine) "
                + pictureOf(*window, pictures->path(QStringLiteral("weighing.ppm")))
                + ";;\n"
                  "esac\n"
                  "exit 1");
        window->prepareButton->click();
        comparePicture(QStringLiteral("weighing.ppm"), 1, 7,
                       QStringLiteral("Criando estrutura de pastas..."));
        comparePicture(QStringLiteral("copying.ppm"), 3, 7,
                       QStringLiteral("Copiando bundle Linux..."));
    }

    void dialogOfAPreparationIsPaintedWhileTheDriveTakesAWindowsFile_data() { thirtyRuns(); }
    void dialogOfAPreparationIsPaintedWhileTheDriveTakesAWindowsFile()
    {
        const Drive bundle;
        giveWindowOnlyAWindowsBundle(bundle);
        whenFileSynced = [this] {
            whenFileSynced = nullptr;
            takePicture(QStringLiteral("copying.ppm"));
        };
        window->prepareButton->click();
        comparePicture(QStringLiteral("copying.ppm"), 2, 7,
                       QStringLiteral("Copiando bundle Windows..."));
    }

    void dialogOfAPreparationIsPaintedWhileTheWholeDriveIsSynced_data() { thirtyRuns(); }
    void dialogOfAPreparationIsPaintedWhileTheWholeDriveIsSynced()
    {
        const Drive bundle;
        giveWindowOnlyAWindowsBundle(bundle);
        takePictureAtSync(1, QStringLiteral("end.ppm"));
        window->prepareButton->click();
        comparePicture(QStringLiteral("end.ppm"), 6, 7,
                       QStringLiteral("Criando arquivos auxiliares..."));
    }

    void dialogOfAnUpdateIsPaintedWhileUnzipRuns_data() { thirtyRuns(); }
    void dialogOfAnUpdateIsPaintedWhileUnzipRuns()
    {
        drive->makeDirectory(QStringLiteral("Tessarine"));
        const StubCommand unzip(QStringLiteral("unzip"),
                                pictureOf(*window, pictures->path(QStringLiteral("unzip.ppm")))
                                    + "\nexit 1");
        window->updateButton->click();
        comparePicture(QStringLiteral("unzip.ppm"), 4, 6, QStringLiteral("Extraindo pacote..."));
    }

    void dialogOfAnUpdateIsPaintedWhileABundleIsSwapped_data() { thirtyRuns(); }
    void dialogOfAnUpdateIsPaintedWhileABundleIsSwapped()
    {
        drive->makeDirectory(QStringLiteral("Tessarine"));
        takePictureAtSync(2, QStringLiteral("swap.ppm")); // the first is that of the extraction
        window->updateButton->click();
        comparePicture(QStringLiteral("swap.ppm"), 5, 6, QStringLiteral("Substituindo bundles..."));
    }

    void dialogIsPaintedEvenIfTheFirstStageBlocksAtOnce_data() { thirtyRuns(); }
    void dialogIsPaintedEvenIfTheFirstStageBlocksAtOnce()
    {
        const QString caption = QStringLiteral("Validando hash SHA-256...");
        CommandProgressDialog dialog(QString(), QString(), 6, window.get());
        dialog.show();
        showStage(&dialog, 3, caption);
        takePicture(QStringLiteral("hash.ppm"));
        comparePicture(QStringLiteral("hash.ppm"), 3, 6, caption);
    }
};

int main(int argc, char *argv[])
{
    TestSupport::enterPrivateMountNamespace();
    TestSupport::enterPrivateNetwork();
    QApplication application(argc, argv);
    ProgressPictureTest suite;
    return QTest::qExec(&suite, argc, argv);
}

#include "progress_picture_test.moc"
