#include "ui/MainWindow.h"
#include "ui/MainWindowActions.h"
#include "ui/steps/DoseEventsStep.h"
#include "ui/steps/RunControl.h"
#include "ui/steps/RunStep.h"
#include "ui/tables/TableWidgetFiles.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QSpinBox>
#include <QTabWidget>
#include <QTableWidget>
#include <QTextEdit>
#include <QTimer>
#include <QToolBox>
#include <QtTest>

namespace {

// Records what the window asks of the run wiring.
struct FakeRunControl : RunControl {
    bool running = false;
    int aborts = 0;
    QVector<bool> starts; // the restart flag of every start

    bool isRunning() const override { return running; }
    void requestAbort() override { ++aborts; }
    void start(bool restart) override { starts << restart; }
    void iterationResult(const compResult &) override {}
    void completed() override {}
};

QStringList headers(const QTableWidget *table)
{
    QStringList texts;
    for (int c = 0; c < table->columnCount(); ++c)
        texts << table->horizontalHeaderItem(c)->text();
    return texts;
}

} // namespace

class MainWindowTest : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void pagesAndPanesAboveThem();
    void widgetTextsAndLabels();
    void startUpState();
    void algorithmSettings();
    void menusAndActions();
    void observationPaste();
    void observationFillAndLog10();
    void observationUndo();
    void viewToggles();
    void enableModelRelatedUi();
    void runControls();
    void rowButtonsAndWeightedIterations();

private:
    // The window's widget (or other object) with this object name; a missing
    // name ends the test run.
    template<typename T = QWidget>
    T *find(const char *name) const
    {
        T *object = m_window->findChild<T *>(QLatin1String(name));
        if (!object)
            qFatal("no %s named %s", T::staticMetaObject.className(), name);
        return object;
    }
    QTableWidget *observations() const { return find<QTableWidget>("tableWidget_observations"); }
    void setObservations(const StringMatrix &rows) const { matrixToTable(observations(), rows); }
    StringMatrix observationCells() const { return tableToStringMatrix(observations()); }
    QString cell(int row, int column) const
    {
        const QTableWidgetItem *item = observations()->item(row, column);
        return item ? item->text() : QStringLiteral("<none>");
    }

    MainWindow *m_window = nullptr;
};

void MainWindowTest::init()
{
    m_window = new MainWindow;
}

void MainWindowTest::cleanup()
{
    delete m_window;
    m_window = nullptr;
}

void MainWindowTest::pagesAndPanesAboveThem()
{
    auto *toolBox = find<QToolBox>("toolBox");
    const QStringList titles = {
            "Step1: Define the model using a system of ODEs",
            "Step2: Define dose events",
            "Step3: Define Parameter Domain of Interest and Theoretical Upper and Lower Bounds",
            "Step3-2 (Optional): Inspect and Edit parameter transformation",
            "Step4: Define observation events and input data",
            "Step5: Run Ambrel method",
            "Step6: Inspect Modelfit and Found Parameters",
            "Step7: Simulate using the Found Parameters",
    };
    QCOMPARE(toolBox->count(), titles.size());
    for (int i = 0; i < titles.size(); ++i)
        QCOMPARE(toolBox->itemText(i), titles[i]);
    QCOMPARE(toolBox->currentIndex(), 0);

    // Each page holds its own step's widgets.
    const char *const pageWidgets[] = {"textEdit_ODEExpression",
                                       "tableWidget_doseEvents",
                                       "tableWidget_parametersSpec",
                                       "tableWidget_initialCluster",
                                       "tableWidget_observations",
                                       "tabWidget_2",
                                       "tabWidget",
                                       "tabWidget_3"};
    for (int i = 0; i < toolBox->count(); ++i)
        QVERIFY2(toolBox->widget(i)->findChild<QWidget *>(pageWidgets[i]), pageWidgets[i]);

    // The error pane and the copy group stand outside the toolbox.
    for (const char *name : {"textEdit_error", "groupBox_copyVariable", "comboBox_copyVPnames"})
        QVERIFY2(!toolBox->findChild<QWidget *>(name) && find(name), name);
    QVERIFY(find<QTextEdit>("textEdit_error")->isReadOnly());
    QCOMPARE(find<QGroupBox>("groupBox_copyVariable")->title(),
             QString("Copy variable and parameter name (by selecting the following drop-down menu you can "
                     "copy "
                     "variable and parameter names)"));
}

