#pragma once

#include "WorkflowStep.h"

#include "project/compResult.h"

#include <QStringList>

namespace QtCharts {
class QChartView;
}
class QLabel;
class QSpinBox;
class QTabWidget;
class QTableWidget;
class QWidget;

// Step6: the result views of a run. The tabs hold empty chart views until
// the result views draw into them.
class ResultsStep : public WorkflowStep {
    Q_OBJECT
public:
    ResultsStep(const Workbench &workbench, QObject *parent);

    // Tab titles of tabWidget, in order.
    static QStringList tabTitles();

    QWidget *page() const { return m_page; }
    QTabWidget *tabs() const { return m_tabs; }
    QSpinBox *iterationBox() const { return m_iteration; }
    QSpinBox *percentileBox() const { return m_percentile; }
    QLabel *toleranceLabel() const { return m_tolerance; }
    QTableWidget *correlationTable() const { return m_correlation; }
    // The chart view of the tab with the given title; null for an unknown one.
    QtCharts::QChartView *chartView(const QString &tabTitle) const;

    const compResult &result() const { return m_result; }
    // Keeps the record and refreshes the views.
    void setResult(const compResult &result);

    // Filled in with the result views: point selection, grouping, then the
    // view of the current tab. Runs when the iteration, the percentile or the
    // tab changes.
    void refresh();

private:
    QWidget *buildSelectionRow();
    QWidget *buildTab(const QString &title);

    QWidget *m_page = nullptr;
    QTabWidget *m_tabs = nullptr;
    QSpinBox *m_iteration = nullptr;
    QSpinBox *m_percentile = nullptr;
    QLabel *m_tolerance = nullptr;
    QTableWidget *m_correlation = nullptr;
    compResult m_result;
};
