#include "platform/linux/LinuxDeviceManager.cpp"
#include "tests/support/Machine.h"

#include <QTest>

using namespace Tessarine::Platform::Linux;
using TestSupport::Machine;

class BlockDeviceTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void firstLineIsReadAndTrimmed()
    {
        Machine machine;
        machine.addUsbDisk("sdb");
        machine.setAttribute("sdb", "uevent", " \tMAJOR=8 \nMINOR=16\n");
        QCOMPARE(readFirstLine("/sys/class/block/sdb/uevent"), "MAJOR=8");
    }

    void fileThatCannotBeOpenedHasNoFirstLine()
    {
        QVERIFY2(readFirstLine("/sys/class/block/none/uevent").isNull(),
                 qPrintable(readFirstLine("/sys/class/block/none/uevent")));
    }

    void partitionResolvesIntoTheDirectoryOfItsDisk()
    {
        Machine machine;
        machine.addBlockDevice("pci0000:00/usb2/2-1/block/sdb");
        machine.addBlockDevice("pci0000:00/usb2/2-1/block/sdb/sdb1");
        QCOMPARE(blockDeviceSysfsPath("sdb1"), "/sys/devices/pci0000:00/usb2/2-1/block/sdb/sdb1");
    }

    void parentOfAPartitionIsItsDiskAndOfADiskItself()
    {
        Machine machine;
        machine.addUsbDisk("sdb", {"sdb1"});
        QCOMPARE(parentDiskName("sdb1"), "sdb");
        QCOMPARE(parentDiskName("sdb"), "sdb");
    }

    void parentStandsBehindTheFirstBlockDirectory()
    {
        Machine machine;
        machine.addBlockDevice("block/first/block/second");
        QCOMPARE(parentDiskName("second"), "first");
    }

    void unknownNameIsAnsweredWithNo()
    {
        const Machine machine;
        QCOMPARE(blockDeviceSysfsPath("luks-1"), QString());
        QVERIFY2(parentDiskName("luks-1").isNull(), qPrintable(parentDiskName("luks-1")));
        QVERIFY(!isUsbBlockDevice("luks-1"));
        QVERIFY(!isOpticalBlockDevice("luks-1"));
        QVERIFY(!isRemovableBlockDevice("luks-1"));
    }

    void virtualDeviceIsItsOwnParentAndNotUsb_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("loop device") << "loop0";
        QTest::newRow("device mapper") << "dm-0";
    }

    void virtualDeviceIsItsOwnParentAndNotUsb()
    {
        QFETCH(QString, name);
        Machine machine;
        machine.addBlockDevice("virtual/block/" + name);
        QCOMPARE(parentDiskName(name), name);
        QVERIFY(!isUsbBlockDevice(name));
    }

    void diskAndPartitionOnUsbAreUsb()
    {
        Machine machine;
        machine.addUsbDisk("sdb", {"sdb1"});
        QVERIFY(isUsbBlockDevice("sdb"));
        QVERIFY(isUsbBlockDevice("sdb1"));
    }

    void partitionIsUsbIfItsDiskIs()
    {
        Machine machine;
        machine.addBlockDevice("pci0000:00/ata1/block/sdb/sdb1");
        machine.addBlockDevice("pci0000:00/usb2/2-1/block/sdb");
        QVERIFY(isUsbBlockDevice("sdb1"));
    }

    void usbIsTheBeginningOfAComponentInSmallLetters_data()
    {
        QTest::addColumn<QString>("component");
        QTest::addColumn<bool>("usb");
        QTest::newRow("bus") << "usb2" << true;
        QTest::newRow("longer word") << "usbip-host" << true;
        QTest::newRow("capitals") << "USB2" << false;
        QTest::newRow("end of a word") << "xusb2" << false;
        QTest::newRow("other bus") << "ata1" << false;
    }

    void usbIsTheBeginningOfAComponentInSmallLetters()
    {
        QFETCH(QString, component);
        Machine machine;
        machine.addBlockDevice("pci0000:00/" + component + "/block/sdb");
        QTEST(isUsbBlockDevice("sdb"), "usb");
    }

    void deviceOutsideABlockDirectoryStandsForItself()
    {
        Machine machine;
        machine.addBlockDevice("pci0000:00/nvme/nvme0/nvme0n1");
        machine.addBlockDevice("pci0000:00/usb2/nvme/nvme1/nvme1n1");
        machine.setAttribute("nvme0n1", "device/type", "5\n");
        QVERIFY2(parentDiskName("nvme0n1").isNull(), qPrintable(parentDiskName("nvme0n1")));
        QVERIFY(!isUsbBlockDevice("nvme0n1"));
        QVERIFY(isOpticalBlockDevice("nvme0n1"));
        QVERIFY(!isRemovableBlockDevice("nvme0n1"));
        QVERIFY(isUsbBlockDevice("nvme1n1"));
    }

    void opticalIsTypeFive_data()
    {
        QTest::addColumn<QByteArray>("type");
        QTest::addColumn<bool>("optical");
        QTest::newRow("CD or DVD") << QByteArray("5\n") << true;
        QTest::newRow("with spaces") << QByteArray(" 5 \n") << true;
        QTest::newRow("disk") << QByteArray("0\n") << false;
        QTest::newRow("two digits") << QByteArray("05\n") << false;
        QTest::newRow("empty") << QByteArray() << false;
    }

    void opticalIsTypeFive()
    {
        QFETCH(QByteArray, type);
        Machine machine;
        machine.addUsbDisk("sdb", {"sdb1", "sdb2"});
        machine.setAttribute("sdb", "device/type", type);
        QTEST(isOpticalBlockDevice("sdb"), "optical");
        QTEST(isOpticalBlockDevice("sdb1"), "optical");
        QTEST(isOpticalBlockDevice("sdb2"), "optical");
    }

    void typeOfThePartitionItselfIsNotRead()
    {
        Machine machine;
        machine.addUsbDisk("sdb", {"sdb1"});
        machine.setAttribute("sdb1", "device/type", "5\n");
        QVERIFY(!isOpticalBlockDevice("sdb1"));
    }

    void deviceWithoutATypeIsNotOptical()
    {
        Machine machine;
        machine.addBlockDevice("pci0000:00/usb2/2-1/block/sdb");
        QVERIFY(!isOpticalBlockDevice("sdb"));
    }

    void removableIsTheDigitOne_data()
    {
        QTest::addColumn<QByteArray>("flag");
        QTest::addColumn<bool>("removable");
        QTest::newRow("with a line end") << QByteArray("1\n") << true;
        QTest::newRow("without") << QByteArray("1") << true;
        QTest::newRow("with spaces") << QByteArray(" 1 \n") << true;
        QTest::newRow("zero") << QByteArray("0\n") << false;
        QTest::newRow("leading zero") << QByteArray("01\n") << false;
        QTest::newRow("ten") << QByteArray("10\n") << false;
        QTest::newRow("empty") << QByteArray() << false;
    }

    void removableIsTheDigitOne()
    {
        QFETCH(QByteArray, flag);
        Machine machine;
        machine.addUsbDisk("sdb", {"sdb1"});
        machine.setAttribute("sdb", "removable", flag);
        QTEST(isRemovableBlockDevice("sdb"), "removable");
        QTEST(isRemovableBlockDevice("sdb1"), "removable");
    }

    void flagOfTheDeviceItselfIsEnough()
    {
        Machine machine;
        machine.addUsbDisk("sdb", {"sdb1"});
        machine.setAttribute("sdb", "removable", "0\n");
        machine.setAttribute("sdb1", "removable", "1\n");
        QVERIFY(isRemovableBlockDevice("sdb1"));
        QVERIFY(!isRemovableBlockDevice("sdb"));
    }

    void deviceWithoutTheFlagIsNotRemovable()
    {
        Machine machine;
        machine.addBlockDevice("pci0000:00/usb2/2-1/block/sdb");
        QVERIFY(!isRemovableBlockDevice("sdb"));
    }
};

QTEST_GUILESS_MAIN(BlockDeviceTest)
#include "block_device_test.moc"