void MainWindowTest::widgetTextsAndLabels()
{
    const QVector<QPair<const char *, QString>> texts = {
            {"label_auxFunc", "Auxiliary functions"},
            {"pushButton_findODEText", "Find"},
            {"pushButton_ODEsReplace", "Replace"},
            {"pushButton_ODEs_undo", "undo"},
            {"pushButton", "update Highlights"},
            {"lab_variableNames", "Variables:"},
            {"lab_parameterNames", "Parameters:"},
            {"pushButton_6", "increase dose rows"},
            {"pushButton_4", "Generate Parameters"},
            {"pushButton_importInitCluster", "Import initial X"},
            {"pushButton_increaseObsRows", "increase observation rows"},
            {"pushButton_runAMmethod", "Start Ambrel method computation"},
            {"checkBox_initialClusterSamplingCriteria", "initial cluster sampling with stricter criteria"},
            {"checkBox_polish", "Polish the best point of each group with Levenberg–Marquardt"},
            {"pushButton_increaseSimulationDose", "increase dose rows"},
            {"pushButton_computeSimulation", "Compute simulation"},
            {"checkBox_ode_simulation_sol_y_log", "y-axis log-scale"},
            {"pushButton_saveSimulationAsCSV", "save SimulationResult as .csv"},
            {"pushButton_computeJacobian", "Compute Jacobian"},
    };
    for (const auto &[name, text] : texts)
        QCOMPARE(find(name)->property("text").toString(), text);

    // Labels that name a widget are its buddies.
    const QVector<QPair<const char *, QString>> labels = {
            {"textEdit_auxFunction", "Auxiliary functions"},
            {"textEdit_paraDefinition", "g(x)"},
            {"textEdit_paraDefInverse", "g inverse"},
            {"tableWidget_initialCluster", "Initial Cluster"},
            {"lineEdit_odeRelTol", "ODE solve relative tolerence for Stage 1"},
            {"spinBox_numTotIter", "Number of Stage1 iterations"},
            {"spinBox_numS2_iter", "Number of Stage2 iterations"},
            {"lineEdit_initialLambda", "Initial lambda"},
            {"spinBox_maxNumInitialSampling", "Max num of initial random try"},
            {"spinBox_ODEevalTimeLimit", "ODE evaluation timeout"},
            {"spinBox_numWeightIter", "Number of iterations with the weights"},
            {"tableWidget_simulationParameters", "Parameters to use for the simulation"},
            {"lineEdit_simulationVariable",
             "Simulation variable (any expression involving  time (t), ODE variables, and parameters)"},
            {"lineEdit_simulationTimePoints",
             "Simulation time (e.g., 1,2,3,4,5   or   0:1:10 => 0,1,2,3,4,5,6,7,8,9,10):"},
    };
    const QList<QLabel *> all = m_window->findChildren<QLabel *>();
    for (const auto &[name, text] : labels) {
        QWidget *buddy = find(name);
        const auto label =
                std::find_if(all.begin(), all.end(), [&](QLabel *l) { return l->buddy() == buddy; });
        QVERIFY2(label != all.end(), name);
        QCOMPARE((*label)->text(), text);
    }

    const QString note = "Note (optional):";
    QCOMPARE(headers(find<QTableWidget>("tableWidget_doseEvents")),
             QStringList({"Time", "Compartment", "Dosage", "Duration (set 0 if bolus,  -99 to set value)",
                          note}));
    QCOMPARE(headers(find<QTableWidget>("tableWidget_parametersSpec")),
             QStringList({"Parameter Domain of Interest LB", "Parameter Domain of Interest UB",
                          "Theoretical LB (by default 0, set to 'nb' if no bound)",
                          "Theoretical UB (if applicable)", note}));
    QCOMPARE(headers(observations()), QStringList({"Time", "Observation variable", "Value", note}));
    QCOMPARE(headers(find<QTableWidget>("tableWidget_simulationDoseEvents")),
             QStringList({"Time", "Compartment", "Dosage", "Duration (set 0 if bolus)", note}));
}

