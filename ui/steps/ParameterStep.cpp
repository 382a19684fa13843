#include "ParameterStep.h"

#include "CellValidation.h"
#include "StepWidgets.h"
#include "engine/EngineSetup.h"
#include "project/TableFiles.h"
#include "ui/ProjectDocument.h"
#include "ui/Workbench.h"
#include "ui/messages/ProblemHtml.h"
#include "ui/steps/ModelEditorStep.h"
#include "ui/tables/TableWidgetFiles.h"
#include "ui/widgets/QTableWidgetWithCopyPaste.h"

#include <QDateTime>
#include <QFileDialog>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QSpinBox>
#include <QTextEdit>
#include <QVBoxLayout>

#include <cmath>
#include <cstdint>

ParameterStep::ParameterStep(const Workbench &workbench, QObject *parent)
    : WorkflowStep(workbench, parent)
    , m_generator(static_cast<std::uint64_t>(QDateTime::currentMSecsSinceEpoch()))
{
    buildSpecificationPage();
    buildTransformationPage();
    // The parameter names change only when the model editor re-parses.
    if (const ModelEditorStep *editor = workbench.modelEditor)
        connect(editor, &ModelEditorStep::reparsed, this, &ParameterStep::followParameterNames);
}

void ParameterStep::buildSpecificationPage()
{
    m_specificationPage = new QWidget;
    auto *layout = new QVBoxLayout(m_specificationPage);
    // One row per model parameter; the rows and their name headers follow the
    // parameter names of the parsed ODE system.
    m_specification =
            makeDataTable("tableWidget_parametersSpec", 0,
                          {tr("Parameter Domain of Interest LB"), tr("Parameter Domain of Interest UB"),
                           tr("Theoretical LB (by default 0, set to 'nb' if no bound)"),
                           tr("Theoretical UB (if applicable)"), tr("Note (optional):")},
                          m_specificationPage);
    layout->addWidget(m_specification);
}

void ParameterStep::buildTransformationPage()
{
    m_transformationPage = new QWidget;
    auto *grid = new QGridLayout(m_transformationPage);
    m_definition = makeFormulaEditor("textEdit_paraDefinition", m_transformationPage);
    m_inverse = makeFormulaEditor("textEdit_paraDefInverse", m_transformationPage);
    grid->addWidget(makeLabel(tr("g(x)"), m_transformationPage, m_definition), 0, 0);
    grid->addWidget(makeLabel(tr("g inverse"), m_transformationPage, m_inverse), 0, 1);
    grid->addWidget(m_definition, 1, 0);
    grid->addWidget(m_inverse, 1, 1);

    // The initial cluster: one row per point, one column per unfixed
    // parameter (transformed coordinates x).
    m_initialCluster = makeDataTable("tableWidget_initialCluster", 0, {}, m_transformationPage);
    grid->addWidget(makeLabel(tr("Initial Cluster"), m_transformationPage, m_initialCluster), 2, 0, 1, 2);
    grid->addWidget(m_initialCluster, 3, 0, 1, 2);
    grid->setRowStretch(1, 2);
    grid->setRowStretch(3, 3);

    m_clusterSize = named(new QSpinBox(m_transformationPage), "spinBox_numInitICluster");
    m_clusterSize->setRange(0, 10000);
    m_clusterSize->setSingleStep(10);
    m_clusterSize->setValue(250);
    m_generate = makeButton("pushButton_4", tr("Generate Parameters"), m_transformationPage);
    m_import = makeButton("pushButton_importInitCluster", tr("Import initial X"), m_transformationPage);
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(makeLabel(tr("Number of points:"), m_transformationPage, m_clusterSize));
    buttons->addWidget(m_clusterSize);
    buttons->addWidget(m_generate);
    buttons->addWidget(m_import);
    buttons->addStretch();
    grid->addLayout(buttons, 4, 0, 1, 2);
}

