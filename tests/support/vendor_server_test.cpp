#include "tests/support/Missing.h"
#include "tests/support/TestMain.h"
#include "tests/support/VendorServer.h"
#include "tests/support/Waiting.h"

#include <QDir>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTest>

#include <memory>
#include <optional>

using TestSupport::longestWait;
using TestSupport::VendorBehaviour;
using TestSupport::VendorRequest;
using TestSupport::VendorServer;

namespace
{

struct Answer {
    QNetworkReply::NetworkError error;
    int status;
    QByteArray body;
};

class Client
{
public:
    // A server may get the port of a former one, and Qt would use that one's connection, with the
    // authority that it trusted.
    std::unique_ptr<QNetworkReply> request(const QUrl &url)
    {
        manager.clearConnectionCache();
        QNetworkRequest request(url);
        request.setRawHeader("User-Agent", "VendorServerTest/1");
        request.setRawHeader("Accept", "*/*");
        return std::unique_ptr<QNetworkReply>(manager.get(request));
    }

    Answer fetch(const QUrl &url)
    {
        const auto reply = request(url);
        if (!QTest::qWaitFor([&] { return reply->isFinished(); }, longestWait))
            TestSupport::reportMissing(QStringLiteral("No answer from ") + url.toString());
        return {reply->error(), reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(),
                reply->readAll()};
    }

private:
    QNetworkAccessManager manager;
};

// Those of this process that the kernel still knows.
qsizetype threads()
{
    return QDir(QStringLiteral("/proc/self/task"))
        .entryList(QDir::Dirs | QDir::NoDotAndDotDot)
        .size();
}

} // namespace

class VendorServerTest : public QObject
{
    Q_OBJECT

    std::optional<Client> client;
    qsizetype threadsBefore = 0;

private Q_SLOTS:
    void initTestCase()
    {
        threadsBefore = threads();
        client.emplace();
    }

    // Qt doesn't wait for the last steps of its network thread, in which OpenSSL frees what it has
    // kept for it: a program that ends before them leaks that.
    void cleanupTestCase()
    {
        client.reset();
        QTRY_VERIFY_WITH_TIMEOUT(threads() <= threadsBefore, longestWait);
    }

    void servesAPublishedFile()
    {
        const VendorServer server;
        server.publish("/a/b.txt", "content");

        const Answer answer = client->fetch(server.url("/a/b.txt"));
        QCOMPARE(answer.error, QNetworkReply::NoError);
        QCOMPARE(answer.status, 200);
        QCOMPARE(answer.body, QByteArray("content"));
        QCOMPARE(client->fetch(server.plainUrl("/a/b.txt")).body, QByteArray("content"));
    }

    void answersWithoutAFileAre404()
    {
        const VendorServer server;
        QCOMPARE(client->fetch(server.url("/absent")).error, QNetworkReply::ContentNotFoundError);
    }

    void recordsRequestsWithTheirHeadersInOrder()
    {
        const VendorServer server;
        client->fetch(server.url("/first?x=1"));
        client->fetch(server.plainUrl("/second"));

        const auto requests = server.requests();
        QCOMPARE(requests.size(), 2);
        QCOMPARE(requests[0].listener, QString("good"));
        QCOMPARE(requests[0].method, QString("GET"));
        QCOMPARE(requests[0].path, QString("/first?x=1"));
        QCOMPARE(requests[0].header("Accept"), QByteArray("*/*"));
        QVERIFY(requests[0].header("X-Absent").isNull());
        QCOMPARE(requests[1].listener, QString("plain"));

        QByteArrayList names;
        for (const auto &[name, value] : requests[0].headers)
            names.append(name);
        QVERIFY2(names.contains("user-agent")
                     && names.indexOf("user-agent") < names.indexOf("accept"),
                 names.join(' ').constData());
    }

    void findsHeadersInAnyCase()
    {
        const VendorServer server;
        client->fetch(server.url("/file"));
        const VendorRequest request = server.requests().first();
        QCOMPARE(request.header("ACCEPT"), QByteArray("*/*"));
        QCOMPARE(request.header("accept"), QByteArray("*/*"));
    }

    void certificatesFailForTheReasonOfTheirName_data()
    {
        QTest::addColumn<VendorServer::Certificate>("certificate");
        QTest::addColumn<QSslError::SslError>("error");
        QTest::newRow("expired") << VendorServer::Certificate::Expired
                                 << QSslError::CertificateExpired;
        QTest::newRow("self-signed")
            << VendorServer::Certificate::SelfSigned << QSslError::SelfSignedCertificate;
        QTest::newRow("wrong host")
            << VendorServer::Certificate::WrongHost << QSslError::HostNameMismatch;
    }

    void certificatesFailForTheReasonOfTheirName()
    {
        QFETCH(VendorServer::Certificate, certificate);
        QFETCH(QSslError::SslError, error);
        const VendorServer server;
        server.publish("/file", "content");

        const auto reply = client->request(server.url("/file", certificate));
        QList<QSslError::SslError> errors;
        connect(reply.get(), &QNetworkReply::sslErrors, this, [&](const QList<QSslError> &found) {
            for (const QSslError &one : found)
                errors.append(one.error());
        });
        QTRY_VERIFY_WITH_TIMEOUT(reply->isFinished(), longestWait);
        QCOMPARE(errors, QList{error});
        QCOMPARE(reply->error(), QNetworkReply::SslHandshakeFailedError);
        QCOMPARE(server.requests().size(), 0);
    }