void MainWindowTest::startUpState()
{
    for (const char *name : {"lab_variableNames", "lab_parameterNames", "tableWidget_jacobian",
                             "frame_weights", "textEdit_auxFunction", "label_auxFunc"})
        QVERIFY2(find(name)->isHidden(), name);
    for (const char *name : {"groupBox_copyVariable", "textEdit_ODEExpression", "comboBox_copyVPnames"})
        QVERIFY2(!find(name)->isHidden(), name);

    QVERIFY(!find<QAction>("actionAbort")->isEnabled());
    for (const char *name : {"actionOpen", "actionSave", "actionRun", "actionRerun"})
        QVERIFY2(find<QAction>(name)->isEnabled(), name);
    QVERIFY(!find("pushButton_saveSimulationAsCSV")->isEnabled());
    QCOMPARE(find<QTableWidget>("tableWidget_X_corr")->editTriggers(), QAbstractItemView::NoEditTriggers);
    QCOMPARE(find("tableWidget_doseEvents")->contextMenuPolicy(), Qt::CustomContextMenu);
    QVERIFY(QMetaType::type("compResult") != QMetaType::UnknownType);

    for (const char *name : {"textEdit_ODEExpression_timer", "textEdit_auxFunction_timer"}) {
        auto *timer = find<QTimer>(name);
        QVERIFY(timer->isSingleShot());
        QCOMPARE(timer->interval(), 1000);
        QVERIFY(!timer->isActive());
    }
    // Typing restarts the editor's timer.
    find<QTextEdit>("textEdit_ODEExpression")->setPlainText("dA/dt = -k*A");
    QVERIFY(find<QTimer>("textEdit_ODEExpression_timer")->isActive());
    QVERIFY(!find<QTimer>("textEdit_auxFunction_timer")->isActive());

    QCOMPARE(find<QTabWidget>("tabWidget_2")->currentIndex(), 0);
    QCOMPARE(find<QTabWidget>("tabWidget_2")->tabText(0), QString("Computation Log"));
    QCOMPARE(find<QTabWidget>("tabWidget_2")->tabText(1), QString("Algorithm Setting"));
    QVERIFY(find<QTabWidget>("tabWidget_2")->widget(0)->findChild<QTextEdit *>("textEdi_compLog"));

    auto *results = find<QTabWidget>("tabWidget");
    QCOMPARE(results->currentIndex(), 0);
    QStringList resultTabs;
    for (int i = 0; i < results->count(); ++i)
        resultTabs << results->tabText(i);
    QCOMPARE(resultTabs,
             QStringList({"Observation-Simulation", "Parameters", "Parameter Range", "SSR-Parameter",
                          "Parameter-Parameter distribution", "Variable Variabilities"}));

    auto *simulation = find<QTabWidget>("tabWidget_3");
    QCOMPARE(simulation->currentIndex(), 1);
    QCOMPARE(simulation->tabText(0), QString("Simulation Parameters"));
    QCOMPARE(simulation->tabText(1), QString("Simulation Dose Events"));
    QCOMPARE(simulation->tabText(2), QString("Simulation Results"));
    QVERIFY(simulation->widget(2)
                    ->findChild<QWidget *>("widget_ODE_sol_plot_simulation")
                    ->inherits("QtCharts::QChartView"));
}

