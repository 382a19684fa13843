#pragma once

#include "WorkflowStep.h"

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

    // Filled in with the per-cell validation and the initial cluster.
    void generateParameters();
    void makeTransformation();
    void specificationItemChanged(QTableWidgetItem *current, QTableWidgetItem *previous);
    void definitionChanged();
    void inverseChanged();
    void importInitialCluster();
    void clusterSizeChanged(int size);

private:
    void buildSpecificationPage();
    void buildTransformationPage();

    QWidget *m_specificationPage = nullptr;
    QWidget *m_transformationPage = nullptr;
    QTableWidgetWithCopyPaste *m_specification = nullptr;
    QTextEdit *m_definition = nullptr;
    QTextEdit *m_inverse = nullptr;
    QTableWidgetWithCopyPaste *m_initialCluster = nullptr;
    QPushButton *m_generate = nullptr;
    QPushButton *m_import = nullptr;
    QSpinBox *m_clusterSize = nullptr;
};
