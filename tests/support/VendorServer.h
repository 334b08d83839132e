#pragma once

#include <QJsonObject>
#include <QList>
#include <QPair>
#include <QProcess>
#include <QSslConfiguration>
#include <QTemporaryDir>
#include <QUrl>

namespace TestSupport
{

// One request as the server read it. Headers stand in the order and with the capitals that the
// client sent.
struct VendorRequest {
    QString listener; // "good", "expired", "self-signed", "wrong-host" or "plain"
    QString method;
    QString path;                                 // with the query
    QList<QPair<QByteArray, QByteArray>> headers; // names in lower case

    // The value of the first header of that name in any case (RFC 9110, 5.1), null if there is
    // none.
    QByteArray header(const QByteArray &name) const;
};

// How the server answers a path, other than with the file that was published there. The ones that
// stop half-way do so after half of that file.
class VendorBehaviour
{
public:
    static VendorBehaviour status(int code, const QString &body = QString());
    static VendorBehaviour redirect(const QUrl &target, int code = 302);
    // No answer at all, until the client goes away.
    static VendorBehaviour silence();
    // A body that goes on until the client goes away, about 6 MB a second.
    static VendorBehaviour endlessBody();
    // Half the file, then a TCP reset.
    static VendorBehaviour resetHalfWay();
    // Half the file, then the end of the connection.
    static VendorBehaviour endHalfWay();
    // Half the file, then nothing, until the client goes away.
    static VendorBehaviour stallHalfWay();
    // Half the file, and the rest once VendorServer::openGate was called with that name.
    static VendorBehaviour gateHalfWay(const QString &gate);
    // The file in that many pieces, with a pause in milliseconds after each.
    static VendorBehaviour drip(int pieces, int pause);
    // So many zeros, as fast as they are taken, whose length isn't told before.
    static VendorBehaviour bodyOfUntoldLength(qint64 size);
    // So many zeros as Content-Encoding: gzip, which makes a thousandth of them.
    static VendorBehaviour compressedZeros(qint64 size);

    QJsonObject toJson() const { return json; }

private:
    explicit VendorBehaviour(const QJsonObject &object)
        : json(object)
    {
    }

    QJsonObject json;
};

// The vendor's download server on loopback, with certificates of an authority that is made for
// this object. While the object lives, that authority is the only one that Qt's TLS connections of
// this process trust by default.
//
// A test that can't have its server fails with a message.
class VendorServer
{
public:
    enum class Certificate { Good, Expired, SelfSigned, WrongHost };

    // The good certificate's port; a free one when none is given.
    explicit VendorServer(quint16 port = 0);
    ~VendorServer();
    VendorServer(const VendorServer &) = delete;
    VendorServer &operator=(const VendorServer &) = delete;

    // Addresses of a path, which begins with a slash.
    QUrl url(const QString &path, Certificate certificate = Certificate::Good) const;
    QUrl plainUrl(const QString &path) const;
    // Nothing listens there: a connection is refused.
    QUrl refusingUrl(const QString &path) const;

    // Puts a file at a path, or another one in its place.
    void publish(const QString &path, const QByteArray &content) const;
    // The directory that is served, for what publish() doesn't do.
    QString rootDirectory() const { return directory.filePath(QStringLiteral("root")); }

    // How the next requests for a path are answered, until answerWithFile().
    void answer(const QString &path, const VendorBehaviour &behaviour);
    void answerWithFile(const QString &path);
    void openGate(const QString &name) const;

    // All requests so far, in the order of their arrival.
    QList<VendorRequest> requests() const;

    // The authority's certificate, and a directory that holds it as /etc/ssl/certs would.
    QString caFile() const;
    QString trustedCertificatesDirectory() const;

private:
    QString controlFile(const QString &name) const;
    void writeBehaviours() const;
    void makeCertificates() const;
    void start(quint16 port);
    void trustAuthority() const;
    QUrl address(const QString &scheme, const QString &listener, const QString &path) const;

    QTemporaryDir directory;
    QSslConfiguration formerConfiguration;
    QProcess process;
    QJsonObject ports;
    QJsonObject behaviours;
};

} // namespace TestSupport
