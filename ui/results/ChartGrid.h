#pragma once

#include <QString>
#include <QVector>
#include <QWidget>

#include <memory>

class ChartPanel;
class QGridLayout;

// Small charts side by side, one per parameter or state variable, in a
// scrolling grid. Panels are made when the count grows and kept otherwise,
// so redraws reuse them. The first panel's view bears the grid's object
// name, the others the name followed by "_" and their number from 2.
class ChartGrid : public QWidget {
    Q_OBJECT
public:
    // At most maxColumns charts side by side (0: as square a grid as the
    // count allows).
    ChartGrid(const QString &objectName, int maxColumns = 0, QWidget *parent = nullptr);
    ~ChartGrid() override;

    // Shows count panels (at least one: an empty grid shows its message in
    // the first).
    void setCount(int count);
    int count() const { return m_shown; }
    ChartPanel *panel(int index) const;

private:
    void place();

    QString m_name;
    int m_maxColumns = 0;
    QWidget *m_content = nullptr;
    QGridLayout *m_layout = nullptr;
    std::vector<std::unique_ptr<ChartPanel>> m_panels;
    int m_shown = 0;
};
