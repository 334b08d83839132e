#pragma once

#include "deployment/PortableBundleManager.h"
#include "tests/deployment/ExpectedTexts.h"
#include "tests/deployment/LinuxTools.h"
#include "tests/support/ListComparison.h"
#include "tests/support/SyncWatch.h"
#include "tests/support/TestMain.h"

#include <QCoreApplication>

using Tessarine::Deployment::PortableBundleManager;
using Tessarine::Deployment::PortableBundleOptions;
using Tessarine::Deployment::PortableBundleResult;
using Tessarine::Deployment::PreparationProgress;
using TestSupport::BindMount;
using TestSupport::Drive;
using TestSupport::StubCommand;
using TestSupport::whenSynced;

namespace
{

inline constexpr qint64 mebibyte = 1'048'576;

inline const QString prepared = QStringLiteral("USB preparado com estrutura portatil Tessarine.");

// Complete bundles of both platforms, a few bytes each.
class Bundles
{
public:
    Bundles()
    {
        m_host.write("windows/Tessarine.exe", "windows program");
        m_host.write("windows/Qt6Core.dll", "dll");
        m_host.write("windows/platforms/qwindows.dll", "plugin");
        m_host.write("linux/Tessarine", "linux program");
        m_host.write("linux/lib/libQt6Core.so.6", "library");
        m_host.write("linux/qt.conf", "[Paths]");
    }

    const Drive &host() const { return m_host; }
    PortableBundleOptions windows() const
    {
        return {m_host.path("windows/Tessarine.exe"), {}, {}, {}};
    }
    PortableBundleOptions linux() const { return {{}, {}, m_host.path("linux/Tessarine"), {}}; }
    PortableBundleOptions both() const
    {
        return {m_host.path("windows/Tessarine.exe"), {}, m_host.path("linux/Tessarine"), {}};
    }

private:
    Drive m_host;
};

// A Linux executable that is all of its source.
class LoneExecutable
{
public:
    LoneExecutable() { QFile::copy(TINY_QT_PROGRAM, path()); }
    PortableBundleOptions options() const { return {{}, {}, path(), {}}; }
    QString path() const { return m_host.path("program"); }

private:
    Drive m_host;
};

// A manager that prepares drives, and what it reports meanwhile. The suites tell what is on the
// drive then, and what the user is told.
class PreparationSituation : public QObject
{
protected:
    const PortableBundleManager m_manager{};
    PortableBundleResult m_result;
    QStringList m_reports;

    void begin()
    {
        m_result = {};
        m_reports.clear();
    }

    // Success and the message that says it come together.
    void end()
    {
        whenSynced = nullptr;
        QCOMPARE(m_result.success, m_result.message == prepared);
    }

    PreparationProgress recorded()
    {
        return [this](int step, int stepCount, const QString &text) {
            m_reports << QStringLiteral("%1/%2 %3")
                             .arg(QString::number(step), QString::number(stepCount), text);
        };
    }

    // Each returns the message that the user gets.
    QString prepare(const QString &root, const PortableBundleOptions &options)
    {
        m_result = m_manager.preparePortableBundle(root, options, recorded());
        return m_result.message;
    }
    QString prepare(const Drive &drive, const PortableBundleOptions &options)
    {
        return prepare(drive.path(), options);
    }
    QString prepare(const Drive &drive, const PortableBundleOptions &options,
                    const PreparationProgress &progress)
    {
        m_result = m_manager.preparePortableBundle(drive.path(), options, progress);
        return m_result.message;
    }

    static QStringList pathsOn(const Drive &drive, const QStringList &names)
    {
        QStringList paths;
        for (const QString &name : names)
            paths << drive.path(name);
        return paths;
    }
};

} // namespace