void MainWindowTest::algorithmSettings()
{
    struct Spin {
        const char *name;
        int minimum, maximum, step, value;
    };
    const Spin spins[] = {
            {"spinBox_numTotIter", 0, 99, 1, 50},
            {"spinBox_numS2_iter", 0, 999, 1, 10},
            {"spinBox_maxNumInitialSampling", 0, 999, 1, 20},
            {"spinBox_ODEevalTimeLimit", 100, 1000000000, 10, 100000},
            {"spinBox_numWeightIter", 0, 30, 1, 0},
            {"spinBox_numInitICluster", 0, 10000, 10, 250},
    };
    for (const Spin &s : spins) {
        auto *box = find<QSpinBox>(s.name);
        QVERIFY2(box->minimum() == s.minimum && box->maximum() == s.maximum, s.name);
        QVERIFY2(box->singleStep() == s.step && box->value() == s.value, s.name);
    }
    QCOMPARE(find<QLineEdit>("lineEdit_odeRelTol")->text(), QString("0.1"));
    QCOMPARE(find<QLineEdit>("lineEdit_initialLambda")->text(), QString("1.00"));
    QVERIFY(!find<QCheckBox>("checkBox_initialClusterSamplingCriteria")->isChecked());
    QVERIFY(!find<QCheckBox>("checkBox_polish")->isChecked());
    QVERIFY(find<QTextEdit>("textEdit_weights")->toPlainText().isEmpty());
    for (const char *name : {"spinBox_numWeightIter", "textEdit_weights"})
        QVERIFY2(find(name)->parent() == find("frame_weights"), name);
}

void MainWindowTest::menusAndActions()
{
    struct Entry {
        const char *menu, *text, *statusTip;
        QKeySequence shortcut;
    };
    const Entry entries[] = {
            {"&File", "&Open...", "Open previously saved model", QKeySequence::Open},
            {"&File", "&Save...", "Save current model and computation result", QKeySequence::Save},
            {"&Computation", "&Start AMB method computation", "Start the AMB method computation.", {}},
            {"&Computation", "&Restart AMB method computation", "Restart the AMB method computation.", {}},
            {"&Computation",
             "&Stop current AMB method computation",
             "Stop current AMB method computation and save the result.",
             {}},
            {"&Observation", "&undo", "Undo changes made using the menues below", {}},
            {"&Observation",
             "&Paste Observation Time",
             "Paste observation time that is in the clipboard, either as comma or space separated values.",
             {}},
            {"&Observation",
             "&Paste Observation Variable Expression",
             "Paste observation Variables that is in the clipboard, either as comma or space separated "
             "values.",
             {}},
            {"&Observation",
             "&Paste Observation Value",
             "Paste observation value that is in the clipboard, either as comma or space separated values.",
             {}},
            {"&Observation",
             "&Fill Observation Variables Expression",
             "Copy and paste observation variables from the first row to all the rows.",
             {}},
            {"&Observation",
             "&Log10 transform observation values",
             "Log10 transform all observation values.",
             {}},
            {"&View", "&Show/Hide Copy variable dropdown menu", "Show/Hide Copy variable dropdown menu", {}},
            {"&View",
             "&Show/Hide Auxiliary Function Expression",
             "Show/Hide Auxiliary Function Expression",
             {}},
            {"&View", "&Show/Hide Structure Jacobian", "Show/Hide Structure Jacobian", {}},
            {"&View", "&Show/Hide Weights", "Show/Hide Weights", {}},
    };
    QVector<QAction *> actions;
    QStringList menus;
    for (QAction *menuAction : m_window->menuBar()->actions()) {
        menus << menuAction->text();
        for (QAction *action : menuAction->menu()->actions())
            actions << action;
    }
    QCOMPARE(menus, QStringList({"&File", "&Computation", "&Observation", "&View"}));
    QCOMPARE(actions.size(), int(std::size(entries)));
    for (int i = 0; i < actions.size(); ++i) {
        QCOMPARE(actions[i]->text(), QString(entries[i].text));
        QCOMPARE(actions[i]->statusTip(), QString(entries[i].statusTip));
        QCOMPARE(actions[i]->shortcut(), entries[i].shortcut);
        QVERIFY(!actions[i]->objectName().isEmpty());
    }
    // Each action sits in its own menu.
    int index = 0;
    for (QAction *menuAction : m_window->menuBar()->actions())
        for (QAction *action : menuAction->menu()->actions())
            QVERIFY2(menuAction->text() == entries[index++].menu, qPrintable(action->text()));
}

