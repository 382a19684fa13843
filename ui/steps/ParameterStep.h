#pragma once

#include "WorkflowStep.h"

#include "model/Matrices.h"

#include <QStringList>

#include <random>

class QPushButton;
class QSpinBox;
class QTableWidgetItem;
class QTableWidgetWithCopyPaste;
class QTextEdit;
class QWidget;

// Step3 (the parameter specification table) and Step3-2 (the
// transformation texts g(x) and g inverse, and the initial cluster).
class ParameterStep : public WorkflowStep {
    Q_OBJECT
public:
    ParameterStep(const Workbench &workbench, QObject *parent);

    QWidget *specificationPage() const { return m_specificationPage; }
    QWidget *transformationPage() const { return m_transformationPage; }

    QTableWidgetWithCopyPaste *specificationTable() const { return m_specification; }
    QTextEdit *definitionEditor() const { return m_definition; }
    QTextEdit *inverseEditor() const { return m_inverse; }
    QTableWidgetWithCopyPaste *initialClusterTable() const { return m_initialCluster; }
    QSpinBox *clusterSizeBox() const { return m_clusterSize; }

    void setModelEditable(bool enable) override;

    // The specification rows follow the model's parameter names: one row per
    // name, in order, headed by the name. A row keeps its cells while its name
    // stays (a row without a name header keeps its place); a new name gets an
    // empty row with the theoretical lower bound "0". Runs after each re-parse
    // of the ODE text or the auxiliary functions; while the ODE text has
    // errors or no equations the rows stay as they are.
    void followParameterNames();

    // Checks the specification against the parameter names. Problems and the
    // refusal go to the error pane in red, unreadable or missing bounds turn
    // red. When it is usable: heads the rows with the names, regenerates g(x)
    // and g inverse if the generated texts differ from the last ones written
    // (so hand edits survive until the bounds change) or if force is set,
    // shows their parse messages and sets the initial-cluster headers.
    // Returns whether the specification is usable.
    bool processSpecification(bool force = false);
    // The initial-cluster column headers, one per unfixed parameter: "x" k
    // " (" parameter name ")". An empty table takes one column per header; a
    // filled one keeps its columns. Nothing happens while the specification
    // is unusable.
    void setClusterHeaders();

    // The initial-cluster table as numbers (transformed coordinates).
    DoubleMatrix initialCluster() const;
    // The initial cluster, generated and shown first when the table is empty;
    // empty when it cannot be generated (the reason is in the error pane).
    DoubleMatrix ensureInitialCluster();

    // "Generate Parameters": spinBox_numInitICluster points drawn uniformly in
    // the domain of interest mapped through g inverse.
    void generateParameters();
    // Regenerates g(x) and g inverse from the specification whatever they hold.
    void makeTransformation();
    void specificationItemChanged(QTableWidgetItem *current, QTableWidgetItem *previous);
    // Edits of g(x) and g inverse: both texts are re-parsed and their
    // messages shown in the error pane.
    void definitionChanged();
    void inverseChanged();
    // "Import initial X": asks for a comma-separated file and imports it.
    void importInitialCluster();
    // Reads the file into the initial-cluster table, or refuses it: a file
    // whose rows do not have one column per unfixed parameter gets the modal
    // "Wrong Size" box and changes nothing.
    void importInitialClusterFrom(const QString &path);
    // The number of points only counts when Generate Parameters is pressed,
    // so changing it never discards a loaded or imported cluster.
    void clusterSizeChanged(int size);

private:
    void buildSpecificationPage();
    void buildTransformationPage();

    QStringList parameterNames() const;
    // The specification's checks, or the parse messages of g and g inverse
    // when it is usable.
    QStringList transformationMessages() const;
    void showTransformationMessages();
    void colourSpecificationCells();
    void showCluster(const DoubleMatrix &cluster);
    bool sampleCluster();

    QWidget *m_specificationPage = nullptr;
    QWidget *m_transformationPage = nullptr;
    QTableWidgetWithCopyPaste *m_specification = nullptr;
    QTextEdit *m_definition = nullptr;
    QTextEdit *m_inverse = nullptr;
    QTableWidgetWithCopyPaste *m_initialCluster = nullptr;
    QPushButton *m_generate = nullptr;
    QPushButton *m_import = nullptr;
    QSpinBox *m_clusterSize = nullptr;

    // The g and g inverse texts last generated, to tell whether the bounds
    // changed since.
    QString m_generatedG;
    QString m_generatedInverse;
    std::mt19937_64 m_generator;
};
