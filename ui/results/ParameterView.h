#pragma once

#include "ResultView.h"

class ChartGrid;
class QTableWidget;

// "Parameters": every parameter's values over the selected points as a strip
// of dots coloured by group (log axis where the parameter is), the best point
// marked, and a table of the best value, median, minimum and maximum.
class ParameterView : public ResultView {
    Q_OBJECT
public:
    explicit ParameterView(QObject *parent = nullptr);

    QWidget *widget() const override { return m_widget; }
    QString fileStem() const override { return QStringLiteral("parameters"); }

    ChartGrid *grid() const { return m_grid; }
    QTableWidget *summaryTable() const { return m_summary; }

protected:
    void redraw(const ResultViewState &state) override;

private:
    void drawStrip(const ResultViewState &state, const QVector<int> &shown, int parameter);
    void fillSummary(const ResultViewState &state, const QVector<int> &shown);
    void fillTable(const ResultViewState &state, const QVector<int> &shown);

    QWidget *m_widget = nullptr;
    ChartGrid *m_grid = nullptr;
    QTableWidget *m_summary = nullptr;
};

// The horizontal spread of the dot at position s of a strip, from -0.8 to
// 0.8, the same in every strip so a point keeps its place.
double stripOffset(int s);
