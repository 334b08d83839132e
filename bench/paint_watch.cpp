// Preloaded into a program with a window: prints the clock (CLOCK_MONOTONIC, in seconds) once the
// first window has been painted and sent to the screen.

#include <QApplication>
#include <QEvent>
#include <QTimer>
#include <QWidget>

#include <cstdio>
#include <ctime>

namespace
{

class PaintWatch final : public QObject
{
protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        const auto *widget = qobject_cast<QWidget *>(watched);
        if (event->type() == QEvent::Paint && widget != nullptr && widget->isWindow()) {
            qApp->removeEventFilter(this);
            // The turn of the event loop that paints also sends the picture to the screen.
            QTimer::singleShot(0, [] { printClock(); });
        }
        return false;
    }

private:
    static void printClock()
    {
        timespec now = {};
        clock_gettime(CLOCK_MONOTONIC, &now);
        std::printf("%lld.%09ld\n", static_cast<long long>(now.tv_sec), now.tv_nsec);
        std::fflush(stdout);
    }
};

void watch()
{
    static PaintWatch instance;
    qApp->installEventFilter(&instance);
}

} // namespace

Q_COREAPP_STARTUP_FUNCTION(watch)
