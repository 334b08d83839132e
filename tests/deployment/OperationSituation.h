#pragma once

#include "deployment/PortableBundleManager.h"
#include "tests/support/Drive.h"
#include "tests/support/ListComparison.h"

#include <QTest>
#include <QTimer>

using Tessarine::Deployment::PortableBundleManager;
using Tessarine::Deployment::PortableBundleResult;
using TestSupport::Drive;

namespace
{

inline constexpr qint64 mebibyte = 1'048'576;

// The outcome of an operation that succeeded.
inline const QString done = QStringLiteral("done");

// A manager whose operations are called one by one, and the result that they write to. The suites
// tell what each operation does to a drive.
class OperationSituation : public QObject
{
protected:
    const PortableBundleManager m_manager{};
    PortableBundleResult m_result;

    void begin() { m_result = {}; }

    // Every operation leaves this to the whole preparation.
    void end() { QVERIFY(!m_result.success); }

    // What an operation came to: done, or the message that it leaves for the user.
    QString outcome(bool hasSucceeded) const
    {
        return hasSucceeded ? done + m_result.message : m_result.message;
    }

    QString copyFile(const QString &source, const QString &target)
    {
        return outcome(m_manager.copyFileReplacing(source, target, &m_result));
    }

    static QStringList sorted(QStringList list)
    {
        list.sort();
        return list;
    }

    // Lets something happen at the first turn of the event loop, that is after the first chunk.
    static void afterTheFirstChunk(const std::function<void()> &event)
    {
        QTimer::singleShot(0, event);
    }
};

} // namespace
