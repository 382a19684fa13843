#pragma once

#include "ResultView.h"

class ChartGrid;

// "SSR-Parameter": the SSR of every point of the iteration against each
// estimated parameter on a log SSR axis, the selected points darker, with
// the lower envelope (the smallest SSR found along the parameter): the
// cluster's picture of a profile likelihood. A flat envelope marks a
// parameter the data do not determine.
class SsrParameterView : public ResultView {
    Q_OBJECT
public:
    explicit SsrParameterView(QObject *parent = nullptr);

    QWidget *widget() const override;
    QString fileStem() const override { return QStringLiteral("SSR_parameter"); }

    ChartGrid *grid() const { return m_grid; }
    // The parameters drawn, in panel order.
    const QVector<int> &parametersShown() const { return m_parameters; }

    // Bins of the envelope for n points.
    static int envelopeBins(int points);

protected:
    void redraw(const ResultViewState &state) override;

private:
    void drawPanel(const ResultViewState &state, int panelIndex, int parameter,
                   const QVector<bool> &selected);
    void fillTable(const ResultViewState &state, const QVector<bool> &selected);

    ChartGrid *m_grid = nullptr;
    QVector<int> m_parameters;
    QVector<QVector<QPointF>> m_envelopes;
};
