#pragma once

#include "ResultView.h"

#include <QHash>

#include <memory>

class ChartPanel;
class QCheckBox;

// "Observation-Simulation": the model at the observation times against the
// observations, per observation variable (the best point drawn bold, the
// other selected points as thin lines or, when many, as their min-max
// band); observed against predicted with the line of identity; the best
// point's residuals against time.
class ObservationSimulationView : public ResultView {
    Q_OBJECT
public:
    // Up to this many selected points are drawn as lines of their own.
    static constexpr int lineLimit = 30;

    explicit ObservationSimulationView(QObject *parent = nullptr);
    ~ObservationSimulationView() override;

    QWidget *widget() const override { return m_widget; }
    QString fileStem() const override { return QStringLiteral("observation_simulation"); }

    ChartPanel *timeCourse() const { return m_timeCourse.get(); }
    ChartPanel *observedPredicted() const { return m_observedPredicted.get(); }
    ChartPanel *residuals() const { return m_residuals.get(); }
    QCheckBox *logScaleBox() const { return m_logY; }

    // Points of the smooth curve of the best point; the curves are simulated
    // again after this (the model changed).
    static constexpr int curvePoints = 200;
    void forgetCurves();

signals:
    // The user changed how the view looks.
    void optionsChanged();

protected:
    void redraw(const ResultViewState &state) override;

private:
    void drawTimeCourse(const ResultViewState &state, const QVector<int> &shown);
    void drawObservedPredicted(const ResultViewState &state, const QVector<int> &shown);
    void drawResiduals(const ResultViewState &state, int best);
    void fillTable(const ResultViewState &state, const QVector<int> &shown);
    QVector<QPointF> bestCurve(const ResultViewState &state, int best, const QString &variable);

    QWidget *m_widget = nullptr;
    QCheckBox *m_logY = nullptr;
    std::unique_ptr<ChartPanel> m_timeCourse;
    std::unique_ptr<ChartPanel> m_observedPredicted;
    std::unique_ptr<ChartPanel> m_residuals;
    // The simulated curves of one best point, by variable.
    QVector<double> m_curveParameters;
    QHash<QString, QVector<QPointF>> m_curves;
};
