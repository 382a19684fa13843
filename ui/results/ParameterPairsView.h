#pragma once

#include "ResultView.h"

#include <memory>

class ChartPanel;
class QComboBox;
class QTableWidget;

// "Parameter-Parameter distribution": a chosen pair of estimated parameters
// (or one against the SSR) over the selected points, coloured by group, so
// several equivalent minimisers show as separate groups; beside it the
// sample correlation matrix of X over the selected points
// (tableWidget_X_corr), whose cells choose the pair when clicked.
class ParameterPairsView : public ResultView {
    Q_OBJECT
public:
    explicit ParameterPairsView(QObject *parent = nullptr);
    ~ParameterPairsView() override;

    QWidget *widget() const override { return m_widget; }
    QString fileStem() const override { return QStringLiteral("parameter_pairs"); }

    ChartPanel *chart() const { return m_chart.get(); }
    QTableWidget *correlationTable() const { return m_correlation; }
    QComboBox *xBox() const { return m_x; }
    QComboBox *yBox() const { return m_y; }

signals:
    void optionsChanged();

protected:
    void redraw(const ResultViewState &state) override;

private:
    void updateChoices(const ResultFrame &frame);
    void choosePair(int row, int column);
    void drawPairs(const ResultViewState &state, const QVector<int> &shown);
    void fillTable(const ResultViewState &state, const QVector<int> &shown);

    QWidget *m_widget = nullptr;
    QComboBox *m_x = nullptr;
    QComboBox *m_y = nullptr;
    std::unique_ptr<ChartPanel> m_chart;
    QTableWidget *m_correlation = nullptr;
    QStringList m_names;
};
