#include "ui/MainWindow.h"
#include "ui/messages/ProblemHtml.h"
#include "ui/tables/TableWidgetFiles.h"
#include "window_test_support.h"

#include <QAction>
#include <QCheckBox>
#include <QDialog>
#include <QFileDialog>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSpinBox>
#include <QTableWidget>
#include <QTextEdit>
#include <QtTest>

// The window's run flow and project folder, driven through its widgets.
class RunAndProjectTest : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void problemsRenderAsTheErrorPaneShowsThem();
    void openFillsEveryStepFromTheFolder();
    void firstSaveAsksAndACancelSavesNothing();
    void saveAfterOpenWritesIntoTheOpenedFolder();
    void runToTheEndAndBackToIdle();
    void stopEndsTheRunAndReturnsToIdle();
    void polishAddsTheMinimisersAsAnIteration();
    void runRefusedByTheParameterSpecification();
    void negativeDoseDurationReachesTheErrorPane();
    void cutResultFilesAreNamedInTheLog();
    void closingDuringARunWaitsForIt();
    void saveThenOpenRoundTripsEveryStep();
    void brokenFoldersLoadWithoutAMessageOrACrash();
    void typedModelRunsToTheEnd();

private:
    template<typename T = QWidget>
    T *find(const char *name) const
    {
        return findNamed<T>(m_window, name);
    }
    QString openExample(const QString &name)
    {
        const QString folder = copyExample(*m_dir, name);
        m_window->openProject(folder);
        return folder;
    }
    void setShortRun(int stage1, int stage2, int points)
    {
        find<QSpinBox>("spinBox_numTotIter")->setValue(stage1);
        find<QSpinBox>("spinBox_numS2_iter")->setValue(stage2);
        find<QSpinBox>("spinBox_numInitICluster")->setValue(points);
    }
    bool idle() const
    {
        return find<QAction>("actionRun")->isEnabled() && find<QAction>("actionOpen")->isEnabled() &&
               !find<QAction>("actionAbort")->isEnabled() &&
               find<QPushButton>("pushButton_runAMmethod")->isEnabled() &&
               !find<QTextEdit>("textEdit_ODEExpression")->isReadOnly();
    }

    MainWindow *m_window = nullptr;
    QTemporaryDir *m_dir = nullptr;
};

void RunAndProjectTest::init()
{
    m_dir = new QTemporaryDir;
    m_window = new MainWindow;
}

void RunAndProjectTest::cleanup()
{
    delete m_window;
    delete m_dir;
}

void RunAndProjectTest::problemsRenderAsTheErrorPaneShowsThem()
{
    const Problem dose{ProblemSource::DoseTable, 2, 0,
                       "Error in Dosing Table (3th row Time):\nCould not evaluate the expression for the "
                       "dosage time."};
    const Problem value{ProblemSource::ObservationTable, 1, 2,
                        "Error in Observation Table (2th row Value):\n Expression could not be understood."};
    QCOMPARE(
            problemsHtml({dose, value}),
            QStringLiteral("<font color=red> Error in Dosing Table (3th row Time):<br>Could not evaluate the "
                           "expression for the dosage time.</font><br><font color=red> Error in Observation "
                           "Table (2th row Value):<br> Expression could not be understood.</font>"));
    QCOMPARE(redBlockHtml({"a", "b"}), QStringLiteral("<font color=red>a<br>b</font>"));
    QVERIFY(redBlockHtml({}).isEmpty());
}

void RunAndProjectTest::openFillsEveryStepFromTheFolder()
{
    openExample("oral-absorption");
    QVERIFY(find<QTextEdit>("textEdit_ODEExpression")->toPlainText().contains("dAcdt = ka*Ag - CL/V*Ac"));
    auto *doses = find<QTableWidget>("tableWidget_doseEvents");
    QCOMPARE(doses->item(0, 1)->text(), QStringLiteral("Ag"));
    // The note column survives a file without it.
    QCOMPARE(doses->horizontalHeaderItem(4)->text(), QStringLiteral("Note (optional):"));
    auto *simulationDoses = find<QTableWidget>("tableWidget_simulationDoseEvents");
    QCOMPARE(simulationDoses->item(0, 2)->text(), QStringLiteral("320"));
    QCOMPARE(find<QTableWidget>("tableWidget_observations")->item(12, 2)->text(), QStringLiteral("0.791723"));
    QCOMPARE(find<QTableWidget>("tableWidget_parametersSpec")->item(1, 1)->text(), QStringLiteral("100"));
    QVERIFY(find<QTextEdit>("textEdit_paraDefinition")->toPlainText().startsWith("CL=100*EXP(x1)"));
}

