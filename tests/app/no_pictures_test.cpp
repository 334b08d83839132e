// Linked without the resource collection: no picture and no icon can be loaded.
#define main tessarineConfigMain
#include "app/TessarineConfig.cpp"
#undef main

#include "tests/support/Waiting.h"

#include <QTest>

class NoPicturesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QVERIFY(!QFile::exists(randomBackgroundPath())); }

    void windowOpensAtItsSizeOnAnUnpaintedBackdrop()
    {
        ConfigWindow window;
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window, TestSupport::longestWait));
        const auto *backdrop = dynamic_cast<BackgroundWidget *>(window.centralWidget());
        QVERIFY(backdrop->background.isNull());
        QCOMPARE(backdrop->size(), QSize(1152, 648));
        QCOMPARE(window.minimumSize(), window.maximumSize());
        for (const QPushButton *button :
             {window.refreshButton, window.prepareButton, window.updateButton})
            QVERIFY2(button->isVisible() && button->isEnabled(), qPrintable(button->text()));
    }

    void dialogKeepsAnEmptySquareInPlaceOfItsIcon()
    {
        ConfigAboutDialog dialog(nullptr);
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog, TestSupport::longestWait));
        const QList<QLabel *> labels = dialog.findChildren<QLabel *>();
        const QLabel *icon = labels.first();
        QCOMPARE(icon->size(), QSize(42, 42));
        QVERIFY(icon->pixmap(Qt::ReturnByValue).isNull());
        QCOMPARE(icon->text(), QString());
    }
};

QTEST_MAIN(NoPicturesTest)

#include "no_pictures_test.moc"
