#pragma once

#include <QObject>

class MainWindow;
class QAction;
class QMenuBar;

// The menus and their actions, each connected to the window slot of the
// same purpose.
class MainWindowActions : public QObject {
    Q_OBJECT
public:
    // Creates the actions, then the menus "&File", "&Computation",
    // "&Observation" and "&View" in the window's menu bar. Stop starts disabled.
    explicit MainWindowActions(MainWindow *window);

    // Idle: Start, Restart, Open and Save enabled, Stop disabled; computing:
    // the reverse.
    void setComputing(bool computing);

    QAction *open = nullptr;
    QAction *save = nullptr;
    QAction *run = nullptr;
    QAction *rerun = nullptr;
    QAction *abort = nullptr;
    QAction *undoObservation = nullptr;
    QAction *pasteObservationTime = nullptr;
    QAction *pasteObservationVariable = nullptr;
    QAction *pasteObservationValue = nullptr;
    QAction *fillObservationVariable = nullptr;
    QAction *log10Value = nullptr;
    QAction *showHideCopyVariable = nullptr;
    QAction *showHideAuxFunction = nullptr;
    QAction *showHideStructJacobian = nullptr;
    QAction *showHideWeights = nullptr;

private:
    void createActions();
    void createMenus();
    template<typename Slot>
    QAction *makeAction(const char *objectName, const QString &text, const QString &statusTip, Slot slot);

    MainWindow *m_window;
};
