#include "deployment/CommandOutput.h"
#include "deployment/DurableWriting.h"
#include "deployment/PortableBundleManager.h"
#include "platform/linux/LinuxDeviceManager.h"

#include <QAbstractItemView>
#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QCryptographicHash>
#include <QDateTime>
#include <QDialog>
#include <QDialogButtonBox>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QFormLayout>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QIcon>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QMainWindow>
#include <QMenuBar>
#include <QMessageBox>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPainter>
#include <QPixmap>
#include <QPlainTextEdit>
#include <QProcess>
#include <QProgressBar>
#include <QProgressDialog>
#include <QPushButton>
#include <QRandomGenerator>
#include <QSaveFile>
#include <QScreen>
#include <QStatusBar>
#include <QStyleOptionComboBox>
#include <QSysInfo>
#include <QTextEdit>
#include <QTimer>
#include <QUrl>
#include <QVBoxLayout>
#include <QVersionNumber>
#include <QWindow>

#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <memory>

namespace
{

using Tessarine::Deployment::commitFlushed;
using Tessarine::Deployment::FileSystemSync;
using Tessarine::Deployment::leadsAstray;
using Tessarine::Deployment::limitOutput;
using Tessarine::Deployment::makeDirectory;
using Tessarine::Deployment::PortableBundleManager;
using Tessarine::Deployment::PortableBundleOptions;
using Tessarine::Deployment::PortableBundleResult;
using Tessarine::Deployment::PreparationProgress;
using Tessarine::Platform::DeviceManager;
using Tessarine::Platform::UsbDevice;
using Tessarine::Platform::Linux::LinuxDeviceManager;

// ---------------------------------------------------------------- text and boxes

QString applicationTitle()
{
    return QStringLiteral("Tessarine - Gerenciador");
}

// Text that can be walked through with a caret, by the keyboard and by a screen reader.
constexpr auto readableText = Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard;

// A box grows with its text, and its buttons leave the screen. A text that is too long for half of
// the screen is shown in a pane that scrolls; the box's text stays the whole of it.
void keepOnScreen(QMessageBox *box)
{
    auto *label = box->findChild<QLabel *>(QStringLiteral("qt_msgbox_label"));
    label->setWordWrap(true);
    const QSize room = box->screen()->availableSize() / 2;
    const int width = std::min(room.width(), 500);
    constexpr qsizetype tooLongToMeasure =
        10'000; // characters; a label takes a minute for millions
    if (box->text().size() < tooLongToMeasure && label->heightForWidth(width) <= room.height()
        && label->minimumSizeHint().width() <= room.width())
        return;

    auto *pane = new QPlainTextEdit(box->text(), box);
    pane->setReadOnly(true);
    pane->setTextInteractionFlags(readableText);
    pane->setMinimumSize(width, room.height());
    delete box->layout()->replaceWidget(label, pane);
    label->hide();
}

// The beginning and the end of a text that the window would take minutes to lay out: what a tool
// failed for stands behind all else that it had to say.
QString shortened(const QString &text, qsizetype longest)
{
    if (text.size() <= longest)
        return text;
    return text.left(longest / 2) + QStringLiteral("\n...\n") + text.right(longest / 2);
}

// Qt takes a text that looks like HTML for HTML. Names of drives, files and servers are only ever
// text, so the program's messages show every character as it stands.
void showMessage(QWidget *parent, QMessageBox::Icon icon, const QString &text)
{
    QMessageBox box(icon, applicationTitle(), shortened(text, 100'000), QMessageBox::Ok, parent);
    box.setTextFormat(Qt::PlainText);
    keepOnScreen(&box);
    box.exec();
}

// For what has no text format of its own: HTML is all that keeps text that looks like it as it is.
QString asLiteralText(const QString &text)
{
    return Qt::mightBeRichText(text) ? Qt::convertFromPlainText(text) : text;
}

void inform(QWidget *parent, const QString &text)
{
    showMessage(parent, QMessageBox::Information, text);
}

void warn(QWidget *parent, const QString &text)
{
    showMessage(parent, QMessageBox::Warning, text);
}

// Asks a question whose safe answer, "Não", is the default. True only for "Sim".
bool askYesNo(QWidget *parent, const QString &title, const QString &text)
{
    QMessageBox box(parent);
    box.setIcon(QMessageBox::Question);
    box.setWindowTitle(title);
    box.setTextFormat(Qt::PlainText);
    box.setText(text);
    const QPushButton *yes = box.addButton(QStringLiteral("Sim"), QMessageBox::AcceptRole);
    QPushButton *no = box.addButton(QStringLiteral("Não"), QMessageBox::RejectRole);
    box.setDefaultButton(no);
    keepOnScreen(&box);
    box.exec();
    return box.clickedButton() == yes;
}

// The modal dialog over a running command. It is what keeps a second command from starting inside
// the first, so nothing but the command itself closes it: QProgressDialog alone is hidden by
// Escape and by its close button even when it has no cancel button.
class CommandProgressDialog final : public QProgressDialog
{
public:
    CommandProgressDialog(const QString &command, const QString &caption, int maximum,
                          QWidget *parent)
        : QProgressDialog(caption, QString(), 0, maximum, parent)
    {
        setWindowModality(Qt::ApplicationModal);
        setCancelButton(nullptr);
        setMinimumDuration(0);
        setWindowFlag(Qt::CustomizeWindowHint);
        setWindowFlag(Qt::WindowCloseButtonHint, false);
        setAccessibleName(command);
        // The bar is called what the caption says.
        findChild<QLabel *>()->setBuddy(findChild<QProgressBar *>());
    }

    void reject() override {}

    // Puts what was set last on the screen before the caller blocks the thread. Events that have
    // arrived aren't enough for that: the X server and the window manager answer a moment after a
    // dialog was shown, or grew with its caption.
    void paintNow()
    {
        QCoreApplication::processEvents();
        QTimer limit;
        limit.setSingleShot(true);
        limit.start(1000);
        while (isVisible() && !isOnScreen() && limit.isActive())
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        repaint();
    }

protected:
    void closeEvent(QCloseEvent *event) override { event->ignore(); }

    void showEvent(QShowEvent *event) override
    {
        QProgressDialog::showEvent(event);
        sizeOnScreen = size();
        windowHandle()->installEventFilter(this);
    }

    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (watched == windowHandle() && event->type() == QEvent::Resize)
            sizeOnScreen = windowHandle()->size();
        return QProgressDialog::eventFilter(watched, event);
    }

private:
    bool isOnScreen() const { return windowHandle()->isExposed() && sizeOnScreen == size(); }

    QSize sizeOnScreen; // as the window system has confirmed it
};

// ---------------------------------------------------------------- bundle sources

// A build of the main application found on this machine; all empty when there is none.
struct BundleSource {
    QString executablePath;
    QString directoryPath;
    bool fromBuildTree = false;
};

QString firstExistingPath(const QString &base, const QStringList &candidates)
{
    for (const QString &candidate : candidates) {
        QString path = QDir(base).filePath(candidate);
        if (QFileInfo::exists(path))
            return path;
    }
    return {};
}

// Looks beside the program first, as an installed manager has its bundles, then in the source
// tree of the main application, as a developer has them.
BundleSource locateBundleSource(const QStringList &packagedCandidates,
                                const QStringList &buildTreeCandidates)
{
    BundleSource source;
    source.executablePath =
        firstExistingPath(QCoreApplication::applicationDirPath(), packagedCandidates);
    if (source.executablePath.isEmpty()) {
        source.executablePath =
            firstExistingPath(QString::fromUtf8(TESSARINE_SOURCE_DIR), buildTreeCandidates);
        source.fromBuildTree = !source.executablePath.isEmpty();
    }
    if (!source.executablePath.isEmpty())
        source.directoryPath = QFileInfo(source.executablePath).absolutePath();
    return source;
}

BundleSource locateWindowsSource()
{
    return locateBundleSource({QStringLiteral("bundles/windows-x64/Tessarine.exe"),
                               QStringLiteral("../windows-x64/Tessarine.exe"),
                               QStringLiteral("Tessarine.exe")},
                              {QStringLiteral("bundles/windows-x64/Tessarine.exe"),
                               QStringLiteral("../out/build/x64-release/Tessarine/Tessarine.exe"),
                               QStringLiteral("out/build/x64-release/Tessarine.exe"),
                               QStringLiteral("out/build/x64-release/Release/Tessarine.exe"),
                               QStringLiteral("out/install/x64-release/bin/Tessarine.exe")});
}

BundleSource locateLinuxSource()
{
    return locateBundleSource(
        {QStringLiteral("bundles/linux-x64/Tessarine"), QStringLiteral("../linux-x64/Tessarine"),
         QStringLiteral("../../linux-x64/Tessarine"), QStringLiteral("Tessarine")},
        {QStringLiteral("../out/build/linux-x64-release/Tessarine/Tessarine"),
         QStringLiteral("bundles/linux-x64/Tessarine"),
         QStringLiteral("out/build/linux-x64-release/Tessarine")});
}

// ---------------------------------------------------------------- drive's directories and state

QString bundleRootOf(const QString &mountPoint)
{
    return QDir(mountPoint).filePath(QStringLiteral("Tessarine"));
}

QString updateStatePath(const QString &mountPoint)
{
    return QDir(mountPoint).filePath(QStringLiteral("Tessarine/update-state.json"));
}

QJsonObject bundleEntry(const QString &path, const QString &entryPoint)
{
    return {{QStringLiteral("path"), path}, {QStringLiteral("entryPoint"), entryPoint}};
}

QJsonObject updateState(const QString &version, const QString &packageHash)
{
    QJsonObject state{
        {QStringLiteral("schemaVersion"), 1},
        {QStringLiteral("app"), QStringLiteral("Tessarine")},
        {QStringLiteral("installedVersion"), version},
        {QStringLiteral("installedAt"), QDateTime::currentDateTimeUtc().toString(Qt::ISODate)},
        {QStringLiteral("updatedByConfigVersion"), QCoreApplication::applicationVersion()},
        {QStringLiteral("bundles"),
         QJsonObject{
             {QStringLiteral("windows-x64"),
              bundleEntry(QStringLiteral("Tessarine/windows"), QStringLiteral("Tessarine.exe"))},
             {QStringLiteral("linux-x64"),
              bundleEntry(QStringLiteral("Tessarine/linux"), QStringLiteral("Tessarine"))}}}};
    if (!packageHash.isEmpty())
        state.insert(QStringLiteral("lastPackageSha256"), packageHash);
    return state;
}

// Records on the drive which version it holds. On false *error tells the user why; the old record
// still stands, unless the drive failed after the new one was in its place.
bool writeUpdateState(const QString &mountPoint, const QString &version, const QString &packageHash,
                      QString *error)
{
    const QString path = updateStatePath(mountPoint);
    if (!makeDirectory(QFileInfo(path).absolutePath())) {
        *error = QStringLiteral("Não foi possível criar a pasta de estado da atualização.");
        return false;
    }
    FileSystemSync drive(QFileInfo(path).absolutePath());
    const QByteArray json =
        QJsonDocument(updateState(version, packageHash)).toJson(QJsonDocument::Indented);
    QSaveFile file(path);
    if (leadsAstray(path) || !file.open(QIODevice::WriteOnly | QIODevice::Text)) {
        *error = QStringLiteral("Não foi possível abrir o arquivo de estado: %1").arg(path);
        return false;
    }
    if (file.write(json) != json.size())
        file.cancelWriting();
    if (!commitFlushed(&file) || !drive.syncRenamed(QFileInfo(path).fileName())) {
        *error = QStringLiteral("Não foi possível salvar o arquivo de estado: %1").arg(path);
        return false;
    }
    return true;
}

// Empty when the drive has no usable record.
QString readInstalledVersion(const QString &mountPoint)
{
    constexpr qint64 sizeLimit = 1'048'576; // bytes; a state file has some hundred
    QFile file(updateStatePath(mountPoint));
    // Opening a pipe would wait for its other end, and a device may have none.
    if (!QFileInfo(file).isFile() || !file.open(QIODevice::ReadOnly))
        return {};
    const QJsonObject state = QJsonDocument::fromJson(file.read(sizeLimit)).object();
    if (state.value(QStringLiteral("app")).toString() != QStringLiteral("Tessarine"))
        return {};
    return state.value(QStringLiteral("installedVersion")).toString();
}

// ---------------------------------------------------------------- update manifest

// What the vendor publishes about the current package.
struct UpdateManifest {
    QString version;
    QString packageUrl;
    QString sha256;   // hexadecimal, lower case
    qint64 size = -1; // bytes; negative when unknown
    QString publishedAt;
    QString releaseNotes;
};

QUrl manifestUrl()
{
    return QUrl(QStringLiteral(TESSARINE_UPDATE_ENDPOINT "/000Updates/tessarine/manifest.json"),
                QUrl::TolerantMode);
}

// JSON numbers are doubles: one that a byte count can't hold counts as unknown, like an absent one.
qint64 toByteCount(double number)
{
    constexpr double limit = 9223372036854775808.0; // 2^63
    return number >= -limit && number < limit ? static_cast<qint64>(number) : -1;
}

bool parseUpdateManifest(const QByteArray &body, UpdateManifest *manifest, QString *error)
{
    QByteArray json = body;
    if (json.startsWith("\xEF\xBB\xBF"))
        json.remove(0, 3);

    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(json, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject()) {
        *error = QStringLiteral("Manifesto invalido: %1").arg(parseError.errorString());
        return false;
    }

    const QJsonObject object = document.object();
    if (object.value(QStringLiteral("schemaVersion")).toInt(0) != 1
        || object.value(QStringLiteral("app")).toString() != QStringLiteral("Tessarine")) {
        *error = QStringLiteral("Manifesto não pertence ao Tessarine ou usa schema não suportado.");
        return false;
    }

    manifest->version = object.value(QStringLiteral("version")).toString();
    manifest->packageUrl = object.value(QStringLiteral("packageUrl")).toString();
    manifest->sha256 = object.value(QStringLiteral("sha256")).toString().toLower();
    manifest->size = toByteCount(object.value(QStringLiteral("size")).toDouble(-1.0));
    manifest->publishedAt = object.value(QStringLiteral("publishedAt")).toString();
    manifest->releaseNotes = object.value(QStringLiteral("releaseNotes")).toString();
    if (manifest->version.isEmpty() || manifest->packageUrl.isEmpty()
        || manifest->sha256.isEmpty()) {
        *error = QStringLiteral("Manifesto sem version, packageUrl ou sha256.");
        return false;
    }
    return true;
}

bool isNewer(const QString &version, const QString &installedVersion)
{
    return QVersionNumber::compare(QVersionNumber::fromString(version),
                                   QVersionNumber::fromString(installedVersion))
           > 0;
}

// What a drive holds: the version to compare with, and its name for the user.
struct InstalledVersion {
    QString compared;
    QString shown;
};

// ---------------------------------------------------------------- HTTP

// In bytes. A longer body, or one of unknown length, is kept in pieces as it arrives, and each
// piece of HTTPS takes a block of twice its size.
constexpr qint64 largestBodyInOneBlock = qint64(4) << 30;

// Lets the event loop turn until the reply is finished, or the loop is ended by the application's
// exit. False once limitMs milliseconds have passed.
bool waitForReply(QNetworkReply *reply, int limitMs)
{
    QEventLoop loop;
    QTimer timer;
    timer.setSingleShot(true);
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    QObject::connect(&timer, &QTimer::timeout, &loop, &QEventLoop::quit);
    timer.start(limitMs);
    loop.exec();
    return timer.isActive();
}

// The body of a finished reply, or nothing, with the reason in *error, when it is none of success.
QByteArray bodyOf(QNetworkReply *reply, const QUrl &url, QString *error)
{
    if (reply->error() != QNetworkReply::NoError) {
        *error = reply->errorString();
        return {};
    }
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (status.isValid() && status.toInt() >= 400) {
        *error = QStringLiteral("HTTP %1 ao acessar: %2")
                     .arg(QString::number(status.toInt()), url.toString());
        return {};
    }
    return reply->readAll();
}

// The file that Qt reads for a local address, for which the host "localhost" is none. Empty for any
// other address.
QString localFileOf(QUrl url)
{
    if (url.host() == QStringLiteral("localhost"))
        url.setHost({});
    return url.toLocalFile();
}

// Fetches the whole body, or nothing once limitMs milliseconds have passed. The event loop turns
// meanwhile. An empty result with *error unchanged means that the body was empty.
QByteArray httpGet(const QUrl &url, int limitMs, QString *error)
{
    // Opening a pipe would wait for its other end, and a device may have none.
    const QFileInfo local(localFileOf(url));
    if (local.exists() && !local.isFile() && !local.isDir()) {
        *error = QStringLiteral("Tempo limite excedido ao acessar: %1").arg(url.toString());
        return {};
    }
    QNetworkAccessManager manager;
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::NoLessSafeRedirectPolicy);
    request.setAttribute(QNetworkRequest::MaximumDownloadBufferSizeAttribute,
                         largestBodyInOneBlock);
    request.setRawHeader("User-Agent", QStringLiteral("TessarineConfig/%1")
                                           .arg(QCoreApplication::applicationVersion())
                                           .toLatin1());
    request.setRawHeader("Accept", "*/*");

    QNetworkReply *reply = manager.get(request);
    const bool inTime = waitForReply(reply, limitMs);
    // What arrived before the time was up, or before the application ended, is only a part.
    if (!reply->isFinished())
        reply->abort();
    reply->deleteLater();
    if (!inTime) {
        *error = QStringLiteral("Tempo limite excedido ao acessar: %1").arg(url.toString());
        return {};
    }
    return bodyOf(reply, url, error);
}

// ---------------------------------------------------------------- update steps on the drive

// A main application that can't be asked for counts as running: its files must not be swapped.
bool isMainApplicationRunning()
{
    QProcess pgrep;
    limitOutput(&pgrep);
    pgrep.start(QStringLiteral("pgrep"), {QStringLiteral("-x"), QStringLiteral("Tessarine")});
    if (!pgrep.waitForFinished(5000) || pgrep.exitStatus() != QProcess::NormalExit)
        return true;
    const QString output = QString::fromLocal8Bit(pgrep.readAllStandardOutput());
    return pgrep.exitCode() == 0 && !output.trimmed().isEmpty();
}

bool extractZip(const QString &zipPath, const QString &destination, QString *error)
{
    if (!makeDirectory(destination)) {
        *error = QStringLiteral("Não foi possível criar staging: %1").arg(destination);
        return false;
    }
    QProcess unzip;
    limitOutput(&unzip);
    // unzip asks on a full drive and for the password of an encrypted entry. Without input and
    // without a terminal to turn to it gives up at once, instead of waiting for an answer.
    unzip.setStandardInputFile(QProcess::nullDevice());
    unzip.setChildProcessModifier([] { setsid(); });
    unzip.start(QStringLiteral("unzip"), {QStringLiteral("-q"), QStringLiteral("-o"), zipPath,
                                          QStringLiteral("-d"), destination});
    if (unzip.waitForFinished(180000) && unzip.exitStatus() == QProcess::NormalExit
        && unzip.exitCode() == 0)
        return true;
    const QString output = QString::fromLocal8Bit(unzip.readAllStandardOutput());
    const QString errorOutput = QString::fromLocal8Bit(unzip.readAllStandardError());
    *error = QStringLiteral("Falha ao extrair ZIP: %1%2").arg(output, errorOutput);
    return false;
}

// unzip ends long before the drive has what it wrote.
bool syncExtracted(FileSystemSync *drive, QString *error)
{
    if (drive->sync())
        return true;
    *error = QStringLiteral("Falha ao extrair ZIP: %1%2").arg(QString(), drive->errorString());
    return false;
}

bool validateExtractedPackage(const QString &extractedPath, QString *error)
{
    const QDir root(QDir(extractedPath).filePath(QStringLiteral("Tessarine")));
    const QDir windowsBundle(root.filePath(QStringLiteral("windows")));
    const QDir linuxBundle(root.filePath(QStringLiteral("linux")));
    const std::array requiredFiles{
        windowsBundle.filePath(QStringLiteral("Tessarine.exe")),
        windowsBundle.filePath(QStringLiteral("platforms/qwindows.dll")),
        linuxBundle.filePath(QStringLiteral("Tessarine")),
        linuxBundle.filePath(QStringLiteral("Tessarine-Linux.sh")),
        linuxBundle.filePath(QStringLiteral("qt.conf")),
        linuxBundle.filePath(QStringLiteral("lib/libssl.so.3")),
        linuxBundle.filePath(QStringLiteral("plugins/tls/libqopensslbackend.so"))};
    for (const QString &path : requiredFiles) {
        if (!QFileInfo::exists(path)) {
            *error = QStringLiteral("Pacote sem arquivo obrigatório: %1").arg(path);
            return false;
        }
    }
    const std::array requiredDirectories{linuxBundle.filePath(QStringLiteral("lib")),
                                         linuxBundle.filePath(QStringLiteral("plugins"))};
    for (const QString &path : requiredDirectories) {
        if (!QFileInfo(path).isDir()) {
            *error = QStringLiteral("Pacote sem diretório obrigatório: %1").arg(path);
            return false;
        }
    }
    return true;
}

// Opens a tree to its removal: a package may bring directories that their owner may not write to,
// which QDir can't empty. False if a link can't be removed: QDir would make what it leads to, which
// may be the user's, writable, and try once more.
bool openToRemoval(const std::filesystem::path &tree)
{
    namespace fs = std::filesystem;
    const auto open = [](const fs::path &directory) {
        std::error_code ignored;
        if ((fs::status(directory, ignored).permissions() & fs::perms::owner_all)
            != fs::perms::owner_all)
            fs::permissions(directory, fs::perms::owner_all, fs::perm_options::add, ignored);
    };
    std::error_code error;
    if (fs::is_directory(tree, error))
        open(tree);
    for (fs::recursive_directory_iterator entry(tree, error); entry != fs::end(entry);
         entry.increment(error)) {
        if (!entry->is_symlink(error)) {
            if (entry->is_directory(error))
                open(entry->path());
        } else if (!fs::remove(entry->path(), error)) {
            return false;
        }
    }
    return true;
}

bool removeTree(const QString &path)
{
    const std::filesystem::path tree(QFile::encodeName(path).toStdString());
    if (!openToRemoval(tree))
        return false;
    if (QDir(path).removeRecursively())
        return true;
    // QDir passes over names that are no UTF-8, which a package may bring, and leaves them.
    std::error_code error;
    std::filesystem::remove_all(tree, error);
    return !error;
}

// True if nothing is left at the path. error may be null.
bool removeDirectory(const QString &path, QString *error)
{
    const QFileInfo info(path);
    if (!info.exists())
        return true;
    // What a link leads to is not ours to empty.
    const bool removed = info.isSymLink() ? QFile::remove(path) : removeTree(path);
    if (!removed && error != nullptr)
        *error = QStringLiteral("Não foi possível remover: %1").arg(path);
    return removed;
}

// Renames a directory, and on true the drive has it. On vfat two renames whose effects are still in
// memory can lose both directories when the drive is pulled out.
bool renameDurably(const QString &from, const QString &to)
{
    FileSystemSync drive(QFileInfo(to).absolutePath());
    if (!QDir().rename(from, to))
        return false;
    if (drive.syncRenamed(QFileInfo(to).fileName()))
        return true;
    QDir().rename(to, from);
    return false;
}

// The way back after a failure. Nothing more can be done when it fails as well.
void renameBack(const QString &from, const QString &to)
{
    FileSystemSync drive(QFileInfo(to).absolutePath());
    QDir().rename(from, to);
    drive.syncRenamed(QFileInfo(to).fileName());
}

// Puts source in the place of target, which is kept as backup.
bool replaceBundleDirectory(const QString &target, const QString &source, const QString &backup,
                            QString *error)
{
    if (QFileInfo::exists(backup) && !removeDirectory(backup, error))
        return false;
    if (QFileInfo::exists(target) && !renameDurably(target, backup)) {
        *error = QStringLiteral("Não foi possível criar backup de: %1").arg(target);
        return false;
    }
    if (renameDurably(source, target))
        return true;
    if (QFileInfo::exists(backup))
        renameBack(backup, target);
    *error = QStringLiteral("Não foi possível aplicar novo bundle em: %1").arg(target);
    return false;
}

QString timeStamp()
{
    return QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMddHHmmss"));
}

// Where an update unpacks its package: on the drive itself, so that the swaps are renames.
struct StagingArea {
    QString path;
    QString packagePath;
    QString extractedPath;
};

StagingArea stagingAreaIn(const QString &bundleRoot)
{
    StagingArea staging;
    staging.path = QDir(bundleRoot).filePath(QStringLiteral(".update-%1").arg(timeStamp()));
    staging.packagePath = QDir(staging.path).filePath(QStringLiteral("package.zip"));
    staging.extractedPath = QDir(staging.path).filePath(QStringLiteral("extracted"));
    return staging;
}

// One live bundle directory, what takes its place, and where the old one is kept meanwhile.
struct BundleSwap {
    QString target;
    QString staged;
    QString backup;
};

BundleSwap bundleSwap(const QString &platform, const QString &bundleRoot,
                      const QString &extractedPath, const QString &backupStamp)
{
    const QDir root(bundleRoot);
    const QDir stagedRoot(QDir(extractedPath).filePath(QStringLiteral("Tessarine")));
    return {root.filePath(platform), stagedRoot.filePath(platform),
            root.filePath(QStringLiteral("%1.backup-%2").arg(platform, backupStamp))};
}

// Swaps both bundles or, when the second one fails, none.
bool replaceBundles(const BundleSwap &windowsSwap, const BundleSwap &linuxSwap, QString *error)
{
    if (!replaceBundleDirectory(windowsSwap.target, windowsSwap.staged, windowsSwap.backup, error))
        return false;
    if (replaceBundleDirectory(linuxSwap.target, linuxSwap.staged, linuxSwap.backup, error))
        return true;
    removeDirectory(windowsSwap.target, nullptr);
    if (QFileInfo::exists(windowsSwap.backup))
        renameBack(windowsSwap.backup, windowsSwap.target);
    return false;
}

// ---------------------------------------------------------------- drive list

// The line that stands for a drive in the list: its name, and where it can be found.
QString deviceLine(const UsbDevice &device)
{
    const QString notMounted = QStringLiteral("não montado");
    QString location = device.mountPoint;
    if (!device.mounted)
        location = device.devicePath.isEmpty() ? notMounted : device.devicePath;
    const QString name = device.label.isEmpty() ? location : device.label;
    const QString line = QStringLiteral("%1 (%2)").arg(name, location);
    return device.mounted ? line : line + QStringLiteral(" | ") + notMounted;
}

bool isUsable(const UsbDevice &device)
{
    return device.mounted && !device.mountPoint.isEmpty();
}

// ---------------------------------------------------------------- backdrop

// The picture behind all controls. It fills the widget, centred, and what sticks out is cut off.
class BackgroundWidget final : public QWidget
{
public:
    explicit BackgroundWidget(QWidget *parent)
        : QWidget(parent)
    {
    }
    ~BackgroundWidget() override = default;

