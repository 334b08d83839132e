// prepare_driver copy SOURCE TARGET: copies one file.
// prepare_driver make DIRECTORY: makes a directory, with those above it that are missing.
// prepare_driver prepare DRIVE WINDOWS-EXECUTABLE LINUX-EXECUTABLE: prepares the drive.
// Prints the message for the user, if there is one, and a line with the number of descriptors open
// at the end. Ends with 0 for success, 1 for failure and 2 for other arguments.

#include "deployment/PortableBundleManager.h"

#include <QCoreApplication>
#include <QDir>
#include <QTextStream>

using Tessarine::Deployment::PortableBundleManager;
using Tessarine::Deployment::PortableBundleOptions;
using Tessarine::Deployment::PortableBundleResult;

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    const PortableBundleManager manager;
    PortableBundleResult result;
    if (arguments.size() == 3 && arguments[0] == QStringLiteral("copy")) {
        result.success = manager.copyFileReplacing(arguments[1], arguments[2], &result);
    } else if (arguments.size() == 2 && arguments[0] == QStringLiteral("make")) {
        result.success = manager.ensureDirectory(arguments[1], &result);
    } else if (arguments.size() == 4 && arguments[0] == QStringLiteral("prepare")) {
        PortableBundleOptions options;
        options.windowsExecutablePath = arguments[2];
        options.linuxExecutablePath = arguments[3];
        result = manager.preparePortableBundle(arguments[1], options, {});
    } else {
        return 2;
    }
    const QDir descriptors(QStringLiteral("/proc/self/fd"));
    QTextStream(stdout) << result.message << '\n' << descriptors.count() << '\n';
    return result.success ? 0 : 1;
}
