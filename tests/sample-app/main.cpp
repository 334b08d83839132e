// Stands in for the portable main application wherever a drive needs one that really runs: it opens
// a window that says what it is and where it was started from, and brings up TLS.
#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QSslSocket>
#include <QTextStream>
#include <QTimer>
#include <QVBoxLayout>

namespace
{

QString tlsDescription()
{
    return QSslSocket::supportsSsl()
               ? QStringLiteral("HTTPS disponível: %1").arg(QSslSocket::sslLibraryVersionString())
               : QStringLiteral("HTTPS indisponível");
}

// The line that a waiting script reads: the window is on the screen.
void announceReadiness()
{
    QTextStream(stdout) << "ready " << SAMPLE_VERSION << Qt::endl;
}

} // namespace

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    QWidget window;
    window.setWindowTitle(QStringLiteral("Tessarine"));
    auto *title = new QLabel(QStringLiteral("Aplicativo de exemplo"));
    QFont titleFont = title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 2);
    title->setFont(titleFont);
    auto *layout = new QVBoxLayout(&window);
    layout->setContentsMargins(32, 32, 32, 32);
    layout->setSpacing(12);
    layout->addWidget(title);
    layout->addWidget(new QLabel(QStringLiteral("Versão %1").arg(QStringLiteral(SAMPLE_VERSION))));
    layout->addWidget(new QLabel(tlsDescription()));
    layout->addWidget(
        new QLabel(QStringLiteral("Iniciado de: %1").arg(QCoreApplication::applicationDirPath())));
    auto *close = new QPushButton(QStringLiteral("Fechar"));
    QObject::connect(close, &QPushButton::clicked, &window, &QWidget::close);
    layout->addWidget(close, 0, Qt::AlignRight);
    window.show();
    QTimer::singleShot(0, announceReadiness);
    return QApplication::exec();
}
