#include "tests/support/VendorServer.h"

#include "tests/support/Missing.h"
#include "tests/support/Waiting.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSaveFile>
#include <QSslCertificate>

namespace TestSupport
{

namespace
{

QString supportProgram(const QString &name)
{
    return QDir(QStringLiteral(TESSARINE_TEST_SUPPORT_DIR)).filePath(name);
}

QString listenerName(VendorServer::Certificate certificate)
{
    switch (certificate) {
    case VendorServer::Certificate::Good:
        return QStringLiteral("good");
    case VendorServer::Certificate::Expired:
        return QStringLiteral("expired");
    case VendorServer::Certificate::SelfSigned:
        return QStringLiteral("self-signed");
    case VendorServer::Certificate::WrongHost:
        return QStringLiteral("wrong-host");
    }
    Q_UNREACHABLE();
}

void writeFile(const QString &path, const QByteArray &content)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size() || !file.flush()
        || !file.commit()) {
        reportMissing(path + QStringLiteral(": ") + file.errorString());
    }
}

VendorRequest parsedRequest(const QByteArray &line)
{
    const QJsonObject json = QJsonDocument::fromJson(line).object();
    VendorRequest request{json.value(QStringLiteral("listener")).toString(),
                          json.value(QStringLiteral("method")).toString(),
                          json.value(QStringLiteral("path")).toString(),
                          {}};
    const QJsonArray headers = json.value(QStringLiteral("headers")).toArray();
    for (const auto &header : headers) {
        request.headers.append(
            {header[0].toString().toLatin1().toLower(), header[1].toString().toLatin1()});
    }
    return request;
}

} // namespace

QByteArray VendorRequest::header(const QByteArray &name) const
{
    for (const auto &[key, value] : headers) {
        if (key == name.toLower())
            return value;
    }
    return {};
}

VendorBehaviour VendorBehaviour::status(int code, const QString &body)
{
    return VendorBehaviour({{QStringLiteral("kind"), QStringLiteral("status")},
                            {QStringLiteral("code"), code},
                            {QStringLiteral("body"), body}});
}

VendorBehaviour VendorBehaviour::redirect(const QUrl &target, int code)
{
    return VendorBehaviour({{QStringLiteral("kind"), QStringLiteral("redirect")},
                            {QStringLiteral("to"), target.toString(QUrl::FullyEncoded)},
                            {QStringLiteral("code"), code}});
}

VendorBehaviour VendorBehaviour::silence()
{
    return VendorBehaviour({{QStringLiteral("kind"), QStringLiteral("silence")}});
}

VendorBehaviour VendorBehaviour::endlessBody()
{
    return VendorBehaviour({{QStringLiteral("kind"), QStringLiteral("endless")}});
}

VendorBehaviour VendorBehaviour::resetHalfWay()
{
    return VendorBehaviour({{QStringLiteral("kind"), QStringLiteral("reset")}});
}

VendorBehaviour VendorBehaviour::endHalfWay()
{
    return VendorBehaviour({{QStringLiteral("kind"), QStringLiteral("cut")}});
}

VendorBehaviour VendorBehaviour::stallHalfWay()
{
    return VendorBehaviour({{QStringLiteral("kind"), QStringLiteral("stall")}});
}

VendorBehaviour VendorBehaviour::gateHalfWay(const QString &gate)
{
    return VendorBehaviour(
        {{QStringLiteral("kind"), QStringLiteral("gate")}, {QStringLiteral("name"), gate}});
}

VendorBehaviour VendorBehaviour::drip(int pieces, int pause)
{
    return VendorBehaviour({{QStringLiteral("kind"), QStringLiteral("drip")},
                            {QStringLiteral("pieces"), pieces},
                            {QStringLiteral("pause"), pause}});
}

VendorBehaviour VendorBehaviour::bodyOfUntoldLength(qint64 size)
{
    return VendorBehaviour(
        {{QStringLiteral("kind"), QStringLiteral("chunked")}, {QStringLiteral("size"), size}});
}

VendorBehaviour VendorBehaviour::compressedZeros(qint64 size)
{
    return VendorBehaviour(
        {{QStringLiteral("kind"), QStringLiteral("gzip")}, {QStringLiteral("size"), size}});
}

