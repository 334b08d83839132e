// list-usb-drives: prints what the program would list, one line for each drive.
#include "tests/platform/DetectedDevices.h"

#include <QTextStream>

int main()
{
    QTextStream out(stdout);
    const QStringList devices = TestSupport::detectedDevices();
    for (const QString &device : devices)
        out << device << '\n';
    return 0;
}
