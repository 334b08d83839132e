#include "deployment/PortableBundleManager.h"

#include "deployment/CommandOutput.h"
#include "deployment/DurableWriting.h"

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QLibraryInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QSaveFile>
#include <QSet>
#include <QStorageInfo>
#include <QTextStream>

#include <sys/stat.h>

#include <optional>
#include <utility>

namespace Tessarine::Deployment
{

namespace
{

constexpr int stageCount = 7;
constexpr int commandTimeLimit = 30'000; // milliseconds
constexpr qint64 copyChunkSize = 1'048'576;
constexpr qint64 writeBackSpan = 8 * copyChunkSize;

// What a copy takes and what a tree's size counts must agree: one filter for both.
constexpr QDir::Filters treeEntries =
    QDir::Dirs | QDir::Files | QDir::Readable | QDir::NoDotAndDotDot;

constexpr QFileDevice::Permissions executeBits =
    QFileDevice::ExeOwner | QFileDevice::ExeUser | QFileDevice::ExeGroup | QFileDevice::ExeOther;

// Plugin directories that a drive carries, below the plugin directory of each platform's Qt.
const QStringList windowsPluginFamilies{QStringLiteral("platforms"), QStringLiteral("imageformats"),
                                        QStringLiteral("styles")};
const QStringList linuxPluginFamilies{QStringLiteral("platforms"), QStringLiteral("imageformats"),
                                      QStringLiteral("xcbglintegrations"), QStringLiteral("tls")};

const QString windowsLauncherText = QStringLiteral("@echo off\r\n"
                                                   "setlocal\r\n"
                                                   "cd /d \"%~dp0Tessarine\\windows\"\r\n"
                                                   "start \"Tessarine\" \"Tessarine.exe\"\r\n");

const QString linuxLauncherText = QStringLiteral(R"sh(#!/bin/sh
SCRIPT_DIR="$(CDPATH= cd -- "$(dirname -- "$0")" && pwd)"
APP_DIR="$SCRIPT_DIR/Tessarine/linux"
APP_BIN="$APP_DIR/Tessarine"

show_error() {
    if command -v zenity >/dev/null 2>&1; then
        zenity --error --title="Tessarine" --text="$1"
    elif command -v xmessage >/dev/null 2>&1; then
        xmessage -center "Tessarine: $1"
    else
        printf 'Tessarine: %s\n' "$1" >&2
    fi
}

if [ ! -f "$APP_BIN" ]; then
    show_error "Executavel Linux nao encontrado em: $APP_BIN"
    exit 1
fi

if [ ! -x "$APP_BIN" ]; then
    chmod +x "$APP_BIN" 2>/dev/null || true
fi

export LD_LIBRARY_PATH="$APP_DIR/lib${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}"
export QT_PLUGIN_PATH="$APP_DIR/plugins${QT_PLUGIN_PATH:+:$QT_PLUGIN_PATH}"
cd "$APP_DIR" || exit 1
"$APP_BIN" "$@"
status=$?
if [ "$status" -ne 0 ]; then
    show_error "Nao foi possivel iniciar o Tessarine. Codigo de saida: $status"
fi
exit "$status"
)sh");

// Below the drive's root; the last file of a preparation.
const QString readmeName = QStringLiteral("Tessarine/README.txt");

const QString readmeText = QStringLiteral(
    R"(Tessarine portable bundle

Raiz do pendrive:
- tessarine.tsrn: container criptografado
- Tessarine-Windows.bat: inicializador Windows
- Tessarine-Linux.sh: inicializador Linux

A pasta Tessarine/windows contem o executavel Windows quando um bundle Windows esta disponivel.
A pasta Tessarine/linux contem o executavel Linux e dependencias copiadas deste ambiente.
Dependencias Qt e bibliotecas runtime sao copiadas durante a preparacao quando disponiveis.
)");

// {} when it can't be told.
DirectoryIdentity identityOf(const QString &directory)
{
    struct stat status = {};
    if (stat(QFile::encodeName(directory).constData(), &status) != 0)
        return {};
    return {status.st_dev, status.st_ino};
}

// The directories on the way from the root to this one, itself included.
QList<DirectoryIdentity> directoriesOnTheWayTo(const QString &directory)
{
    QList<DirectoryIdentity> directories;
    QString path = QDir::cleanPath(QFileInfo(directory).absoluteFilePath());
    while (!QDir(path).isRoot()) {
        directories << identityOf(path);
        path = QFileInfo(path).path();
    }
    return directories << identityOf(path);
}

// A directory that can't be told is none of them: a copy that enters it says what is wrong with it.
bool isOneOf(const QList<DirectoryIdentity> &directories, const QString &directory)
{
    const DirectoryIdentity identity = identityOf(directory);
    return identity != DirectoryIdentity{} && directories.contains(identity);
}

bool fail(PortableBundleResult *result, const QString &message)
{
    result->message = message;
    return false;
}

bool isSamePath(const QFileInfo &first, const QFileInfo &second)
{
    return first.absoluteFilePath() == second.absoluteFilePath();
}

QString sourceDirectoryOf(const QString &executable, const QString &directory)
{
    return directory.isEmpty() ? QFileInfo(executable).absolutePath() : directory;
}

QString orApplicationDirectory(const QString &directory)
{
    return directory.isEmpty() ? QCoreApplication::applicationDirPath() : directory;
}

QFileInfoList filesNamed(const QString &nameFilter, const QString &directory)
{
    return QDir(directory).entryInfoList({nameFilter}, QDir::Files | QDir::Readable, QDir::NoSort);
}

bool holds(const QString &directory, const QString &name)
{
    return QFileInfo::exists(QDir(directory).filePath(name));
}

// Whether the bundles may take so many bytes of a drive, which has `available` bytes to give.
bool fits(qint64 required, qint64 available, qint64 capacity, PortableBundleResult *result)
{
    if (required < 1)
        return fail(
            result,
            QStringLiteral("Nenhum bundle valido foi encontrado para preparar a unidade USB."));
    if (required > available)
        return fail(result, QStringLiteral("Espaco insuficiente na unidade USB.\n\n"
                                           "Necessario: %1 bytes\nDisponivel: %2 bytes")
                                .arg(QString::number(required), QString::number(available)));
    const bool capacityIsKnown = capacity >= 1;
    if (capacityIsKnown && required > capacity / 4)
        return fail(result, QStringLiteral("A unidade USB nao e recomendada para Tessarine.\n\n"
                                           "Capacidade: %1 bytes\nBundle estimado: %2 bytes\n\n"
                                           "O bundle ocuparia mais de 25% da unidade.")
                                .arg(QString::number(capacity), QString::number(required)));
    return true;
}

// Best effort: FAT and exFAT have no execute bits to set.
void makeExecutable(const QString &path)
{
    QFile::setPermissions(path, QFile::permissions(path) | executeBits);
}

// Standard output of a command; nothing when it can't be started, crashes, fails or takes too long.
std::optional<QString> outputOf(const QString &program, const QString &argument)
{
    QProcess process;
    limitOutput(&process);
    process.setProgram(program);
    process.setArguments({argument});
    process.start();
    if (!process.waitForFinished(commandTimeLimit) || process.exitStatus() != QProcess::NormalExit
        || process.exitCode() != 0)
        return std::nullopt;
    return QString::fromLocal8Bit(process.readAllStandardOutput());
}

// The path in a line of ldd's output: "libz.so.1 => /lib/libz.so.1 (0x00007f...)", or, for the
// program loader, "/lib64/ld-linux-x86-64.so.2 (0x00007f...)". Empty for any other line.
QString libraryInLddLine(const QString &line)
{
    static const QRegularExpression resolved(QStringLiteral(R"(=>\s+(/[^\s]+))"));
    static const QRegularExpression loader(QStringLiteral(R"(^\s*(/[^\s]+))"));
    const QRegularExpressionMatch match = resolved.match(line);
    return match.hasMatch() ? match.captured(1) : loader.match(line).captured(1);
}

QStringList librariesInLddOutput(const QString &output)
{
    QStringList libraries;
    for (const QString &line : output.split(u'\n', Qt::SkipEmptyParts)) {
        const QString library = libraryInLddLine(line);
        // The kernel's virtual library has no file that could be copied.
        if (!library.isEmpty() && !library.contains(QStringLiteral("linux-vdso")))
            libraries << library;
    }
    libraries.removeDuplicates();
    return libraries;
}

// Lines of `ldconfig -p` read "\tlibssl.so.3 (libc6,x86-64) => /lib/.../libssl.so.3".
QStringList libsslInLdconfigOutput(const QString &output)
{
    static const QRegularExpression libssl(
        QStringLiteral(R"(\s+libssl\.so\.[0-9][^\s]*\s+\([^)]+\)\s+=>\s+(/[^\s]+))"));
    QStringList libraries;
    for (const QString &line : output.split(u'\n', Qt::SkipEmptyParts)) {
        const QRegularExpressionMatch match = libssl.match(line);
        if (match.hasMatch())
            libraries << match.captured(1);
    }
    libraries.removeDuplicates();
    return libraries;
}

bool failToWrite(const QSaveFile *target, PortableBundleResult *result)
{
    return fail(result,
                QStringLiteral("Nao foi possivel gravar o arquivo: %1").arg(target->fileName()));
}

// How much of a copy may be on its way to the medium. Beside another writer each wait costs a turn,
// so that several chunks share one; but fewer towards the end, where the commit, and with it the
// window, waits for all that are left.
qint64 bytesOnTheirWay(qint64 chunkSize, const QFile &source)
{
    return std::clamp(source.bytesAvailable(), chunkSize, writeBackSpan);
}

bool copyChunks(QFile *source, QSaveFile *target, PortableBundleResult *result)
{
    while (!source->atEnd()) {
        const QByteArray chunk = source->read(copyChunkSize);
        // A file may promise more than it gives, as those of sysfs do: nothing read before the end
        // is an error too, else the copy would never end.
        if (chunk.isEmpty() && (source->error() != QFileDevice::NoError || !source->atEnd()))
            return fail(result, QStringLiteral("Nao foi possivel ler o arquivo: %1")
                                    .arg(QFileInfo(*source).fileName()));
        if (target->write(chunk) != chunk.size())
            return failToWrite(target, result);
        // A single chunk is left to the file's own sync, which follows at once.
        const bool isSingle = target->pos() == chunk.size() && source->atEnd();
        if (!isSingle
            && !writeBackChunk(target, chunk.size(), bytesOnTheirWay(chunk.size(), *source)))
            return failToWrite(target, result);
        QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
    }
    return true;
}

// The size of a tree, without the directories that the walk is already inside of: a link may lead
// back to one, and the walk would never end.
qint64 treeSize(const QString &directory, const QList<DirectoryIdentity> &outerDirectories)
{
    const auto openDirectories = outerDirectories + QList{identityOf(directory)};
    qint64 size = 0;
    for (const QFileInfo &entry : QDir(directory).entryInfoList(treeEntries, QDir::NoSort)) {
        if (!entry.isDir())
            size += entry.size();
        else if (!isOneOf(openDirectories, entry.absoluteFilePath()))
            size += treeSize(entry.absoluteFilePath(), openDirectories);
    }
    return size;
}

bool isAlreadyCopied(const QFileInfo &source, const QFileInfo &target)
{
    return target.isFile() && source.size() == target.size() && source.exists();
}

} // namespace

PortableBundleResult
PortableBundleManager::preparePortableBundle(const QString &usbRoot,
                                             const PortableBundleOptions &options,
                                             const PreparationProgress &progress) const
{
    PortableBundleResult result;
    const StageReport report = [&progress](int stage, const QString &caption) {
        if (progress)
            progress(stage, stageCount, caption);
    };

    report(0, QStringLiteral("Validando unidade USB..."));
    if (!QDir(usbRoot).exists()) {
        fail(&result, QStringLiteral("Unidade USB invalida."));
        return result;
    }
    FileSystemSync medium(usbRoot);
    if (!prepareBundles(usbRoot, options, report, &result)
        || !writeStartFiles(usbRoot, report, &result))
        return result;

    // The user may pull the drive as soon as it is said to be prepared.
    if (!medium.syncRenamed(readmeName)) {
        fail(&result, QStringLiteral("Nao foi possivel finalizar o arquivo: %1").arg(usbRoot));
        return result;
    }
    report(7, QStringLiteral("Preparacao concluida."));
    result.success = true;
    result.message = QStringLiteral("USB preparado com estrutura portatil Tessarine.");
    return result;
}

PortableBundleResult
PortableBundleManager::preparePortableBundle(const QString &usbRoot,
                                             const PreparationProgress &progress) const
{
    PortableBundleOptions options;
    options.linuxExecutablePath = QCoreApplication::applicationFilePath();
    options.linuxSourceDirectory = QCoreApplication::applicationDirPath();
    return preparePortableBundle(usbRoot, options, progress);
}

bool PortableBundleManager::prepareBundles(const QString &usbRoot,
                                           const PortableBundleOptions &options,
                                           const StageReport &report,
                                           PortableBundleResult *result) const
{
    const QString bundleRoot = QDir(usbRoot).filePath(QStringLiteral("Tessarine"));
    const QString windowsTarget = QDir(bundleRoot).filePath(QStringLiteral("windows"));
    const QString linuxTarget = QDir(bundleRoot).filePath(QStringLiteral("linux"));

    report(1, QStringLiteral("Criando estrutura de pastas..."));
    if (!ensureDirectory(bundleRoot, result) || !ensureDirectory(windowsTarget, result)
        || !ensureDirectory(linuxTarget, result)
        || !validateBundleFitsUsb(usbRoot, bundleRoot, options, result))
        return false;

    report(2, QStringLiteral("Copiando bundle Windows..."));
    if (!prepareWindowsBundle(options, windowsTarget, result))
        return false;

    report(3, QStringLiteral("Copiando bundle Linux..."));
    return prepareLinuxBundle(options, linuxTarget, result);
}

bool PortableBundleManager::writeStartFiles(const QString &usbRoot, const StageReport &report,
                                            PortableBundleResult *result) const
{
    const QDir drive(usbRoot);
    report(5, QStringLiteral("Criando inicializador Windows..."));
    if (!writeTextFile(drive.filePath(QStringLiteral("Tessarine-Windows.bat")), windowsLauncherText,
                       result))
        return false;

    report(6, QStringLiteral("Criando arquivos auxiliares..."));
    const QString linuxLauncher = drive.filePath(QStringLiteral("Tessarine-Linux.sh"));
    if (!writeTextFile(linuxLauncher, linuxLauncherText, result))
        return false;
    makeExecutable(linuxLauncher);
    return writeTextFile(drive.filePath(readmeName), readmeText, result);
}

bool PortableBundleManager::prepareWindowsBundle(const PortableBundleOptions &options,
                                                 const QString &target,
                                                 PortableBundleResult *result) const
{
    if (options.windowsExecutablePath.isEmpty())
        return true;
    const QString source =
        sourceDirectoryOf(options.windowsExecutablePath, options.windowsSourceDirectory);
    if (holds(source, QStringLiteral("Qt6Core.dll"))
        && holds(source, QStringLiteral("platforms/qwindows.dll")))
        return copyDirectoryContents(source, target, result);
    QString executable;
    return copyExecutable(options.windowsExecutablePath, target, &executable, result)
           && deployWindowsRuntime(executable, source, result)
           && copyAdjacentRuntimeLibraries(target, source, result);
}

bool PortableBundleManager::prepareLinuxBundle(const PortableBundleOptions &options,
                                               const QString &target,
                                               PortableBundleResult *result) const
{
    if (options.linuxExecutablePath.isEmpty())
        return true;
    const QString source =
        sourceDirectoryOf(options.linuxExecutablePath, options.linuxSourceDirectory);
    if (holds(source, QStringLiteral("lib")) || holds(source, QStringLiteral("plugins"))
        || holds(source, QStringLiteral("qt.conf")))
        return copyDirectoryContents(source, target, result);
    QString executable;
    if (!copyExecutable(options.linuxExecutablePath, target, &executable, result))
        return false;
    makeExecutable(executable);
    return deployLinuxRuntime(executable, result);
}

qint64 PortableBundleManager::fileSize(const QString &path) const
{
    const QFileInfo file(path);
    return file.isFile() ? file.size() : 0;
}

qint64 PortableBundleManager::directorySize(const QString &path) const
{
    return QFileInfo(path).isDir() ? treeSize(path, {}) : fileSize(path);
}

qint64 PortableBundleManager::estimateWindowsBundleSize(const PortableBundleOptions &options) const
{
    if (options.windowsExecutablePath.isEmpty())
        return 0;
    const QString source =
        sourceDirectoryOf(options.windowsExecutablePath, options.windowsSourceDirectory);
    qint64 size = fileSize(options.windowsExecutablePath);
    for (const QFileInfo &library : filesNamed(QStringLiteral("*.dll"), source))
        size += library.size();
    for (const QString &family : windowsPluginFamilies)
        size += directorySize(QDir(source).filePath(family));
    return size;
}

qint64 PortableBundleManager::estimateLinuxBundleSize(const PortableBundleOptions &options) const
{
    if (options.linuxExecutablePath.isEmpty())
        return 0;
    const qint64 executableSize = fileSize(options.linuxExecutablePath);
    const qint64 sourceSize =
        directorySize(sourceDirectoryOf(options.linuxExecutablePath, options.linuxSourceDirectory));
    if (sourceSize > executableSize)
        return sourceSize;

    const auto dependencies = [this](const QString &path) {
        const QStringList libraries = linuxLibraryDependencies(path);
        return QSet<QString>(libraries.begin(), libraries.end());
    };
    qint64 size = executableSize;
    QSet<QString> libraries = dependencies(options.linuxExecutablePath);
    const QDir plugins(QLibraryInfo::path(QLibraryInfo::PluginsPath));
    for (const QString &family : linuxPluginFamilies) {
        const QString directory = plugins.filePath(family);
        size += directorySize(directory);
        for (const QFileInfo &plugin : filesNamed(QStringLiteral("*.so"), directory))
            libraries += dependencies(plugin.absoluteFilePath());
    }
    for (const QString &library : libraries)
        size += fileSize(library);
    return size;
}

bool PortableBundleManager::validateBundleFitsUsb(const QString &usbRoot, const QString &bundleRoot,
                                                  const PortableBundleOptions &options,
                                                  PortableBundleResult *result) const
{
    const QStorageInfo storage(usbRoot);
    if (!storage.isValid() || !storage.isReady())
        return fail(result,
                    QStringLiteral("Nao foi possivel validar o espaco livre da unidade USB."));
    const qint64 free = storage.bytesAvailable();
    const qint64 required = estimateWindowsBundleSize(options) + estimateLinuxBundleSize(options);
    // What an earlier preparation left is replaced. It takes a walk through all of it to be
    // counted.
    const qint64 existing = required > free ? directorySize(bundleRoot) : 0;
    return fits(required, free + existing, storage.bytesTotal(), result);
}

bool PortableBundleManager::ensureDirectory(const QString &path, PortableBundleResult *result) const
{
    if (!makeDirectory(path) || leadsAstray(path))
        return fail(result, QStringLiteral("Nao foi possivel criar a pasta: %1").arg(path));
    result->touchedPaths << path;
    return true;
}

bool PortableBundleManager::copyFileReplacing(const QString &source, const QString &target,
                                              PortableBundleResult *result) const
{
    const QFileInfo sourceFile(source);
    const QFileInfo targetFile(target);
    if (isSamePath(sourceFile, targetFile) || isAlreadyCopied(sourceFile, targetFile)) {
        result->touchedPaths << target;
        return true;
    }
    QFile input(source);
    if (!input.open(QIODevice::ReadOnly))
        return fail(
            result,
            QStringLiteral("Nao foi possivel copiar o arquivo: %1").arg(sourceFile.fileName()));
    QSaveFile output(target);
    if (leadsAstray(target) || !output.open(QIODevice::WriteOnly))
        return fail(result, QStringLiteral("Nao foi possivel criar o arquivo: %1").arg(target));
    if (!copyChunks(&input, &output, result))
        return false;
    // Before the file has its name: a repeated preparation passes over it, and wouldn't make a
    // program executable that was cut off behind that. Best effort: FAT keeps no permissions.
    const QFileDevice::Permissions permissions = input.permissions();
    output.setPermissions(permissions);
    if (!commitFlushed(&output))
        return fail(result, QStringLiteral("Nao foi possivel finalizar o arquivo: %1").arg(target));
    // Again, for a drive that takes none for a file without a name.
    QFile::setPermissions(target, permissions);
    result->touchedPaths << target;
    return true;
}

bool PortableBundleManager::copyExecutable(const QString &source, const QString &targetDirectory,
                                           QString *copiedPath, PortableBundleResult *result) const
{
    const bool forWindows = source.endsWith(QStringLiteral(".exe"), Qt::CaseInsensitive);
    const QString target =
        QDir(targetDirectory)
            .filePath(forWindows ? QStringLiteral("Tessarine.exe") : QStringLiteral("Tessarine"));
    if (!QFileInfo::exists(source))
        return fail(result,
                    QStringLiteral("Executavel do Tessarine nao encontrado: %1").arg(source));
    if (!isSamePath(QFileInfo(target), QFileInfo(source))
        && !copyFileReplacing(source, target, result))
        return fail(result,
                    QStringLiteral("Nao foi possivel copiar o executavel para: %1").arg(target));
    if (copiedPath != nullptr)
        *copiedPath = target;
    result->touchedPaths << target;
    return true;
}

bool PortableBundleManager::copyCurrentExecutable(const QString &targetDirectory,
                                                  QString *copiedPath,
                                                  PortableBundleResult *result) const
{
    return copyExecutable(QCoreApplication::applicationFilePath(), targetDirectory, copiedPath,
                          result);
}

bool PortableBundleManager::copyDirectoryContents(const QString &source, const QString &target,
                                                  PortableBundleResult *result) const
{
    return copyTree(source, target, directoriesOnTheWayTo(target), result);
}

// Passes over the directories that the walk is already inside of: a link may lead back to one, and
// a source that holds its own target would be copied into itself, without end.
bool PortableBundleManager::copyTree(const QString &source, const QString &target,
                                     const QList<DirectoryIdentity> &outerDirectories,
                                     PortableBundleResult *result) const
{
    const QDir directory(source);
    if (!directory.exists())
        return fail(result, QStringLiteral("Pasta de origem nao encontrada: %1").arg(source));
    if (!ensureDirectory(target, result))
        return false;
    const QDir targetDirectory(target);
    const auto openDirectories = outerDirectories + QList{identityOf(source), identityOf(target)};
    for (const QFileInfo &entry : directory.entryInfoList(treeEntries, QDir::NoSort)) {
        const QString entrySource = entry.absoluteFilePath();
        const QString entryTarget = targetDirectory.filePath(entry.fileName());
        if (entry.isDir() && isOneOf(openDirectories, entrySource))
            continue;
        if (entry.isDir() && !copyTree(entrySource, entryTarget, openDirectories, result))
            return false;
        if (entry.isFile() && !copyFileReplacing(entrySource, entryTarget, result))
            return false;
    }
    return true;
}

bool PortableBundleManager::writeTextFile(const QString &path, const QString &text,
                                          PortableBundleResult *result) const
{
    QSaveFile file(path);
    if (leadsAstray(path) || !file.open(QIODevice::WriteOnly | QIODevice::Text))
        return fail(result, QStringLiteral("Nao foi possivel criar o arquivo: %1").arg(path));
    QTextStream stream(&file);
    stream << text << Qt::flush;
    if (stream.status() != QTextStream::Ok)
        file.cancelWriting();
    if (!commitFlushed(&file))
        return fail(result, QStringLiteral("Nao foi possivel salvar o arquivo: %1").arg(path));
    result->touchedPaths << path;
    return true;
}

QStringList PortableBundleManager::linuxLibraryDependencies(const QString &path) const
{
    return librariesInLddOutput(outputOf(QStringLiteral("ldd"), path).value_or(QString()));
}

bool PortableBundleManager::copyLinuxLibraryDependencies(const QString &path,
                                                         const QString &libraryDirectory,
                                                         PortableBundleResult *result) const
{
    const QStringList libraries = linuxLibraryDependencies(path);
    if (libraries.isEmpty())
        return fail(
            result,
            QStringLiteral("Nao foi possivel identificar dependencias Linux para: %1").arg(path));
    for (const QString &library : libraries) {
        const QFileInfo file(library);
        const QString target = QDir(libraryDirectory).filePath(file.fileName());
        if (file.isFile() && !copyFileReplacing(library, target, result))
            return false;
    }
    return true;
}

bool PortableBundleManager::copyLinuxTlsLibraries(const QString &libraryDirectory,
                                                  PortableBundleResult *result) const
{
    const std::optional<QString> output =
        outputOf(QStringLiteral("ldconfig"), QStringLiteral("-p"));
    if (!output)
        return fail(result, QStringLiteral("Nao foi possivel localizar bibliotecas TLS do Linux."));
    bool found = false;
    for (const QString &library : libsslInLdconfigOutput(*output)) {
        const QFileInfo file(library);
        if (!file.isFile())
            continue;
        if (!copyFileReplacing(library, QDir(libraryDirectory).filePath(file.fileName()), result))
            return false;
        found = true;
    }
    if (!found)
        return fail(result,
                    QStringLiteral("Biblioteca libssl.so nao encontrada no ambiente Linux."));
    return true;
}

bool PortableBundleManager::copyQtLinuxPlugins(const QString &pluginDirectory,
                                               PortableBundleResult *result) const
{
    const QDir plugins(QLibraryInfo::path(QLibraryInfo::PluginsPath));
    const QString libraryDirectory =
        QFileInfo(pluginDirectory).absoluteDir().filePath(QStringLiteral("lib"));
    for (const QString &family : linuxPluginFamilies) {
        if (!plugins.exists(family))
            continue;
        const QString target = QDir(pluginDirectory).filePath(family);
        if (!copyDirectoryContents(plugins.filePath(family), target, result))
            return false;
        for (const QFileInfo &plugin : filesNamed(QStringLiteral("*.so"), target))
            if (!copyLinuxLibraryDependencies(plugin.absoluteFilePath(), libraryDirectory, result))
                return false;
    }
    return true;
}

bool PortableBundleManager::deployLinuxRuntime(const QString &executablePath,
                                               PortableBundleResult *result) const
{
    const QDir directory(QFileInfo(executablePath).absolutePath());
    const QString libraryDirectory = directory.filePath(QStringLiteral("lib"));
    const QString pluginDirectory = directory.filePath(QStringLiteral("plugins"));
    return ensureDirectory(libraryDirectory, result) && ensureDirectory(pluginDirectory, result)
           && copyLinuxLibraryDependencies(executablePath, libraryDirectory, result)
           && copyLinuxTlsLibraries(libraryDirectory, result)
           && copyQtLinuxPlugins(pluginDirectory, result);
}

bool PortableBundleManager::deployWindowsRuntime(const QString & /*executablePath*/,
                                                 const QString & /*sourceDirectory*/,
                                                 PortableBundleResult * /*result*/) const
{
    return true;
}

bool PortableBundleManager::copyDeployedRuntime(const QString &targetDirectory,
                                                const QString &sourceDirectory,
                                                PortableBundleResult *result) const
{
    const QString source = orApplicationDirectory(sourceDirectory);
    if (!isSamePath(QFileInfo(targetDirectory), QFileInfo(source)))
        return copyDirectoryContents(source, targetDirectory, result);
    result->touchedPaths << targetDirectory;
    return true;
}

bool PortableBundleManager::copyAdjacentRuntimeLibraries(const QString &targetDirectory,
                                                         const QString &sourceDirectory,
                                                         PortableBundleResult *result) const
{
    const QString source = orApplicationDirectory(sourceDirectory);
    for (const QFileInfo &library : filesNamed(QStringLiteral("*.dll"), source)) {
        const QString path = library.absoluteFilePath();
        const QString target = QDir(targetDirectory).filePath(library.fileName());
        if (!isSamePath(QFileInfo(target), library) && !copyFileReplacing(path, target, result))
            return fail(
                result,
                QStringLiteral("Nao foi possivel copiar a biblioteca: %1").arg(library.fileName()));
    }
    return true;
}

} // namespace Tessarine::Deployment
