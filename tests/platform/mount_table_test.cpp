#include "platform/linux/LinuxDeviceManager.cpp"
#include "tests/platform/DetectedDevices.h"
#include "tests/support/ListComparison.h"
#include "tests/support/Machine.h"

#include <QTest>

using namespace Tessarine::Platform::Linux;
using TestSupport::detectedDevices;
using TestSupport::labelledVolume;
using TestSupport::Machine;
using TestSupport::mountedVolume;
using TestSupport::unmountedDevice;

namespace
{

// A machine with the USB partition sdb1. Qt lists no volumes below /sys, so that the table alone
// tells of those.
class UsbMachine : public Machine
{
public:
    UsbMachine() { addUsbDisk("sdb", {"sdb1"}); }

    void addToMountTable(const QByteArray &line) { setMountTable(mountTable() + line + '\n'); }
};

} // namespace

class MountTableTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void escapesAreDecoded_data()
    {
        QTest::addColumn<QString>("token");
        QTest::addColumn<QString>("decoded");
        QTest::newRow("space") << "A\\040B\\040C"
                               << "A B C";
        QTest::newRow("tab") << "A\\011B"
                             << "A\tB";
        QTest::newRow("line feed") << "A\\012B"
                                   << "A\nB";
        QTest::newRow("backslash") << "A\\134B"
                                   << "A\\B";
        QTest::newRow("escaped backslash before digits") << "\\134040"
                                                         << "\\040";
        QTest::newRow("other escape") << "A\\043B"
                                      << "A\\043B";
        QTest::newRow("nothing to do") << "/media/ana/PEN"
                                       << "/media/ana/PEN";
        QTest::newRow("empty") << ""
                               << "";
    }

    void escapesAreDecoded()
    {
        QFETCH(QString, token);
        QTEST(decodeMountInfoToken(token), "decoded");
    }

    void kernelsTableReadsAsEmptyAndTheVolumeIsListedAsUnmounted()
    {
        UsbMachine machine;
        machine.mountVolume("/dev/sdb1", "/sys/devices/v");
        QCOMPARE(detectedDevices(), QStringList{unmountedDevice("sdb1")});
    }

    void withoutTheTableNoUnmountedDeviceIsListed()
    {
        UsbMachine machine;
        machine.makeMountTableUnreadable();
        QCOMPARE(detectedDevices(), QStringList());
    }

    void volumeThatQtDoesNotListIsTakenFromTheTable_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::newRow("no optional field")
            << QByteArray("36 35 0:40 / /sys/devices/v rw,relatime - vfat /dev/sdb1 rw");
        QTest::newRow("several optional fields")
            << QByteArray("36 35 0:40 / /sys/devices/v rw shared:1 master:2 propagate_from:3 - "
                          "vfat /dev/sdb1 rw");
    }

    void volumeThatQtDoesNotListIsTakenFromTheTable()
    {
        QFETCH(QByteArray, line);
        UsbMachine machine;
        machine.addDirectory("/sys/devices/v");
        machine.addLabel("MEU\\x20PEN", "../../sdb1");
        machine.setMountTable(line + '\n');
        QCOMPARE(detectedDevices(),
                 QStringList{labelledVolume("/dev/sdb1", "MEU PEN", "/sys/devices/v", "vfat")});
    }

    void lineWithoutMountOptionsIsTakenToo()
    {
        UsbMachine machine;
        machine.mountVolume("none", "/sys/devices/v");
        machine.addToMountTable("36 35 0:40 / /sys/devices/v - vfat /dev/sdb1 rw");
        QCOMPARE(detectedDevices(),
                 QStringList{mountedVolume("/dev/sdb1", "/sys/devices/v", "vfat")});
    }

    void incompleteLineIsPassedOver_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::newRow("empty") << QByteArray("");
        QTest::newRow("no separator")
            << QByteArray("36 35 0:40 / /sys/devices/v rw vfat /dev/sdb1 rw");
        QTest::newRow("separator without spaces")
            << QByteArray("36 35 0:40 / /sys/devices/v rw -vfat /dev/sdb1 rw");
        QTest::newRow("four fields on the left") << QByteArray("36 35 0:40 / - vfat /dev/sdb1 rw");
        QTest::newRow("two fields on the right")
            << QByteArray("36 35 0:40 / /sys/devices/v - vfat /dev/sdb1");
        QTest::newRow("shifted by a second space")
            << QByteArray("36 35 0:40 / /sys/devices/v rw -  vfat /dev/sdb1 rw");
    }

    void incompleteLineIsPassedOver()
    {
        QFETCH(QByteArray, line);
        UsbMachine machine;
        machine.addDirectory("/sys/devices/v");
        machine.setMountTable(line + '\n');
        QCOMPARE(detectedDevices(), QStringList{unmountedDevice("sdb1")});
    }

    void fieldsCountFromTheFirstSeparator()
    {
        UsbMachine machine;
        machine.setMountTable(
            "36 35 0:40 / /sys/devices/v rw - vfat none rw - vfat /dev/sdb1 rw\n");
        QCOMPARE(detectedDevices(), QStringList{unmountedDevice("sdb1")});
    }

    void allThreeFieldsAreDecoded()
    {
        UsbMachine machine;
        machine.addDirectory("/sys/devices/MEU PEN");
        machine.addUsbDisk("sd c");
        machine.setMountTable(
            "36 35 0:40 / /sys/devices/MEU\\040PEN rw - fuse.\\134x /dev/sd\\040c rw\n");
        QCOMPARE(detectedDevices().first(),
                 mountedVolume("/dev/sd c", "/sys/devices/MEU PEN", "fuse.\\x"));
    }

    void bytesThatAreNoUtf8AreReplaced()
    {
        UsbMachine machine;
        machine.setMountTable("36 35 0:40 / /media/ana/PEN\xFF rw - vfat /dev/sdb1 rw\n");
        const QString mountPoint = "/media/ana/PEN\uFFFD";
        const QString known = QStorageInfo(mountPoint).displayName(); // newer Qt's is the path
        const QString line = "/dev/sdb1:%1|/dev/sdb1|%2|%1|vfat|removable|mounted";
        QCOMPARE(detectedDevices(),
                 QStringList{line.arg(mountPoint, known.isEmpty() ? "PEN\uFFFD" : known)});
    }

    void escapedMountPointIsKnownFromQt()
    {
        UsbMachine machine;
        machine.addUsbDisk("sdc");
        machine.addDirectory("/media/MEU PEN");
        machine.setMountTable("36 35 0:40 / /media/MEU\\040PEN rw - vfat /dev/sdb1 rw\n"
                              "37 35 0:41 / /media/MEU\\040PEN rw - vfat /dev/sdc rw\n");
        QCOMPARE(detectedDevices(),
                 (QStringList{mountedVolume("/dev/sdb1", "/media/MEU PEN", "vfat"),
                              unmountedDevice("sdc")}));
    }

    void firstLineOfADeviceWins()
    {
        UsbMachine machine;
        machine.addDirectory("/sys/devices/z");
        machine.addDirectory("/sys/devices/a");
        machine.setMountTable("36 35 0:40 / /sys/devices/z rw - vfat /dev/sdb1 rw\n"
                              "37 35 0:40 / /sys/devices/a rw - vfat /dev/sdb1 rw\n");
        QCOMPARE(detectedDevices(),
                 QStringList{mountedVolume("/dev/sdb1", "/sys/devices/z", "vfat")});
    }

    void deviceThatQtListsIsNotTakenAgain()
    {
        UsbMachine machine;
        machine.mountVolume("/dev/sdb1", "/sys/devices/a");
        machine.mountVolume("/dev/sdb1", "/media/pen");
        machine.setMountTable(machine.mountTable());
        QCOMPARE(detectedDevices(), QStringList{mountedVolume("/dev/sdb1", "/media/pen")});
    }

    void mountPointIsTakenOnce()
    {
        UsbMachine machine;
        machine.addUsbDisk("sdc");
        machine.addDirectory("/sys/devices/a");
        machine.setMountTable("36 35 0:40 / /sys/devices/a rw - vfat /dev/sdb1 rw\n"
                              "37 35 0:41 / /sys/devices/a rw - vfat /dev/sdc rw\n");
        QCOMPARE(detectedDevices(),
                 (QStringList{mountedVolume("/dev/sdb1", "/sys/devices/a", "vfat"),
                              unmountedDevice("sdc")}));
    }

    void otherSourcesArePassedOver_data()
    {
        QTest::addColumn<QByteArray>("source");
        QTest::newRow("not a device") << QByteArray("sdb1");
        QTest::newRow("capitals") << QByteArray("/DEV/sdb1");
        QTest::newRow("link of another name") << QByteArray("/dev/disk/by-label/PEN");
        QTest::newRow("device mapper") << QByteArray("/dev/mapper/luks-1");
        QTest::newRow("not on USB") << QByteArray("/dev/sda");
        QTest::newRow("optical") << QByteArray("/dev/sr0");
    }

    void otherSourcesArePassedOver()
    {
        QFETCH(QByteArray, source);
        UsbMachine machine;
        machine.addDirectory("/sys/devices/v");
        machine.addBlockDevice("pci0000:00/ata1/block/sda");
        machine.addUsbDisk("sr0");
        machine.setAttribute("sr0", "device/type", "5\n");
        machine.setMountTable("36 35 0:40 / /sys/devices/v rw - vfat " + source + " rw\n");
        QCOMPARE(detectedDevices(), QStringList{unmountedDevice("sdb1")});
    }

    void volumeThatIsNotReadyIsTakenFromTheTableAsItStands()
    {
        UsbMachine machine;
        machine.setMountTable("36 35 0:40 / /media/ana/PEN rw - vfat /dev/sdb1 rw\n");
        // Newer Qt calls it by its path, older Qt nothing.
        const QString path = QStorageInfo("/media/ana/PEN").displayName();
        const QString label = path.isEmpty() ? "PEN" : "/media/ana/PEN";
        QCOMPARE(detectedDevices(),
                 QStringList{QString("/dev/sdb1:/media/ana/PEN|/dev/sdb1|%1|/media/ana/PEN|vfat|"
                                     "removable|mounted")
                                 .arg(label)});
    }

    void mountPointIsTheRootOfTheVolumeThere()
    {
        UsbMachine machine;
        machine.addDirectory("/sys/devices/v");
        QVERIFY(QFile::link("/sys/devices/v", "/sys/devices/link"));
        machine.setMountTable("36 35 0:40 / /sys/devices/link rw - vfat /dev/sdb1 rw\n"
                              "37 35 0:41 / /sys/devices/v rw - tmpfs none rw\n");
        QCOMPARE(detectedDevices(),
                 QStringList{mountedVolume("/dev/sdb1", "/sys/devices/v", "vfat")});
    }

    void missingTypeIsTheOneThatQtReports()
    {
        UsbMachine machine;
        machine.mountVolume("none", "/sys/devices/v");
        machine.addToMountTable("36 35 0:40 / /sys/devices/v rw -  /dev/sdb1 rw");
        QCOMPARE(detectedDevices(),
                 QStringList{mountedVolume("/dev/sdb1", "/sys/devices/v", "tmpfs")});
    }

    void diskThatIsNotRemovableIsTakenAllTheSame()
    {
        UsbMachine machine;
        machine.addDirectory("/sys/devices/v");
        machine.setAttribute("sdb", "removable", "0\n");
        machine.setMountTable("36 35 0:40 / /sys/devices/v rw - vfat /dev/sdb1 rw\n");
        QCOMPARE(detectedDevices(), QStringList{"/dev/sdb1:/sys/devices/v|/dev/sdb1|/sys/devices/"
                                                "v|/sys/devices/v|vfat|fixed|mounted"});
    }
};

QTEST_GUILESS_MAIN(MountTableTest)
#include "mount_table_test.moc"
