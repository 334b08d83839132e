#define main tessarineConfigMain
#include "app/TessarineConfig.cpp"
#undef main

#include "tests/support/Waiting.h"

#include <QImage>
#include <QTest>

#include <cmath>

namespace
{

const QString firstPicture = QStringLiteral(":/backgrounds/Fundo01.png");
const QString secondPicture = QStringLiteral(":/backgrounds/Fundo02.png");

// Colours as they are averaged: one number a channel.
struct Colour {
    double red = 0;
    double green = 0;
    double blue = 0;

    void add(const Colour &other, double weight)
    {
        red += other.red * weight;
        green += other.green * weight;
        blue += other.blue * weight;
    }
};

// A line of pixels at another length, each new one the mean of the stretch that it covers.
QList<Colour> resampled(const QList<Colour> &line, int length)
{
    const double step = double(line.size()) / length;
    QList<Colour> result(length);
    for (int i = 0; i < length; ++i) {
        const double start = i * step;
        const double end = std::min(start + step, double(line.size()));
        for (int source = int(start); source < end; ++source) {
            const double covered = std::min(end, source + 1.0) - std::max(start, double(source));
            result[i].add(line.at(source), covered / step);
        }
    }
    return result;
}

// The picture at another size, worked out without Qt's own scaling.
QImage scaledByMeans(const QImage &picture, const QSize &size)
{
    QList<QList<Colour>> columns(size.width(), QList<Colour>(picture.height()));
    for (int y = 0; y < picture.height(); ++y) {
        QList<Colour> line(picture.width());
        for (int x = 0; x < picture.width(); ++x) {
            const QRgb pixel = picture.pixel(x, y);
            line[x] = {double(qRed(pixel)), double(qGreen(pixel)), double(qBlue(pixel))};
        }
        const QList<Colour> narrow = resampled(line, size.width());
        for (int x = 0; x < size.width(); ++x)
            columns[x][y] = narrow.at(x);
    }
    QImage scaled(size, QImage::Format_RGB32);
    for (int x = 0; x < size.width(); ++x) {
        const QList<Colour> column = resampled(columns.at(x), size.height());
        for (int y = 0; y < size.height(); ++y) {
            const Colour &colour = column.at(y);
            scaled.setPixel(x, y,
                            qRgb(int(std::lround(colour.red)), int(std::lround(colour.green)),
                                 int(std::lround(colour.blue))));
        }
    }
    return scaled;
}

// The greatest difference of any channel of any pixel.
int greatestDifference(const QImage &one, const QImage &other)
{
    if (one.size() != other.size())
        return 256;
    int greatest = 0;
    for (int y = 0; y < one.height(); ++y) {
        for (int x = 0; x < one.width(); ++x) {
            const QRgb a = one.pixel(x, y);
            const QRgb b = other.pixel(x, y);
            greatest = std::max({greatest, std::abs(qRed(a) - qRed(b)),
                                 std::abs(qGreen(a) - qGreen(b)), std::abs(qBlue(a) - qBlue(b))});
        }
    }
    return greatest;
}

void compareRoughly(const QImage &one, const QImage &other)
{
    const int difference = greatestDifference(one, other);
    QVERIFY2(difference <= 2, qPrintable(QString::number(difference)));
}

// What a backdrop of that size with that picture paints.
QImage painted(const QPixmap &picture, const QSize &size)
{
    BackgroundWidget backdrop(nullptr);
    backdrop.background = picture;
    backdrop.setFixedSize(size);
    return backdrop.grab().toImage();
}

const QPixmap &pictureOf(const ConfigWindow &window)
{
    return dynamic_cast<BackgroundWidget *>(window.centralWidget())->background;
}

} // namespace

class BackdropTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void backdropIsThePictureScaledToItsSize_data()
    {
        QTest::addColumn<QString>("picture");
        QTest::addColumn<QSize>("size");
        for (const QString &picture : {firstPicture, secondPicture}) {
            for (const QSize &size : {QSize(900, 506), QSize(1152, 648), QSize(711, 400)})
                QTest::addRow("%s at %d by %d", qPrintable(picture), size.width(), size.height())
                    << picture << size;
        }
    }
    void backdropIsThePictureScaledToItsSize()
    {
        QFETCH(QString, picture);
        QFETCH(QSize, size);
        const QImage expected = scaledByMeans(QImage(picture), size);
        compareRoughly(painted(QPixmap(picture), size), expected);
    }

    void overshootIsCutOffEvenlyAtBothEdges_data()
    {
        QTest::addColumn<QSize>("size");
        QTest::addColumn<QSize>("scaled");
        QTest::addColumn<QPoint>("offset");
        QTest::newRow("too wide") << QSize(200, 200) << QSize(400, 200) << QPoint(100, 0);
        QTest::newRow("too wide by an odd count")
            << QSize(201, 200) << QSize(400, 200) << QPoint(99, 0);
        QTest::newRow("too high") << QSize(400, 100) << QSize(400, 200) << QPoint(0, 50);
    }
    void overshootIsCutOffEvenlyAtBothEdges()
    {
        QFETCH(QSize, size);
        QFETCH(QSize, scaled);
        QFETCH(QPoint, offset);
        QImage picture(400, 200, QImage::Format_RGB32);
        for (int y = 0; y < picture.height(); ++y) {
            for (int x = 0; x < picture.width(); ++x)
                picture.setPixel(x, y, qRgb(x / 2, y, x % 2 * 255));
        }
        QCOMPARE(picture.size(), scaled);
        QCOMPARE(greatestDifference(painted(QPixmap::fromImage(picture), size),
                                    picture.copy(QRect(offset, size))),
                 0);
    }

    void withoutAPictureNothingIsPainted()
    {
        QWidget plain;
        plain.setFixedSize(90, 50);
        QCOMPARE(painted(QPixmap(), QSize(90, 50)), plain.grab().toImage());
    }

    void eitherPictureIsChosenWithNoPreference()
    {
        int first = 0;
        for (int i = 0; i < 1000; ++i) {
            const QString path = randomBackgroundPath();
            QVERIFY2(path == firstPicture || path == secondPicture, qPrintable(path));
            first += path == firstPicture ? 1 : 0;
        }
        // Outside of this range once in 10^15 runs.
        QVERIFY2(first > 375 && first < 625, qPrintable(QString::number(first)));
    }

    void repeatedStartsShowEitherPicture()
    {
        const QImage first = QPixmap(firstPicture).toImage();
        const QImage second = QPixmap(secondPicture).toImage();
        bool firstSeen = false;
        bool secondSeen = false;
        for (int i = 0; i < 64 && !(firstSeen && secondSeen); ++i) {
            const QImage shown = pictureOf(ConfigWindow()).toImage();
            QVERIFY2(shown == first || shown == second, "The window shows another picture");
            (shown == first ? firstSeen : secondSeen) = true;
        }
        QVERIFY2(firstSeen && secondSeen, "64 starts show one picture");
    }

    void pictureKeepsItsStoredSizeAndStays()
    {
        ConfigWindow window;
        const qint64 key = pictureOf(window).cacheKey();
        QCOMPARE(pictureOf(window).size(), QSize(1920, 1080));
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window, TestSupport::longestWait));
        window.refreshButton->click();
        QCOMPARE(pictureOf(window).cacheKey(), key);
    }

    void pictureFillsTheWindowFromMenuBarToStatusBar()
    {
        ConfigWindow window;
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window, TestSupport::longestWait));
        const QWidget *backdrop = window.centralWidget();
        QCOMPARE(backdrop->geometry(),
                 QRect(0, window.menuBar()->geometry().bottom() + 1, window.width(),
                       window.statusBar()->y() - window.menuBar()->height()));
        // Nothing stands in the margin around the panel, nor does the panel itself hide anything.
        const QImage shown = window.grab(backdrop->geometry()).toImage();
        const QImage expected = scaledByMeans(pictureOf(window).toImage(), backdrop->size());
        const QRect margin(0, 0, backdrop->width(), 22);
        compareRoughly(shown.copy(margin), expected.copy(margin));
        const QRect insidePanel(60, 60, backdrop->width() - 120, 100);
        compareRoughly(shown.copy(insidePanel), expected.copy(insidePanel));
    }
};

QTEST_MAIN(BackdropTest)

#include "backdrop_test.moc"
