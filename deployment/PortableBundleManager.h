#pragma once

#include <QString>
#include <QStringList>

#include <functional>

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

// Turns a mounted USB drive into a prepared drive. Keeps no state between calls.
class PortableBundleManager
{
public:
    PortableBundleResult preparePortableBundle(const QString &usbRoot,
                                               const PortableBundleOptions &options,
                                               const PreparationProgress &progress) const;
};

} // namespace Tessarine::Deployment
