// update_bench ours DRIVE PACKAGE: updates the prepared drive through the window, from a server of
// its own on the loopback interface, with HTTPS.
// update_bench script DRIVE PACKAGE: does what the update does from a shell, from such a server.
// Prints the peak of the memory beyond that of the idle window, in MB, and the seconds.

#include "tests/app/UpdateSituation.h"

#include <QElapsedTimer>
#include <QTextStream>

namespace
{

const QString updateScript = QStringLiteral(R"sh(
    set -e
    url=$1 authority=$2 hash=$3 root=$4/Tessarine
    mkdir -p "$root/.staging/extracted"
    cd "$root/.staging"
    curl --silent --fail --cacert "$authority" --output package.zip "$url"
    echo "$hash  package.zip" | sha256sum --check --status
    unzip -q -o package.zip -d extracted
    sync -f .
    for bundle in windows linux; do
        mv "$root/$bundle" "$root/$bundle.backup"
        mv "extracted/Tessarine/$bundle" "$root/$bundle"
    done
    sync -f .
    rm -rf "$root"/*.backup "$root/.staging"
)sh");

QByteArray contents(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("%s: %s", qPrintable(path), qPrintable(file.errorString()));
    return file.readAll();
}

// A field of /proc/self/status (proc(5)), in MB.
double memory(const char *field)
{
    const QByteArray status = contents(QStringLiteral("/proc/self/status"));
    const qsizetype begin = status.indexOf(field) + qsizetype(qstrlen(field)) + 1;
    return status.mid(begin, status.indexOf("kB", begin) - begin).trimmed().toDouble() / 1024;
}

double updateThroughWindow(UpdateSituation *situation, const QString &drive)
{
    situation->user = std::make_unique<MessageBoxUser>();
    situation->openWindowOver({mountedVolume(QStringLiteral("PEN"), drive)});
    QFile clear(QStringLiteral("/proc/self/clear_refs"));
    const double idle = memory("VmRSS:");
    if (!clear.open(QIODevice::WriteOnly) || clear.write("5") != 1 || !clear.flush())
        qFatal("The peak can't be measured");
    situation->agreeToUpdate();
    const QString text = situation->lastBox().text;
    if (!text.startsWith(QStringLiteral("Atualização concluída.")))
        qFatal("%s", qPrintable(text));
    return memory("VmHWM:") - idle;
}

void updateByScript(const UpdateSituation &situation, const QString &drive)
{
    const QStringList arguments{QStringLiteral("-c"),
                                updateScript,
                                QStringLiteral("sh"),
                                situation.manifest.value(QStringLiteral("packageUrl")).toString(),
                                situation.server->caFile(),
                                situation.manifest.value(QStringLiteral("sha256")).toString(),
                                drive};
    if (QProcess::execute(QStringLiteral("sh"), arguments) != 0)
        qFatal("The script failed");
}

} // namespace

int main(int argc, char *argv[])
{
    TestSupport::enterPrivateNetwork();
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 4)
        return 2;
    UpdateSituation situation;
    situation.openServer();
    situation.publish(contents(arguments[3]));
    QElapsedTimer clock;
    clock.start();
    double peak = 0;
    if (arguments[1] == QStringLiteral("script"))
        updateByScript(situation, arguments[2]);
    else
        peak = updateThroughWindow(&situation, arguments[2]);
    QTextStream(stdout) << peak << ' ' << static_cast<double>(clock.nsecsElapsed()) / 1e9 << '\n';
    return 0;
}