    QPixmap background;

protected:
    void paintEvent(QPaintEvent *event) override
    {
        QWidget::paintEvent(event);
        if (background.isNull())
            return;
        QPainter painter(this);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        const QPixmap scaled =
            background.scaled(size(), Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
        const int x = (width() - scaled.width()) / 2;
        const int y = (height() - scaled.height()) / 2;
        painter.drawPixmap(QPointF(x, y), scaled);
    }
};

QString randomBackgroundPath()
{
    const QStringList paths{QStringLiteral(":/backgrounds/Fundo01.png"),
                            QStringLiteral(":/backgrounds/Fundo02.png")};
    return paths.at(QRandomGenerator64::global()->bounded(paths.size()));
}

// Three fifths of the available width within bounds, 16 to 9, and never higher than what there is.
QSize backdropSizeWithin(const QSize &available)
{
    const int width = std::clamp(available.width() * 6 / 10, 900, 1152);
    const int height = (width * 9) >> 4;
    if (height <= available.height())
        return {width, height};
    return {available.height() * 16 / 9, available.height()};
}

QSize backdropSizeOn(const QScreen *screen)
{
    return screen == nullptr ? QSize(960, 540)
                             : backdropSizeWithin(screen->availableGeometry().size());
}

// ---------------------------------------------------------------- about dialog

class ConfigAboutDialog final : public QDialog
{
public:
    explicit ConfigAboutDialog(QWidget *parent);
    ~ConfigAboutDialog() override = default;

private:
    QHBoxLayout *createHeader();
    QLabel *createInformationLabel();
    QLabel *createRuntimeLabel();
    QTextEdit *createComponentsBox();
    QLabel *createNoticeLabel();
};

ConfigAboutDialog::ConfigAboutDialog(QWidget *parent)
    : QDialog(parent)
{
    setWindowTitle(QStringLiteral("Sobre o Tessarine - Gerenciador"));
    setModal(true);
    resize(720, 430);

    auto *root = new QVBoxLayout(this);
    auto *grid = new QGridLayout;
    grid->addLayout(createHeader(), 0, 0, 1, 2);
    grid->addWidget(createInformationLabel(), 1, 0, Qt::AlignTop);
    grid->addWidget(createRuntimeLabel(), 1, 1, Qt::AlignTop);
    grid->setColumnStretch(0, 1);
    grid->setColumnStretch(1, 1);

    auto *componentsTitle = new QLabel(QStringLiteral("Componentes relevantes:"), this);
    QTextEdit *componentsBox = createComponentsBox();
    componentsTitle->setBuddy(componentsBox);
    QLabel *noticeLabel = createNoticeLabel();

    auto *buttons = new QDialogButtonBox(this);
    buttons->addButton(QStringLiteral("Fechar"), QDialogButtonBox::AcceptRole);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);

