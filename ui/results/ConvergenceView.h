#pragma once

#include "ResultView.h"

#include <memory>

class ChartPanel;
class QPushButton;

// Step5's "Convergence" tab: the minimum and quartiles of the SSR of every
// iteration on a log axis, redrawn with each record of a run.
class ConvergenceView : public QObject {
    Q_OBJECT
public:
    explicit ConvergenceView(QObject *parent = nullptr);
    ~ConvergenceView() override;

    QWidget *widget() const { return m_widget; }
    ChartPanel *chart() const { return m_chart.get(); }
    const PlotTable &table() const { return m_table; }

    void draw(const compResult &result);

signals:
    void saveCsvRequested();
    void savePdfRequested();

private:
    QWidget *m_widget = nullptr;
    std::unique_ptr<ChartPanel> m_chart;
    PlotTable m_table;
};
