#include "MainWindowActions.h"

#include "MainWindow.h"

#include <QAction>
#include <QMenu>
#include <QMenuBar>

MainWindowActions::MainWindowActions(MainWindow *window)
    : QObject(window)
    , m_window(window)
{
    createActions();
    createMenus();
    abort->setEnabled(false);
}

template<typename Slot>
QAction *MainWindowActions::makeAction(const char *objectName, const QString &text, const QString &statusTip,
                                       Slot slot)
{
    auto *action = new QAction(text, m_window);
    action->setObjectName(QString::fromLatin1(objectName));
    action->setStatusTip(statusTip);
    connect(action, &QAction::triggered, m_window, slot);
    return action;
}

void MainWindowActions::createActions()
{
    open = makeAction("actionOpen", tr("&Open..."), tr("Open previously saved model"),
                      &MainWindow::menu_open);
    open->setShortcuts(QKeySequence::Open);
    save = makeAction("actionSave", tr("&Save..."), tr("Save current model and computation result"),
                      &MainWindow::menu_save);
    save->setShortcuts(QKeySequence::Save);

    run = makeAction("actionRun", tr("&Start AMB method computation"),
                     tr("Start the AMB method computation."), &MainWindow::menu_run);
    rerun = makeAction("actionRerun", tr("&Restart AMB method computation"),
                       tr("Restart the AMB method computation."), &MainWindow::menu_rerun);
    abort = makeAction("actionAbort", tr("&Stop current AMB method computation"),
                       tr("Stop current AMB method computation and save the result."),
                       &MainWindow::menu_abort);

    undoObservation =
            makeAction("actionUndoObservation", tr("&undo"), tr("Undo changes made using the menues below"),
                       &MainWindow::menu_undoObservation);
    pasteObservationTime = makeAction(
            "actionPasteObservationTime", tr("&Paste Observation Time"),
            tr("Paste observation time that is in the clipboard, either as comma or space separated values."),
            &MainWindow::menu_pasteObservationTime);
    pasteObservationVariable =
            makeAction("actionPasteObservationVariable", tr("&Paste Observation Variable Expression"),
                       tr("Paste observation Variables that is in the clipboard, either as comma or space "
                          "separated values."),
                       &MainWindow::menu_pasteObservationVariable);
    pasteObservationValue = makeAction("actionPasteObservationValue", tr("&Paste Observation Value"),
                                       tr("Paste observation value that is in the clipboard, either as comma "
                                          "or space separated values."),
                                       &MainWindow::menu_pasteObservationValue);
    fillObservationVariable =
            makeAction("actionFillObservationVariable", tr("&Fill Observation Variables Expression"),
                       tr("Copy and paste observation variables from the first row to all the rows."),
                       &MainWindow::menu_fillObservationVariable);
    log10Value = makeAction("actionLog10Value", tr("&Log10 transform observation values"),
                            tr("Log10 transform all observation values."), &MainWindow::menu_log10Value);

    showHideCopyVariable =
            makeAction("actionShowHideCopyVariable", tr("&Show/Hide Copy variable dropdown menu"),
                       tr("Show/Hide Copy variable dropdown menu"), &MainWindow::menu_showHide_copyVariable);
    showHideAuxFunction =
            makeAction("actionShowHideAuxFunction", tr("&Show/Hide Auxiliary Function Expression"),
                       tr("Show/Hide Auxiliary Function Expression"), &MainWindow::menu_showHide_auxFunction);
    showHideStructJacobian =
            makeAction("actionShowHideStructJacobian", tr("&Show/Hide Structure Jacobian"),
                       tr("Show/Hide Structure Jacobian"), &MainWindow::menu_showHideStructJacobian);
    showHideWeights = makeAction("actionShowHideWeights", tr("&Show/Hide Weights"), tr("Show/Hide Weights"),
                                 &MainWindow::menu_showHideWeights);
}

void MainWindowActions::createMenus()
{
    QMenuBar *bar = m_window->menuBar();
    QMenu *file = bar->addMenu(tr("&File"));
    file->setObjectName(QStringLiteral("menuFile"));
    file->addActions({open, save});
    QMenu *computation = bar->addMenu(tr("&Computation"));
    computation->setObjectName(QStringLiteral("menuComputation"));
    computation->addActions({run, rerun, abort});
    QMenu *observation = bar->addMenu(tr("&Observation"));
    observation->setObjectName(QStringLiteral("menuObservation"));
    observation->addActions({undoObservation, pasteObservationTime, pasteObservationVariable,
                             pasteObservationValue, fillObservationVariable, log10Value});
    QMenu *view = bar->addMenu(tr("&View"));
    view->setObjectName(QStringLiteral("menuView"));
    view->addActions({showHideCopyVariable, showHideAuxFunction, showHideStructJacobian, showHideWeights});
}

void MainWindowActions::setComputing(bool computing)
{
    for (QAction *action : {run, rerun, open, save})
        action->setEnabled(!computing);
    abort->setEnabled(computing);
}
