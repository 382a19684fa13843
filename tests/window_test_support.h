#pragma once

#include "test_support.h"

#include <QApplication>
#include <QTimer>
#include <QWidget>

#include <functional>

// A widget or object of the window by its object name; a missing name ends
// the test run, since every later check would be meaningless.
template<typename T = QWidget>
T *findNamed(const QObject *window, const char *name)
{
    T *object = window->findChild<T *>(QLatin1String(name));
    if (!object)
        qFatal("no %s named %s", T::staticMetaObject.className(), name);
    return object;
}

// Answers the next modal dialog (a message box, a file dialog) from the event
// loop: answer receives it and closes it. Polls, so it also finds a dialog
// opened after a delay.
inline void answerNextModal(const std::function<void(QWidget *)> &answer, int attempts = 200)
{
    QTimer::singleShot(10, [answer, attempts] {
        if (QWidget *modal = QApplication::activeModalWidget())
            answer(modal);
        else if (attempts > 0)
            answerNextModal(answer, attempts - 1);
    });
}
