#include "ResultView.h"

#include <QCoreApplication>

#include <cmath>
#include <limits>

namespace {

const DoubleMatrix &rowsAt(const QVector<DoubleMatrix> &history, int k)
{
    static const DoubleMatrix empty;
    return k >= 0 && k < history.size() ? history[k] : empty;
}

QString tr(const char *text)
{
    return QCoreApplication::translate("ResultView", text);
}

} // namespace

const DoubleMatrix &ResultViewState::X() const
{
    return rowsAt(result->X, iteration);
}

const DoubleMatrix &ResultViewState::Y() const
{
    return rowsAt(result->Y, iteration);
}

const DoubleMatrix &ResultViewState::parameters() const
{
    return rowsAt(result->Parameter, iteration);
}

const QVector<double> &ResultViewState::ssr() const
{
    static const QVector<double> empty;
    return iteration >= 0 && iteration < result->SSR.size() ? result->SSR[iteration] : empty;
}

QVector<int> ResultViewState::shownPoints() const
{
    QVector<int> shown;
    const QVector<double> &values = ssr();
    for (int i : selection.points)
        if (std::isfinite(values.value(i, std::numeric_limits<double>::quiet_NaN())))
            shown << i;
    return shown;
}

QString nothingToShowText(const ResultViewState &state)
{
    // Chart titles do not wrap: short texts.
    if (!state.hasIteration())
        return tr("Nothing to show: no result yet (run the method or open a project).");
    if (state.selection.points.isEmpty())
        return tr("Nothing to show: iteration %1 has no points.").arg(state.iteration);
    return tr("Nothing to show: every model evaluation of iteration %1 failed.").arg(state.iteration);
}

QString selectionCaption(const ResultViewState &state)
{
    return tr("iteration %1, %2 of %3 points (SSR percentile %4)")
            .arg(state.iteration)
            .arg(state.selection.points.size())
            .arg(state.ssr().size())
            .arg(state.percentile);
}
