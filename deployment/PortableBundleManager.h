#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include <sys/types.h>

#include <functional>
#include <utility>

namespace Tessarine::Deployment
{

// What to put on a drive. An empty executable path leaves that platform out; an empty source
// directory means the directory of the executable.
struct PortableBundleOptions {
    QString windowsExecutablePath;
    QString windowsSourceDirectory;
    QString linuxExecutablePath;
    QString linuxSourceDirectory;
};

// Outcome of a preparation or of one of its operations.
struct PortableBundleResult {
    bool success = false;     // every stage ended well; set by preparePortableBundle only
    QString message;          // text for the user
    QStringList touchedPaths; // every directory ensured and file put in place, in order of events;
                              // a path may stand in it several times
};

// Called just before each stage: number of the stage, number of stages, caption for the user.
using PreparationProgress = std::function<void(int step, int stepCount, const QString &text)>;

// A directory by device and inode (stat(2)), whatever path leads to it.
using DirectoryIdentity = std::pair<dev_t, ino_t>;

// Turns a mounted USB drive into a prepared drive: copies the portable Windows and Linux bundles of
// the main application with what they need to run, and writes the launchers. Nothing is ever
// removed from the drive, and a file appears under its final name only when it is whole.
//
// Keeps no state between calls. Sizes are in bytes. An operation that takes a result returns false
// at its first failure, with the text for the user in result->message; when it succeeds it appends
// what it did to result->touchedPaths. What was finished before a failure stays on the drive.
//
// Runs on the calling thread. Copying lets the event loop turn, without user input, after each
// mebibyte; ldd and ldconfig, found through PATH, block for up to 30,000 milliseconds each.
class PortableBundleManager
{
public:
    // The whole preparation of the drive mounted at usbRoot. An empty progress reports nothing.
    PortableBundleResult preparePortableBundle(const QString &usbRoot,
                                               const PortableBundleOptions &options,
                                               const PreparationProgress &progress) const;

    // The same, with the running program itself as the Linux bundle and none for Windows.
    PortableBundleResult preparePortableBundle(const QString &usbRoot,
                                               const PreparationProgress &progress) const;

    // Length of a file, following links; 0 for anything else.
    qint64 fileSize(const QString &path) const;

    // Length of a file, or of all files below a directory that a copy would take (see
    // copyDirectoryContents); 0 for anything else.
    qint64 directorySize(const QString &path) const;

    // Bytes that a platform's bundle is expected to need, 0 when it is left out. Estimates:
    // a source that is copied whole may hold more than what is counted here.
    qint64 estimateWindowsBundleSize(const PortableBundleOptions &options) const;
    qint64 estimateLinuxBundleSize(const PortableBundleOptions &options) const;

    // Whether the estimated bundles fit the drive: there must be room for them, counting what
    // stands in bundleRoot as free, and they may take a quarter of the capacity at most.
    bool validateBundleFitsUsb(const QString &usbRoot, const QString &bundleRoot,
                               const PortableBundleOptions &options,
                               PortableBundleResult *result) const;

    // Creates the directory and its parents where they are missing.
    bool ensureDirectory(const QString &path, PortableBundleResult *result) const;

    // Copies a file with its permissions, replacing the target at once or not at all. A target of
    // the source's size counts as already copied, whatever it holds: that makes a repeated
    // preparation cheap and lets a failed one go on where it stopped. Holds 1 MiB in memory.
    bool copyFileReplacing(const QString &source, const QString &target,
                           PortableBundleResult *result) const;

    // Copies an executable into targetDirectory under the name that the launchers start:
    // "Tessarine.exe" for a source that ends in ".exe", in any case, else "Tessarine".
    // copiedPath receives the target's path unless it is null; it is left alone on failure.
    bool copyExecutable(const QString &source, const QString &targetDirectory, QString *copiedPath,
                        PortableBundleResult *result) const;

    // copyExecutable() of the running program.
    bool copyCurrentExecutable(const QString &targetDirectory, QString *copiedPath,
                               PortableBundleResult *result) const;

    // Copies a directory tree into what is already there. Links are followed, so that the target
    // holds real files and directories only. Hidden entries, entries that the user may not read,
    // dangling links, special files and directories that the walk is already inside of, as a link
    // that leads back, are passed over.
    bool copyDirectoryContents(const QString &source, const QString &target,
                               PortableBundleResult *result) const;

    // Writes the text as UTF-8, line ends unchanged, replacing the file at once or not at all.
    bool writeTextFile(const QString &path, const QString &text,
                       PortableBundleResult *result) const;

    // Absolute paths of all libraries that ldd(1) resolves for a program or library, the program
    // loader included, each once and in no particular order. Empty when ldd fails.
    QStringList linuxLibraryDependencies(const QString &path) const;

    // Copies those libraries into libraryDirectory, each under the name that the loader asks for.
    // Fails when there are none.
    bool copyLinuxLibraryDependencies(const QString &path, const QString &libraryDirectory,
                                      PortableBundleResult *result) const;

    // Copies every libssl that ldconfig(8) knows by a versioned name into libraryDirectory. Fails
    // when there is none: Qt's TLS plugin loads it at run time, so that ldd doesn't list it.
    bool copyLinuxTlsLibraries(const QString &libraryDirectory, PortableBundleResult *result) const;

    // Copies the plugins of the running Qt that a portable program needs into pluginDirectory, and
    // their libraries into the directory "lib" beside it.
    bool copyQtLinuxPlugins(const QString &pluginDirectory, PortableBundleResult *result) const;

    // Assembles "lib" and "plugins" beside a copied Linux executable from this machine.
    bool deployLinuxRuntime(const QString &executablePath, PortableBundleResult *result) const;

    // Does nothing and succeeds: a Windows bundle brings its own runtime along.
    bool deployWindowsRuntime(const QString &executablePath, const QString &sourceDirectory,
                              PortableBundleResult *result) const;

    // Copies a runtime that lies ready in sourceDirectory. An empty sourceDirectory means the
    // running program's directory.
    bool copyDeployedRuntime(const QString &targetDirectory, const QString &sourceDirectory,
                             PortableBundleResult *result) const;

    // Copies the files "*.dll" of sourceDirectory itself; none is no failure. An empty
    // sourceDirectory means the running program's directory.
    bool copyAdjacentRuntimeLibraries(const QString &targetDirectory,
                                      const QString &sourceDirectory,
                                      PortableBundleResult *result) const;

private:
    using StageReport = std::function<void(int stage, const QString &caption)>;

    bool prepareBundles(const QString &usbRoot, const PortableBundleOptions &options,
                        const StageReport &report, PortableBundleResult *result) const;
    bool writeStartFiles(const QString &usbRoot, const StageReport &report,
                         PortableBundleResult *result) const;
    bool prepareWindowsBundle(const PortableBundleOptions &options, const QString &target,
                              PortableBundleResult *result) const;
    bool prepareLinuxBundle(const PortableBundleOptions &options, const QString &target,
                            PortableBundleResult *result) const;
    bool copyTree(const QString &source, const QString &target,
                  const QList<DirectoryIdentity> &outerDirectories,
                  PortableBundleResult *result) const;
};

} // namespace Tessarine::Deployment
