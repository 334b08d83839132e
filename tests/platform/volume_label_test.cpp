#include "platform/linux/LinuxDeviceManager.cpp"
#include "tests/support/Machine.h"

#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace Tessarine::Platform::Linux;
using TestSupport::Machine;

using LabelMap = QHash<QString, QString>;

class VolumeLabelTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void labelIsTheNameOfTheLink()
    {
        Machine machine;
        machine.addUsbDisk("sdb", {"sdb1", "sdb2"});
        machine.addLabel("PEN", "../../sdb1");
        machine.addLabel("DADOS", "/dev/sdb2");
        QCOMPARE(blockLabelMap(), (LabelMap{{"sdb1", "PEN"}, {"sdb2", "DADOS"}}));
    }

    void escapesOfALinkNameStay()
    {
        Machine machine;
        machine.addUsbDisk("sdb");
        machine.addLabel("MEU\\x20PEN", "../../sdb");
        QCOMPARE(blockLabelMap(), (LabelMap{{"sdb", "MEU\\x20PEN"}}));
    }

    void lastLinkInAlphabeticalOrderWinsWhateverItsCapitals()
    {
        Machine machine;
        machine.addUsbDisk("sdb");
        machine.addLabel("beta", "../../sdb");
        machine.addLabel("Gama", "../../sdb");
        machine.addLabel("ALFA", "../../sdb");
        QCOMPARE(blockLabelMap(), (LabelMap{{"sdb", "Gama"}}));
    }

    void linkIsFollowedToItsEnd()
    {
        Machine machine;
        machine.addBlockDevice("virtual/block/dm-0");
        machine.addDirectory("/dev/disk/by-id");
        QVERIFY(QFile::link("../../dm-0", "/dev/disk/by-id/dm-name-cofre"));
        machine.addLabel("COFRE", "../by-id/dm-name-cofre");
        QCOMPARE(blockLabelMap(), (LabelMap{{"dm-0", "COFRE"}}));
    }

    void nameThatIsNoUtf8IsPassedOver()
    {
        Machine machine;
        machine.addUsbDisk("sdb");
        machine.addDirectory("/dev/disk/by-label");
        QCOMPARE(symlink("../../sdb", "/dev/disk/by-label/PEN\xFF"), 0);
        QCOMPARE(blockLabelMap(), LabelMap());
    }

    void brokenLinkIsPassedOver()
    {
        Machine machine;
        machine.addLabel("PEN", "../../sdb1");
        QCOMPARE(blockLabelMap(), LabelMap());
    }

    void deviceNodeInPlaceOfALinkIsItsOwnDevice()
    {
        Machine machine;
        machine.addDirectory("/dev/disk/by-label");
        QVERIFY(mknod("/dev/disk/by-label/PEN", S_IFBLK | 0600, 0) == 0);
        QCOMPARE(blockLabelMap(), (LabelMap{{"PEN", "PEN"}}));
    }

    void linkOutOfDevIsPassedOver()
    {
        Machine machine;
        QFile file("/media/sdb1");
        QVERIFY2(file.open(QIODevice::WriteOnly), qPrintable(file.errorString()));
        machine.addLabel("PEN", "/media/sdb1");
        QCOMPARE(blockLabelMap(), LabelMap());
    }

    void linkToADirectoryIsPassedOver()
    {
        Machine machine;
        machine.addLabel("PEN", "/dev/disk");
        QCOMPARE(blockLabelMap(), LabelMap());
    }

    void machineWithoutLabelsHasAnEmptyMap()
    {
        const Machine machine;
        QCOMPARE(blockLabelMap(), LabelMap());
    }

    void firstExistingDirectoryWins()
    {
        Machine machine;
        qputenv("LOGNAME", "eva");
        for (const QString directory : {"/mnt/PEN", "/run/media/eva/PEN", "/run/media/ana/PEN",
                                        "/media/eva/PEN", "/media/ana/PEN"}) {
            machine.addDirectory(directory);
            QCOMPARE(mountedRootForLabel("PEN"), directory);
        }
    }

    void loginNameThatIsTheUsersAddsNoCandidate()
    {
        Machine machine;
        qputenv("LOGNAME", "ana");
        machine.addDirectory("/media/eva/PEN");
        QVERIFY2(mountedRootForLabel("PEN").isNull(), qPrintable(mountedRootForLabel("PEN")));
        machine.addDirectory("/media/ana/PEN");
        QCOMPARE(mountedRootForLabel("PEN"), "/media/ana/PEN");
    }

    void loginNameAloneIsTried_data()
    {
        QTest::addColumn<bool>("set");
        QTest::newRow("USER unset") << false;
        QTest::newRow("USER empty") << true;
    }

    void loginNameAloneIsTried()
    {
        QFETCH(bool, set);
        Machine machine;
        if (set)
            qputenv("USER", "");
        else
            qunsetenv("USER");
        qputenv("LOGNAME", "eva");
        machine.addDirectory("/media/ana/PEN");
        machine.addDirectory("/media/PEN");
        machine.addDirectory("/media/eva/PEN");
        QCOMPARE(mountedRootForLabel("PEN"), "/media/eva/PEN");
    }

    void userNamesDifferByTheirCapitals()
    {
        Machine machine;
        qputenv("LOGNAME", "ANA");
        machine.addDirectory("/media/ANA/PEN");
        QCOMPARE(mountedRootForLabel("PEN"), "/media/ANA/PEN");
    }

    void withoutAUserOnlyMntIsTried()
    {
        Machine machine;
        qunsetenv("USER");
        machine.addDirectory("/media/PEN");
        machine.addDirectory("/media/ana/PEN");
        machine.addDirectory("/run/media/PEN");
        QVERIFY2(mountedRootForLabel("PEN").isNull(), qPrintable(mountedRootForLabel("PEN")));
        machine.addDirectory("/mnt/PEN");
        QCOMPARE(mountedRootForLabel("PEN"), "/mnt/PEN");
    }

    void fileOfThatNameIsNoDirectory()
    {
        Machine machine;
        QFile file("/mnt/PEN");
        QVERIFY2(file.open(QIODevice::WriteOnly), qPrintable(file.errorString()));
        QVERIFY2(mountedRootForLabel("PEN").isNull(), qPrintable(mountedRootForLabel("PEN")));
    }

    void directoryThatNothingIsMountedOnIsTaken()
    {
        Machine machine;
        machine.addDirectory("/media/ana/PEN");
        QCOMPARE(mountedRootForLabel("PEN"), "/media/ana/PEN");
    }

    void escapedLabelDoesNotFindThePlainDirectory()
    {
        Machine machine;
        machine.mountVolume("/dev/sdb1", "/media/ana/MEU PEN");
        QVERIFY2(mountedRootForLabel("MEU\\x20PEN").isNull(),
                 qPrintable(mountedRootForLabel("MEU\\x20PEN")));
    }

    void placeholderInALabelStays()
    {
        Machine machine;
        machine.addDirectory("/media/ana/%1 %2");
        QCOMPARE(mountedRootForLabel("%1 %2"), "/media/ana/%1 %2");
    }

    void emptyLabelHasNoDirectory()
    {
        const Machine machine;
        QVERIFY2(mountedRootForLabel("").isNull(), qPrintable(mountedRootForLabel("")));
        QVERIFY2(mountedRootForLabel(QString()).isNull(),
                 qPrintable(mountedRootForLabel(QString())));
    }

    void volumeWithoutANameIsCalledAsItsDirectory()
    {
        QCOMPARE(fallbackDisplayName("/dev/sdb1", "/media/ana/PEN"), "PEN");
    }

    void volumeAtTheRootIsCalledAsItsDevice()
    {
        QCOMPARE(fallbackDisplayName("/dev/sdb1", "/"), "sdb1");
        QCOMPARE(fallbackDisplayName("/dev/sdb1", ""), "sdb1");
    }
};

QTEST_GUILESS_MAIN(VolumeLabelTest)
#include "volume_label_test.moc"
