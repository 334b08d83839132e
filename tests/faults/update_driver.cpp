// update_driver DRIVE: updates the prepared drive to version 1.1.0, which a vendor of its own
// publishes, for a user who says yes. Prints the text of the last box. Ends with 0 for success and
// 1 for failure.

#include "tests/app/UpdateSituation.h"

#include <QTextStream>

int main(int argc, char *argv[])
{
    TestSupport::enterPrivateNetwork();
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    UpdateSituation situation;
    situation.openServer();
    situation.user = std::make_unique<MessageBoxUser>();
    situation.publish(completePackage(QStringLiteral("1.1.0")).bytes());
    situation.openWindowOver(
        {mountedVolume(QStringLiteral("PEN"), QCoreApplication::arguments().value(1))});
    situation.agreeToUpdate();
    const QString text = situation.lastBox().text;
    QTextStream(stdout) << text;
    return text.startsWith(QStringLiteral("Atualização concluída.")) ? 0 : 1;
}
