#include "ChartPanel.h"

#include <QAreaSeries>
#include <QCategoryAxis>
#include <QChart>
#include <QChartView>
#include <QLegendMarker>
#include <QLineSeries>
#include <QLogValueAxis>
#include <QScatterSeries>
#include <QValueAxis>

#include <algorithm>
#include <cmath>
#include <numeric>

using namespace QtCharts;

namespace {

QAbstractAxis *makeAxis(bool log)
{
    if (log) {
        auto *axis = new QLogValueAxis;
        axis->setBase(10);
        axis->setLabelFormat(QStringLiteral("%g"));
        axis->setMinorTickCount(8);
        return axis;
    }
    auto *axis = new QValueAxis;
    axis->setLabelFormat(QStringLiteral("%g"));
    return axis;
}

bool hasPoints(QAbstractSeries *series)
{
    if (auto *area = qobject_cast<QAreaSeries *>(series))
        return area->upperSeries()->count() > 0;
    auto *xy = qobject_cast<QXYSeries *>(series);
    return xy && xy->count() > 0;
}

QAbstractAxis *makeCategoryAxis(const QStringList &labels, const QVector<double> &positions)
{
    auto *axis = new QCategoryAxis;
    axis->setLabelsPosition(QCategoryAxis::AxisLabelsPositionOnValue);
    // Categories are appended in increasing order of their values.
    QVector<int> order(labels.size());
    std::iota(order.begin(), order.end(), 0);
    std::sort(order.begin(), order.end(), [&positions](int a, int b) { return positions[a] < positions[b]; });
    axis->setStartValue(order.isEmpty() ? 0 : positions[order.first()] - 1);
    for (int i : order)
        axis->append(labels[i], positions[i]);
    axis->setGridLineVisible(false);
    return axis;
}

// Sets the range; a value axis gets round tick values, a log axis labels
// every power of ten, or every second, third ... one when there are many.
void setAxisRange(QAbstractAxis *axis, double low, double high)
{
    if (!std::isfinite(low) || !std::isfinite(high) || !(high > low))
        return;
    if (qobject_cast<QCategoryAxis *>(axis)) {
        axis->setRange(low, high);
        return;
    }
    if (auto *value = qobject_cast<QValueAxis *>(axis)) {
        const NiceAxis nice = niceAxis(low, high);
        value->setRange(nice.low, nice.high);
        value->setTickCount(nice.ticks);
    } else if (auto *log = qobject_cast<QLogValueAxis *>(axis)) {
        log->setRange(low, high);
        const int step = std::max(1, int(std::ceil(std::log10(high / low) / 6)));
        log->setBase(std::pow(10.0, step));
        log->setMinorTickCount(step == 1 ? 8 : 0);
    }
}

} // namespace

ChartPanel::ChartPanel(QChartView *view)
    : m_view(view)
{
    m_view->setRenderHint(QPainter::Antialiasing);
    chart()->legend()->setAlignment(Qt::AlignBottom);
    chart()->setMargins(QMargins(4, 4, 4, 4));
    QFont font = chart()->titleFont();
    font.setBold(true);
    chart()->setTitleFont(font);
}

QChart *ChartPanel::chart() const
{
    return m_view->chart();
}

template<typename Series>
Series *ChartPanel::series(const QString &key)
{
    m_used[key] = true;
    if (QAbstractSeries *existing = m_series.value(key))
        return static_cast<Series *>(existing);
    auto *created = new Series;
    m_series.insert(key, created);
    chart()->addSeries(created);
    attach(created);
    return created;
}

void ChartPanel::attach(QAbstractSeries *series)
{
    for (QAbstractAxis *axis : {m_x, m_y})
        if (axis && !series->attachedAxes().contains(axis))
            series->attachAxis(axis);
}

void ChartPanel::begin()
{
    m_used.clear();
}

QLineSeries *ChartPanel::line(const QString &key, const QVector<QPointF> &points, const QPen &pen,
                              const QString &legend)
{
    auto *s = series<QLineSeries>(key);
    s->setPen(pen);
    s->setName(legend);
    s->replace(points);
    return s;
}

QScatterSeries *ChartPanel::scatter(const QString &key, const QVector<QPointF> &points, const QColor &color,
                                    qreal size, const QString &legend, bool square)
{
    auto *s = series<QScatterSeries>(key);
    s->setMarkerShape(square ? QScatterSeries::MarkerShapeRectangle : QScatterSeries::MarkerShapeCircle);
    s->setMarkerSize(size);
    s->setColor(color);
    s->setBorderColor(square ? Qt::black : color.darker(130));
    s->setName(legend);
    s->replace(points);
    return s;
}

QAreaSeries *ChartPanel::band(const QString &key, const QVector<QPointF> &lower,
                              const QVector<QPointF> &upper, const QColor &color, const QString &legend)
{
    m_used[key] = true;
    auto *area = static_cast<QAreaSeries *>(m_series.value(key));
    if (!area) {
        area = new QAreaSeries(new QLineSeries, new QLineSeries);
        area->upperSeries()->setParent(area);
        area->lowerSeries()->setParent(area);
        m_series.insert(key, area);
        chart()->addSeries(area);
        attach(area);
    }
    area->upperSeries()->replace(upper);
    area->lowerSeries()->replace(lower);
    area->setColor(color);
    area->setBorderColor(color.darker(110));
    area->setName(legend);
    return area;
}