    root->addLayout(grid);
    root->addSpacing(8);
    root->addWidget(componentsTitle);
    root->addWidget(componentsBox);
    root->addWidget(noticeLabel);
    root->addWidget(buttons);
    root->activate();
    setMinimumHeight(root->minimumHeightForWidth(width()));
}

QHBoxLayout *ConfigAboutDialog::createHeader()
{
    auto *header = new QHBoxLayout;
    header->setSpacing(8);

    auto *iconLabel = new QLabel(this);
    iconLabel->setFixedSize(42, 42);
    iconLabel->setPixmap(QIcon(QStringLiteral(":/icons/Tessarine.ico"))
                             .pixmap(QSize(42, 42), QIcon::Normal, QIcon::Off));
    iconLabel->setAlignment(Qt::AlignHCenter | Qt::AlignVCenter);

    auto *titleLabel = new QLabel(applicationTitle(), this);
    QFont font = titleLabel->font();
    font.setPointSize(font.pointSize() + 12);
    font.setWeight(QFont::DemiBold);
    titleLabel->setFont(font);
    titleLabel->setStyleSheet(QStringLiteral("color: #0B4F8A;"));

    header->addWidget(iconLabel);
    header->addWidget(titleLabel);
    header->addStretch(0);
    return header;
}

QLabel *ConfigAboutDialog::createInformationLabel()
{
    auto *label = new QLabel(this);
    label->setTextFormat(Qt::RichText);
    label->setText(
        QStringList{QStringLiteral("Preparador e atualizador de unidades USB Tessarine"),
                    QStringLiteral("Versão %1").arg(QCoreApplication::applicationVersion()),
                    QStringLiteral("Copyright © 2026 Velmora Sistemas"),
                    QStringLiteral("Todos os direitos reservados.")}
            .join(QStringLiteral("<br>")));
    return label;
}

QLabel *ConfigAboutDialog::createRuntimeLabel()
{
    return new QLabel(QStringLiteral("Ambiente de execução\n%1\nQt %2\n%3")
                          .arg(QSysInfo::prettyProductName(), QString::fromLatin1(qVersion()),
                               QSysInfo::currentCpuArchitecture()),
                      this);
}

QTextEdit *ConfigAboutDialog::createComponentsBox()
{
    auto *box = new QTextEdit(this);
    box->setReadOnly(true);
    box->setMinimumHeight(120);
    box->setPlainText(
        QStringLiteral(
            "Qt Core/Network/Widgets - %1\n"
            "Usado para interface gráfica, acesso HTTP, JSON, hash SHA-256 e operações de "
            "arquivo.\n"
            "\n"
            "Microsoft Visual C++ Runtime\n"
            "Runtime exigido por builds produzidos com Microsoft Visual Studio/MSVC.\n"
            "\n"
            "Microsoft Windows APIs\n"
            "Usadas para detecção de unidades removíveis e integração nativa com o sistema.")
            .arg(QString::fromLatin1(qVersion())));
    return box;
}

QLabel *ConfigAboutDialog::createNoticeLabel()
{
    auto *label = new QLabel(
        QStringLiteral(
            "Aviso legal: este programa é protegido pela legislação de direitos autorais e por "
            "tratados internacionais. A reprodução ou a distribuição não autorizada deste "
            "programa, no todo ou em parte, pode resultar em sanções civis e penais, que serão "
            "aplicadas na máxima extensão permitida pela lei."),
        this);
    label->setWordWrap(true);
    return label;
}

// ---------------------------------------------------------------- main window

QLabel *createMarketingLabel(QWidget *parent)
{
    auto *label = new QLabel(
        QStringLiteral("Suas informações merecem proteção.\n"
                       "O Tessarine - Gerenciador prepara sua unidade USB para armazenar e "
                       "acessar arquivos\n"
                       "com segurança, em um ambiente portátil e pronto para uso."),
        parent);
    label->setObjectName(QStringLiteral("marketingLabel"));
    label->setMaximumWidth(560);
    label->setWordWrap(true);
    return label;
}

QLabel *createSubtitleLabel(QWidget *parent)
{
    auto *label = new QLabel(
        QStringLiteral("Preparador de unidade USB para o ambiente portátil Tessarine."), parent);
    label->setObjectName(QStringLiteral("subtitleLabel"));
    label->setWordWrap(true);
    return label;
}

// Elides a line that is too long for it in the middle: mount points differ at their ends.
class DeviceComboBox final : public QComboBox
{
public:
    explicit DeviceComboBox(QWidget *parent)
        : QComboBox(parent)
    {
        view()->setTextElideMode(Qt::ElideMiddle);
    }

protected:
    void initStyleOption(QStyleOptionComboBox *option) const override
    {
        QComboBox::initStyleOption(option);
        const QRect field = style()->subControlRect(QStyle::CC_ComboBox, option,
                                                    QStyle::SC_ComboBoxEditField, this);
        option->currentText =
            fontMetrics().elidedText(option->currentText, Qt::ElideMiddle, field.width() - 2);
    }
};

QString panelStyleSheet()
{
    return QStringLiteral(
        "QFrame#contentPanel {  background-color: rgba(10, 16, 28, 0);  border: 1px solid "
        "rgba(255, 255, 255, 92);  border-radius: 8px;}"
        "QFrame#contentPanel QLabel {  color: #ffffff;}"
        "QFrame#contentPanel QLabel#marketingLabel {  font-size: 12px;}"
        "QFrame#contentPanel QLabel#subtitleLabel {  font-size: 12px;}"
        "QFrame#contentPanel QTextEdit {  background-color: rgba(255, 255, 255, 205);  color: "
        "#111827;  border: 1px solid rgba(31, 41, 55, 70);  border-radius: 4px;}"
        "QFrame#contentPanel QTextEdit {  padding: 8px;}"
        "QFrame#contentPanel QPushButton {  background-color: rgba(255, 255, 255, 255);  color: "
        "#111827;  border: 1px solid rgba(31, 41, 55, 85);  border-radius: 4px;  font-size: "
        "12px;  padding: 6px 12px;}"
        "QFrame#contentPanel QPushButton:hover {  background-color: rgba(245, 248, 252, 255);}"
        "QFrame#contentPanel QPushButton:pressed {  background-color: rgba(229, 236, 246, "
        "255);}");
}

// The program's one window. Its members are open to this file, which is all that sees the class.
class ConfigWindow final : public QMainWindow
{
public:
    ConfigWindow();
    ~ConfigWindow() override = default;