void MainWindowTest::observationPaste()
{
    QClipboard *clipboard = QApplication::clipboard();
    QCOMPARE(observations()->rowCount(), 10);

    observations()->setRowCount(0);
    clipboard->setText("1,2,3");
    find<QAction>("actionPasteObservationTime")->trigger();
    QCOMPARE(observationCells(), (StringMatrix{{"1", "", "", ""}, {"2", "", "", ""}, {"3", "", "", ""}}));

    // A space is no separator; newline, tab and comma are, and a final line
    // end adds an empty piece.
    setObservations({});
    observations()->setRowCount(0);
    clipboard->setText("1 2 3");
    m_window->menu_pasteObservationValue();
    QCOMPARE(observations()->rowCount(), 1);
    QCOMPARE(cell(0, 2), QString("1 2 3"));
    observations()->setRowCount(0);
    clipboard->setText("C1\tC2\n");
    m_window->menu_pasteObservationVariable();
    QCOMPARE(observations()->rowCount(), 3);
    QCOMPARE(cell(1, 1), QString("C2"));
    QCOMPARE(cell(2, 1), QString(""));

    // Never shrinks: two pieces into five rows change rows 0 and 1 only.
    setObservations({{"0", "A", "1", "n"},
                     {"1", "A", "2", ""},
                     {"2", "A", "3", ""},
                     {"3", "A", "4", ""},
                     {"4", "A", "5", ""}});
    clipboard->setText("7,8");
    m_window->menu_pasteObservationValue();
    QCOMPARE(observationCells(), (StringMatrix{{"0", "A", "7", "n"},
                                               {"1", "A", "8", ""},
                                               {"2", "A", "3", ""},
                                               {"3", "A", "4", ""},
                                               {"4", "A", "5", ""}}));

    // An empty clipboard empties the first row's cell.
    clipboard->clear();
    m_window->menu_pasteObservationTime();
    QCOMPARE(cell(0, 0), QString(""));
    QCOMPARE(observations()->rowCount(), 5);
}

void MainWindowTest::observationFillAndLog10()
{
    setObservations({{"0", "C1", "5", ""}, {"1", "", "", ""}, {"2", "C2", "LOG10(5)", ""}});
    delete observations()->takeItem(1, 2);
    find<QAction>("actionFillObservationVariable")->trigger();
    for (int r = 0; r < 3; ++r)
        QCOMPARE(cell(r, 1), QString("C1"));

    find<QAction>("actionLog10Value")->trigger();
    QCOMPARE(cell(0, 2), QString("LOG10(5)"));
    QCOMPARE(cell(1, 2), QString("<none>"));
    QCOMPARE(cell(2, 2), QString("LOG10(LOG10(5))"));
    observations()->item(0, 2)->setText("");
    m_window->menu_log10Value();
    QCOMPARE(cell(0, 2), QString(""));

    // Without a variable in row 0 nothing is filled.
    delete observations()->takeItem(0, 1);
    m_window->menu_fillObservationVariable();
    QCOMPARE(cell(0, 1), QString("<none>"));
    QCOMPARE(cell(2, 1), QString("C1"));
    observations()->setRowCount(0);
    m_window->menu_fillObservationVariable();
    QCOMPARE(observations()->rowCount(), 0);
}

