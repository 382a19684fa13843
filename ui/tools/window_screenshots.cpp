// Writes a PNG of every workflow page of the window (and of the tabs inside
// the pages) into a folder, to look at the layout:
//
//     window_screenshots OUTDIR [PROJECT_FOLDER [--run]]
//
// With a project folder the project is opened first (and with --run the
// method runs to its end with the folder's settings before the pictures). Under
// X (for example Xvfb) the picture is taken from the screen, otherwise the
// window renders itself.
#include "ui/MainWindow.h"
#include "ui/ProjectDocument.h"
#include "ui/steps/ResultsStep.h"
#include "ui/steps/SimulationStep.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QMenu>
#include <QCheckBox>
#include <QEventLoop>
#include <QLineEdit>
#include <QMenuBar>
#include <QTableWidget>
#include <QPushButton>
#include <QScreen>
#include <QTabWidget>
#include <QThread>
#include <QToolBox>

namespace {

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

// The found parameters simulated for the first observation variable over the
// observation period.
void simulateFoundParameters(MainWindow &window)
{
    const ProjectModel &model = window.workbench().document->model();
    SimulationStep *step = window.workbench().simulation;
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
        window.openProject(arguments[2]);
    if (arguments.contains(QStringLiteral("--run"))) {
        QAction *run = window.findChild<QAction *>("actionRun");
        run->trigger();
        while (!run->isEnabled())
            settle();
    }

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

    // A result (stored or just computed): every tab of Step6, each also as
    // its "save plot as PDF" file, and the convergence plot of Step5.
    if (window.workbench().document->hasResult()) {
        // The standard errors of Parameter Range need the Jacobian.
        window.findChild<QPushButton *>("pushButton_computeJacobian")->click();
        auto *resultTabs = window.findChild<QTabWidget *>("tabWidget");
        for (int tab = 0; tab < resultTabs->count(); ++tab) {
            shootTab(6, "tabWidget", tab, QString("result-tab%1").arg(tab + 1));
            window.workbench().results->writeCurrentPlotPdf(
                    QString("%1/result-tab%2.pdf").arg(out).arg(tab + 1));
        }
        shootTab(5, "tabWidget_2", 2, "page6-convergence");
        resultTabs->setCurrentIndex(0);

        simulateFoundParameters(window);
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
