// Writes a PNG of every workflow page of the window (and of the tabs inside
// the pages) into a folder, to look at the layout:
//
//     window_screenshots OUTDIR [PROJECT_FOLDER]
//
// With a project folder the model files are shown in the widgets first, and
// the simulation page is also shown with five parameter sets simulated. Under
// X (for example Xvfb) the picture is taken from the screen, otherwise the
// window renders itself.
#include "ui/MainWindow.h"
#include "ui/steps/SimulationStep.h"
#include "ui/tables/TableWidgetFiles.h"
#include "ui/widgets/QTableWidgetWithCopyPaste.h"

#include "project/ProjectModel.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QScreen>
#include <QTabWidget>
#include <QTableWidget>
#include <QTextEdit>
#include <QTextStream>
#include <QThread>
#include <QToolBox>

namespace {

QString fileText(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return {};
    return QTextStream(&file).readAll();
}

// Shows the model files in the widgets (no checks: only for the pictures).
void showModel(MainWindow &window, const QString &folder)
{
    const QString model = folder + "/model/";
    const auto text = [&](const char *name, const char *file) {
        window.findChild<QTextEdit *>(name)->setPlainText(fileText(model + file));
    };
    text("textEdit_ODEExpression", "ODE_expression.txt");
    text("textEdit_auxFunction", "ODE_auxiliary_function_expression.txt");
    text("textEdit_paraDefinition", "reparaDefinition.txt");
    text("textEdit_paraDefInverse", "reparaInverse.txt");
    readTable(model + "dose_events.txt", window.findChild<QTableWidget *>("tableWidget_doseEvents"));
    readTable(model + "dose_events.txt",
              window.findChild<QTableWidget *>("tableWidget_simulationDoseEvents"));
    readTable(model + "parameter_specifications.csv",
              window.findChild<QTableWidget *>("tableWidget_parametersSpec"));
    readTable(model + "observations.txt", window.findChild<QTableWidget *>("tableWidget_observations"));
}

// Five parameter sets spread over the domains of interest, simulated for the
// first observation variable over the observation period.
void simulateFiveSets(MainWindow &window, const QString &folder)
{
    const ProjectModel model = loadProjectModel(folder);
    SimulationStep *step = window.workbench().simulation;
    DoubleMatrix sets;
    for (int k = 0; k < 5; ++k) {
        QVector<double> set;
        for (const ParameterSpecificationRow &row : model.parameterRows)
            set << row.domainLower + (row.domainUpper - row.domainLower) * (k + 1) / 6;
        sets << set;
    }
    matrixToTable(step->parameterTable(), sets);
    setHorizontalHeaders(step->parameterTable(), model.system.parameterNames);
    auto *observations = window.findChild<QTableWidget *>("tableWidget_observations");
    step->variableEdit()->setText(observations->item(0, 1)->text());
    double last = 0;
    for (const ObservationEvent &event : model.observations)
        last = qMax(last, event.time);
    step->timePointsEdit()->setText(QString("0:%1:%2").arg(last / 400).arg(last));
    step->timePointsEdited();
    QEventLoop loop;
    QObject::connect(step, &SimulationStep::simulationFinished, &loop, &QEventLoop::quit);
    step->computeSimulation();
    if (step->isComputing())
        loop.exec();
}

void settle()
{
    for (int i = 0; i < 10; ++i) {
        // There is no event loop running: objects deleted later (the chart's
        // replaced axes) would stay on the picture.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QApplication::processEvents();
        QThread::msleep(20);
    }
}

void shoot(MainWindow &window, const QString &path)
{
    settle();
    const bool onScreen = QGuiApplication::platformName() == QLatin1String("xcb");
    const QPixmap picture = onScreen ? window.screen()->grabWindow(window.winId()) : window.grab();
    if (!picture.save(path))
        qWarning("could not write %s", qPrintable(path));
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.size() < 2) {
        qWarning("usage: window_screenshots OUTDIR [PROJECT_FOLDER]");
        return 2;
    }
    const QString out = arguments[1];
    QDir().mkpath(out);

    MainWindow window;
    window.show();
    if (arguments.size() > 2)
        showModel(window, arguments[2]);

    auto *toolBox = window.findChild<QToolBox *>("toolBox");
    for (int i = 0; i < toolBox->count(); ++i) {
        toolBox->setCurrentIndex(i);
        shoot(window, QString("%1/page%2.png").arg(out).arg(i + 1));
    }
    const auto shootTab = [&](int page, const char *tabs, int tab, const QString &name) {
        toolBox->setCurrentIndex(page);
        window.findChild<QTabWidget *>(tabs)->setCurrentIndex(tab);
        shoot(window, out + "/" + name + ".png");
    };
    shootTab(5, "tabWidget_2", 1, "page6-settings");
    shootTab(6, "tabWidget", 4, "page7-parameter-parameter");
    shootTab(7, "tabWidget_3", 0, "page8-simulation-parameters");
    shootTab(7, "tabWidget_3", 2, "page8-simulation-results");
    if (arguments.size() > 2) {
        simulateFiveSets(window, arguments[2]);
        shootTab(7, "tabWidget_3", 2, "page8-simulation-linear");
        window.workbench().simulation->logScaleBox()->setChecked(true);
        shootTab(7, "tabWidget_3", 2, "page8-simulation-log");
        shootTab(7, "tabWidget_3", 0, "page8-simulation-parameters-filled");
    }

    // Everything the View menu can show.
    for (const char *name :
         {"actionShowHideAuxFunction", "actionShowHideStructJacobian", "actionShowHideWeights"})
        window.findChild<QAction *>(name)->trigger();
    toolBox->setCurrentIndex(0);
    shoot(window, out + "/page1-all-shown.png");
    shootTab(5, "tabWidget_2", 1, "page6-settings-weights");

    // The menus are windows of their own: only a screen picture shows them.
    if (QGuiApplication::platformName() == QLatin1String("xcb")) {
        for (QAction *menuAction : window.menuBar()->actions()) {
            QMenu *menu = menuAction->menu();
            menu->popup(window.mapToGlobal(window.menuBar()->actionGeometry(menuAction).bottomLeft()));
            settle();
            window.screen()->grabWindow(0).save(out + "/menu-" + menu->objectName() + ".png");
            menu->hide();
        }
    }
    return 0;
}