void ParameterStep::setModelEditable(bool enable)
{
    m_generate->setEnabled(enable);
    m_import->setEnabled(enable);
    m_clusterSize->setEnabled(enable);
    setTableEditable(m_specification, enable);
    setTableEditable(m_initialCluster, enable);
    m_definition->setReadOnly(!enable);
    m_inverse->setReadOnly(!enable);
}

QStringList ParameterStep::parameterNames() const
{
    return workbench().document->model().system.parameterNames;
}

void ParameterStep::followParameterNames()
{
    const OdeSystemText &system = workbench().document->model().system;
    if (!system.errors.isEmpty() || system.stateVariableNames.isEmpty())
        return;
    const QStringList &names = system.parameterNames;
    QStringList rowNames;
    for (int r = 0; r < m_specification->rowCount(); ++r) {
        const QTableWidgetItem *header = m_specification->verticalHeaderItem(r);
        rowNames << (header ? header->text() : QString());
    }
    if (rowNames == names)
        return;

    const TableCells old = tableCells(m_specification);
    TableCells cells;
    cells.setColumnCount(old.columnCount());
    cells.setRowCount(names.size());
    for (int i = 0; i < names.size(); ++i) {
        int from = rowNames.indexOf(names[i]);
        if (from < 0 && i < rowNames.size() && rowNames[i].isEmpty())
            from = i;
        if (from >= 0)
            cells.rows[i] = old.rows[from];
        else if (cells.columnCount() > 2)
            cells.setCell(i, 2, QStringLiteral("0"));
    }
    setTableCells(m_specification, cells);
    m_specification->setVerticalHeaderLabels(names);
}

bool ParameterStep::processSpecification(bool force)
{
    const QStringList names = parameterNames();
    const QVector<ParameterSpecificationRow> rows =
            readParameterSpecification(tableToStringMatrix(m_specification));
    colourSpecificationCells();
    const QStringList problems = checkParameterSpecification(names, rows);
    if (!problems.isEmpty()) {
        workbench().errorPane->setHtml(redBlockHtml(problems + QStringList{parameterSpecificationRefusal()}));
        return false;
    }
    m_specification->setVerticalHeaderLabels(names);

    const TransformationText generated = generateTransformation(names, rows);
    const bool editorsEmpty =
            m_definition->toPlainText().trimmed().isEmpty() && m_inverse->toPlainText().trimmed().isEmpty();
    if (force || editorsEmpty || generated.g != m_generatedG || generated.gInverse != m_generatedInverse) {
        m_generatedG = generated.g;
        m_generatedInverse = generated.gInverse;
        m_definition->setPlainText(generated.g);
        m_inverse->setPlainText(generated.gInverse);
    }
    showTransformationMessages();
    setClusterHeaders();
    return true;
}

void ParameterStep::colourSpecificationCells()
{
    // Domain bounds must be numbers; a theoretical bound may also be empty
    // or "nb" (no bound).
    QVector<CellPosition> invalid;
    for (int r = 0; r < m_specification->rowCount(); ++r) {
        for (int c = 0; c < 4; ++c) {
            const QTableWidgetItem *item = m_specification->item(r, c);
            const QString text = item ? item->text().trimmed() : QString();
            const bool noBound =
                    text.isEmpty() || text.compare(QLatin1String("nb"), Qt::CaseInsensitive) == 0;
            if (std::isnan(parameterSpecificationCell(text)) && (c < 2 || !noBound))
                invalid.append({r, c});
        }
    }
    colourCells(m_specification, 4, invalid);
}

QStringList ParameterStep::transformationMessages() const
{
    const QStringList names = parameterNames();
    const QVector<ParameterSpecificationRow> rows =
            readParameterSpecification(tableToStringMatrix(m_specification));
    const QStringList problems = checkParameterSpecification(names, rows);
    if (!problems.isEmpty())
        return problems + QStringList{parameterSpecificationRefusal()};
    const int count = unfixedParameterIndices(rows).size();
    return parseTransformation(m_definition->toPlainText(), names, count).errors +
           parseInverseTransformation(m_inverse->toPlainText(), names, count).errors;
}

void ParameterStep::showTransformationMessages()
{
    workbench().errorPane->setHtml(redBlockHtml(transformationMessages()));
}

