#include "platform/linux/LinuxDeviceManager.h"

#include <QTest>

#include <memory>
#include <type_traits>

using Tessarine::Platform::DeviceManager;
using Tessarine::Platform::UsbDevice;
using Tessarine::Platform::Linux::LinuxDeviceManager;

class DeviceManagerTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void untouchedRecordIsEmptyRemovableAndMounted()
    {
        const UsbDevice device;
        QCOMPARE(device.id, QString());
        QCOMPARE(device.devicePath, QString());
        QCOMPARE(device.label, QString());
        QCOMPARE(device.mountPoint, QString());
        QCOMPARE(device.fileSystem, QString());
        QVERIFY(device.removable);
        QVERIFY(device.mounted);
    }

    void recordHasItsFieldsInOrder()
    {
        const auto &[id, devicePath, label, mountPoint, fileSystem, removable, mounted] =
            UsbDevice{"id", "device", "label", "mount point", "file system", false, false};
        QCOMPARE(id, "id");
        QCOMPARE(devicePath, "device");
        QCOMPARE(label, "label");
        QCOMPARE(mountPoint, "mount point");
        QCOMPARE(fileSystem, "file system");
        QVERIFY(!removable);
        QVERIFY(!mounted);
    }

    void implementationIsUsedAndDestroyedThroughTheInterface()
    {
        static_assert(std::is_abstract_v<DeviceManager>);
        static_assert(std::has_virtual_destructor_v<DeviceManager>);
        static_assert(sizeof(LinuxDeviceManager) == sizeof(DeviceManager));
        const std::unique_ptr<DeviceManager> manager = std::make_unique<LinuxDeviceManager>();
        QCOMPARE(manager->detectUsbDevices().size(), 0);
    }
};

QTEST_GUILESS_MAIN(DeviceManagerTest)
#include "device_manager_test.moc"
