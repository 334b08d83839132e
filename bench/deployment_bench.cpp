// What a preparation costs beside what a user would reach for instead: cp in a terminal, followed
// by the sync without which the drive must not be pulled. Prints one table of ratios, each the
// median of several runs in turn.
#include "deployment/DurableWriting.h"
#include "deployment/PortableBundleManager.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QLibraryInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTextStream>

#include <algorithm>
#include <functional>
#include <vector>

using Tessarine::Deployment::FileSystemSync;
using Tessarine::Deployment::PortableBundleManager;
using Tessarine::Deployment::PortableBundleResult;

namespace
{

constexpr int runs = 5;

void check(bool succeeded, const QString &what)
{
    if (!succeeded)
        qFatal("Failed: %s", qPrintable(what));
}

void execute(const QString &program, const QStringList &arguments)
{
    check(QProcess::execute(program, arguments) == 0, program);
}

void writeFile(const QString &path, qint64 size)
{
    QFile file(path);
    check(file.open(QIODevice::WriteOnly), path);
    const QByteArray block(65'536, 'b');
    for (qint64 rest = size; rest > 0; rest -= block.size())
        check(file.write(block.constData(), std::min(rest, qint64(block.size()))) > 0, path);
}

double seconds(const std::function<void()> &work)
{
    QElapsedTimer clock;
    clock.start();
    work();
    return static_cast<double>(clock.nsecsElapsed()) / 1e9;
}

double median(std::vector<double> times)
{
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

// Runs both in turn, each into an empty directory of the same name, and prints one row.
void compare(const QString &what, const QString &target, const std::function<void()> &ours,
             const std::function<void()> &theirs)
{
    std::vector<double> ourTimes;
    std::vector<double> theirTimes;
    const auto timed = [&target](const std::function<void()> &work) {
        QDir(target).removeRecursively();
        QDir().mkpath(target);
        FileSystemSync(target).sync();
        return seconds([&] {
            work();
            FileSystemSync(target).sync();
        });
    };
    for (int run = 0; run < runs; ++run) {
        ourTimes.push_back(timed(ours));
        theirTimes.push_back(timed(theirs));
    }
    const double our = median(ourTimes);
    const double their = median(theirTimes);
    QTextStream(stdout) << QStringLiteral("| %1 | %2 | %3 | %4 |\n")
                               .arg(what, QString::number(our, 'f', 3),
                                    QString::number(their, 'f', 3),
                                    QString::number(our / their, 'f', 2));
}

void compareCopies(const QString &place, const QString &directory)
{
    const PortableBundleManager manager;
    const QTemporaryDir work(directory + QStringLiteral("/bench-XXXXXX"));
    const QString target = work.filePath(QStringLiteral("target"));

    const QString file = work.filePath(QStringLiteral("file"));
    writeFile(file, 256 * 1'048'576LL);
    compare(
        QStringLiteral("one file of 256 MiB, %1; cp").arg(place), target,
        [&] {
            PortableBundleResult result;
            check(manager.copyFileReplacing(file, target + QStringLiteral("/file"), &result),
                  result.message);
        },
        [&] {
            execute(QStringLiteral("cp"), {QStringLiteral("-p"), file, target});
        });

    const QString tree = work.filePath(QStringLiteral("tree"));
    for (int i = 0; i < 2000; ++i) {
        const QString below = QStringLiteral("%1/%2").arg(tree, QString::number(i % 20));
        QDir().mkpath(below);
        writeFile(QStringLiteral("%1/%2").arg(below, QString::number(i)), 16'384);
    }
    const auto copyTree = [&] {
        PortableBundleResult result;
        check(manager.copyDirectoryContents(tree, target + QStringLiteral("/tree"), &result),
              result.message);
    };
    const auto cpTree = [&] {
        execute(QStringLiteral("cp"), {QStringLiteral("-rp"), tree, target});
    };
    compare(QStringLiteral("2,000 files of 16 KiB, %1; cp").arg(place), target, copyTree, cpTree);
}

// The assembly beside a script that runs the same commands and copies what they name.
void compareAssembly(const QString &directory)
{
    const PortableBundleManager manager;
    const QTemporaryDir work(directory + QStringLiteral("/bench-XXXXXX"));
    const QString target = work.filePath(QStringLiteral("target"));
    const QString program = QCoreApplication::applicationFilePath();
    const QString script = QStringLiteral(R"sh(
        program=$1 plugins=$2 target=$3
        mkdir -p "$target/lib" "$target/plugins"
        cp -p "$program" "$target/Tessarine"
        for family in platforms imageformats xcbglintegrations tls; do
            [ ! -d "$plugins/$family" ] || cp -rp "$plugins/$family" "$target/plugins"
        done
        for file in "$target/Tessarine" "$target"/plugins/*/*.so; do ldd "$file"; done |
            grep -o '/[^ ]*' | sort -u | xargs cp -Lp -t "$target/lib"
        ldconfig -p | grep -o '/.*libssl\.so\.[0-9].*' | xargs cp -Lp -t "$target/lib"
    )sh");
    compare(
        QStringLiteral("assembling a Linux runtime, in memory; a script with ldd and cp"), target,
        [&] {
            PortableBundleResult result;
            QString executable;
            check(manager.copyExecutable(program, target, &executable, &result)
                      && manager.deployLinuxRuntime(executable, &result),
                  result.message);
        },
        [&] {
            execute(QStringLiteral("sh"),
                    {QStringLiteral("-c"), script, QStringLiteral("sh"), program,
                     QLibraryInfo::path(QLibraryInfo::PluginsPath), target});
        });
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    QTextStream(stdout) << "| what; beside | ours (s) | theirs (s) | ours / theirs |\n"
                           "|---|---|---|---|\n";
    compareCopies(QStringLiteral("in memory"), QStringLiteral("/dev/shm"));
    compareCopies(QStringLiteral("on disk"), QDir::tempPath());
    compareAssembly(QStringLiteral("/dev/shm"));
    return 0;
}