void RunAndProjectTest::firstSaveAsksAndACancelSavesNothing()
{
    QString title;
    answerNextModal([&title](QWidget *dialog) {
        title = dialog->windowTitle();
        static_cast<QDialog *>(dialog)->reject();
    });
    find<QAction>("actionSave")->trigger();
    QCOMPARE(title, QStringLiteral("Choose Saving Directory"));
    QVERIFY(!QFile::exists(QDir::currentPath() + "/model/ODE_expression.txt"));
    // Still no folder: the next save asks again.
    title.clear();
    answerNextModal([&title](QWidget *dialog) {
        title = dialog->windowTitle();
        static_cast<QDialog *>(dialog)->reject();
    });
    find<QAction>("actionSave")->trigger();
    QCOMPARE(title, QStringLiteral("Choose Saving Directory"));
}

void RunAndProjectTest::saveAfterOpenWritesIntoTheOpenedFolder()
{
    const QString folder = openExample("oral-absorption");
    find<QTextEdit>("textEdit_ODEExpression")->append("; edited");
    find<QLineEdit>("lineEdit_simulationTimePoints")->setText("0:1:24");
    find<QAction>("actionSave")->trigger(); // no dialog: a modal would block here
    QVERIFY(QFile(folder + "/model/ODE_expression.txt").size() > 0);
    QFile ode(folder + "/model/ODE_expression.txt");
    QVERIFY(ode.open(QIODevice::ReadOnly));
    QVERIFY(ode.readAll().endsWith("; edited"));
    QFile times(folder + "/model/simulationTimePoints.txt");
    QVERIFY(times.open(QIODevice::ReadOnly));
    QCOMPARE(times.readAll(), QByteArray("0:1:24"));
    QCOMPARE(QDir(folder + "/history").entryList(QDir::Dirs | QDir::NoDotAndDotDot).size(), 1);
}

void RunAndProjectTest::runToTheEndAndBackToIdle()
{
    const QString folder = openExample("oral-absorption");
    setShortRun(3, 1, 30);
    QSignalSpy spy(find<QProgressBar>("progressBar_AM"), &QProgressBar::valueChanged);
    find<QPushButton>("pushButton_runAMmethod")->click();
    QVERIFY(find<QAction>("actionAbort")->isEnabled());
    QVERIFY(!find<QAction>("actionSave")->isEnabled());
    QVERIFY(find<QTextEdit>("textEdit_ODEExpression")->isReadOnly());
    QCOMPARE(find<QTableWidget>("tableWidget_initialCluster")->rowCount(), 30);

    QTRY_VERIFY_WITH_TIMEOUT(idle(), 60000);
    auto *progress = find<QProgressBar>("progressBar_AM");
    QCOMPARE(progress->value(), progress->maximum());
    QCOMPARE(progress->maximum(), 30 * 4);
    const QString log = find<QTextEdit>("textEdi_compLog")->toPlainText();
    QVERIFY(log.startsWith(">>>>>>Ambrel method for PBPK models version alpha 5.1.0<<<<<<"));
    QVERIFY(log.contains("\nNumber of Stage1 iterations: 3\n"));
    QVERIFY(log.contains("iterNumber: 3"));
    QVERIFY(log.endsWith("Model and Computation result are saved in " + folder));
    QVERIFY(QFile::exists(folder + "/compResult/X_3.csv"));
    QVERIFY(QFile::exists(folder + "/model/initial_cluster.txt"));

    // A restart continues from the last iteration with the log kept.
    find<QSpinBox>("spinBox_numS2_iter")->setValue(2);
    find<QAction>("actionRerun")->trigger();
    QTRY_VERIFY_WITH_TIMEOUT(idle(), 60000);
    const QString restarted = find<QTextEdit>("textEdi_compLog")->toPlainText();
    QVERIFY(restarted.startsWith(log));
    QVERIFY(restarted.contains("=== computation restarted at"));
    QVERIFY(QFile::exists(folder + "/compResult/X_4.csv"));
}

