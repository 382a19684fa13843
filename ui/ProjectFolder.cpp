#include "ProjectFolder.h"

#include "project/ModelFolder.h"
#include "project/ResultStore.h"
#include "ui/ProjectDocument.h"
#include "ui/Workbench.h"
#include "ui/steps/DoseEventsStep.h"
#include "ui/steps/ModelEditorStep.h"
#include "ui/steps/ObservationStep.h"
#include "ui/steps/ParameterStep.h"
#include "ui/steps/ResultsStep.h"
#include "ui/steps/RunStep.h"
#include "ui/steps/SimulationStep.h"
#include "ui/tables/TableWidgetFiles.h"
#include "ui/widgets/QTableWidgetWithCopyPaste.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QMessageBox>
#include <QSpinBox>
#include <QTextEdit>
#include <QTextStream>

#include <exception>

void readTableKeepingHeaders(const QString &path, QTableWidget *table)
{
    QStringList headers;
    for (int c = 0; c < table->columnCount(); ++c)
        headers << (table->horizontalHeaderItem(c) ? table->horizontalHeaderItem(c)->text() : QString());
    readTable(path, table);
    if (table->columnCount() < headers.size())
        table->setColumnCount(headers.size());
    for (int c = 0; c < headers.size(); ++c)
        table->setHorizontalHeaderItem(c, new QTableWidgetItem(headers[c]));
}

ProjectFolder::ProjectFolder(const Workbench &workbench, QObject *parent)
    : QObject(parent)
    , m_workbench(workbench)
{
}

QString ProjectFolder::chooseFolder(const QString &title) const
{
    return QFileDialog::getExistingDirectory(m_workbench.errorPane->window(), title, m_folder,
                                             QFileDialog::ShowDirsOnly | QFileDialog::DontResolveSymlinks);
}

void ProjectFolder::save()
{
    if (m_folder.isEmpty())
        m_folder = chooseFolder(tr("Choose Saving Directory"));
    if (m_folder.isEmpty())
        return;
    const ProjectDocument *document = m_workbench.document;
    saveModelFolder(m_folder, document->inputs(), document->model());
    showFolderInTitle();
}

void ProjectFolder::showFolderInTitle() const
{
    m_workbench.errorPane->window()->setWindowTitle(
            QStringLiteral("%1 - Ambrel").arg(QDir::toNativeSeparators(m_folder)));
}

void ProjectFolder::open()
{
    const QString folder = chooseFolder(tr("Choose Directory"));
    if (!folder.isEmpty())
        openFolder(folder);
}

void ProjectFolder::openFolder(const QString &folder)
{
    m_workbench.document->clearResult();
    m_workbench.parameters->initialClusterTable()->setRowCount(0);
    m_folder = folder;
    showFolderInTitle();
    loadModelTexts();
    loadTables();
    loadResult();
    // The error pane ends on the problems of the loaded tables.
    m_workbench.doseEvents->readDoseEvents();
    m_workbench.observations->readObservations();
}

void ProjectFolder::loadStep(const QString &failureText, const std::function<void()> &step)
{
    try {
        step();
    } catch (const std::exception &) {
        QMessageBox::critical(m_workbench.errorPane->window(), tr("Error"), failureText);
    } catch (...) {
        QMessageBox::critical(m_workbench.errorPane->window(), tr("Error"), failureText);
    }
}

bool ProjectFolder::loadText(const QString &name, const std::function<void(const QString &)> &setText) const
{
    QFile file(m_folder + name);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        qDebug().noquote() << "could not find" << name.section(QLatin1Char('/'), -1) << "file";
        return false;
    }
    QTextStream in(&file);
    in.setCodec("UTF-8");
    QStringList lines;
    while (!in.atEnd())
        lines << in.readLine();
    setText(lines.join(QLatin1Char('\n')));
    return true;
}

void ProjectFolder::loadModelTexts()
{
    ModelEditorStep *editor = m_workbench.modelEditor;
    loadText(QStringLiteral("/model/ODE_expression.txt"),
             [editor](const QString &text) { editor->odeEditor()->setPlainText(text); });
    editor->reparseOdeText();
    loadText(QStringLiteral("/model/ODE_auxiliary_function_expression.txt"),
             [editor](const QString &text) { editor->auxFunctionEditor()->setPlainText(text); });
    editor->reparseAuxFunctions();
}

void ProjectFolder::loadTables()
{
    const Workbench &w = m_workbench;
    const QString model = m_folder + QStringLiteral("/model/");
    loadStep(tr("Could not load Dose Events."), [&] {
        readTableKeepingHeaders(model + "dose_events.txt", w.doseEvents->table());
        readTableKeepingHeaders(model + "dose_events.txt", w.simulation->doseTable());
        w.modelEditor->reparseOdeText();
    });
    loadStep(tr("Could not load Parameter Domain of Interest and Theoretical Upper and Lower Bounds."), [&] {
        readTableKeepingHeaders(model + "parameter_specifications.csv", w.parameters->specificationTable());
        w.parameters->processSpecification();
    });
    loadStep(tr("Could not load Parameter Definition (g(x))."), [&] {
        loadText(QStringLiteral("/model/reparaDefinition.txt"),
                 [&w](const QString &text) { w.parameters->definitionEditor()->setPlainText(text); });
    });
    loadStep(tr("Could not load Inversse of Parameter Definition (g inverse)."), [&] {
        loadText(QStringLiteral("/model/reparaInverse.txt"),
                 [&w](const QString &text) { w.parameters->inverseEditor()->setPlainText(text); });
    });
    w.parameters->setClusterHeaders();
    loadStep(tr("Could not load Initial Cluster."), [&] {
        readTable(model + "initial_cluster.txt", w.parameters->initialClusterTable());
        w.parameters->setClusterHeaders(); // a file with other columns keeps the names
    });
    loadStep(tr("Could not load Observation Events."),
             [&] { readTableKeepingHeaders(model + "observations.txt", w.observations->table()); });
}

void ProjectFolder::loadResult()
{
    const Workbench &w = m_workbench;
    loadStep(tr("Could not load computation log."), [&] {
        loadText(QStringLiteral("/compResult/computation_log.txt"),
                 [&w](const QString &text) { w.run->logPane()->setPlainText(text); });
    });
    compResult record;
    QString note;
    const bool loaded = ::loadResult(m_folder, record, {}, &note);
    // Cut or mismatched result files: the log says which iterations were kept.
    if (!note.isEmpty())
        w.run->logPane()->append(QStringLiteral("\n") + note);
    if (loaded) {
        const int last = record.X.size() - 1;
        qDebug() << "num X: " << last;
        w.document->setResult(record);
        w.results->iterationBox()->setMaximum(last);
        w.results->iterationBox()->setValue(last);
    }
    // A folder without an initial cluster keeps the size the user has set.
    if (const int points = w.parameters->initialClusterTable()->rowCount())
        w.parameters->clusterSizeBox()->setValue(points);
}
