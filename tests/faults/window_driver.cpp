// window_driver DRIVE: updates the prepared drive to version 1.1.0, which a vendor of its own
// publishes, for a user who says yes.
//
// window_driver serve: is that vendor until standard input ends, in a network of its own; prints
// the file of its authority's certificate.
//
// window_driver DRIVE AUTHORITY: updates from such a vendor, whose network it was started in.
//
// window_driver prepare DRIVE WINDOWS-EXECUTABLE LINUX-EXECUTABLE: prepares the drive for such a
// user.
//
// A command prints the text of the last box, the last line of the log, and a line with the number
// of descriptors open at the end. It ends with 0 for success, 1 for failure and 2 when the window
// doesn't answer afterwards.

#include "tests/app/UpdateSituation.h"
#include "tests/support/BindMount.h"
#include "tests/support/TemporaryFileSystem.h"

#include <QTextStream>
#include <QThreadPool>

using TestSupport::BindMount;
using TestSupport::TemporaryFileSystem;

namespace
{

void publishNewVersion(UpdateSituation *situation)
{
    situation->openServer();
    situation->publish(completePackage(QStringLiteral("1.1.0")).bytes());
}

int serve()
{
    UpdateSituation situation;
    publishNewVersion(&situation);
    QTextStream(stdout) << situation.server->caFile() << Qt::endl;
    QTextStream(stdin).readAll();
    return 0;
}

void trust(const QString &authority)
{
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    configuration.setCaCertificates(QSslCertificate::fromPath(authority));
    QSslConfiguration::setDefaultConfiguration(configuration);
}

// Whether the progress dialog has gone and a command of the window does what it should.
bool answers(ConfigWindow *window)
{
    window->logView->clear();
    window->refreshAction->trigger();
    return window->findChild<QProgressDialog *>() == nullptr
           && window->logView->toPlainText() == QStringLiteral("1 unidade(s) USB detectada(s).");
}

// A window opens more files, the more drives the machine has and others mount meanwhile. So that
// the same call is found again, it begins on a machine without any.
void openWindow(UpdateSituation *situation, const QString &drive)
{
    const BindMount noMounts(QStringLiteral("/dev/null"), QStringLiteral("/proc/self/mountinfo"));
    const TemporaryFileSystem noDevices(QStringLiteral("/sys/class/block"));
    situation->user = std::make_unique<MessageBoxUser>();
    situation->openWindowOver({mountedVolume(QStringLiteral("PEN"), drive)});
}

BundleSource sourceOf(const QString &executable)
{
    return {.executablePath = executable,
            .directoryPath = QFileInfo(executable).absolutePath(),
            .fromBuildTree = false};
}

void prepare(UpdateSituation *situation, const QStringList &arguments)
{
    openWindow(situation, arguments[1]);
    situation->window->windowsSource = sourceOf(arguments[2]);
    situation->window->linuxSource = sourceOf(arguments[3]);
    situation->user->willPress(QStringLiteral("Sim"));
    situation->window->prepareAction->trigger();
}

void update(UpdateSituation *situation, const QString &drive)
{
    openWindow(situation, drive);
    situation->agreeToUpdate();
}

int report(UpdateSituation *situation)
{
    const QString text = situation->lastBox().text;
    const QDir descriptors(QStringLiteral("/proc/self/fd"));
    QTextStream(stdout) << text << '\n'
                        << situation->window->logView->toPlainText().section(u'\n', -1) << '\n'
                        << descriptors.count() << '\n';
    if (!answers(situation->window.get()))
        return 2;
    const bool succeeded = text.startsWith(QStringLiteral("Atualização concluída."))
                           || text.startsWith(QStringLiteral("USB preparado"));
    return succeeded ? 0 : 1;
}

} // namespace

int main(int argc, char *argv[])
{
    // A drive that is unmounted meanwhile must not live on in here.
    TestSupport::enterPrivateMountNamespace(MS_SLAVE);
    if (argc < 3)
        TestSupport::enterPrivateNetwork();
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    // Qt scales the picture behind the controls in as many threads of its pool as happen to be
    // idle, each with a descriptor of its own.
    QThreadPool::globalInstance()->setMaxThreadCount(1);
    QThreadPool::globalInstance()->setExpiryTimeout(-1);
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    if (arguments.value(0) == QStringLiteral("serve"))
        return serve();
    UpdateSituation situation;
    if (arguments.size() == 2)
        trust(arguments[1]);
    if (arguments.size() == 1)
        publishNewVersion(&situation);
    QCoreApplication::setApplicationVersion(QStringLiteral(TESSARINE_VERSION));
    if (arguments.value(0) == QStringLiteral("prepare"))
        prepare(&situation, arguments);
    else
        update(&situation, arguments.value(0));
    return report(&situation);
}
