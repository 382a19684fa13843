#pragma once

#include "WorkflowStep.h"

#include "analysis/Grouping.h"
#include "analysis/PointSelection.h"
#include "analysis/ResultFrame.h"
#include "analysis/Uncertainty.h"
#include "project/compResult.h"
#include "ui/results/ResultView.h"

#include <QHash>
#include <QStringList>

namespace QtCharts {
class QChartView;
}
class ConvergenceView;
class QLabel;
class QPushButton;
class QSpinBox;
class QTabWidget;
class QTableWidget;
class QWidget;

// Step6: the result views of a run. A refresh recomputes the point
// selection of the chosen iteration and percentile, regroups the selected
// points and redraws the view of the current tab only, so the refresh after
// every iteration of a run stays cheap. Step5's "Convergence" tab and
// Step7's "Compute Jacobian" belong to the result analyses too and are
// wired here.
class ResultsStep : public WorkflowStep {
    Q_OBJECT
public:
    ResultsStep(const Workbench &workbench, QObject *parent);
    ~ResultsStep() override;

    // Tab titles of tabWidget, in order.
    static QStringList tabTitles();

    QWidget *page() const { return m_page; }
    QTabWidget *tabs() const { return m_tabs; }
    QSpinBox *iterationBox() const { return m_iteration; }
    QSpinBox *percentileBox() const { return m_percentile; }
    QSpinBox *clusterCountBox() const { return m_clusters; }
    QLabel *toleranceLabel() const { return m_tolerance; }
    QLabel *clusteringNote() const { return m_clusteringNote; }
    QTableWidget *correlationTable() const;
    // The (first) chart view of the tab with the given title; null for an
    // unknown one.
    QtCharts::QChartView *chartView(const QString &tabTitle) const;
    // The view of the tab with the given title; null for an unknown one.
    ResultView *view(const QString &tabTitle) const;
    ConvergenceView *convergence() const { return m_convergence; }

    // Follows the document's result, wires Step7's "Compute Jacobian" and
    // places the "Convergence" tab in Step5; called once every step exists.
    void connectWorkbench();

    const compResult &result() const { return m_result; }
    // Keeps the record, moves the iteration to its last one and refreshes.
    void setResult(const compResult &result);

    // The point selection, then (with at least one point selected) the
    // grouping, then the view of the current tab. Runs when the iteration,
    // the percentile, the number of groups or the tab changes.
    void refresh();

    const PointSelection &selection() const { return m_selection; }
    const Grouping &grouping() const { return m_grouping; }
    // The iteration shown; -1 when the record has none.
    int shownIteration() const;

    // "find Optimal Clustering": sets the number of groups by the mean
    // silhouette over 1 to 10 groups.
    void findOptimalClustering();
    // One row per group: size, best SSR, the best member's parameters and
    // the group's median.
    PlotTable typicalParameters() const;
    void saveTypicalParameters();

    // The exports of the current tab's plot.
    QString proposedFileName(const QString &stem, const QString &suffix) const;
    QString currentPlotCsvText() const;
    void savePlotAsCsv();
    void savePlotAsPdf();
    bool writeCurrentPlotPdf(const QString &path) const;

    // Step7's "Compute Jacobian": the Jacobian of the Stage 2 model at the
    // best point by finite differences, kept for the standard errors and
    // saved as "jacobian_<iteration>.csv" under compResult.
    void computeJacobian();

private:
    QWidget *buildSelectionRow();
    QWidget *buildGroupingRow();
    void connectViews();
    void showTolerance();
    void recomputeSelection();
    void regroup();
    void redrawCurrentView();
    void drawVariabilities();
    ResultViewState viewState(int iteration, const PointSelection &selection) const;
    void attachUncertainty(ResultViewState &state) const;
    const ResultFrame &frame() const;
    const SsrOrder &orderOf(int iteration) const;
    int iterationCount() const;
    QString projectFolder() const;
    void saveLastJacobian() const;
    void reportJacobianProblem(const QString &text) const;

    QWidget *m_page = nullptr;
    QTabWidget *m_tabs = nullptr;
    QSpinBox *m_iteration = nullptr;
    QSpinBox *m_percentile = nullptr;
    QLabel *m_tolerance = nullptr;
    QSpinBox *m_clusters = nullptr;
    QLabel *m_clusteringNote = nullptr;
    QVector<ResultView *> m_views; // in tab order
    ConvergenceView *m_convergence = nullptr;

    compResult m_result;
    mutable ResultFrame m_frame;
    mutable bool m_frameStale = true;
    mutable QHash<int, SsrOrder> m_orders; // the per-iteration SSR lists
    PointSelection m_selection;
    Grouping m_grouping;

    // The Jacobian computed by "Compute Jacobian", at point x of an iteration.
    struct ComputedJacobian {
        int iteration = -1;
        QVector<double> x;
        ModelJacobian jacobian;
    } m_computed;
};
