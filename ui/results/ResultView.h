#pragma once

#include "analysis/Grouping.h"
#include "analysis/PointSelection.h"
#include "analysis/ResultFrame.h"
#include "analysis/Uncertainty.h"
#include "project/compResult.h"

#include <QObject>

struct ProjectModel;
#include <QString>
#include <QStringList>

class QWidget;

// What every result view draws from: the record and its frame, the
// iteration shown, its selected points and their grouping, and the
// asymptotic uncertainty at the best point when a Jacobian is known.
struct ResultViewState {
    const compResult *result = nullptr;
    const ResultFrame *frame = nullptr;
    // The model of the window when it is usable and fits the record; null
    // otherwise.
    const ProjectModel *model = nullptr;
    int iteration = -1; // -1: the record has no iteration to show
    int percentile = 100;
    PointSelection selection;
    Grouping grouping; // parallel to selection.points

    // The Jacobian the uncertainty comes from; empty text when none.
    QString jacobianSource;
    AsymptoticUncertainty uncertainty;

    bool hasIteration() const { return result && frame && iteration >= 0; }
    // Rows of the iteration's histories (empty when missing).
    const DoubleMatrix &X() const;
    const DoubleMatrix &Y() const;
    const DoubleMatrix &parameters() const;
    const QVector<double> &ssr() const;
    // The selected points with a finite SSR, best first: the ones views draw.
    QVector<int> shownPoints() const;
    // The group of the selected point at position s of selection.points.
    int groupAt(int s) const { return grouping.groupOf.value(s, -1); }
};

// A drawn plot as labelled columns: the content of its CSV file.
struct PlotTable {
    QStringList columnNames;
    DoubleMatrix columns;
    QStringList rowLabels;
};

// One view of the results: a widget, a draw from the state and the table of
// what it drew.
class ResultView : public QObject {
    Q_OBJECT
public:
    explicit ResultView(QObject *parent = nullptr)
        : QObject(parent)
    {
    }

    virtual QWidget *widget() const = 0;
    // The file name stem of the view's exports, e.g. "parameter_range".
    virtual QString fileStem() const = 0;

    void draw(const ResultViewState &state)
    {
        ++m_draws;
        redraw(state);
    }
    // How often the view was drawn: the refresh draws only the current tab.
    int drawCount() const { return m_draws; }
    const PlotTable &table() const { return m_table; }

protected:
    virtual void redraw(const ResultViewState &state) = 0;

    PlotTable m_table;

private:
    int m_draws = 0;
};

// Texts shared by the views.
QString nothingToShowText(const ResultViewState &state);
// "iteration k, n of N points (percentile p)".
QString selectionCaption(const ResultViewState &state);
