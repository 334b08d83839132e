// deployment_bench prepare DRIVE LINUX-EXECUTABLE: prepares the drive.
// deployment_bench assemble EXECUTABLE DIRECTORY: assembles the executable's runtime.
// deployment_bench copy FILE TARGET, deployment_bench tree DIRECTORY TARGET: copies it.
// deployment_bench save DIRECTORY TARGET: copies its files with QFile and QSaveFile alone.
// Prints the longest gap between two turns of the event loop, the 99th percentile of the gaps, and
// the seconds that it took, all of it on the medium.

#include "bench/TurnWatch.h"
#include "deployment/DurableWriting.h"
#include "deployment/PortableBundleManager.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QTextStream>

#include <algorithm>

using Tessarine::Deployment::FileSystemSync;
using Tessarine::Deployment::PortableBundleManager;
using Tessarine::Deployment::PortableBundleOptions;
using Tessarine::Deployment::PortableBundleResult;

namespace
{

// What the classes cost that a copy is made with, without what the program does besides.
bool saveFile(const QString &source, const QString &target)
{
    QFile input(source);
    QSaveFile output(target);
    if (!input.open(QIODevice::ReadOnly) || !output.open(QIODevice::WriteOnly))
        return false;
    while (!input.atEnd()) {
        const QByteArray chunk = input.read(1'048'576);
        if (chunk.isEmpty() || output.write(chunk) != chunk.size())
            return false;
    }
    return output.commit();
}

bool saveFiles(const QDir &source, const QDir &target)
{
    if (!QDir().mkpath(target.path()))
        return false;
    const QFileInfoList entries =
        source.entryInfoList(QDir::Dirs | QDir::Files | QDir::NoDotAndDotDot, QDir::NoSort);
    return std::all_of(entries.begin(), entries.end(), [&target](const QFileInfo &entry) {
        const QString copy = target.filePath(entry.fileName());
        return entry.isDir() ? saveFiles(QDir(entry.filePath()), QDir(copy))
                             : saveFile(entry.filePath(), copy);
    });
}

PortableBundleResult run(const QString &operation, const QString &first, const QString &second)
{
    const PortableBundleManager manager;
    PortableBundleResult result;
    if (operation == QStringLiteral("prepare")) {
        PortableBundleOptions options;
        options.linuxExecutablePath = second;
        return manager.preparePortableBundle(first, options, {});
    }
    FileSystemSync medium(QFileInfo(second).path());
    if (operation == QStringLiteral("assemble")) {
        QString executable;
        result.success = manager.copyExecutable(first, second, &executable, &result)
                         && manager.deployLinuxRuntime(executable, &result);
    } else if (operation == QStringLiteral("copy")) {
        result.success = manager.copyFileReplacing(first, second, &result);
    } else if (operation == QStringLiteral("tree")) {
        result.success = manager.copyDirectoryContents(first, second, &result);
    } else if (operation == QStringLiteral("save")) {
        result.success = saveFiles(QDir(first), QDir(second));
    }
    result.success = result.success && medium.sync();
    return result;
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 4)
        return 2;
    TurnWatch turns([] { return true; });
    QElapsedTimer clock;
    clock.start();
    const PortableBundleResult result = run(arguments[1], arguments[2], arguments[3]);
    const double seconds = static_cast<double>(clock.nsecsElapsed()) / 1e9;
    turns.end();
    if (!result.success)
        qFatal("%s: %s", qPrintable(arguments[1]), qPrintable(result.message));
    QTextStream(stdout) << turns.longest(1) << ' ' << turns.longest(0.99) << ' '
                        << QString::number(seconds, 'f', 6) << '\n';
    return 0;
}
