#include <QDataStream>
#include <QFile>
#include <QImage>
#include <QResource>
#include <QTest>

#include <algorithm>
#include <cmath>

namespace
{

const QStringList Backdrops{QStringLiteral(":/backgrounds/Fundo01.png"),
                            QStringLiteral(":/backgrounds/Fundo02.png")};

// What the header chunk of a PNG file (RFC 2083, section 4.1.1) says of its picture.
struct PngHeader {
    quint32 width = 0;
    quint32 height = 0;
    quint8 bitDepth = 0;
    quint8 colourType = 0;
};

constexpr quint8 Rgb = 2;
constexpr quint8 RgbWithAlpha = 6;

QByteArray bytesOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

PngHeader pngHeaderOf(const QByteArray &bytes)
{
    PngHeader header;
    if (!bytes.startsWith("\x89PNG\r\n\x1a\n"))
        return header;
    QDataStream stream(bytes.mid(16));
    stream >> header.width >> header.height >> header.bitDepth >> header.colourType;
    return header;
}

// One entry of an icon file's directory, with the depth that the image itself states.
struct IconImage {
    int size = 0;
    int directoryDepth = 0;
    int imageDepth = 0;
};

QList<IconImage> iconImagesOf(const QByteArray &bytes)
{
    QDataStream directory(bytes);
    directory.setByteOrder(QDataStream::LittleEndian);
    quint16 reserved = 0;
    quint16 type = 0;
    quint16 count = 0;
    directory >> reserved >> type >> count;
    QList<IconImage> images;
    for (int i = 0; i < count; ++i) {
        quint8 width = 0;
        quint8 height = 0;
        quint8 colours = 0;
        quint8 padding = 0;
        quint16 planes = 0;
        quint16 depth = 0;
        quint32 length = 0;
        quint32 offset = 0;
        directory >> width >> height >> colours >> padding >> planes >> depth >> length >> offset;

        QDataStream image(bytes.mid(offset, 40));
        image.setByteOrder(QDataStream::LittleEndian);
        quint32 headerSize = 0;
        qint32 imageWidth = 0;
        qint32 doubledHeight = 0;
        quint16 imagePlanes = 0;
        quint16 imageDepth = 0;
        image >> headerSize >> imageWidth >> doubledHeight >> imagePlanes >> imageDepth;
        // A directory has one byte for a size and writes 256 as 0.
        const bool consistent = headerSize == 40 && imageWidth % 256 == width
                                && doubledHeight == 2 * imageWidth && width == height;
        images.append({consistent ? imageWidth : 0, depth, imageDepth});
    }
    return images;
}

double linearLight(int level)
{
    const double value = level / 255.0;
    return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
}

// Contrast of white text on a colour, as WCAG 2.1 defines it.
double contrastToWhite(QRgb colour)
{
    const double luminance = 0.2126 * linearLight(qRed(colour))
                             + 0.7152 * linearLight(qGreen(colour))
                             + 0.0722 * linearLight(qBlue(colour));
    return 1.05 / (luminance + 0.05);
}

double lowestContrastIn(const QImage &picture, const QRect &area)
{
    double lowest = 21;
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x)
            lowest = std::min(lowest, contrastToWhite(picture.pixel(x, y)));
    }
    return lowest;
}

} // namespace

class ResourceCollectionTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyEntryIsStoredAsMeant_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QResource::Compression>("storage");
        const auto addEntry = [](const char *path, QResource::Compression storage) {
            QTest::addRow("%s", path) << QString::fromLatin1(path) << storage;
        };
        addEntry(":/backgrounds/Fundo01.png", QResource::NoCompression);
        addEntry(":/backgrounds/Fundo02.png", QResource::NoCompression);
        addEntry(":/icons/Tessarine.ico", QResource::ZstdCompression);
        addEntry(":/help/pt_BR/index.html", QResource::NoCompression);
        addEntry(":/help/pt_BR/images/fluxo-uso.png", QResource::NoCompression);
        addEntry(":/help/pt_BR/images/gerenciador-pacotes.png", QResource::NoCompression);
    }

    void everyEntryIsStoredAsMeant()
    {
        QFETCH(const QString, path);
        QFETCH(const QResource::Compression, storage);
        const QResource entry(path);
        QVERIFY(entry.isValid());
        QVERIFY(entry.size() > 0);
        QCOMPARE(entry.compressionAlgorithm(), storage);
    }

    void picturesHaveTheirSizeAndColourType_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<quint32>("width");
        QTest::addColumn<quint32>("height");
        QTest::addColumn<quint8>("colourType");
        const auto addPicture = [](const char *path, quint32 width, quint32 height,
                                   quint8 colourType) {
            QTest::addRow("%s", path) << QString::fromLatin1(path) << width << height << colourType;
        };
        addPicture(":/backgrounds/Fundo01.png", 1920, 1080, Rgb);
        addPicture(":/backgrounds/Fundo02.png", 1920, 1080, Rgb);
        addPicture(":/help/pt_BR/images/fluxo-uso.png", 900, 360, RgbWithAlpha);
        addPicture(":/help/pt_BR/images/gerenciador-pacotes.png", 900, 360, RgbWithAlpha);
    }

    void picturesHaveTheirSizeAndColourType()
    {
        QFETCH(const QString, path);
        const PngHeader header = pngHeaderOf(bytesOf(path));
        QTEST(header.width, "width");
        QTEST(header.height, "height");
        QTEST(header.colourType, "colourType");
        QCOMPARE(header.bitDepth, quint8(8));
        QVERIFY(!QImage(path).isNull());
    }

    void backdropsStaySmallEnoughToShip()
    {
        for (const QString &path : Backdrops)
            QVERIFY2(QResource(path).size() <= 1'760'000, qPrintable(path));
    }

    void whiteTextIsReadableOnTheBackdrops_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QSize>("size");
        QTest::addColumn<QRect>("text");
        QTest::addColumn<QRect>("formAndButtons");
        for (const QString &path : Backdrops) {
            const auto addSize = [&path](QSize size, int textTop) {
                // The text is at most 560 wide, from the panel's left margins on; the panel's
                // upper 164 rows hold no control, and a window too low for that moves the text up.
                const QRect panel(22, 22, size.width() - 44, size.height() - 44);
                const QRect text(panel.left(), textTop, 18 + 560 + 2, panel.bottom() - textTop);
                QTest::newRow(qPrintable(path + QString::number(size.width())))
                    << path << size << text << panel.adjusted(0, 164, 0, 0);
            };
            addSize(QSize(1152, 648), 22 + 164);
            addSize(QSize(900, 506), 128);
            addSize(QSize(711, 400), 77);
        }
    }

    void whiteTextIsReadableOnTheBackdrops()
    {
        QFETCH(const QString, path);
        QFETCH(const QSize, size);
        QFETCH(const QRect, text);
        QFETCH(const QRect, formAndButtons);
        const QImage shown =
            QImage(path).scaled(size, Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
        const double lowest =
            std::min(lowestContrastIn(shown, text), lowestContrastIn(shown, formAndButtons));
        QVERIFY2(lowest >= 7.0, qPrintable(QString::number(lowest)));
    }

    void iconHoldsSixImagesOf32Bits()
    {
        const QByteArray icon =
            QResource(QStringLiteral(":/icons/Tessarine.ico")).uncompressedData();
        QList<int> sizes;
        for (const IconImage &image : iconImagesOf(icon)) {
            QCOMPARE(image.directoryDepth, 32);
            QCOMPARE(image.imageDepth, 32);
            sizes.append(image.size);
        }
        QCOMPARE(sizes, QList<int>({256, 128, 64, 48, 32, 16}));
        QCOMPARE(icon.size(), 370'070);
    }
};

QTEST_GUILESS_MAIN(ResourceCollectionTest)
#include "resource_collection_test.moc"
