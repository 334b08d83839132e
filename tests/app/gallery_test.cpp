// Shows the window and every dialog on screens of several sizes, scales, fonts and colours, and
// leaves what was seen as pictures to be looked at.
#define main tessarineConfigMain
#include "app/TessarineConfig.cpp"
#undef main

#include "tests/support/FakeDeviceManager.h"
#include "tests/support/MessageBoxUser.h"

#include <QTest>

namespace
{

using TestSupport::FakeDeviceManager;
using TestSupport::MessageBoxUser;
using TestSupport::mountedVolume;

// With this argument, a font size in points, "light" or "dark" and a file, the program saves there
// what its screen shows of the window and of each dialog, side by side.
const QString takePictures = QStringLiteral("--take-pictures");

constexpr int pictureWidth = 480;

// Someone who opens everything once and takes a picture of the screen each time.
class Photographer
{
public:
    Photographer()
    {
        window.deviceManager = std::make_unique<FakeDeviceManager>(QList<UsbDevice>{
            mountedVolume(QStringLiteral("PENDRIVE DE ANA COM UM NOME MUITO COMPRIDO"),
                          QStringLiteral("/media/usuario/PENDRIVE DE ANA"))});
        window.refreshDevices();
        window.show();
    }

    void goRound()
    {
        takePictureOf(&window);
        takePictureOfQuestion();
        takePictureOfProgress();
        takePictureOfWarning();
        takePictureOfAbout();
    }

    QImage sheet() const
    {
        QImage sheet(int(pictures.size()) * (pictureWidth + 4), pictures.first().height(),
                     QImage::Format_RGB32);
        sheet.fill(Qt::white);
        QPainter painter(&sheet);
        for (int i = 0; i < pictures.size(); ++i)
            painter.drawImage(i * (pictureWidth + 4), 0, pictures.at(i));
        return sheet;
    }

    bool areAllButtonsOnScreen = true;

private:
    void takePictureOf(QWidget *widget)
    {
        if (!QTest::qWaitForWindowExposed(widget))
            qFatal("%s doesn't come up", qPrintable(widget->windowTitle()));
        QCoreApplication::processEvents();
        QImage picture = widget->screen()->grabWindow(0).toImage();
        picture.setDevicePixelRatio(1);
        pictures << picture.scaledToWidth(pictureWidth, Qt::SmoothTransformation);
    }

    void takePictureOfBox(QMessageBox *box)
    {
        takePictureOf(box);
        const QList<QAbstractButton *> buttons = box->buttons();
        for (const QAbstractButton *button : buttons) {
            const QRect place(button->mapToGlobal(QPoint()), button->size());
            areAllButtonsOnScreen &= box->screen()->geometry().contains(place);
        }
        box->close();
    }

    void takePictureOfQuestion()
    {
        MessageBoxUser user;
        user.willAnswer([this](QMessageBox *box) { takePictureOfBox(box); });
        window.windowsSource.executablePath = QStringLiteral("/nonexistent/Tessarine.exe");
        window.prepareButton->click();
    }

    void takePictureOfProgress()
    {
        CommandProgressDialog dialog(QString(), QStringLiteral("Copiando bundle Windows..."), 7,
                                     &window);
        dialog.setValue(2);
        dialog.show();
        dialog.paintNow();
        takePictureOf(&dialog);
    }

    void takePictureOfWarning()
    {
        MessageBoxUser user;
        user.willAnswer([this](QMessageBox *box) { takePictureOfBox(box); });
        warn(&window,
             QStringLiteral("Falha ao extrair ZIP: linha de saída do comando\n").repeated(200));
    }

    void takePictureOfAbout()
    {
        ConfigAboutDialog dialog(&window);
        dialog.show();
        takePictureOf(&dialog);
    }

    ConfigWindow window;
    QList<QImage> pictures;
};

int takePicturesAsTold(const QStringList &arguments)
{
    QFont font = QApplication::font();
    font.setPointSize(arguments.at(2).toInt());
    QApplication::setFont(font);
    if (arguments.at(3) == QStringLiteral("dark"))
        QApplication::setPalette(QPalette(QColor(50, 50, 50), QColor(30, 30, 30)));

    Photographer photographer;
    photographer.goRound();
    return photographer.sheet().save(arguments.at(4)) && photographer.areAllButtonsOnScreen
               ? EXIT_SUCCESS
               : EXIT_FAILURE;
}

} // namespace

class GalleryTest : public QObject
{
    Q_OBJECT

    QDir gallery{QStringLiteral(TESSARINE_GALLERY_DIR)};

private Q_SLOTS:
    void initTestCase()
    {
        gallery.removeRecursively();
        QVERIFY(gallery.mkpath(QStringLiteral(".")));
    }

    void buttonsOfEveryBoxAreOnTheScreen_data()
    {
        QTest::addColumn<QString>("screen");
        QTest::addColumn<QString>("scale");
        QTest::addColumn<QString>("points");
        QTest::addColumn<QString>("colours");
        for (const char *screen : {"1024x768", "1366x768", "1920x1080", "3840x2160"}) {
            for (const char *scale : {"1", "1.5", "2"}) {
                for (const char *points : {"9", "14"}) {
                    QTest::addRow("%s, scale %s, %s points", screen, scale, points)
                        << QString::fromLatin1(screen) << QString::fromLatin1(scale)
                        << QString::fromLatin1(points) << QStringLiteral("light");
                }
            }
        }
        QTest::addRow("dark") << QStringLiteral("1920x1080") << QStringLiteral("1")
                              << QStringLiteral("9") << QStringLiteral("dark");
    }
    void buttonsOfEveryBoxAreOnTheScreen()
    {
        QFETCH(QString, screen);
        QFETCH(QString, scale);
        QFETCH(QString, points);
        QFETCH(QString, colours);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("SCREEN"), screen);
        environment.insert(QStringLiteral("QT_SCALE_FACTOR"), scale);
        const QString picture = gallery.filePath(
            QStringLiteral("%1-%2-%3pt-%4.png").arg(screen, scale, points, colours));
        QProcess process;
        process.setProcessEnvironment(environment);
        process.setProcessChannelMode(QProcess::ForwardedChannels);
        process.start(
            QStringLiteral(TESSARINE_TEST_SUPPORT_DIR "/with-display"),
            {QCoreApplication::applicationFilePath(), takePictures, points, colours, picture});
        QVERIFY(process.waitForFinished(120000));
        QCOMPARE(process.exitCode(), EXIT_SUCCESS);
    }
};

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    QCoreApplication::setApplicationVersion(QStringLiteral(TESSARINE_VERSION));
    if (QCoreApplication::arguments().value(1) == takePictures)
        return takePicturesAsTold(QCoreApplication::arguments());
    GalleryTest suite;
    return QTest::qExec(&suite, argc, argv);
}

#include "gallery_test.moc"
