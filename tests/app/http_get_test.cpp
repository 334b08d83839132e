#define main tessarineConfigMain
#include "app/TessarineConfig.cpp"
#undef main

#include "tests/support/Missing.h"
#include "tests/support/VendorServer.h"
#include "tests/support/Waiting.h"

#include <QElapsedTimer>
#include <QTest>

#include <sys/stat.h>

using TestSupport::longestWait;
using TestSupport::VendorBehaviour;
using TestSupport::VendorServer;

namespace
{

constexpr int shortLimit = 300; // milliseconds

struct Fetched {
    QByteArray body;
    QString error;
};

// Nothing came, and these words say why.
void compareNothingFetched(const Fetched &fetched, const QString &error)
{
    QCOMPARE(fetched.body, QByteArray());
    QCOMPARE(fetched.error, error);
}

Fetched fetch(const QUrl &url, int limit = longestWait)
{
    Fetched fetched;
    fetched.body = httpGet(url, limit, &fetched.error);
    return fetched;
}

// What Qt's network layer itself says of a request: the words that the user is to see.
QString networkErrorOf(const QUrl &url)
{
    QNetworkAccessManager manager;
    const std::unique_ptr<QNetworkReply> reply(manager.get(QNetworkRequest(url)));
    if (!QTest::qWaitFor([&] { return reply->isFinished(); }, longestWait))
        TestSupport::reportMissing(QStringLiteral("No answer from ") + url.toString());
    if (reply->error() == QNetworkReply::NoError)
        TestSupport::reportMissing(QStringLiteral("An error of ") + url.toString());
    return reply->errorString();
}

} // namespace

class HttpGetTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QCoreApplication::setApplicationVersion(QStringLiteral(TESSARINE_VERSION));
    }

    void bodyArrivesWholeAndTheErrorTextIsLeftAlone()
    {
        const VendorServer server;
        const QByteArray body(3000000, 'x');
        server.publish(QStringLiteral("/package.zip"), body);
        QString error = QStringLiteral("before");
        QCOMPARE(httpGet(server.url(QStringLiteral("/package.zip")), longestWait, &error), body);
        QCOMPARE(error, QStringLiteral("before"));
    }

    void headersNameTheProgramAndAcceptAnything()
    {
        const VendorServer server;
        server.publish(QStringLiteral("/a"), "x");
        fetch(server.url(QStringLiteral("/a")));
        const auto requests = server.requests();
        QCOMPARE(requests.size(), 1);
        QCOMPARE(requests.first().method, QStringLiteral("GET"));
        QCOMPARE(requests.first().header("User-Agent"),
                 QByteArray("TessarineConfig/" TESSARINE_VERSION));
        QCOMPARE(requests.first().header("Accept"), QByteArray("*/*"));
        QList<QByteArray> names;
        for (const auto &header : requests.first().headers)
            names.append(header.first);
        QVERIFY2(names.contains("user-agent")
                     && names.indexOf("user-agent") < names.indexOf("accept"),
                 names.join(' ').constData());
    }

    void eachCallOpensAConnectionOfItsOwn()
    {
        const VendorServer server;
        server.publish(QStringLiteral("/a"), "x");
        QCOMPARE(fetch(server.url(QStringLiteral("/a"))).body, QByteArray("x"));
        QCOMPARE(fetch(server.url(QStringLiteral("/a"))).body, QByteArray("x"));
        QCOMPARE(server.requests().size(), 2);
    }

    // The application's exit ends every event loop, also the one that waits for the reply.
    void exitOfTheApplicationIsNotTheEndOfTheBody()
    {
        VendorServer server;
        server.publish(QStringLiteral("/a"), QByteArray(3000000, 'x'));
        server.answer(QStringLiteral("/a"), VendorBehaviour::stallHalfWay());
        QTimer timer;
        connect(&timer, &QTimer::timeout, this, [&] {
            if (!server.requests().isEmpty())
                QCoreApplication::exit();
        });
        timer.start(10);
        QByteArray body("before");
        QString error;
        QTimer::singleShot(0, this, [&] {
            body = httpGet(server.url(QStringLiteral("/a")), longestWait, &error);
        });
        QCoreApplication::exec();
        QCOMPARE(body, QByteArray());
        QVERIFY2(!error.isEmpty(), "The fetch gave nothing, and no error either");
    }

    void redirectFromHttpsToHttpsIsFollowed()
    {
        VendorServer server;
        server.publish(QStringLiteral("/target"), "moved");
        server.answer(QStringLiteral("/a"),
                      VendorBehaviour::redirect(server.url(QStringLiteral("/target"))));
        const Fetched fetched = fetch(server.url(QStringLiteral("/a")));
        QCOMPARE(fetched.body, QByteArray("moved"));
        QCOMPARE(fetched.error, QString());
    }

    void redirectFromHttpsToHttpIsRefused()
    {
        VendorServer server;
        server.publish(QStringLiteral("/target"), "moved");
        server.answer(QStringLiteral("/a"),
                      VendorBehaviour::redirect(server.plainUrl(QStringLiteral("/target"))));
        const Fetched fetched = fetch(server.url(QStringLiteral("/a")));
        compareNothingFetched(fetched, networkErrorOf(server.url(QStringLiteral("/a"))));
        for (const auto &request : server.requests())
            QCOMPARE(request.listener, QStringLiteral("good"));
    }

    void timeOutNamesTheAddressAskedForAndNotTheRedirectsTarget()
    {
        VendorServer server;
        const QUrl url = server.url(QStringLiteral("/a"));
        server.answer(QStringLiteral("/a"),
                      VendorBehaviour::redirect(server.url(QStringLiteral("/silent"))));
        server.answer(QStringLiteral("/silent"), VendorBehaviour::silence());
        QCOMPARE(fetch(url, shortLimit).error,
                 QStringLiteral("Tempo limite excedido ao acessar: %1").arg(url.toString()));
    }

    void errorStatusReportsTheNetworkLayersWords_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("body");
        for (const int status : {403, 404, 500}) {
            QTest::addRow("%d with body", status) << status << QStringLiteral("sorry");
            QTest::addRow("%d without body", status) << status << QString();
        }
    }
    void errorStatusReportsTheNetworkLayersWords()
    {
        QFETCH(int, status);
        QFETCH(QString, body);
        VendorServer server;
        const QUrl url = server.url(QStringLiteral("/a"));
        server.answer(QStringLiteral("/a"), VendorBehaviour::status(status, body));
        const Fetched fetched = fetch(url);
        compareNothingFetched(fetched, networkErrorOf(url));
    }

    void emptyBodyLeavesTheErrorTextAlone_data()
    {
        QTest::addColumn<int>("status");
        QTest::newRow("200") << 200;
        QTest::newRow("204") << 204;
        QTest::newRow("304") << 304;
        QTest::newRow("399") << 399;
    }
    void emptyBodyLeavesTheErrorTextAlone()
    {
        QFETCH(int, status);
        VendorServer server;
        server.answer(QStringLiteral("/a"), VendorBehaviour::status(status));
        const Fetched fetched = fetch(server.url(QStringLiteral("/a")));
        compareNothingFetched(fetched, QString());
    }

    void bodyOfAnAddressWithoutAStatusIsTaken()
    {
        QTemporaryDir directory;
        QFile file(directory.filePath(QStringLiteral("a")));
        QVERIFY2(file.open(QIODevice::WriteOnly), qPrintable(file.errorString()));
        file.write("local");
        file.close();
        QCOMPARE(fetch(QUrl::fromLocalFile(file.fileName())).body, QByteArray("local"));
    }

    void fileWithoutAnEndIsNotWaitedFor_data()
    {
        QTest::addColumn<QString>("host");
        QTest::addColumn<QString>("path");
        QTest::newRow("pipe") << QString() << QString();
        QTest::newRow("pipe of localhost") << QStringLiteral("localhost") << QString();
        QTest::newRow("device") << QString() << QStringLiteral("/dev/zero");
        QTest::newRow("device of localhost")
            << QStringLiteral("localhost") << QStringLiteral("/dev/zero");
    }
    void fileWithoutAnEndIsNotWaitedFor()
    {
        QFETCH(QString, host);
        QFETCH(QString, path);
        const QTemporaryDir directory;
        const QString pipe = directory.filePath(QStringLiteral("pipe"));
        QCOMPARE(mkfifo(qPrintable(pipe), 0600), 0);
        QUrl url = QUrl::fromLocalFile(path.isEmpty() ? pipe : path);
        url.setHost(host);
        compareNothingFetched(
            fetch(url), QStringLiteral("Tempo limite excedido ao acessar: %1").arg(url.toString()));
    }

    void refusedConnectionReportsTheNetworkLayersWords()
    {
        const VendorServer server;
        const QUrl url = server.refusingUrl(QStringLiteral("/a"));
        const Fetched fetched = fetch(url);
        compareNothingFetched(fetched, networkErrorOf(url));
    }

    void addressThatIsNoneFails()
    {
        for (const char *address : {"", "nonsense", "gopher://localhost/a", "https://"}) {
            const Fetched fetched = fetch(QUrl(QString::fromLatin1(address)));
            QCOMPARE(fetched.body, QByteArray());
            QVERIFY2(!fetched.error.isEmpty(), address);
        }
    }

    void bodyThatBreaksOffGivesNothing_data()
    {
        QTest::addColumn<bool>("reset");
        QTest::newRow("reset") << true;
        QTest::newRow("closed") << false;
    }
    void bodyThatBreaksOffGivesNothing()
    {
        QFETCH(bool, reset);
        VendorServer server;
        server.publish(QStringLiteral("/a"), QByteArray(500000, 'x'));
        server.answer(QStringLiteral("/a"),
                      reset ? VendorBehaviour::resetHalfWay() : VendorBehaviour::endHalfWay());
        const Fetched fetched = fetch(server.url(QStringLiteral("/a")));
        QCOMPARE(fetched.body, QByteArray());
        QVERIFY2(!fetched.error.isEmpty(), "The fetch gave nothing, and no error either");
    }

    void limitCoversTheWholeTransfer_data()
    {
        QTest::addColumn<QString>("path");
        QTest::newRow("no answer") << QStringLiteral("/silent");
        QTest::newRow("stalled body") << QStringLiteral("/stalled");
        QTest::newRow("endless body") << QStringLiteral("/endless");
    }
    void limitCoversTheWholeTransfer()
    {
        QFETCH(QString, path);
        VendorServer server;
        server.publish(QStringLiteral("/stalled"), QByteArray(500000, 'x'));
        server.answer(QStringLiteral("/silent"), VendorBehaviour::silence());
        server.answer(QStringLiteral("/stalled"), VendorBehaviour::stallHalfWay());
        server.answer(QStringLiteral("/endless"), VendorBehaviour::endlessBody());
        const QUrl url = server.url(path);
        QElapsedTimer clock;
        clock.start();
        const Fetched fetched = fetch(url, shortLimit);
        const auto elapsed = clock.elapsed(); // Qt's timers may be early by a twentieth
        QVERIFY2(elapsed >= shortLimit * 9 / 10, qPrintable(QStringLiteral("%1 ms").arg(elapsed)));
        compareNothingFetched(
            fetched, QStringLiteral("Tempo limite excedido ao acessar: %1").arg(url.toString()));
    }

    void certificateThatCannotBeTrustedIsRefused_data()
    {
        QTest::addColumn<VendorServer::Certificate>("certificate");
        QTest::newRow("expired") << VendorServer::Certificate::Expired;
        QTest::newRow("self-signed") << VendorServer::Certificate::SelfSigned;
        QTest::newRow("of another host") << VendorServer::Certificate::WrongHost;
    }
    void certificateThatCannotBeTrustedIsRefused()
    {
        QFETCH(VendorServer::Certificate, certificate);
        const VendorServer server;
        server.publish(QStringLiteral("/a"), "secret");
        const QUrl url = server.url(QStringLiteral("/a"), certificate);
        const Fetched fetched = fetch(url);
        compareNothingFetched(fetched, networkErrorOf(url));
        QVERIFY2(server.requests().isEmpty(), "the request itself must not be sent either");
    }

    void eventsAreHandledWhileItWaits()
    {
        VendorServer server;
        server.publish(QStringLiteral("/a"), QByteArray(100000, 'x'));
        server.answer(QStringLiteral("/a"),
                      VendorBehaviour::gateHalfWay(QStringLiteral("second half")));
        int events = 0;
        QTimer timer;
        connect(&timer, &QTimer::timeout, this, [&] {
            if (++events == 10)
                server.openGate(QStringLiteral("second half"));
        });
        timer.start(0);
        QCOMPARE(fetch(server.url(QStringLiteral("/a"))).body.size(), 100000);
        QVERIFY2(events >= 10, qPrintable(QStringLiteral("%1 events").arg(events)));
    }
};

QTEST_GUILESS_MAIN(HttpGetTest)

#include "http_get_test.moc"