void RunAndProjectTest::stopEndsTheRunAndReturnsToIdle()
{
    openExample("oral-absorption");
    setShortRun(99, 10, 40);
    find<QAction>("actionRun")->trigger();
    QTRY_VERIFY_WITH_TIMEOUT(find<QTextEdit>("textEdi_compLog")->toPlainText().contains("iterNumber: 1"),
                             60000);
    find<QAction>("actionAbort")->trigger();
    QTRY_VERIFY_WITH_TIMEOUT(idle(), 60000);
    QVERIFY(!find<QTextEdit>("textEdi_compLog")->toPlainText().contains("iterNumber: 108"));
}

// The check box turns the polishing stage on: the run ends with one more
// iteration and the summary file.
void RunAndProjectTest::polishAddsTheMinimisersAsAnIteration()
{
    const QString folder = openExample("oral-absorption");
    setShortRun(3, 1, 30);
    find<QCheckBox>("checkBox_polish")->setChecked(true);
    find<QPushButton>("pushButton_runAMmethod")->click();
    QTRY_VERIFY_WITH_TIMEOUT(idle(), 60000);
    const QString log = find<QTextEdit>("textEdi_compLog")->toPlainText();
    QVERIFY(log.contains("\nPolish: group 1 ("));
    QVERIFY(QFile::exists(folder + "/compResult/X_4.csv"));
    QVERIFY(QFile::exists(folder + "/compResult/polish_summary.csv"));
}

// A dose with duration -5 used to run with the dose missing.
void RunAndProjectTest::negativeDoseDurationReachesTheErrorPane()
{
    openExample("oral-absorption");
    find<QTableWidget>("tableWidget_doseEvents")->item(0, 3)->setText("-5");
    find<QAction>("actionRun")->trigger();
    QVERIFY(find<QTextEdit>("textEdit_error")
                    ->toPlainText()
                    .contains("Error on 1th dose event: Infusion administration duration cannot be less than "
                              "0."));
    QVERIFY(idle());
}

// A kill during a write leaves a cut file; opening the folder keeps the
// complete iterations and the log pane says what was left out.
void RunAndProjectTest::cutResultFilesAreNamedInTheLog()
{
    const QString folder = copyExample(*m_dir, "oral-absorption");
    QVERIFY(QDir().mkpath(folder + "/compResult"));
    QVERIFY(writeFile(folder + "/compResult/X_0.csv", "0.1,0.2,0.3\n0.2,0.3,0.4\n"));
    QVERIFY(writeFile(folder + "/compResult/X_1.csv", "0.1,0.2,0.3\n0.2,0."));
    m_window->openProject(folder);
    QVERIFY(find<QTextEdit>("textEdi_compLog")
                    ->toPlainText()
                    .contains("Incomplete result files (cut off by an interrupted write): X_1.csv."));
}

void RunAndProjectTest::runRefusedByTheParameterSpecification()
{
    openExample("oral-absorption");
    find<QTableWidget>("tableWidget_parametersSpec")->item(0, 0)->setText("50"); // above its upper bound
    find<QAction>("actionRun")->trigger();
    QCOMPARE(find<QTextEdit>("textEdi_compLog")->toPlainText(),
             QStringLiteral(
                     "Parameters are not specified correctly, Ambrel method cannot be run. Check Step 3."));
    QVERIFY(idle());
    QVERIFY(find<QSpinBox>("spinBox_numTotIter")->isEnabled());
}

