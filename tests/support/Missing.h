#pragma once

#include <QTest>

namespace TestSupport
{

// Fails the running test for what its fixture lacks. The test goes on, to its own end: an abort
// would take all the tests after it along.
inline void reportMissing(const QString &what)
{
    QTest::qFail(qPrintable(what), __FILE__, __LINE__);
}

} // namespace TestSupport