void MainWindowTest::observationUndo()
{
    const StringMatrix original = {{"0", "A", "1", "n"}, {"1", "A", "2", ""}};
    setObservations(original);
    m_window->menu_undoObservation(); // nothing to undo yet
    QCOMPARE(observationCells(), original);

    QApplication::clipboard()->setText("5,6,7");
    m_window->menu_pasteObservationTime();
    m_window->menu_log10Value();
    const StringMatrix afterPaste = {{"5", "A", "1", "n"}, {"6", "A", "2", ""}, {"7", "", "", ""}};
    find<QAction>("actionUndoObservation")->trigger();
    QCOMPARE(observationCells(), afterPaste); // only the last operation is undone
    m_window->menu_undoObservation();
    QCOMPARE(observationCells(), afterPaste); // undo twice is undo once

    // The snapshot holds every cell, so undo also shrinks the table back.
    m_window->menu_undoObservation();
    QApplication::clipboard()->setText("1\n2\n3\n4\n");
    m_window->menu_pasteObservationValue();
    QCOMPARE(observations()->rowCount(), 5);
    m_window->menu_undoObservation();
    QCOMPARE(observationCells(), afterPaste);
}

void MainWindowTest::viewToggles()
{
    // Each widget flips on its own state, so widgets that disagree stay apart.
    QWidget *auxEditor = find("textEdit_auxFunction");
    QWidget *auxLabel = find("label_auxFunc");
    auxLabel->show();
    find<QAction>("actionShowHideAuxFunction")->trigger();
    QVERIFY(!auxEditor->isHidden() && auxLabel->isHidden());
    m_window->menu_showHide_auxFunction();
    QVERIFY(auxEditor->isHidden() && !auxLabel->isHidden());

    find<QAction>("actionShowHideStructJacobian")->trigger();
    QVERIFY(!find("tableWidget_jacobian")->isHidden());
    m_window->menu_showHideStructJacobian();
    QVERIFY(find("tableWidget_jacobian")->isHidden());

    find<QAction>("actionShowHideCopyVariable")->trigger();
    QVERIFY(find("groupBox_copyVariable")->isHidden());
    m_window->menu_showHide_copyVariable();
    QVERIFY(!find("groupBox_copyVariable")->isHidden());

    // Showing and hiding the weights both reset the weighted iterations.
    auto *weighted = find<QSpinBox>("spinBox_numWeightIter");
    weighted->setValue(5);
    find<QAction>("actionShowHideWeights")->trigger();
    QVERIFY(!find("frame_weights")->isHidden());
    QCOMPARE(weighted->value(), 0);
    weighted->setValue(3);
    m_window->menu_showHideWeights();
    QVERIFY(find("frame_weights")->isHidden());
    QCOMPARE(weighted->value(), 0);

    // The toggles judge the widget, not whether its page is on screen.
    m_window->show();
    find<QToolBox>("toolBox")->setCurrentIndex(5);
    m_window->menu_showHideStructJacobian();
    QVERIFY(!find("tableWidget_jacobian")->isHidden());
}

void MainWindowTest::enableModelRelatedUi()
{
    const char *const switched[] = {"comboBox_ODE_text_replace",
                                    "lineEdit_ODEs_replace_to",
                                    "pushButton",
                                    "pushButton_ODEsReplace",
                                    "pushButton_ODEs_undo",
                                    "pushButton_4",
                                    "pushButton_6",
                                    "pushButton_increaseObsRows",
                                    "pushButton_importInitCluster",
                                    "spinBox_numInitICluster",
                                    "spinBox_numTotIter",
                                    "spinBox_numS2_iter",
                                    "spinBox_numWeightIter",
                                    "lineEdit_initialLambda",
                                    "lineEdit_odeRelTol",
                                    "checkBox_polish",
                                    "pushButton_runAMmethod"};
    const char *const tables[] = {"tableWidget_doseEvents", "tableWidget_parametersSpec",
                                  "tableWidget_initialCluster", "tableWidget_observations"};
    const char *const texts[] = {"textEdit_ODEExpression", "textEdit_paraDefinition",
                                 "textEdit_paraDefInverse", "textEdit_weights"};
    // Widgets outside the list keep working during a run.
    const char *const untouched[] = {"pushButton_findODEText", "checkBox_initialClusterSamplingCriteria",
                                     "spinBox_maxNumInitialSampling", "spinBox_ODEevalTimeLimit",
                                     "pushButton_increaseSimulationDose"};

    for (bool enable : {false, true}) {
        m_window->enable_model_related_UI(enable);
        for (const char *name : switched)
            QVERIFY2(find(name)->isEnabled() == enable, name);
        for (const char *name : tables)
            QVERIFY2(find<QTableWidget>(name)->editTriggers() ==
                             (enable ? QAbstractItemView::CurrentChanged : QAbstractItemView::NoEditTriggers),
                     name);
        for (const char *name : texts)
            QVERIFY2(find<QTextEdit>(name)->isReadOnly() == !enable, name);
        for (const char *name : untouched)
            QVERIFY2(find(name)->isEnabled(), name);
        QVERIFY(!find<QTextEdit>("textEdit_auxFunction")->isReadOnly());
    }
}

