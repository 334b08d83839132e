#pragma once

#include <QApplication>
#include <QEvent>
#include <QProgressDialog>
#include <QTimer>

#include <functional>

namespace TestSupport
{

// Looks over the shoulder of a running command: acts once its progress dialog is on the screen,
// from the event loop that turns during the run, and as the dialog leaves the screen.
class ProgressWatch : public QObject
{
public:
    using Act = std::function<void(QProgressDialog *dialog)>;

    ProgressWatch() { qApp->installEventFilter(this); }

    Act asItAppears;
    Act whileItStands;
    Act asItCloses;
    int appearances = 0;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        auto *dialog = qobject_cast<QProgressDialog *>(watched);
        if (dialog != nullptr && event->type() == QEvent::Show) {
            ++appearances;
            if (asItAppears)
                asItAppears(dialog);
            if (whileItStands)
                QTimer::singleShot(0, dialog, [this, dialog] { whileItStands(dialog); });
        }
        if (dialog != nullptr && event->type() == QEvent::Hide && asItCloses)
            asItCloses(dialog);
        return QObject::eventFilter(watched, event);
    }
};

} // namespace TestSupport