void ChartPanel::useAxes(const PlotRange &wanted)
{
    // A log axis that could label fewer than two powers of ten shows no
    // numbers at all: such a range is drawn on a value axis.
    PlotRange range = wanted;
    range.logX = range.logX && logAxisUseful(range.xMin, range.xMax);
    range.logY = range.logY && logAxisUseful(range.yMin, range.yMax);
    if (!m_x || m_logX != range.logX) {
        if (m_x) {
            chart()->removeAxis(m_x);
            delete m_x;
        }
        m_x = makeAxis(range.logX);
        m_logX = range.logX;
        chart()->addAxis(m_x, Qt::AlignBottom);
    }
    const bool wantCategory = m_categoryY && !range.logY;
    const bool isCategory = qobject_cast<QCategoryAxis *>(m_y) != nullptr;
    if (!m_y || m_logY != range.logY || wantCategory != isCategory || wantCategory) {
        if (m_y) {
            chart()->removeAxis(m_y);
            delete m_y;
        }
        m_y = wantCategory ? makeCategoryAxis(m_categories, m_categoryPositions) : makeAxis(range.logY);
        m_logY = range.logY;
        chart()->addAxis(m_y, Qt::AlignLeft);
    }
    setAxisRange(m_x, range.xMin, range.xMax);
    setAxisRange(m_y, range.yMin, range.yMax);
}

void ChartPanel::finish(const PlotRange &range, const QString &xTitle, const QString &yTitle)
{
    useAxes(range);
    m_x->setTitleText(xTitle);
    m_y->setTitleText(yTitle);
    m_x->setVisible(true);
    m_y->setVisible(true);
    m_x->setLabelsVisible(m_xLabels);
    m_x->setGridLineVisible(m_xLabels);
    for (auto it = m_series.begin(); it != m_series.end(); ++it) {
        QAbstractSeries *s = it.value();
        const bool used = m_used.value(it.key());
        if (!used) {
            if (auto *xy = qobject_cast<QXYSeries *>(s))
                xy->clear();
        }
        s->setVisible(used);
        attach(s);
        for (QLegendMarker *marker : chart()->legend()->markers(s))
            marker->setVisible(used && !s->name().isEmpty() && hasPoints(s));
    }
}

void ChartPanel::showMessage(const QString &text)
{
    begin();
    for (QAbstractSeries *s : qAsConst(m_series)) {
        if (auto *xy = qobject_cast<QXYSeries *>(s))
            xy->clear();
        s->setVisible(false);
        for (QLegendMarker *marker : chart()->legend()->markers(s))
            marker->setVisible(false);
    }
    for (QAbstractAxis *axis : {m_x, m_y})
        if (axis)
            axis->setVisible(false);
    chart()->setTitle(text);
}

void ChartPanel::setTitle(const QString &title)
{
    chart()->setTitle(title);
}

void ChartPanel::setLegendVisible(bool visible)
{
    chart()->legend()->setVisible(visible);
}

void ChartPanel::makeCompact()
{
    chart()->setMargins(QMargins(2, 2, 2, 2));
    chart()->legend()->setVisible(false);
}

void ChartPanel::setCategoryY(const QStringList &labels, const QVector<double> &positions)
{
    m_categoryY = true;
    m_categories = labels;
    m_categoryPositions = positions;
}

QVector<QPointF> ChartPanel::thinned(const QVector<QPointF> &points, const PlotRange &range,
                                     int cellPixels) const
{
    if (points.size() <= thinningThreshold)
        return plottable(points, range.logX, range.logY);
    QSizeF area = chart()->plotArea().size();
    if (area.width() < 50 || area.height() < 50) // not laid out yet
        area = QSizeF(std::max(240, m_view->width()) * 0.8, std::max(200, m_view->height()) * 0.7);
    return thinToCells(points, range, int(area.width()) / cellPixels, int(area.height()) / cellPixels);
}

QVector<QPointF> ChartPanel::points(const QString &key) const
{
    auto *s = qobject_cast<QXYSeries *>(m_series.value(key));
    if (!s || !s->isVisible())
        return {};
    return s->pointsVector();
}

bool ChartPanel::isShown(const QString &key) const
{
    QAbstractSeries *s = m_series.value(key);
    return s && s->isVisible() && hasPoints(s);
}

QColor paletteColor(int index)
{
    static const QColor colors[] = {QColor(0x4E, 0x79, 0xA7), QColor(0xF2, 0x8E, 0x2B),
                                    QColor(0xE1, 0x57, 0x59), QColor(0x76, 0xB7, 0xB2),
                                    QColor(0x59, 0xA1, 0x4F), QColor(0xED, 0xC9, 0x48),
                                    QColor(0xB0, 0x7A, 0xA1), QColor(0xFF, 0x9D, 0xA7),
                                    QColor(0x9C, 0x75, 0x5F), QColor(0xBA, 0xB0, 0xAC)};
    const int count = int(sizeof(colors) / sizeof(colors[0]));
    return colors[((index % count) + count) % count];
}

QColor faded(const QColor &color, int alpha)
{
    QColor c = color.lighter(120);
    c.setAlpha(alpha);
    return c;
}
