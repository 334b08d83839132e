// Shows the window and every dialog on screens of several sizes, scales, fonts and colours, and
// leaves what was seen as pictures to be looked at.
#define main tessarineConfigMain
#include "app/TessarineConfig.cpp"
#undef main

#include "tests/support/FakeDeviceManager.h"
#include "tests/support/MessageBoxUser.h"
#include "tests/support/Waiting.h"

#include <QTest>

namespace
{

using TestSupport::FakeDeviceManager;
using TestSupport::longestWait;
using TestSupport::MessageBoxUser;
using TestSupport::mountedVolume;

// With this argument, a font size in points and a file, the program saves there what its screen
// shows of the window and of each dialog, side by side, in light colours and below in dark ones. It
// prints what isn't to be seen.
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
        takePictureOfPrepareQuestion();
        takePictureOfUpdateQuestion();
        takePictureOfProgress();
        takePictureOfInformation();
        takePictureOfWarning();
        takePictureOfAbout();
    }

    QList<QImage> pictures;
    QStringList complaints;

private:
    void takePictureOf(QWidget *widget)
    {
        if (!QTest::qWaitForWindowExposed(widget, longestWait))
            complaints << widget->windowTitle() + QStringLiteral(": doesn't come up");
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
            if (!box->screen()->geometry().contains(place))
                complaints << QStringLiteral("%1: \"%2\" is off the screen")
                                  .arg(box->text().section(u'\n', 0, 0), button->text());
        }
        box->close();
    }

    void takePictureOfPrepareQuestion()
    {
        MessageBoxUser user;
        user.willAnswer([this](QMessageBox *box) { takePictureOfBox(box); });
        window.windowsSource.executablePath = QStringLiteral("/nonexistent/Tessarine.exe");
        window.prepareButton->click();
    }

    void takePictureOfUpdateQuestion()
    {
        MessageBoxUser user;
        user.willAnswer([this](QMessageBox *box) { takePictureOfBox(box); });
        askYesNo(&window, QStringLiteral("Atualização disponível"),
                 QStringLiteral("Atualizar Tessarine na unidade /media/usuario/PENDRIVE DE ANA?\n\n"
                                "Versão instalada: 1.0.0\nVersão disponível: 1.1.0\n\n")
                     + QStringLiteral("- Correção de uma falha que poucos encontraram, e que "
                                      "ninguém mais encontrará.\n")
                           .repeated(40));
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

    void takePictureOfInformation()
    {
        MessageBoxUser user;
        user.willAnswer([this](QMessageBox *box) { takePictureOfBox(box); });
        inform(&window, QStringLiteral("Monte a unidade USB no gerenciador de arquivos e atualize "
                                       "a lista antes de preparar."));
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
};

QImage contactSheet(const QList<QList<QImage>> &rows)
{
    constexpr int gap = 4;
    const QImage &first = rows.first().first();
    QImage sheet(int(rows.first().size()) * (first.width() + gap),
                 int(rows.size()) * (first.height() + gap), QImage::Format_RGB32);
    sheet.fill(Qt::white);
    QPainter painter(&sheet);
    for (int row = 0; row < rows.size(); ++row) {
        for (int column = 0; column < rows.at(row).size(); ++column)
            painter.drawImage(column * (first.width() + gap), row * (first.height() + gap),
                              rows.at(row).at(column));
    }
    return sheet;
}

int takePicturesAsTold(const QStringList &arguments)
{
    QFont font = QApplication::font();
    font.setPointSize(arguments.at(2).toInt());
    QApplication::setFont(font);

    QList<QList<QImage>> rows;
    QStringList complaints;
    const QPalette dark(QColor(50, 50, 50), QColor(30, 30, 30));
    for (const QPalette &palette : {QApplication::palette(), dark}) {
        QApplication::setPalette(palette);
        Photographer photographer;
        photographer.goRound();
        rows << photographer.pictures;
        complaints << photographer.complaints;
    }
    if (!contactSheet(rows).save(arguments.at(3)))
        complaints << QStringLiteral("no picture");
    std::fputs(qPrintable(complaints.join(u'\n')), stdout);
    return EXIT_SUCCESS;
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
        for (const char *screen : {"1024x768", "1366x768", "1920x1080", "3840x2160"}) {
            for (const char *scale : {"1", "1.5", "2"}) {
                for (const char *points : {"9", "14"}) {
                    QTest::addRow("%s, scale %s, %s points", screen, scale, points)
                        << QString::fromLatin1(screen) << QString::fromLatin1(scale)
                        << QString::fromLatin1(points);
                }
            }
        }
    }
    void buttonsOfEveryBoxAreOnTheScreen()
    {
        QFETCH(QString, screen);
        QFETCH(QString, scale);
        QFETCH(QString, points);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("SCREEN"), screen);
        environment.insert(QStringLiteral("QT_SCALE_FACTOR"), scale);
        const QString picture =
            gallery.filePath(QStringLiteral("%1-%2-%3pt.png").arg(screen, scale, points));
        QProcess process;
        process.setProcessEnvironment(environment);
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process.start(QStringLiteral(TESSARINE_TEST_SUPPORT_DIR "/with-display"),
                      {QCoreApplication::applicationFilePath(), takePictures, points, picture});
        QVERIFY2(process.waitForFinished(longestWait), qPrintable(process.errorString()));
        QCOMPARE(QString::fromUtf8(process.readAllStandardOutput()), QString());
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
