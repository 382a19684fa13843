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
    if (!state.hasIteration())
        return tr("Nothing to show: no computation result yet (run the Ambrel method or open a project "
                  "with a result).");
    if (state.selection.points.isEmpty())
        return tr("Nothing to show: iteration %1 has no points.").arg(state.iteration);
    return tr("Nothing to show: no selected point of iteration %1 has a finite SSR (every model "
              "evaluation failed).")
            .arg(state.iteration);
}

QString selectionCaption(const ResultViewState &state)
{
    return tr("iteration %1, %2 of %3 points (SSR percentile %4)")
            .arg(state.iteration)
            .arg(state.selection.points.size())
            .arg(state.ssr().size())
            .arg(state.percentile);
}
