#pragma once

#include "ResultView.h"

class ChartGrid;
class QCheckBox;
class QLabel;

// "Variable Variabilities": the spread of each state variable's trajectory
// over the selected points, from the stored model solutions: the median and
// the min-max band over time. The record keeps the solutions of its newest
// iteration only, so this view always shows that iteration.
class VariableVariabilityView : public ResultView {
    Q_OBJECT
public:
    explicit VariableVariabilityView(QObject *parent = nullptr);

    QWidget *widget() const override { return m_widget; }
    QString fileStem() const override { return QStringLiteral("variable_variabilities"); }

    ChartGrid *grid() const { return m_grid; }
    QCheckBox *logScaleBox() const { return m_logY; }
    QLabel *caption() const { return m_caption; }

signals:
    // The log scale or the update button: the view wants a redraw.
    void optionsChanged();

protected:
    void redraw(const ResultViewState &state) override;

private:
    void drawState(const ResultViewState &state, const QVector<int> &withSolution, int variable,
                   const QVector<double> &times);

    QWidget *m_widget = nullptr;
    QCheckBox *m_logY = nullptr;
    QLabel *m_caption = nullptr;
    ChartGrid *m_grid = nullptr;
};