void RunAndProjectTest::closingDuringARunWaitsForIt()
{
    openExample("oral-absorption");
    setShortRun(99, 10, 40);
    find<QAction>("actionRun")->trigger();
    QTRY_VERIFY_WITH_TIMEOUT(find<QTextEdit>("textEdi_compLog")->toPlainText().contains("iterNumber: 0"),
                             60000);
    QVERIFY(m_window->close());
    delete m_window; // must neither crash nor leave the engine's thread running
    m_window = nullptr;
}

// Everything a user enters, as texts and table cells, in one comparable list.
QStringList enteredTexts(const MainWindow *window)
{
    QStringList texts;
    for (const char *name : {"textEdit_ODEExpression", "textEdit_auxFunction", "textEdit_paraDefinition",
                             "textEdit_paraDefInverse"})
        texts << findNamed<QTextEdit>(window, name)->toPlainText();
    for (const char *name :
         {"tableWidget_doseEvents", "tableWidget_parametersSpec", "tableWidget_initialCluster",
          "tableWidget_observations", "tableWidget_simulationDoseEvents"}) {
        for (const QStringList &row : tableToStringMatrix(findNamed<QTableWidget>(window, name)))
            texts << row.join(QLatin1Char('|'));
        texts << QStringLiteral("--");
    }
    return texts;
}

void RunAndProjectTest::saveThenOpenRoundTripsEveryStep()
{
    const QString folder = openExample("oral-absorption");
    find<QTextEdit>("textEdit_auxFunction")->setPlainText("Cc = Ac/V");
    find<QPushButton>("pushButton_4")->click(); // Generate Parameters: an initial cluster to keep
    find<QTableWidget>("tableWidget_observations")->item(3, 2)->setText("LOG10(5.26816)");
    find<QAction>("actionSave")->trigger();
    const QStringList saved = enteredTexts(m_window);
    QVERIFY(saved.contains("0|Ag|320|0|oral dose"));
    QCOMPARE(m_window->windowTitle(), folder + " - Ambrel");

    MainWindow reopened;
    reopened.openProject(folder);
    QCOMPARE(enteredTexts(&reopened), saved);

    // A save in a later second keeps the earlier history copy beside the new one.
    QTest::qWait(1100);
    find<QAction>("actionSave")->trigger();
    const QStringList history = QDir(folder + "/history").entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    QCOMPARE(history.size(), 2);
    for (const QString &copy : history)
        QCOMPARE(QDir(folder + "/history/" + copy).entryList(QDir::Files).size(), 9);
}

void RunAndProjectTest::brokenFoldersLoadWithoutAMessageOrACrash()
{
    int messageBoxes = 0;
    const auto countBoxes = [&messageBoxes] {
        answerNextModal(
                [&messageBoxes](QWidget *box) {
                    ++messageBoxes;
                    static_cast<QDialog *>(box)->reject();
                },
                5); // looks for 50 ms, so it cannot answer a later test's dialog
    };
    // No observations file: the observation table is kept as it was.
    QString folder = copyExample(*m_dir, "oral-absorption");
    QFile::remove(folder + "/model/observations.txt");
    auto *observations = find<QTableWidget>("tableWidget_observations");
    observations->setRowCount(1);
    observations->setItem(0, 0, new QTableWidgetItem("1"));
    observations->setItem(0, 1, new QTableWidgetItem("Ac/V"));
    const StringMatrix before = tableToStringMatrix(observations);
    countBoxes();
    m_window->openProject(folder);
    QCOMPARE(tableToStringMatrix(observations), before);
    QTest::qWait(100);
    QCOMPARE(messageBoxes, 0);

    // Binary, empty and truncated files load as text and show the model's
    // problems.
    const QByteArray binary("\x00\xff\xfe\x01\x02(\n\x00,,\xc3", 11);
    QVERIFY(QFile(folder + "/model/ODE_expression.txt").open(QIODevice::WriteOnly)); // empty
    QFile dose(folder + "/model/dose_events.txt");
    QVERIFY(dose.open(QIODevice::WriteOnly) && dose.write(binary) == binary.size());
    dose.close();
    QVERIFY(writeFile(folder + "/model/parameter_specifications.csv", "0.5,20,0,10\n5,1"));
    QDir().mkpath(folder + "/compResult");
    QVERIFY(writeFile(folder + "/compResult/X_0.csv", "0.1,0."));
    m_window->openProject(folder);
    QVERIFY(!find<QTextEdit>("textEdit_error")->toPlainText().isEmpty());
    QVERIFY(idle());
}

