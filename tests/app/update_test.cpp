#include "tests/app/UpdateSituation.h"
#include "tests/support/LiveMemory.h"
#include "tests/support/OwnClock.h"

namespace
{

// The dialog over a running command, while there is one.
QProgressDialog *progressDialog()
{
    const QWidgetList widgets = QApplication::topLevelWidgets();
    for (QWidget *widget : widgets) {
        if (auto *dialog = qobject_cast<QProgressDialog *>(widget))
            return dialog;
    }
    return nullptr;
}

// Notes what the dialog of a command shows, and counts how often the window behind it is painted.
class Onlooker : public QObject
{
public:
    Onlooker() { qApp->installEventFilter(this); }

    QMap<int, QString> labels; // of each value, the one that it began with
    int windowPaints = 0;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() != QEvent::Paint)
            return false;
        const QProgressDialog *dialog = progressDialog();
        if (dialog == nullptr)
            return false;
        if (!labels.contains(dialog->value()))
            labels.insert(dialog->value(), dialog->labelText());
        if (dynamic_cast<BackgroundWidget *>(watched) != nullptr)
            ++windowPaints;
        return false;
    }
};

} // namespace

// An update that succeeds, and what its user sees meanwhile.
class UpdateTest : public UpdateSituation
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { openServer(); }
    void cleanupTestCase() { server.reset(); }
    void init() { begin(); }
    void cleanup() { end(); }

    // ---- success

    void bothBundlesAreReplacedAndNothingElse()
    {
        agreeToUpdate();
        QStringList expected;
        for (const QString &name : requiredNames)
            expected << QStringLiteral("Tessarine/") + name + QStringLiteral(": 1.1.0");
        expected << QStringLiteral("Tessarine/README.txt: text")
                 << QStringLiteral("Tessarine-Linux.sh: launcher")
                 << QStringLiteral("documento.txt: precious");
        QStringList found = drive->tree().filter(QRegularExpression(QStringLiteral("[^/]$")));
        found.removeIf([](const QString &line) { return line.contains(u"update-state"); });
        expected.sort();
        QCOMPARE(found, expected);
        QCOMPARE(bundleNames(),
                 QStringList({"README.txt", "linux", "update-state.json", "windows"}));
    }

    void successIsReportedInTheLogAndThenInABox()
    {
        user->willPress(QStringLiteral("Sim"));
        QStringList seen;
        whenBoxShows([&] { seen = newLogLines(); });
        update();
        QCOMPARE(seen, QStringList{QStringLiteral("Unidade atualizada para Tessarine 1.1.0.")});
        QCOMPARE(newLogLines(), seen);
        QCOMPARE(user->boxes.size(), 2);
        compareInformation(QStringLiteral("Atualização concluída.\n\nVersão instalada: 1.1.0"));
    }

    void stateNamesTheNewVersionAndThePackage()
    {
        agreeToUpdate();
        QCOMPARE(state().value(QStringLiteral("installedVersion")).toString(),
                 QStringLiteral("1.1.0"));
        QCOMPARE(state().value(QStringLiteral("lastPackageSha256")),
                 manifest.value(QStringLiteral("sha256")));
    }

    void executeBitsOfThePackageReachTheDrive()
    {
        agreeToUpdate();
        QVERIFY(QFileInfo(drive->path(QStringLiteral("Tessarine/linux/Tessarine"))).isExecutable());
    }

    void driveWithoutBundleDirectoriesGetsThem()
    {
        QDir(drive->path(QStringLiteral("Tessarine/windows"))).removeRecursively();
        QDir(drive->path(QStringLiteral("Tessarine/linux"))).removeRecursively();
        agreeToUpdate();
        QCOMPARE(read(QStringLiteral("linux/Tessarine")), QByteArray("1.1.0"));
        QCOMPARE(read(QStringLiteral("windows/Tessarine.exe")), QByteArray("1.1.0"));
    }

    void secondUpdateRightAwayFindsNothingToDo()
    {
        agreeToUpdate();
        update();
        compareInformation(QStringLiteral("A unidade já está atualizada.\n\n"
                                          "Versão instalada: 1.1.0\nVersão disponível: 1.1.0"));
    }

    void leftoversOfEarlierRunsStay()
    {
        drive->write(QStringLiteral("Tessarine/.update-20200101000000/package.zip"), "x");
        drive->write(QStringLiteral("Tessarine/windows.backup-20200101000000/a"), "x");
        agreeToUpdate();
        QVERIFY(drive->exists(QStringLiteral("Tessarine/.update-20200101000000/package.zip")));
        QVERIFY(drive->exists(QStringLiteral("Tessarine/windows.backup-20200101000000/a")));
    }

    void packageCannotChangeAnythingBesideTheBundles()
    {
        const QStringList before = drive->tree();
        ZipFile zip = completePackage(QStringLiteral("1.1.0"));
        zip.file(QStringLiteral("documento.txt"), QStringLiteral("evil"))
            .file(QStringLiteral("Tessarine/README.txt"), QStringLiteral("evil"))
            .file(QStringLiteral("Tessarine/update-state.json"), QStringLiteral("evil"))
            .file(QStringLiteral("../../../documento.txt"), QStringLiteral("evil"))
            .link(QStringLiteral("link"), drive->path());
        publish(zip.bytes());
        agreeToUpdate();
        QCOMPARE(drive->read(QStringLiteral("documento.txt")), QByteArray("precious"));
        QCOMPARE(read(QStringLiteral("README.txt")), QByteArray("text"));
        QCOMPARE(bundleNames(),
                 QStringList({"README.txt", "linux", "update-state.json", "windows"}));
    }

    // ---- the dialog

    void dialogGoesThroughItsStages()
    {
        const Onlooker onlooker;
        agreeToUpdate();
        const QString query = QStringLiteral("Consultando manifesto de atualização...");
        QCOMPARE(onlooker.labels,
                 (QMap<int, QString>{{-1, query},
                                     {1, query},
                                     {2, QStringLiteral("Baixando pacote de atualização...")},
                                     {3, QStringLiteral("Validando hash SHA-256...")},
                                     {4, QStringLiteral("Extraindo pacote...")},
                                     {5, QStringLiteral("Substituindo bundles...")},
                                     {6, QStringLiteral("Substituindo bundles...")}}));
    }

    void dialogIsModalAndHasNoCancelButton()
    {
        bool looked = false;
        user->willAnswer([&](QMessageBox *box) {
            const QProgressDialog *dialog = progressDialog();
            QVERIFY2(dialog != nullptr && dialog->isVisible(), "There is no dialog");
            QCOMPARE(dialog->windowModality(), Qt::ApplicationModal);
            QCOMPARE(dialog->minimum(), 0);
            QCOMPARE(dialog->maximum(), 6);
            QCOMPARE(dialog->minimumDuration(), 0);
            QCOMPARE(dialog->parentWidget(), window.get());
            QCOMPARE(dialog->findChildren<QPushButton *>().size(), 0);
            looked = true;
            box->close();
        });
        update();
        QVERIFY2(looked, "No question came up, or the dialog was another one");
        QVERIFY2(progressDialog() == nullptr, "The dialog outlives the update");
    }

    void dialogCannotBeDismissedDuringAFetch_data()
    {
        QTest::addColumn<QString>("path");
        QTest::newRow("manifest") << manifestPath;
        QTest::newRow("package") << packagePath;
    }
    void dialogCannotBeDismissedDuringAFetch()
    {
        QFETCH(QString, path);
        const QString gate = QStringLiteral("dismiss ") + QString::number(path.size());
        server->answer(path, VendorBehaviour::gateHalfWay(gate));
        const qsizetype requestsBefore = server->requests().size();
        int checks = 0;
        QTimer timer;
        connect(&timer, &QTimer::timeout, this, [&] {
            QProgressDialog *dialog = progressDialog();
            const auto requests = server->requests();
            if (dialog == nullptr || requests.size() == requestsBefore
                || requests.last().path != path)
                return;
            timer.stop();
            QTest::keyClick(dialog, Qt::Key_Escape);
            checks += dialog->isVisible() ? 1 : 0;
            dialog->close();
            checks += dialog->isVisible() ? 1 : 0;
            QCloseEvent closeFromOutside;
            QApplication::sendEvent(dialog, &closeFromOutside);
            checks += dialog->isVisible() ? 1 : 0;
            server->openGate(gate);
        });
        timer.start(10);
        agreeToUpdate();
        QCOMPARE(checks, 3);
        QCOMPARE(read(QStringLiteral("linux/Tessarine")), QByteArray("1.1.0"));
    }

    void eachFetchHasATimeLimitOfItsOwn_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<int>("limit");
        QTest::newRow("manifest") << manifestPath << 30;
        QTest::newRow("package") << packagePath << 600;
    }
    void eachFetchHasATimeLimitOfItsOwn()
    {
        QFETCH(QString, path);
        QFETCH(int, limit);
        const QString gate = QStringLiteral("limit ") + QString::number(limit);
        server->answer(path, VendorBehaviour::gateHalfWay(gate));
        // The gate ends a fetch that knows no limit.
        QList<std::function<void()>> events{[&] { TestSupport::advanceClock(limit - 10); },
                                            [&] { TestSupport::advanceClock(20); },
                                            [&] { server->openGate(gate); }};
        const auto timer = whileFetching(path, &events);
        agreeToUpdate();
        QCOMPARE(events.size(), 1);
        const QUrl url = path == manifestPath ? manifestUrl() : server->url(path);
        compareWarning(QStringLiteral("Tempo limite excedido ao acessar: ") + url.toString());
    }

    void nothingElseStartsDuringAFetch()
    {
        const QString gate = QStringLiteral("nothing else");
        server->answer(manifestPath, VendorBehaviour::gateHalfWay(gate));
        const qsizetype requestsBefore = server->requests().size();
        QStringList logDuring;
        QTimer timer;
        connect(&timer, &QTimer::timeout, this, [&] {
            if (progressDialog() == nullptr || server->requests().size() == requestsBefore)
                return;
            timer.stop();
            for (QPushButton *button :
                 {window->refreshButton, window->prepareButton, window->updateButton}) {
                const QPoint place = button->mapTo(window.get(), button->rect().center());
                QTest::mouseClick(window->windowHandle(), Qt::LeftButton, {}, place);
                button->click();
            }
            for (QAction *action : {window->refreshAction, window->prepareAction,
                                    window->updateAction, window->aboutAction})
                action->trigger();
            logDuring = newLogLines();
            server->openGate(gate);
        });
        timer.start(10);
        updateAnswering(QStringLiteral("Não"));
        QCOMPARE(logDuring, QStringList());
        QCOMPARE(server->requests().size(), requestsBefore + 1);
        QCOMPARE(user->boxes.size(), 1);
    }

    void windowRepaintsDuringBothFetches_data() { dialogCannotBeDismissedDuringAFetch_data(); }
    void windowRepaintsDuringBothFetches()
    {
        QFETCH(QString, path);
        const QString gate = QStringLiteral("repaint ") + QString::number(path.size());
        server->answer(path, VendorBehaviour::gateHalfWay(gate));
        const qsizetype requestsBefore = server->requests().size();
        Onlooker onlooker;
        QTimer timer;
        int before = -1;
        connect(&timer, &QTimer::timeout, this, [&] {
            const auto requests = server->requests();
            if (requests.size() == requestsBefore || requests.last().path != path)
                return;
            if (before < 0)
                before = onlooker.windowPaints;
            window->centralWidget()->update();
            if (onlooker.windowPaints > before + 3)
                server->openGate(gate);
        });
        timer.start(10);
        agreeToUpdate();
        QVERIFY2(before >= 0, "Nothing was asked of the server");
        QVERIFY2(onlooker.windowPaints > before + 3,
                 qPrintable(QString::number(onlooker.windowPaints - before)));
        QCOMPARE(read(QStringLiteral("linux/Tessarine")), QByteArray("1.1.0"));
    }

    void aPackageIsHeldOnceInMemory()
    {
        constexpr qint64 size = 15 << 20; // QByteArray makes 16 MiB of it
        publish(completePackage(QStringLiteral("1.1.0"))
                    .noise(QStringLiteral("Tessarine/linux/lib/large"), size)
                    .bytes());
        const TestSupport::LiveMemoryWatch memory;
        agreeToUpdate();
        const qint64 growth = memory.growth();
        QVERIFY2(growth > size && growth < size * 5 / 4, qPrintable(QString::number(growth)));
        QCOMPARE(read(QStringLiteral("linux/Tessarine")), QByteArray("1.1.0"));
    }

    void listIsNotRefreshedAtTheEnd()
    {
        window->deviceManager = std::make_unique<FakeDeviceManager>(QList<UsbDevice>());
        agreeToUpdate();
        QCOMPARE(window->deviceCombo->count(), 1);
    }
};

TESSARINE_UPDATE_TEST_MAIN(UpdateTest)
#include "update_test.moc"
