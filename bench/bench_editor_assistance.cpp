// What the Step1 editors cost on the GUI thread when the re-parse timer fires
// for the bundled PBPK example (12 states and its auxiliary functions): the
// parse alone, the colouring alone, and the whole timeout as the window runs
// it (model build, labels, name lists, structure Jacobian, message area,
// re-colouring of both editors, then the repaint). Runs offscreen:
//
//     QT_QPA_PLATFORM=offscreen build/bench/bench_editor_assistance
#include "model/OdeSystemText.h"
#include "ui/MainWindow.h"
#include "ui/editor/OdeHighlighting.h"
#include "ui/steps/ModelEditorStep.h"
#include "ui/tables/TableWidgetFiles.h"

#include <QApplication>
#include <QFile>
#include <QLoggingCategory>
#include <QTableWidget>
#include <QTextEdit>

#include <benchmark/benchmark.h>

namespace {

const QString modelDir = QStringLiteral(AMBREL_EXAMPLES_DIR "/pbpk/model/");

QString modelFile(const char *name)
{
    QFile file(modelDir + QLatin1String(name));
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        qFatal("cannot read %s", name);
    return QString::fromUtf8(file.readAll());
}

const QString &odeText()
{
    static const QString text = modelFile("ODE_expression.txt");
    return text;
}

const QString &auxiliaryText()
{
    static const QString text = modelFile("ODE_auxiliary_function_expression.txt");
    return text;
}

void parseOnly(benchmark::State &state)
{
    for (auto _ : state) {
        OdeSystemText system(odeText(), auxiliaryText());
        system.parseOdeSystem();
        benchmark::DoNotOptimize(system.parameterNames);
    }
}
BENCHMARK(parseOnly)->Unit(benchmark::kMillisecond);

void colourOnly(benchmark::State &state)
{
    OdeSystemText system(odeText(), auxiliaryText());
    system.parseOdeSystem();
    for (auto _ : state) {
        for (const QString &text : {odeText(), auxiliaryText()}) {
            benchmark::DoNotOptimize(
                    highlightedModelHtml(text, system.stateVariableNames, system.parameterNames));
        }
    }
}
BENCHMARK(colourOnly)->Unit(benchmark::kMillisecond);

// Both texts just edited (so both editors are re-coloured, the dearer case),
// then the timer's timeout and the repaint it causes.
void timerTimeout(benchmark::State &state)
{
    MainWindow window;
    readTable(modelDir + "parameter_specifications.csv",
              window.findChild<QTableWidget *>("tableWidget_parametersSpec"));
    readTable(modelDir + "dose_events.txt", window.findChild<QTableWidget *>("tableWidget_doseEvents"));
    readTable(modelDir + "observations.txt", window.findChild<QTableWidget *>("tableWidget_observations"));
    ModelEditorStep *step = window.workbench().modelEditor;
    step->toggleAuxFunction(); // both editors on screen
    window.show();
    QApplication::processEvents();

    for (auto _ : state) {
        state.PauseTiming();
        step->odeEditor()->setPlainText(odeText());
        step->auxFunctionEditor()->setPlainText(auxiliaryText());
        QApplication::processEvents();
        state.ResumeTiming();
        step->reparseOdeText();
        QApplication::processEvents();
    }
    if (step->odeEditor()->toPlainText() != odeText())
        state.SkipWithError("the re-colouring changed the text");
}
BENCHMARK(timerTimeout)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    // The re-parse writes debug lines on every run.
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
    QApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