void ParameterStep::setClusterHeaders()
{
    const QStringList names = parameterNames();
    const QVector<ParameterSpecificationRow> rows =
            readParameterSpecification(tableToStringMatrix(m_specification));
    if (!checkParameterSpecification(names, rows).isEmpty())
        return;
    const QVector<int> unfixed = unfixedParameterIndices(rows);
    if (m_initialCluster->rowCount() == 0)
        m_initialCluster->setColumnCount(unfixed.size());
    for (int c = 0; c < m_initialCluster->columnCount(); ++c) {
        const QString label = c < unfixed.size()
                                      ? QStringLiteral("x%1 (%2)").arg(c + 1).arg(names[unfixed[c]])
                                      : QString::number(c + 1);
        m_initialCluster->setHorizontalHeaderItem(c, new QTableWidgetItem(label));
    }
}

DoubleMatrix ParameterStep::initialCluster() const
{
    return tableToDoubleMatrix(m_initialCluster);
}

DoubleMatrix ParameterStep::ensureInitialCluster()
{
    if (m_initialCluster->rowCount() == 0)
        generateParameters();
    return initialCluster();
}

void ParameterStep::showCluster(const DoubleMatrix &cluster)
{
    // The table takes the matrix's shape, also when it has no rows.
    m_initialCluster->setRowCount(0);
    matrixToTable(m_initialCluster, cluster);
    setClusterHeaders();
}

void ParameterStep::generateParameters()
{
    if (processSpecification())
        sampleCluster();
}

bool ParameterStep::sampleCluster()
{
    const ProjectModel &model = workbench().document->model();
    const SearchDomain domain = projectSearchDomain(model);
    for (int k = 0; k < domain.lower.size(); ++k) {
        if (!std::isfinite(domain.lower[k]) || !std::isfinite(domain.upper[k])) {
            const QString name = model.system.parameterNames.value(model.unfixedParameters.value(k));
            workbench().errorPane->setHtml(redBlockHtml(
                    model.gInverse.errors +
                    QStringList{QStringLiteral("Parameters cannot be generated: g inverse does not map the "
                                               "domain of interest of x%1 (%2) to finite values. Keep the "
                                               "domain of interest strictly inside the theoretical bounds.")
                                        .arg(k + 1)
                                        .arg(name)}));
            return false;
        }
    }
    showCluster(sampleInitialCluster(domain, m_clusterSize->value(), m_generator));
    return true;
}

void ParameterStep::makeTransformation()
{
    processSpecification(true);
}

void ParameterStep::specificationItemChanged(QTableWidgetItem *, QTableWidgetItem *)
{
    processSpecification();
}

void ParameterStep::definitionChanged()
{
    showTransformationMessages();
}

void ParameterStep::inverseChanged()
{
    showTransformationMessages();
}

void ParameterStep::importInitialCluster()
{
    const QString path = QFileDialog::getOpenFileName(m_transformationPage->window(), tr("Import initial X"),
                                                      QString(), tr("CSV files (*.csv);;All files (*)"));
    if (!path.isEmpty())
        importInitialClusterFrom(path);
}

void ParameterStep::importInitialClusterFrom(const QString &path)
{
    if (!processSpecification())
        return;
    const DoubleMatrix cluster = readDoubleMatrix(path);
    QWidget *window = m_transformationPage->window();
    if (cluster.isEmpty()) {
        QMessageBox::warning(window, tr("Import initial X"),
                             tr("The file %1 could not be read or holds no values.").arg(path));
        return;
    }
    const int unfixed = workbench().document->model().searchVariableCount;
    if (const std::optional<MessageBoxText> wrong = checkImportedClusterColumns(cluster, unfixed)) {
        QMessageBox box(QMessageBox::Warning, wrong->title, wrong->text, QMessageBox::Ok, window);
        box.exec();
        return;
    }
    showCluster(cluster);
    m_clusterSize->setValue(cluster.size());
}

void ParameterStep::clusterSizeChanged(int)
{
    // Deliberately nothing: see the declaration.
}