// A whole run as a user makes it: the model typed, the tables filled cell by
// cell, an initial cluster generated, the run started with the button.
void RunAndProjectTest::typedModelRunsToTheEnd()
{
    const QString folder = m_dir->path() + "/typed";
    QDir().mkpath(folder);
    auto *ode = find<QTextEdit>("textEdit_ODEExpression");
    ode->setFocus();
    QTest::keyClicks(ode, "dAgdt = -ka*Ag");
    QTest::keyClick(ode, Qt::Key_Return);
    QTest::keyClicks(ode, "dAcdt = ka*Ag - CL/V*Ac");
    QTRY_COMPARE_WITH_TIMEOUT(find<QTableWidget>("tableWidget_parametersSpec")->rowCount(), 3, 5000);

    const auto fill = [this](const char *table, const StringMatrix &rows) {
        auto *widget = find<QTableWidget>(table);
        widget->setRowCount(std::max(widget->rowCount(), int(rows.size())));
        for (int r = 0; r < rows.size(); ++r)
            for (int c = 0; c < rows[r].size(); ++c) {
                widget->setCurrentCell(r, c);
                widget->setItem(r, c, new QTableWidgetItem(rows[r][c]));
            }
        widget->setCurrentCell(0, 0); // leaving the last cell checks the table
    };
    fill("tableWidget_doseEvents", {{"0", "Ag", "320", "0"}});
    fill("tableWidget_parametersSpec",
         {{"0.5", "20", "0", "100"}, {"5", "100", "0", "500"}, {"0.1", "5", "0", "20"}});
    StringMatrix observations;
    for (double t : {0.5, 1.0, 2.0, 4.0, 8.0, 12.0, 24.0}) {
        const double ke = 0.1, ka = 1.2;
        const double c = 320 * ka / (ka - ke) * (std::exp(-ke * t) - std::exp(-ka * t)) / 40;
        observations << QStringList{QString::number(t), "Ac/V", QString::number(c, 'g', 10)};
    }
    fill("tableWidget_observations", observations);
    QVERIFY2(find<QTextEdit>("textEdit_error")->toPlainText().isEmpty(),
             qPrintable(find<QTextEdit>("textEdit_error")->toPlainText()));
    setShortRun(8, 2, 40);
    find<QPushButton>("pushButton_4")->click();
    QCOMPARE(find<QTableWidget>("tableWidget_initialCluster")->rowCount(), 40);

    answerNextModal([&folder](QWidget *dialog) { // the first save asks for the folder
        auto *chooser = static_cast<QFileDialog *>(dialog);
        chooser->selectFile(folder);
        static_cast<QDialog *>(chooser)->accept();
    });
    find<QPushButton>("pushButton_runAMmethod")->click();
    QTRY_VERIFY_WITH_TIMEOUT(idle(), 60000);
    auto *progress = find<QProgressBar>("progressBar_AM");
    QCOMPARE(progress->value(), progress->maximum());
    QVERIFY(find<QTextEdit>("textEdi_compLog")->toPlainText().contains("iterNumber: 9"));
    // The folder the dialog gave (the chooser may settle on the folder or on
    // the one it was shown) holds the model and the result.
    const QString log = find<QTextEdit>("textEdi_compLog")->toPlainText();
    const QString saved = log.section("Model and Computation result are saved in ", -1).trimmed();
    QVERIFY2(saved.startsWith(m_dir->path()), qPrintable(saved));
    QVERIFY(QFile::exists(saved + "/compResult/X_9.csv"));
    QVERIFY(QFile::exists(saved + "/model/ODE_expression.txt"));
}

QTEST_MAIN(RunAndProjectTest)
#include "test_run_and_project.moc"
