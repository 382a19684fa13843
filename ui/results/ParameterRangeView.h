#pragma once

#include "ResultView.h"

#include <memory>

class ChartPanel;
class QLabel;
class QTableWidget;

// Where a value lies on a parameter's row of the range chart: 0 at the lower
// and 1 at the upper end of the span (log10 on a log scale).
struct RangeScale {
    bool log = false;
    double low = 0;
    double high = 1;
    double position(double value) const;
};
// The domain of interest when it is known and not a single value; otherwise
// the span of the values.
RangeScale rangeScaleFor(const ParameterSpecificationRow &row, bool log, const QVector<double> &values);

// "Parameter Range": each parameter's range over the selected points drawn
// against its domain of interest and theoretical bounds, on a common scale
// where the domain of interest runs from 0 to 1 (logarithmic for the
// parameters shown on log axes), with the range of each group in its colour
// under it; beside it the asymptotic standard errors,
// 95 % intervals and correlations of the estimates at the best point, when a
// Jacobian is known.
class ParameterRangeView : public ResultView {
    Q_OBJECT
public:
    // Groups drawn with a range bar of their own.
    static constexpr int maxGroupBars = 10;

    explicit ParameterRangeView(QObject *parent = nullptr);
    ~ParameterRangeView() override;

    QWidget *widget() const override { return m_widget; }
    QString fileStem() const override { return QStringLiteral("parameter_range"); }

    ChartPanel *chart() const { return m_chart.get(); }
    QTableWidget *uncertaintyTable() const { return m_uncertainty; }
    QTableWidget *estimateCorrelationTable() const { return m_correlation; }
    QLabel *sourceLabel() const { return m_source; }

protected:
    void redraw(const ResultViewState &state) override;

private:
    void drawRanges(const ResultViewState &state, const QVector<int> &shown);
    void drawGroupRanges(const ResultViewState &state, const QVector<int> &shown, int parameter,
                         const RangeScale &scale, double y, double low, double high);
    void fillUncertainty(const ResultViewState &state, const QVector<int> &shown);
    void fillTable(const ResultViewState &state, const QVector<int> &shown);

    QWidget *m_widget = nullptr;
    std::unique_ptr<ChartPanel> m_chart;
    QLabel *m_source = nullptr;
    QTableWidget *m_uncertainty = nullptr;
    QTableWidget *m_correlation = nullptr;
};

// The normal 97.5 % quantile: a 95 % interval is the estimate +- this many
// standard errors.
constexpr double normalQuantile975 = 1.959963984540054;