    void trustEndsWithTheServer()
    {
        const auto before = QSslConfiguration::defaultConfiguration();
        {
            const VendorServer server;
            QCOMPARE(QSslConfiguration::defaultConfiguration().caCertificates().size(), 1);
        }
        QCOMPARE(QSslConfiguration::defaultConfiguration(), before);
    }

    void aServerAtTheAddressOfAFormerOneIsTrusted()
    {
        auto former = std::make_unique<VendorServer>();
        const QUrl url = former->url("/absent");
        QCOMPARE(client->fetch(url).error, QNetworkReply::ContentNotFoundError);
        former.reset();

        const VendorServer server(static_cast<quint16>(url.port()));
        QCOMPARE(client->fetch(url).error, QNetworkReply::ContentNotFoundError);
    }

    void nothingListensAtTheRefusingAddress()
    {
        const VendorServer server;
        QCOMPARE(client->fetch(server.refusingUrl("/file")).error,
                 QNetworkReply::ConnectionRefusedError);
    }

    void statusesComeWithAndWithoutABody()
    {
        VendorServer server;
        server.answer("/with", VendorBehaviour::status(403, "go away"));
        server.answer("/without", VendorBehaviour::status(500));
        server.answer("/nothing", VendorBehaviour::status(204));

        const Answer with = client->fetch(server.url("/with"));
        QCOMPARE(with.status, 403);
        QCOMPARE(with.body, QByteArray("go away"));
        const Answer without = client->fetch(server.url("/without"));
        QCOMPARE(without.status, 500);
        QCOMPARE(without.body, QByteArray());
        const Answer nothing = client->fetch(server.url("/nothing"));
        QCOMPARE(nothing.status, 204);
        QCOMPARE(nothing.error, QNetworkReply::NoError);
    }

    void redirectsLeadAnywhere()
    {
        VendorServer server;
        server.publish("/target", "content");
        server.answer("/safe", VendorBehaviour::redirect(server.url("/target")));
        server.answer("/unsafe", VendorBehaviour::redirect(server.plainUrl("/target"), 301));

        QCOMPARE(client->fetch(server.url("/safe")).body, QByteArray("content"));
        QCOMPARE(client->fetch(server.url("/unsafe")).error, QNetworkReply::InsecureRedirectError);
    }

    void aBehaviourEndsWhenTheFileIsToBeServedAgain()
    {
        VendorServer server;
        server.publish("/file", "content");
        server.answer("/file", VendorBehaviour::status(500));
        QCOMPARE(client->fetch(server.url("/file")).status, 500);
        server.answerWithFile("/file");
        QCOMPARE(client->fetch(server.url("/file")).body, QByteArray("content"));
    }

    void transfersBreakHalfWay()
    {
        VendorServer server;
        server.publish("/file", "content!");
        server.answer("/file", VendorBehaviour::resetHalfWay());
        QCOMPARE(client->fetch(server.url("/file")).error, QNetworkReply::RemoteHostClosedError);
        server.answer("/file", VendorBehaviour::endHalfWay());
        QCOMPARE(client->fetch(server.url("/file")).error, QNetworkReply::RemoteHostClosedError);
    }

    void aSilentServerNeverAnswers()
    {
        VendorServer server;
        server.answer("/file", VendorBehaviour::silence());
        const auto reply = client->request(server.url("/file"));
        QTRY_COMPARE_WITH_TIMEOUT(server.requests().size(), 1, longestWait);
        QVERIFY(!reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).isValid());
        reply->abort();
    }

    void aStalledTransferStopsHalfWay()
    {
        VendorServer server;
        server.publish("/file", "content!");
        server.answer("/file", VendorBehaviour::stallHalfWay());
        const auto reply = client->request(server.url("/file"));
        QTRY_COMPARE_WITH_TIMEOUT(reply->bytesAvailable(), 4, longestWait);
        QVERIFY(!reply->isFinished());
        reply->abort();
    }

    void aGatedTransferGoesOnWhenItsGateOpens()
    {
        VendorServer server;
        server.publish("/file", "content!");
        server.answer("/file", VendorBehaviour::gateHalfWay("first"));
        const auto reply = client->request(server.url("/file"));
        QTRY_COMPARE_WITH_TIMEOUT(reply->bytesAvailable(), 4, longestWait);
        server.openGate("first");
        QTRY_VERIFY_WITH_TIMEOUT(reply->isFinished(), longestWait);
        QCOMPARE(reply->readAll(), QByteArray("content!"));
    }

    void aDrippingTransferArrivesWhole()
    {
        VendorServer server;
        server.publish("/file", "content!");
        server.answer("/file", VendorBehaviour::drip(3, 1));
        QCOMPARE(client->fetch(server.url("/file")).body, QByteArray("content!"));
    }

    void anEndlessBodyGrowsUntilTheClientGoes()
    {
        VendorServer server;
        server.answer("/file", VendorBehaviour::endlessBody());
        const auto reply = client->request(server.url("/file"));
        QTRY_VERIFY_WITH_TIMEOUT(reply->bytesAvailable() > 1'000'000, longestWait);
        QVERIFY(!reply->isFinished());
        reply->abort();
    }
};

int main(int argc, char *argv[])
{
    TestSupport::enterPrivateNetwork();
    QCoreApplication application(argc, argv);
    VendorServerTest suite;
    return QTest::qExec(&suite, argc, argv);
}

#include "vendor_server_test.moc"