void MainWindowTest::runControls()
{
    FakeRunControl control;
    m_window->workbench().run->setRunControl(&control);
    auto *button = find<QPushButton>("pushButton_runAMmethod");

    button->click();
    QCOMPARE(control.starts, QVector<bool>({false}));
    control.running = true;
    button->click();
    QCOMPARE(control.aborts, 1);
    QCOMPARE(control.starts.size(), 1);

    find<QAction>("actionRerun")->trigger();
    find<QAction>("actionRun")->trigger();
    QCOMPARE(control.starts, QVector<bool>({false, true, false}));
    m_window->menu_abort();
    QCOMPARE(control.aborts, 2);

    const char *const idle[] = {"actionRun", "actionRerun", "actionOpen", "actionSave"};
    for (bool computing : {true, false}) {
        m_window->setComputing(computing);
        QCOMPARE(find<QAction>("actionAbort")->isEnabled(), computing);
        for (const char *name : idle)
            QVERIFY2(find<QAction>(name)->isEnabled() == !computing, name);
    }
}

void MainWindowTest::rowButtonsAndWeightedIterations()
{
    const QVector<QPair<const char *, const char *>> rowButtons = {
            {"pushButton_6", "tableWidget_doseEvents"},
            {"pushButton_increaseObsRows", "tableWidget_observations"},
            {"pushButton_increaseSimulationDose", "tableWidget_simulationDoseEvents"}};
    for (const auto &[buttonName, tableName] : rowButtons) {
        auto *table = find<QTableWidget>(tableName);
        table->setItem(0, 0, new QTableWidgetItem("kept"));
        const int rows = table->rowCount();
        find<QPushButton>(buttonName)->click();
        QCOMPARE(table->rowCount(), rows + 10);
        QCOMPARE(table->item(0, 0)->text(), QString("kept"));
    }

    // The dose table's context menu inserts a row and deletes the selected ones.
    auto *doses = find<QTableWidget>("tableWidget_doseEvents");
    matrixToTable(doses, StringMatrix{{"0"}, {"1"}, {"2"}, {"3"}});
    DoseEventsStep *doseStep = m_window->workbench().doseEvents;
    doseStep->insertRow(1);
    doses->setRangeSelected(QTableWidgetSelectionRange(2, 0, 2, 0), true);
    doses->setRangeSelected(QTableWidgetSelectionRange(4, 0, 4, 0), true);
    doseStep->deleteSelectedRows();
    QCOMPARE(tableToStringMatrix(doses), (StringMatrix{{"0"}, {""}, {"2"}}));

    // The weighted iterations stay within the Stage 1 iterations.
    auto *stage1 = find<QSpinBox>("spinBox_numTotIter");
    auto *weighted = find<QSpinBox>("spinBox_numWeightIter");
    weighted->setValue(20);
    stage1->setValue(8);
    QCOMPARE(weighted->value(), 8);
    weighted->setValue(12);
    QCOMPARE(weighted->value(), 8);
    stage1->setValue(30);
    QCOMPARE(weighted->value(), 8);
}

QTEST_MAIN(MainWindowTest)
#include "test_main_window.moc"
