#define main tessarineConfigMain
#include "app/TessarineConfig.cpp"
#undef main

#include "tests/support/FakeDeviceManager.h"
#include "tests/support/ListComparison.h"
#include "tests/support/MessageBoxUser.h"

#include <QTest>
#include <QTextDocumentFragment>

namespace
{

using TestSupport::FakeDeviceManager;
using TestSupport::MessageBoxUser;
using TestSupport::mountedVolume;
using TestSupport::unmountedVolume;

QStringList logOf(const ConfigWindow &window)
{
    return window.logView->toPlainText().split(QLatin1Char('\n'));
}

void useDevices(ConfigWindow *window, const QList<UsbDevice> &devices)
{
    window->deviceManager = std::make_unique<FakeDeviceManager>(devices);
    window->refreshDevices();
}

} // namespace

// The list of drives in the window: what a line says, and which one is chosen.
class DriveListTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void choosingADriveDoesNothingAtThatMoment()
    {
        ConfigWindow window;
        useDevices(&window, {unmountedVolume(QStringLiteral("A"), QStringLiteral("/dev/sdb1"))});
        const QStringList before = logOf(window);
        MessageBoxUser user;
        window.deviceCombo->setCurrentIndex(0);
        QCOMPARE(logOf(window), before);
        QCOMPARE(user.texts(), QStringList());
    }

    void driveHasItsLine_data()
    {
        QTest::addColumn<bool>("mounted");
        QTest::addColumn<QString>("label");
        QTest::addColumn<QString>("mountPoint");
        QTest::addColumn<QString>("devicePath");
        QTest::addColumn<QString>("line");
        const auto row = [](const char *name, bool mounted, const char *label,
                            const char *mountPoint, const char *devicePath, const char *line) {
            QTest::newRow(name) << mounted << QString::fromUtf8(label)
                                << QString::fromUtf8(mountPoint) << QString::fromUtf8(devicePath)
                                << QString::fromUtf8(line);
        };
        row("label and mount point", true, "PENDRIVE", "/media/usuario/PENDRIVE", "/dev/sdb1",
            "PENDRIVE (/media/usuario/PENDRIVE)");
        row("mounted without label", true, "", "/media/usuario/X", "/dev/sdb1",
            "/media/usuario/X (/media/usuario/X)");
        row("not mounted", false, "PENDRIVE", "", "/dev/sdb1",
            "PENDRIVE (/dev/sdb1) | não montado");
        row("not mounted, without label", false, "", "", "/dev/sdb1",
            "/dev/sdb1 (/dev/sdb1) | não montado");
        row("not mounted, without device", false, "PENDRIVE", "", "",
            "PENDRIVE (não montado) | não montado");
        row("nothing known", false, "", "", "", "não montado (não montado) | não montado");
        row("not mounted, mount point known", false, "PENDRIVE", "/media/x", "/dev/sdb1",
            "PENDRIVE (/dev/sdb1) | não montado");
        row("mounted nowhere", true, "PENDRIVE", "", "/dev/sdb1", "PENDRIVE ()");
        row("mounted nowhere, without label", true, "", "", "/dev/sdb1", " ()");
        row("percent signs", true, "%2 %1", "/media/%1", "/dev/sdb1", "%2 %1 (/media/%1)");
        row("markup", true, "<b>A</b>", "/media/<i>", "/dev/sdb1", "<b>A</b> (/media/<i>)");
    }
    void driveHasItsLine()
    {
        QFETCH(bool, mounted);
        QFETCH(QString, label);
        QFETCH(QString, mountPoint);
        QFETCH(QString, devicePath);
        UsbDevice device;
        device.mounted = mounted;
        device.label = label;
        device.mountPoint = mountPoint;
        device.devicePath = devicePath;
        ConfigWindow window;
        useDevices(&window, {device});
        QTEST(window.deviceCombo->itemText(0), "line");
    }

    void drivesAreListedInTheGivenOrderWithoutDataOrIcon()
    {
        ConfigWindow window;
        useDevices(&window, {mountedVolume(QStringLiteral("Z"), QStringLiteral("/media/z")),
                             mountedVolume(QStringLiteral("A"), QStringLiteral("/media/a"))});
        QCOMPARE(window.deviceCombo->count(), 2);
        QCOMPARE(window.deviceCombo->itemText(0), QStringLiteral("Z (/media/z)"));
        QCOMPARE(window.deviceCombo->itemText(1), QStringLiteral("A (/media/a)"));
        QCOMPARE(window.devices.at(1).label, QStringLiteral("A"));
        for (int i = 0; i < 2; ++i) {
            QVERIFY(!window.deviceCombo->itemData(i).isValid());
            QVERIFY(window.deviceCombo->itemIcon(i).isNull());
        }
    }

    void longLineIsCutInItsMiddleSoThatMountPointsDiffer()
    {
        const QString label(60, u'A');
        QList<QImage> pictures;
        for (const QString &mountPoint :
             {QStringLiteral("/media/usuario/A"), QStringLiteral("/media/usuario/B")}) {
            ConfigWindow window;
            useDevices(&window, {mountedVolume(label, mountPoint)});
            pictures << window.deviceCombo->grab().toImage();
        }
        QVERIFY2(pictures.at(0) != pictures.at(1), "Both lines look alike");
    }

    void everyLineIsThereInFullAsAToolTip()
    {
        ConfigWindow window;
        useDevices(&window, {mountedVolume(QStringLiteral("A"), QStringLiteral("/media/a")),
                             mountedVolume(QStringLiteral("<b>"), QStringLiteral("/media/b"))});
        QCOMPARE(window.deviceCombo->itemData(0, Qt::ToolTipRole).toString(),
                 QStringLiteral("A (/media/a)"));
        const QString toolTip = window.deviceCombo->itemData(1, Qt::ToolTipRole).toString();
        QCOMPARE(QTextDocumentFragment::fromHtml(toolTip).toPlainText(),
                 QStringLiteral("<b> (/media/b)"));
    }

    void theOneUsableDriveIsSelected()
    {
        ConfigWindow window;
        useDevices(&window, {unmountedVolume(QStringLiteral("A"), QStringLiteral("/dev/sdb1")),
                             mountedVolume(QStringLiteral("B"), QStringLiteral("/media/b")),
                             mountedVolume(QStringLiteral("C"), QString()),
                             unmountedVolume(QStringLiteral("D"), QStringLiteral("/dev/sdd1"))});
        QCOMPARE(window.deviceCombo->count(), 4);
        QCOMPARE(window.deviceCombo->currentIndex(), 1);
        QCOMPARE(logOf(window).last(), QStringLiteral("4 unidade(s) USB detectada(s)."));
    }

    void ofTwoUsableDrivesNoneIsSelectedEvenIfOneWasBefore()
    {
        ConfigWindow window;
        const UsbDevice first = mountedVolume(QStringLiteral("A"), QStringLiteral("/media/a"));
        useDevices(&window, {first});
        QCOMPARE(window.deviceCombo->currentIndex(), 0);
        useDevices(&window,
                   {first, mountedVolume(QStringLiteral("B"), QStringLiteral("/media/b"))});
        QCOMPARE(window.deviceCombo->count(), 2);
        QCOMPARE(window.deviceCombo->currentIndex(), -1);
        QCOMPARE(logOf(window).last(), QStringLiteral("2 unidade(s) USB detectada(s)."));
    }

    void ofUnmountedDrivesNoneIsSelected()
    {
        ConfigWindow window;
        useDevices(&window, {unmountedVolume(QStringLiteral("A"), QStringLiteral("/dev/sdb1"))});
        QCOMPARE(window.deviceCombo->currentIndex(), -1);
        QCOMPARE(window.deviceCombo->itemText(0), QStringLiteral("A (/dev/sdb1) | não montado"));
        QCOMPARE(logOf(window).last(), QStringLiteral("1 unidade(s) USB detectada(s)."));
    }

    void noDriveEmptiesTheList()
    {
        ConfigWindow window;
        useDevices(&window, {mountedVolume(QStringLiteral("A"), QStringLiteral("/media/a"))});
        useDevices(&window, {});
        QCOMPARE(window.deviceCombo->count(), 0);
        QCOMPARE(window.deviceCombo->currentIndex(), -1);
        QCOMPARE(window.devices.size(), 0);
        QCOMPARE(logOf(window).last(), QStringLiteral("Nenhuma unidade USB detectada."));
    }

    void withoutADetectorTheListIsEmptyAndTheLogSaysWhy()
    {
        ConfigWindow window;
        useDevices(&window, {mountedVolume(QStringLiteral("A"), QStringLiteral("/media/a"))});
        const qsizetype linesBefore = logOf(window).size();
        window.deviceManager.reset();
        MessageBoxUser user;
        window.refreshDevices();
        QCOMPARE(window.deviceCombo->count(), 0);
        QCOMPARE(window.deviceCombo->currentIndex(), -1);
        QCOMPARE(window.devices.size(), 0);
        QCOMPARE(logOf(window).size(), linesBefore + 1);
        QCOMPARE(logOf(window).last(),
                 QStringLiteral("Detecção de USB não disponível neste sistema."));
        QCOMPARE(user.texts(), QStringList());
    }

    void eachRefreshAddsOneLine()
    {
        ConfigWindow window;
        useDevices(&window, {});
        const qsizetype linesBefore = logOf(window).size();
        QTest::mouseClick(window.refreshButton, Qt::LeftButton);
        QTest::mouseClick(window.refreshButton, Qt::LeftButton);
        QCOMPARE(logOf(window).size(), linesBefore + 2);
    }
};

QTEST_MAIN(DriveListTest)
#include "drive_list_test.moc"
