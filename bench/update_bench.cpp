// update_bench ours DRIVE PACKAGE: updates the prepared drive through the window, from a server of
// its own on the loopback interface, with HTTPS.
// update_bench script DRIVE PACKAGE: does what the update does from a shell, from such a server.
// Prints the peak of the memory beyond that of the idle window, in MB, and the seconds.
// update_bench fetch DRIVE PACKAGE: prints the longest gap between two turns of the event loop
// while the window fetches the package, what 99 of 100 gaps are below, and the seconds of the
// update.

#include "bench/TurnWatch.h"
#include "tests/app/UpdateSituation.h"
#include "tests/support/PeakMemory.h"

#include <QTextStream>

using TestSupport::PeakMemoryWatch;

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

void openWindow(UpdateSituation *situation, const QString &drive)
{
    situation->user = std::make_unique<MessageBoxUser>();
    situation->openWindowOver({mountedVolume(QStringLiteral("PEN"), drive)});
}

void updateThroughWindow(UpdateSituation *situation)
{
    situation->agreeToUpdate();
    const QString text = situation->lastBox().text;
    if (!text.startsWith(QStringLiteral("Atualização concluída.")))
        qFatal("%s", qPrintable(text));
}

bool isFetching(const ConfigWindow &window)
{
    const auto *progress = window.findChild<QProgressDialog *>();
    return progress != nullptr
           && progress->labelText() == QStringLiteral("Baixando pacote de atualização...");
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
    const QString &way = arguments[1];
    const QString &drive = arguments[2];
    QTextStream output(stdout);
    if (way != QStringLiteral("script"))
        openWindow(&situation, drive);
    QElapsedTimer clock;
    clock.start();
    if (way == QStringLiteral("script")) {
        updateByScript(situation, drive);
        output << 0;
    } else if (way == QStringLiteral("ours")) {
        const PeakMemoryWatch memory;
        updateThroughWindow(&situation);
        output << static_cast<double>(memory.growth()) / 1e6;
    } else if (way == QStringLiteral("fetch")) {
        TurnWatch turns([&situation] { return isFetching(*situation.window); });
        updateThroughWindow(&situation);
        output << turns.longest(1) << ' ' << turns.longest(0.99);
    } else {
        return 2;
    }
    output << ' ' << static_cast<double>(clock.nsecsElapsed()) / 1e9 << '\n';
    return 0;
}
