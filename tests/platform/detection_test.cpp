#include "tests/platform/DetectedDevices.h"
#include "tests/support/ListComparison.h"
#include "tests/support/Machine.h"

#include <QDir>
#include <QTest>

#include <algorithm>

using TestSupport::detectedDevices;
using TestSupport::labelledVolume;
using TestSupport::Machine;
using TestSupport::mountedVolume;
using TestSupport::unmountedDevice;

// What the list holds on machines of many kinds. Real mounts, and the kernel's own mount table.
class DetectionTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void machineWithoutUsbHasAnEmptyList()
    {
        Machine machine;
        machine.addBlockDevice("pci0000:00/ata1/block/sda");
        machine.addBlockDevice("pci0000:00/ata1/block/sda/sda1");
        machine.addBlockDevice("virtual/block/loop0");
        machine.mountVolume("/dev/sda1", "/media/ana/INTERNO");
        QCOMPARE(detectedDevices(), QStringList());
    }

    void mountedPartitionIsListedOnceAndItsDiskIsNot()
    {
        Machine machine;
        machine.addUsbDisk("sdb", {"sdb1"});
        machine.addLabel("PEN", "../../sdb1");
        machine.mountVolume("/dev/sdb1", "/media/ana/PEN");
        QCOMPARE(detectedDevices(),
                 QStringList{labelledVolume("/dev/sdb1", "PEN", "/media/ana/PEN")});
    }

    void mountedPartitionStandsBeforeItsUnmountedNeighbour()
    {
        Machine machine;
        machine.addUsbDisk("sdb", {"sdb1", "sdb2"});
        machine.mountVolume("/dev/sdb2", "/media/ana/PEN");
        QCOMPARE(detectedDevices(), (QStringList{mountedVolume("/dev/sdb2", "/media/ana/PEN"),
                                                 unmountedDevice("sdb1")}));
    }

    void mountedVolumeWithoutANameIsCalledByItsPath()
    {
        Machine machine;
        machine.addUsbDisk("sdb");
        machine.mountVolume("/dev/sdb", "/media/ana/PEN");
        QCOMPARE(detectedDevices(), QStringList{mountedVolume("/dev/sdb", "/media/ana/PEN")});
    }

    void unmountedStickWithoutPartitionTableIsListedWithItsLabel()
    {
        Machine machine;
        machine.addUsbDisk("sdb");
        machine.addLabel("PEN", "../../sdb");
        QCOMPARE(detectedDevices(), QStringList{"/dev/sdb|/dev/sdb|PEN|||removable|unmounted"});
    }

    // Neither the size nor the medium is looked at.
    void emptySlotOfACardReaderIsListedByItsName()
    {
        Machine machine;
        machine.addUsbDisk("sdb");
        machine.setAttribute("sdb", "size", "0\n");
        QCOMPARE(detectedDevices(), QStringList{unmountedDevice("sdb")});
    }

    void opticalDriveIsNeverListed()
    {
        Machine machine;
        machine.addUsbDisk("sr0", {"sr0p1", "sr0p2"});
        machine.addUsbDisk("sr1");
        machine.setAttribute("sr0", "device/type", "5\n");
        machine.setAttribute("sr1", "device/type", "5\n");
        machine.mountVolume("/dev/sr0p1", "/media/ana/CD");
        QCOMPARE(detectedDevices(), QStringList());
    }

    void diskThatIsNotRemovableIsListedAllTheSame()
    {
        Machine machine;
        machine.addUsbDisk("sdb", {"sdb1", "sdb2"});
        machine.setAttribute("sdb", "removable", "0\n");
        machine.mountVolume("/dev/sdb1", "/media/ana/PEN");
        QCOMPARE(detectedDevices(), (QStringList{"/dev/sdb1:/media/ana/PEN|/dev/sdb1|/media/ana/"
                                                 "PEN|/media/ana/PEN|tmpfs|fixed|mounted",
                                                 "/dev/sdb2|/dev/sdb2|sdb2|||fixed|unmounted"}));
    }

    void partitionMountedTwiceIsListedTwice()
    {
        Machine machine;
        machine.addUsbDisk("sdb", {"sdb1"});
        machine.mountVolume("/dev/sdb1", "/media/z");
        machine.mountVolume("/dev/sdb1", "/media/a");
        QCOMPARE(detectedDevices(), (QStringList{mountedVolume("/dev/sdb1", "/media/z"),
                                                 mountedVolume("/dev/sdb1", "/media/a")}));
    }

    void bindMountIsAFurtherRecord_data()
    {
        QTest::addColumn<QString>("directory");
        QTest::newRow("of the root") << "/media/pen";
        QTest::newRow("of a sub-directory") << "/media/pen/dados";
    }

    void bindMountIsAFurtherRecord()
    {
        QFETCH(QString, directory);
        Machine machine;
        machine.addUsbDisk("sdb", {"sdb1"});
        machine.mountVolume("/dev/sdb1", "/media/pen");
        machine.addDirectory("/media/pen/dados");
        machine.addDirectory("/mnt/outro");
        machine.bind(directory, "/mnt/outro");
        QCOMPARE(detectedDevices(), (QStringList{mountedVolume("/dev/sdb1", "/media/pen"),
                                                 mountedVolume("/dev/sdb1", "/mnt/outro")}));
    }

    // Older Qt lists the volume underneath too, newer Qt the one on top alone.
    void firstVolumeOfADirectoryIsKept()
    {
        Machine machine;
        machine.addUsbDisk("sdb");
        machine.addUsbDisk("sdc");
        machine.mountVolume("/dev/sdc", "/media/pen");
        machine.mountVolume("/dev/sdb", "/media/pen");
        const QList<QStorageInfo> listed = QStorageInfo::mountedVolumes();
        const bool isUnderneathListed =
            std::any_of(listed.begin(), listed.end(),
                        [](const QStorageInfo &volume) { return volume.device() == "/dev/sdc"; });
        const QString first = isUnderneathListed ? "sdc" : "sdb";
        const QString other = isUnderneathListed ? "sdb" : "sdc";
        QCOMPARE(detectedDevices(), (QStringList{mountedVolume("/dev/" + first, "/media/pen"),
                                                 unmountedDevice(other)}));
    }

    void encryptedVolumeIsListedAsThePartitionUnderneath()
    {
        Machine machine;
        machine.addUsbDisk("sdb", {"sdb1"});
        machine.addBlockDevice("virtual/block/dm-0");
        machine.mountVolume("/dev/mapper/luks-1", "/media/ana/COFRE");
        QCOMPARE(detectedDevices(), QStringList{unmountedDevice("sdb1")});
    }

    void volumeMountedByALinkIsFoundAgainByItsLabel()
    {
        Machine machine;
        machine.addUsbDisk("sdb", {"sdb1"});
        machine.addLabel("PEN", "../../sdb1");
        machine.mountVolume("/dev/disk/by-label/PEN", "/media/ana/PEN");
        QCOMPARE(detectedDevices(),
                 QStringList{"/dev/sdb1|/dev/sdb1|PEN|/media/ana/PEN||removable|mounted"});
    }

    void leftOverDirectoryPassesForTheMountPoint()
    {
        Machine machine;
        machine.addUsbDisk("sdb", {"sdb1"});
        machine.addLabel("PEN", "../../sdb1");
        machine.addDirectory("/media/ana/PEN");
        QCOMPARE(detectedDevices(),
                 QStringList{"/dev/sdb1|/dev/sdb1|PEN|/media/ana/PEN||removable|mounted"});
    }

    void blockNameServesAsALabel()
    {
        Machine machine;
        machine.addUsbDisk("sdb", {"sdb1"});
        machine.addDirectory("/mnt/sdb1");
        QCOMPARE(detectedDevices(),
                 QStringList{"/dev/sdb1|/dev/sdb1|sdb1|/mnt/sdb1||removable|mounted"});
    }

    void escapedLabelIsShownAsItIsAndFindsNoDirectory()
    {
        Machine machine;
        machine.addUsbDisk("sdb", {"sdb1"});
        machine.addLabel("MEU\\x20PEN", "../../sdb1");
        machine.addDirectory("/media/ana/MEU PEN");
        QCOMPARE(detectedDevices(),
                 QStringList{"/dev/sdb1|/dev/sdb1|MEU\\x20PEN|||removable|unmounted"});
    }

    void placeholdersInAPathStay()
    {
        Machine machine;
        machine.addUsbDisk("sdb");
        machine.mountVolume("/dev/sdb", "/media/%1%2");
        QCOMPARE(detectedDevices(), QStringList{mountedVolume("/dev/sdb", "/media/%1%2")});
    }

    void mountedVolumesStandInTheOrderOfTheirMountsAndOthersByName()
    {
        Machine machine;
        for (const char *name : {"sdd", "sdC", "sdb", "sda", "sde"})
            machine.addUsbDisk(name);
        machine.mountVolume("/dev/sde", "/media/e");
        machine.mountVolume("/dev/sda", "/media/a");
        QCOMPARE(detectedDevices(),
                 (QStringList{mountedVolume("/dev/sde", "/media/e"),
                              mountedVolume("/dev/sda", "/media/a"), unmountedDevice("sdb"),
                              unmountedDevice("sdC"), unmountedDevice("sdd")}));
    }

    void directoryWithTheNameOfTheDiskIsNoPartition()
    {
        Machine machine;
        machine.addUsbDisk("sdb");
        machine.setAttribute("sdb", "sdb/attribute", "");
        machine.setAttribute("sdb", "holders/attribute", "");
        QCOMPARE(detectedDevices(), QStringList{unmountedDevice("sdb")});
    }

    void diskOutsideABlockDirectoryIsListedBesideItsPartitions()
    {
        Machine machine;
        machine.addBlockDevice("pci0000:00/usb2/nvme/nvme0/nvme0n1");
        machine.addBlockDevice("pci0000:00/usb2/nvme/nvme0/nvme0n1/nvme0n1p1");
        QCOMPARE(detectedDevices(),
                 (QStringList{"/dev/nvme0n1|/dev/nvme0n1|nvme0n1|||fixed|unmounted",
                              "/dev/nvme0n1p1|/dev/nvme0n1p1|nvme0n1p1|||fixed|unmounted"}));
    }

    void volumeWhoseDeviceIsNotBelowDevIsPassedOver()
    {
        Machine machine;
        machine.addUsbDisk("sdb");
        machine.mountVolume("sdb", "/media/a");
        machine.mountVolume("/DEV/sdb", "/media/b");
        QCOMPARE(detectedDevices(), QStringList{unmountedDevice("sdb")});
    }

    void systemOnAUsbDiskListsItsOwnRoot()
    {
        Machine machine;
        machine.addUsbDisk("sdb", {"sdb1"});
        machine.setMountTable("1 0 8:17 / / rw - ext4 /dev/sdb1 rw\n");
        QCOMPARE(detectedDevices(), QStringList{mountedVolume("/dev/sdb1", "/", "ext4")});
    }

    void machineWithoutADeviceTreeHasAnEmptyList()
    {
        Machine machine;
        machine.addUsbDisk("sdb");
        machine.mountVolume("/dev/sdb", "/media/ana/PEN");
        machine.mountVolume("none", "/sys/class");
        QCOMPARE(detectedDevices(), QStringList());
    }

    void listIsASnapshotAndTheSameUntilTheMachineChanges()
    {
        Machine machine;
        machine.addUsbDisk("sdb", {"sdb1", "sdb2"});
        machine.mountVolume("/dev/sdb1", "/media/ana/PEN");
        const QStringList before = detectedDevices();
        QCOMPARE(detectedDevices(), before);
        machine.addUsbDisk("sdc");
        QCOMPARE(detectedDevices(), before + QStringList{unmountedDevice("sdc")});
    }
};

QTEST_GUILESS_MAIN(DetectionTest)
#include "detection_test.moc"
