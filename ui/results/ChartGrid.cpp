#include "ChartGrid.h"

#include "ChartPanel.h"

#include <QChartView>
#include <QGridLayout>
#include <QScrollArea>
#include <QVBoxLayout>

#include <cmath>

using QtCharts::QChartView;

ChartGrid::ChartGrid(const QString &objectName, int maxColumns, QWidget *parent)
    : QWidget(parent)
    , m_name(objectName)
    , m_maxColumns(maxColumns)
{
    auto *scroll = new QScrollArea(this);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    m_content = new QWidget;
    m_layout = new QGridLayout(m_content);
    m_layout->setContentsMargins(0, 0, 0, 0);
    m_layout->setSpacing(4);
    scroll->setWidget(m_content);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(scroll);
    setCount(1);
}

ChartGrid::~ChartGrid() = default;

void ChartGrid::setCount(int count)
{
    count = std::max(1, count);
    while (int(m_panels.size()) < count) {
        auto *view = new QChartView(m_content);
        const int number = int(m_panels.size()) + 1;
        view->setObjectName(number == 1 ? m_name : m_name + "_" + QString::number(number));
        view->setMinimumSize(240, 200);
        m_panels.push_back(std::make_unique<ChartPanel>(view));
        m_panels.back()->makeCompact();
    }
    if (count == m_shown)
        return;
    m_shown = count;
    place();
}

ChartPanel *ChartGrid::panel(int index) const
{
    return index >= 0 && index < int(m_panels.size()) ? m_panels[std::size_t(index)].get() : nullptr;
}

void ChartGrid::place()
{
    // As square a grid as the count allows, wider than tall, every cell
    // the same size.
    int columns = std::max(1, int(std::ceil(std::sqrt(double(m_shown)))));
    if (m_maxColumns > 0)
        columns = std::min(m_shown, m_maxColumns);
    for (int c = 0; c < m_layout->columnCount(); ++c)
        m_layout->setColumnStretch(c, 0);
    for (int r = 0; r < m_layout->rowCount(); ++r)
        m_layout->setRowStretch(r, 0);
    for (int c = 0; c < columns; ++c)
        m_layout->setColumnStretch(c, 1);
    for (int r = 0; r < (m_shown + columns - 1) / columns; ++r)
        m_layout->setRowStretch(r, 1);
    for (std::size_t i = 0; i < m_panels.size(); ++i) {
        QChartView *view = m_panels[i]->view();
        m_layout->removeWidget(view);
        const bool shown = int(i) < m_shown;
        view->setVisible(shown);
        if (shown)
            m_layout->addWidget(view, int(i) / columns, int(i) % columns);
    }
}
