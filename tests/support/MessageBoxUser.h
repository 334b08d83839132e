#pragma once

#include "tests/support/ListComparison.h"

#include <QAbstractButton>
#include <QApplication>
#include <QEvent>
#include <QList>
#include <QMessageBox>
#include <QPushButton>
#include <QStringList>
#include <QTest>
#include <QTimer>

#include <functional>

namespace TestSupport
{

// What a message box showed when it came up.
struct SeenBox {
    QString title;
    QString text;
    QMessageBox::Icon icon = QMessageBox::NoIcon;
    QStringList buttons;   // texts in the order of their roles' importance, "&" taken out
    QString defaultButton; // text of the button that Enter presses as set by the program
    const QWidget *parent = nullptr;
    bool modal = false;
};

// Compares a message, as opposed to a question, with what it has to be.
inline void compareMessage(const SeenBox &box, QMessageBox::Icon icon, const QString &text,
                           const QWidget *parent)
{
    QCOMPARE(box.text, text);
    QCOMPARE(box.icon, icon);
    QCOMPARE(box.title, QStringLiteral("Tessarine - Gerenciador"));
    QCOMPARE(box.buttons, QStringList{QStringLiteral("OK")});
    QCOMPARE(box.parent, parent);
    QVERIFY2(box.modal, "The box isn't modal");
}

// The person who answers the program's message boxes. Notes each box that comes up, also inside
// nested event loops, and then answers it; a box without an answer of its own is dismissed.
class MessageBoxUser : public QObject
{
public:
    using Answer = std::function<void(QMessageBox *box)>;

    MessageBoxUser() { qApp->installEventFilter(this); }

    // Presses the button of that text, such as "Sim". Dismisses a box that has no such button.
    static Answer pressing(const QString &buttonText)
    {
        return [buttonText](QMessageBox *box) {
            const QList<QAbstractButton *> buttons = box->buttons();
            for (QAbstractButton *button : buttons) {
                if (textOf(button) == buttonText)
                    return button->click();
            }
            box->reject();
        };
    }

    // Presses a key while the box has the keyboard.
    static Answer typing(Qt::Key key)
    {
        return [key](QMessageBox *box) { QTest::keyClick(box, key); };
    }

    static Answer closing()
    {
        return [](QMessageBox *box) { box->close(); };
    }

    // Gives the next box this answer; several calls answer several boxes in their order.
    void willAnswer(const Answer &answer) { answers.append(answer); }
    void willPress(const QString &buttonText) { willAnswer(pressing(buttonText)); }

    QList<SeenBox> boxes; // in the order in which they came up

    QStringList texts() const
    {
        QStringList texts;
        for (const SeenBox &box : boxes)
            texts << box.text;
        return texts;
    }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        auto *box = qobject_cast<QMessageBox *>(watched);
        if (box != nullptr && event->type() == QEvent::Show)
            QTimer::singleShot(0, box, [this, box] { attendTo(box); });
        return QObject::eventFilter(watched, event);
    }

private:
    static QString textOf(const QAbstractButton *button)
    {
        return button == nullptr ? QString() : button->text().remove(QLatin1Char('&'));
    }

    void attendTo(QMessageBox *box)
    {
        SeenBox seen{box->windowTitle(),           box->text(),         box->icon(),   {},
                     textOf(box->defaultButton()), box->parentWidget(), box->isModal()};
        const QList<QAbstractButton *> buttons = box->buttons();
        for (const QAbstractButton *button : buttons)
            seen.buttons.append(textOf(button));
        boxes.append(seen);

        const Answer answer = answers.isEmpty() ? closing() : answers.takeFirst();
        answer(box);
        if (box->isVisible())
            box->reject();
    }

    QList<Answer> answers;
};

} // namespace TestSupport