    void refreshDevices();
    void prepareSelectedDevice();
    void updateSelectedDevice();

    std::unique_ptr<DeviceManager> deviceManager;
    QList<UsbDevice> devices; // element i is item i of deviceCombo
    BundleSource windowsSource;
    BundleSource linuxSource;
    PortableBundleManager bundleManager;

    QAction *exitAction = nullptr;
    QAction *refreshAction = nullptr;
    QAction *prepareAction = nullptr;
    QAction *updateAction = nullptr;
    QAction *aboutAction = nullptr;
    QComboBox *deviceCombo = nullptr;
    QLabel *windowsSourceLabel = nullptr;
    QLabel *linuxSourceLabel = nullptr;
    QLabel *versionLabel = nullptr;
    QLabel *vendorLabel = nullptr;
    QPushButton *refreshButton = nullptr;
    QPushButton *prepareButton = nullptr;
    QPushButton *updateButton = nullptr;
    QTextEdit *logView = nullptr;

private:
    void createActions();
    void createMenus();
    QWidget *createBackdrop();
    void createContent(QWidget *backdrop);
    void createControls(QWidget *backdrop);
    QFormLayout *createForm(int verticalSpacing) const;
    QVBoxLayout *createPanelLayout(QLabel *marketingLabel, QLabel *subtitleLabel) const;
    QLabel *createStatusLabel(const QString &text);
    void connectSignals();
    void runCommand(void (ConfigWindow::*command)());
    void showAboutDialog();
    void locateSources();