VendorServer::VendorServer(quint16 port)
    : formerConfiguration(QSslConfiguration::defaultConfiguration())
{
    makeCertificates();
    start(port);
    trustAuthority();
}

VendorServer::~VendorServer()
{
    QSslConfiguration::setDefaultConfiguration(formerConfiguration);
    process.closeWriteChannel();
    if (!process.waitForFinished(longestWait)) {
        process.kill();
        process.waitForFinished(longestWait);
    }
}

QUrl VendorServer::url(const QString &path, Certificate certificate) const
{
    return address(QStringLiteral("https"), listenerName(certificate), path);
}

QUrl VendorServer::plainUrl(const QString &path) const
{
    return address(QStringLiteral("http"), QStringLiteral("plain"), path);
}

QUrl VendorServer::refusingUrl(const QString &path) const
{
    return address(QStringLiteral("https"), QStringLiteral("refusing"), path);
}

void VendorServer::publish(const QString &path, const QByteArray &content) const
{
    const QString file = rootDirectory() + path;
    QDir().mkpath(QFileInfo(file).path());
    writeFile(file, content);
}

void VendorServer::answer(const QString &path, const VendorBehaviour &behaviour)
{
    behaviours.insert(path, behaviour.toJson());
    writeBehaviours();
}

void VendorServer::answerWithFile(const QString &path)
{
    behaviours.remove(path);
    writeBehaviours();
}

void VendorServer::openGate(const QString &name) const
{
    writeFile(controlFile(QStringLiteral("gates/") + name), {});
}

QList<VendorRequest> VendorServer::requests() const
{
    QFile log(controlFile(QStringLiteral("requests.jsonl")));
    if (!log.open(QIODevice::ReadOnly))
        reportMissing(log.fileName() + QStringLiteral(": ") + log.errorString());

    QList<VendorRequest> requests;
    while (!log.atEnd())
        requests.append(parsedRequest(log.readLine()));
    return requests;
}

QString VendorServer::caFile() const
{
    return directory.filePath(QStringLiteral("certificates/ca.pem"));
}

QString VendorServer::trustedCertificatesDirectory() const
{
    return directory.filePath(QStringLiteral("certificates/trusted"));
}

QString VendorServer::controlFile(const QString &name) const
{
    return directory.filePath(QStringLiteral("control/") + name);
}

void VendorServer::writeBehaviours() const
{
    writeFile(controlFile(QStringLiteral("behaviours.json")), QJsonDocument(behaviours).toJson());
}

void VendorServer::makeCertificates() const
{
    QProcess maker;
    maker.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    maker.start(supportProgram(QStringLiteral("make-test-ca")),
                {directory.filePath(QStringLiteral("certificates"))});
    if (!maker.waitForFinished(longestWait) || maker.exitStatus() != QProcess::NormalExit
        || maker.exitCode() != 0) {
        reportMissing(QStringLiteral("make-test-ca made no certificates"));
    }
}

void VendorServer::start(quint16 port)
{
    QDir().mkpath(rootDirectory());
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(supportProgram(QStringLiteral("vendor-server")),
                  {QStringLiteral("--root"), rootDirectory(), QStringLiteral("--certificates"),
                   directory.filePath(QStringLiteral("certificates")), QStringLiteral("--control"),
                   directory.filePath(QStringLiteral("control")), QStringLiteral("--port"),
                   QString::number(port), QStringLiteral("--stop-at-eof")});
    while (!process.canReadLine()) {
        if (!process.waitForReadyRead(longestWait))
            return reportMissing(QStringLiteral("vendor-server didn't start"));
    }
    ports = QJsonDocument::fromJson(process.readLine()).object();
}

void VendorServer::trustAuthority() const
{
    QSslConfiguration configuration = formerConfiguration;
    configuration.setCaCertificates(QSslCertificate::fromPath(caFile()));
    QSslConfiguration::setDefaultConfiguration(configuration);
}

QUrl VendorServer::address(const QString &scheme, const QString &listener,
                           const QString &path) const
{
    return QUrl(QStringLiteral("%1://127.0.0.1:%2%3")
                    .arg(scheme, QString::number(ports.value(listener).toInt()), path));
}

} // namespace TestSupport