    void log(const QString &line);
    bool copySelectedDevice(UsbDevice *device);
    bool copyUpdatableDevice(UsbDevice *device, QString *bundleRoot);
    PortableBundleOptions bundleOptions() const;
    void reportPreparation(const UsbDevice &device, const PortableBundleResult &result);

    bool fetchManifest(QProgressDialog *progress, UpdateManifest *manifest, QString *error);
    InstalledVersion installedVersionOf(const UsbDevice &device);
    void reportUpToDate(const QString &installedVersion, const QString &version,
                        QProgressDialog *progress);
    bool confirmUpdate(const UsbDevice &device, const QString &installedVersion,
                       const UpdateManifest &manifest);
    QByteArray fetchVerifiedPackage(const UpdateManifest &manifest, CommandProgressDialog *progress,
                                    QString *packageHash, QString *error);
    bool stagePackage(const QByteArray &package, const StagingArea &staging, FileSystemSync *drive,
                      CommandProgressDialog *progress, QString *error);
    void applyPackage(const UsbDevice &device, const QString &bundleRoot,
                      const UpdateManifest &manifest, const QString &packageHash,
                      const StagingArea &staging, CommandProgressDialog *progress, QString *error);
};

ConfigWindow::ConfigWindow()
    : deviceManager(std::make_unique<LinuxDeviceManager>())
{
    setWindowTitle(applicationTitle());
    createActions();
    createMenus();
    QWidget *backdrop = createBackdrop();
    createContent(backdrop);

    versionLabel =
        createStatusLabel(QStringLiteral("Versão %1").arg(QCoreApplication::applicationVersion()));
    vendorLabel = createStatusLabel(QStringLiteral("Velmora Sistemas"));
    statusBar()->addPermanentWidget(versionLabel);
    statusBar()->addPermanentWidget(vendorLabel);

    setCentralWidget(backdrop);
    adjustSize();
    setFixedSize(sizeHint());
    connectSignals();
    locateSources();
    refreshDevices();
}

void ConfigWindow::createActions()
{
    exitAction = new QAction(QStringLiteral("Sair"), this);
    exitAction->setShortcut(QKeySequence::Quit);
    refreshAction = new QAction(QStringLiteral("Atualizar lista"), this);
    prepareAction = new QAction(QStringLiteral("Preparar unidade USB"), this);
    updateAction = new QAction(QStringLiteral("Verificar atualizações"), this);
    aboutAction = new QAction(QStringLiteral("Sobre o sistema"), this);
}

void ConfigWindow::createMenus()
{
    QMenu *fileMenu = menuBar()->addMenu(QStringLiteral("Arquivo"));
    fileMenu->addAction(refreshAction);
    fileMenu->addAction(prepareAction);
    fileMenu->addSeparator();
    fileMenu->addAction(exitAction);

    QMenu *helpMenu = menuBar()->addMenu(QStringLiteral("Ajuda"));
    helpMenu->addAction(updateAction);
    helpMenu->addSeparator();
    helpMenu->addAction(aboutAction);
}

QWidget *ConfigWindow::createBackdrop()
{
    auto *backdrop = new BackgroundWidget(this);
    backdrop->background.load(randomBackgroundPath());
    backdrop->setFixedSize(backdropSizeOn(QGuiApplication::primaryScreen()));
    return backdrop;
}

void ConfigWindow::createContent(QWidget *backdrop)
{
    QLabel *marketingLabel = createMarketingLabel(backdrop);
    QLabel *subtitleLabel = createSubtitleLabel(backdrop);
    createControls(backdrop);

    auto *panel = new QFrame(backdrop);
    panel->setObjectName(QStringLiteral("contentPanel"));
    panel->setLayout(createPanelLayout(marketingLabel, subtitleLabel));
    setTabOrder(refreshButton, updateButton);
    panel->setStyleSheet(panelStyleSheet());

    auto *backdropLayout = new QVBoxLayout(backdrop);
    backdropLayout->setContentsMargins(22, 22, 22, 22);
    backdropLayout->addWidget(panel);
}

void ConfigWindow::createControls(QWidget *backdrop)
{
    deviceCombo = new DeviceComboBox(backdrop);
    deviceCombo->setFixedWidth(340);
    deviceCombo->setEditable(false);
    windowsSourceLabel = new QLabel(backdrop);
    windowsSourceLabel->setWordWrap(true);
    linuxSourceLabel = new QLabel(backdrop);
    linuxSourceLabel->setWordWrap(true);
    refreshButton = new QPushButton(QStringLiteral("Atualizar lista"), backdrop);
    prepareButton = new QPushButton(QStringLiteral("Preparar unidade USB"), backdrop);
    updateButton = new QPushButton(QStringLiteral("Verificar atualizações"), backdrop);
    logView = new QTextEdit(backdrop);
    logView->setReadOnly(true);
    logView->setTextInteractionFlags(readableText);
    logView->setFixedHeight(100);
    logView->setAccessibleName(QStringLiteral("Mensagens"));
}

QFormLayout *ConfigWindow::createForm(int verticalSpacing) const
{
    auto *form = new QFormLayout;
    form->setLabelAlignment(Qt::AlignRight | Qt::AlignVCenter);
    form->setHorizontalSpacing(10);
    form->setVerticalSpacing(verticalSpacing);
    return form;
}

QVBoxLayout *ConfigWindow::createPanelLayout(QLabel *marketingLabel, QLabel *subtitleLabel) const
{
    QFormLayout *deviceForm = createForm(0);
    deviceForm->addRow(QStringLiteral("Unidade USB:"), deviceCombo);
    QFormLayout *sourceForm = createForm(8);
    sourceForm->addRow(QStringLiteral("Fonte Windows:"), windowsSourceLabel);
    sourceForm->addRow(QStringLiteral("Fonte Linux:"), linuxSourceLabel);

    auto *buttonRow = new QHBoxLayout;
    buttonRow->addWidget(refreshButton);
    buttonRow->addStretch(0);
    buttonRow->addWidget(updateButton);
    buttonRow->addWidget(prepareButton);

    auto *layout = new QVBoxLayout;
    layout->setContentsMargins(18, 16, 18, 18);
    layout->setSpacing(0);
    layout->addSpacing(164);
    layout->addWidget(marketingLabel);
    layout->addSpacing(38);
    layout->addWidget(subtitleLabel);
    layout->addSpacing(18);
    layout->addLayout(deviceForm);
    layout->addSpacing(16);
    layout->addLayout(sourceForm);
    layout->addSpacing(18);
    layout->addLayout(buttonRow);
    layout->addStretch(1);
    layout->addSpacing(14);
    layout->addWidget(logView);
    return layout;
}

QLabel *ConfigWindow::createStatusLabel(const QString &text)
{
    auto *label = new QLabel(text, this);
    label->setMinimumWidth(92);
    label->setAlignment(Qt::AlignHCenter | Qt::AlignVCenter);
    label->setStyleSheet(
        QStringLiteral("QLabel {  font-size: 11px;  border-left: 1px solid #c8c8c8;  "
                       "padding-left: 6px;  padding-right: 6px;}"));
    return label;
}

void ConfigWindow::connectSignals()
{
    const auto refresh = [this] { runCommand(&ConfigWindow::refreshDevices); };
    const auto prepare = [this] { runCommand(&ConfigWindow::prepareSelectedDevice); };
    const auto update = [this] { runCommand(&ConfigWindow::updateSelectedDevice); };
    const auto showAbout = [this] { runCommand(&ConfigWindow::showAboutDialog); };
    connect(exitAction, &QAction::triggered, this, [this] { close(); });
    connect(refreshAction, &QAction::triggered, this, refresh);
    connect(prepareAction, &QAction::triggered, this, prepare);
    connect(updateAction, &QAction::triggered, this, update);
    connect(aboutAction, &QAction::triggered, this, showAbout);
    connect(refreshButton, &QPushButton::clicked, this, refresh);
    connect(prepareButton, &QPushButton::clicked, this, prepare);
    connect(updateButton, &QPushButton::clicked, this, update);
}

// A modal dialog keeps mouse and keyboard away from the window, but not a screen reader, which
// presses a button directly, and not before it is shown or once it has closed. So no command starts
// inside one that runs, which has a progress dialog from its first step to the end of its report.
void ConfigWindow::runCommand(void (ConfigWindow::*command)())
{
    const bool isRunning = findChild<QProgressDialog *>(QString(), Qt::FindDirectChildrenOnly);
    if (!isRunning)
        (this->*command)();
}

void ConfigWindow::showAboutDialog()
{
    ConfigAboutDialog dialog(this);
    dialog.exec();
}

void ConfigWindow::locateSources()
{
    windowsSource = locateWindowsSource();
    linuxSource = locateLinuxSource();

    const bool hasWindows = !windowsSource.executablePath.isEmpty();
    windowsSourceLabel->setText(hasWindows ? QStringLiteral("Disponível")
                                           : QStringLiteral("Ausente"));
    log(hasWindows ? QStringLiteral("Fonte Windows para preparação encontrada.")
                   : QStringLiteral("Fonte Windows para preparação ausente."));

    const bool hasLinux = !linuxSource.executablePath.isEmpty();
    linuxSourceLabel->setText(hasLinux ? QStringLiteral("Disponível") : QStringLiteral("Ausente"));
    log(hasLinux ? QStringLiteral("Fonte Linux para preparação encontrada.")
                 : QStringLiteral("Fonte Linux para preparação ausente."));
}

void ConfigWindow::log(const QString &line)
{
    logView->append(asLiteralText(shortened(line, 10'000)));
}

void ConfigWindow::refreshDevices()
{
    deviceCombo->clear();
    devices.clear();
    if (!deviceManager) {
        log(QStringLiteral("Detecção de USB não disponível neste sistema."));
        return;
    }
    devices = deviceManager->detectUsbDevices();

    int usableCount = 0;
    int candidate = -1;
    for (const UsbDevice &device : std::as_const(devices)) {
        const QString line = deviceLine(device);
        deviceCombo->addItem(line);
        deviceCombo->setItemData(deviceCombo->count() - 1, asLiteralText(line), Qt::ToolTipRole);
        if (isUsable(device)) {
            ++usableCount;
            candidate = deviceCombo->count() - 1;
        }
    }
    deviceCombo->setCurrentIndex(usableCount == 1 ? candidate : -1);

    log(devices.isEmpty() ? QStringLiteral("Nenhuma unidade USB detectada.")
                          : QStringLiteral("%1 unidade(s) USB detectada(s).").arg(devices.size()));
}

// The drive that a command works on; a message tells the user when none is chosen.
bool ConfigWindow::copySelectedDevice(UsbDevice *device)
{
    const int index = deviceCombo->currentIndex();
    if (index < 0 || index >= devices.size()) {
        inform(this, QStringLiteral("Selecione uma unidade USB primeiro."));
        return false;
    }
    *device = devices.at(index);
    return true;
}

PortableBundleOptions ConfigWindow::bundleOptions() const
{
    PortableBundleOptions options;
    options.windowsExecutablePath = windowsSource.executablePath;
    options.windowsSourceDirectory = windowsSource.directoryPath;
    options.linuxExecutablePath = linuxSource.executablePath;
    options.linuxSourceDirectory = linuxSource.directoryPath;
    return options;
}

void ConfigWindow::prepareSelectedDevice()
{
    if (windowsSource.executablePath.isEmpty() && linuxSource.executablePath.isEmpty()) {
        warn(this, QStringLiteral("Compile pelo menos um bundle do Tessarine antes de preparar a "
                                  "unidade."));
        return;
    }
    UsbDevice device;
    if (!copySelectedDevice(&device))
        return;
    if (!isUsable(device)) {
        inform(this, QStringLiteral("Monte a unidade USB no gerenciador de arquivos e atualize a "
                                    "lista antes de preparar."));
        return;
    }
    if (!askYesNo(this, QStringLiteral("Preparar unidade USB"),
                  QStringLiteral("Preparar a estrutura Tessarine em %1?\n\n"
                                 "A unidade não será formatada. Arquivos existentes do bundle "
                                 "Tessarine podem ser substituídos.")
                      .arg(device.mountPoint)))
        return;

    CommandProgressDialog progress(QStringLiteral("Preparação da unidade USB"),
                                   QStringLiteral("Preparando unidade USB..."), 7, this);
    const PreparationProgress showStep = [dialog = &progress](int step, int stepCount,
                                                              const QString &text) {
        dialog->setMaximum(stepCount);
        dialog->setValue(step);
        dialog->setLabelText(text);
        dialog->paintNow();
    };
    const PortableBundleResult result =
        bundleManager.preparePortableBundle(device.mountPoint, bundleOptions(), showStep);
    // A success has closed the dialog with its last report: a value would bring it up once more.
    if (!result.success)
        progress.setValue(progress.maximum());
    reportPreparation(device, result);
}

void ConfigWindow::reportPreparation(const UsbDevice &device, const PortableBundleResult &result)
{
    if (!result.success) {
        log(QStringLiteral("Falha: %1").arg(result.message));
        warn(this, result.message);
        return;
    }
    log(QStringLiteral("Unidade preparada: %1").arg(device.mountPoint));
    QString error;
    if (writeUpdateState(device.mountPoint, QStringLiteral(TESSARINE_VERSION), QString(), &error))
        log(QStringLiteral("Estado de atualização registrado: %1")
                .arg(updateStatePath(device.mountPoint)));
    else
        log(QStringLiteral("Aviso: %1").arg(error));
    inform(this, result.message);
}

// ---------------------------------------------------------------- update command

void showStage(CommandProgressDialog *progress, int value, const QString &label)
{
    progress->setLabelText(label);
    progress->setValue(value);
    progress->paintNow();
}

// The drive that an update may work on, and the directory of its bundles; a message tells the user
// why there is none.
bool ConfigWindow::copyUpdatableDevice(UsbDevice *device, QString *bundleRoot)
{
    if (!copySelectedDevice(device))
        return false;
    if (!isUsable(*device)) {
        inform(this, QStringLiteral("Monte a unidade USB e atualize a lista antes de verificar "
                                    "atualizações."));
        return false;
    }
    *bundleRoot = bundleRootOf(device->mountPoint);
    if (!QFileInfo(*bundleRoot).isDir() || leadsAstray(*bundleRoot)) {
        inform(this, QStringLiteral("A unidade selecionada ainda não possui uma estrutura "
                                    "Tessarine preparada."));
        return false;
    }
    if (isMainApplicationRunning()) {
        warn(this, QStringLiteral("Feche o Tessarine antes de atualizar os bundles da unidade "
                                  "USB."));
        return false;
    }
    return true;
}

void ConfigWindow::updateSelectedDevice()
{
    UsbDevice device;
    QString bundleRoot;
    if (!copyUpdatableDevice(&device, &bundleRoot))
        return;
    const std::optional<dev_t> fileSystem = FileSystemSync(bundleRoot).fileSystem();

    CommandProgressDialog progress(QStringLiteral("Atualização da unidade USB"),
                                   QStringLiteral("Consultando manifesto de atualização..."), 6,
                                   this);
    progress.show();
    QString error;
    UpdateManifest manifest;
    if (!fetchManifest(&progress, &manifest, &error))
        return;
    const InstalledVersion installed = installedVersionOf(device);
    if (!isNewer(manifest.version, installed.compared)) {
        reportUpToDate(installed.shown, manifest.version, &progress);
        return;
    }
    if (!confirmUpdate(device, installed.shown, manifest))
        return;
    QString packageHash;
    const QByteArray package = fetchVerifiedPackage(manifest, &progress, &packageHash, &error);
    if (package.isEmpty())
        return;
    const StagingArea staging = stagingAreaIn(bundleRoot);
    FileSystemSync drive(bundleRoot);
    // A drive that has gone meanwhile may have left its directory behind, on the host's own disk.
    // What stands there already isn't this run's: links may lie in it.
    if (!fileSystem || drive.fileSystem() != fileSystem || QFileInfo::exists(staging.path)
        || !makeDirectory(staging.path)) {
        warn(this, QStringLiteral("Não foi possível criar área temporária na unidade USB."));
        return;
    }
    if (!stagePackage(package, staging, &drive, &progress, &error))
        return;
    applyPackage(device, bundleRoot, manifest, packageHash, staging, &progress, &error);
}

bool ConfigWindow::fetchManifest(QProgressDialog *progress, UpdateManifest *manifest,
                                 QString *error)
{
    const QByteArray body = httpGet(manifestUrl(), 30000, error);
    if (body.isEmpty()) {
        log(QStringLiteral("Falha ao consultar manifesto: %1").arg(*error));
        warn(this, *error);
        return false;
    }
    progress->setValue(1);
    if (!parseUpdateManifest(body, manifest, error)) {
        log(QStringLiteral("Manifesto invalido: %1").arg(*error));
        warn(this, *error);
        return false;
    }
    return true;
}

// A drive that doesn't say what it holds counts as older than any version.
InstalledVersion ConfigWindow::installedVersionOf(const UsbDevice &device)
{
    const QString version = readInstalledVersion(device.mountPoint);
    if (!version.isEmpty())
        return {version, version};
    log(QStringLiteral("Estado local ausente em %1; a unidade será tratada como atualizável.")
            .arg(updateStatePath(device.mountPoint)));
    return {QStringLiteral("0.0.0"), QStringLiteral("desconhecida")};
}

void ConfigWindow::reportUpToDate(const QString &installedVersion, const QString &version,
                                  QProgressDialog *progress)
{
    progress->setValue(progress->maximum());
    inform(this, QStringLiteral("A unidade já está atualizada.\n\n"
                                "Versão instalada: %1\nVersão disponível: %2")
                     .arg(installedVersion, version));
    log(QStringLiteral("Nenhuma atualização disponível. Instalado: %1 | Remoto: %2")
            .arg(installedVersion, version));
}

bool ConfigWindow::confirmUpdate(const UsbDevice &device, const QString &installedVersion,
                                 const UpdateManifest &manifest)
{
    const QString notes = manifest.releaseNotes.isEmpty() ? QStringLiteral("Sem notas de versão.")
                                                          : manifest.releaseNotes;
    if (!askYesNo(this, QStringLiteral("Atualização disponível"),
                  QStringLiteral("Atualizar Tessarine na unidade %1?\n\n"
                                 "Versão instalada: %2\nVersão disponível: %3\n\n%4")
                      .arg(device.mountPoint, installedVersion, manifest.version, notes))) {
        log(QStringLiteral("Atualização cancelada pelo usuário."));
        return false;
    }
    return true;
}

// The package, once its size and its hash are those of the manifest; empty otherwise. It stays in
// memory until then, so that nothing unverified reaches the drive.
QByteArray ConfigWindow::fetchVerifiedPackage(const UpdateManifest &manifest,
                                              CommandProgressDialog *progress, QString *packageHash,
                                              QString *error)
{
    showStage(progress, 2, QStringLiteral("Baixando pacote de atualização..."));
    QByteArray package = httpGet(QUrl(manifest.packageUrl, QUrl::TolerantMode), 600000, error);
    if (package.isEmpty()) {
        log(QStringLiteral("Falha no download: %1").arg(*error));
        warn(this, *error);
        return {};
    }
    if (manifest.size >= 0 && manifest.size != package.size()) {
        warn(this, QStringLiteral("Tamanho do pacote divergente. Esperado: %1 bytes. Recebido: %2 "
                                  "bytes.")
                       .arg(QString::number(manifest.size), QString::number(package.size())));
        return {};
    }

    showStage(progress, 3, QStringLiteral("Validando hash SHA-256..."));
    *packageHash =
        QString::fromLatin1(QCryptographicHash::hash(package, QCryptographicHash::Sha256).toHex());
    if (*packageHash != manifest.sha256) {
        warn(this, QStringLiteral("Hash SHA-256 divergente. O pacote não será aplicado."));
        log(QStringLiteral("Hash divergente. Esperado: %1 | Calculado: %2")
                .arg(manifest.sha256, *packageHash));
        return {};
    }
    return package;
}

// Unpacks the package beside the bundles, down to the medium. On false nothing of it is left on the
// drive.
bool ConfigWindow::stagePackage(const QByteArray &package, const StagingArea &staging,
                                FileSystemSync *drive, CommandProgressDialog *progress,
                                QString *error)
{
    QFile packageFile(staging.packagePath);
    if (!packageFile.open(QIODevice::WriteOnly) || packageFile.write(package) != package.size()) {
        removeDirectory(staging.path, nullptr);
        warn(this, QStringLiteral("Não foi possível gravar o pacote temporário na unidade USB."));
        return false;
    }
    packageFile.close();

    showStage(progress, 4, QStringLiteral("Extraindo pacote..."));
    if (!extractZip(staging.packagePath, staging.extractedPath, error)
        || !validateExtractedPackage(staging.extractedPath, error)
        || !syncExtracted(drive, error)) {
        removeDirectory(staging.path, nullptr);
        log(QStringLiteral("Falha ao preparar pacote: %1").arg(*error));
        warn(this, *error);
        return false;
    }
    return true;
}

void ConfigWindow::applyPackage(const UsbDevice &device, const QString &bundleRoot,
                                const UpdateManifest &manifest, const QString &packageHash,
                                const StagingArea &staging, CommandProgressDialog *progress,
                                QString *error)
{
    showStage(progress, 5, QStringLiteral("Substituindo bundles..."));
    const QString backupStamp = timeStamp();
    const BundleSwap windowsSwap =
        bundleSwap(QStringLiteral("windows"), bundleRoot, staging.extractedPath, backupStamp);
    const BundleSwap linuxSwap =
        bundleSwap(QStringLiteral("linux"), bundleRoot, staging.extractedPath, backupStamp);

    const bool applied =
        replaceBundles(windowsSwap, linuxSwap, error)
        && writeUpdateState(device.mountPoint, manifest.version, packageHash, error);
    if (applied) {
        removeDirectory(windowsSwap.backup, nullptr);
        removeDirectory(linuxSwap.backup, nullptr);
    }
    removeDirectory(staging.path, nullptr);

    if (!applied) {
        log(QStringLiteral("Falha ao aplicar atualização: %1").arg(*error));
        warn(this, *error);
        return;
    }
    progress->setValue(progress->maximum());
    log(QStringLiteral("Unidade atualizada para Tessarine %1.").arg(manifest.version));
    inform(this,
           QStringLiteral("Atualização concluída.\n\nVersão instalada: %1").arg(manifest.version));
}

} // namespace

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("TessarineConfig"));
    QCoreApplication::setApplicationVersion(QStringLiteral(TESSARINE_VERSION));
    QCoreApplication::setOrganizationName(QStringLiteral("Tessarine"));
    QApplication::setWindowIcon(QIcon(QStringLiteral(":/icons/Tessarine.ico")));

    ConfigWindow window;
    window.show();
    return QApplication::exec();
}
