#include "Grouping.h"

#include "analysis/ClusterStatistics.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

bool usable(const QVector<double> &row, int columns)
{
    if (row.size() < columns)
        return false;
    for (int c = 0; c < columns; ++c)
        if (!std::isfinite(row[c]))
            return false;
    return true;
}

double squaredDistance(const QVector<double> &a, const QVector<double> &b, int columns)
{
    double sum = 0;
    for (int c = 0; c < columns; ++c) {
        const double d = a[c] - b[c];
        sum += d * d;
    }
    return sum;
}

int columnCount(const DoubleMatrix &rows)
{
    int columns = 0;
    for (const QVector<double> &row : rows)
        columns = std::max(columns, row.size());
    return columns;
}

// Farthest-point seeding from the first usable row.
DoubleMatrix seedCentres(const DoubleMatrix &rows, const QVector<int> &usableRows, int groups, int columns)
{
    DoubleMatrix centres{rows[usableRows.first()]};
    QVector<double> nearest(usableRows.size(), std::numeric_limits<double>::infinity());
    while (centres.size() < groups) {
        int farthest = -1;
        double farthestDistance = 0;
        for (int u = 0; u < usableRows.size(); ++u) {
            nearest[u] = std::min(nearest[u], squaredDistance(rows[usableRows[u]], centres.last(), columns));
            if (nearest[u] > farthestDistance) {
                farthestDistance = nearest[u];
                farthest = usableRows[u];
            }
        }
        if (farthest < 0) // every row coincides with a seed
            break;
        centres << rows[farthest];
    }
    return centres;
}

int nearestCentre(const QVector<double> &row, const DoubleMatrix &centres, int columns)
{
    int nearest = 0;
    double best = squaredDistance(row, centres[0], columns);
    for (int g = 1; g < centres.size(); ++g) {
        const double d = squaredDistance(row, centres[g], columns);
        if (d < best) {
            best = d;
            nearest = g;
        }
    }
    return nearest;
}

void moveCentres(const DoubleMatrix &rows, Grouping &grouping, int columns)
{
    DoubleMatrix sums(grouping.centres.size(), QVector<double>(columns, 0.0));
    QVector<int> counts(grouping.centres.size(), 0);
    for (int r = 0; r < rows.size(); ++r) {
        const int g = grouping.groupOf[r];
        if (g < 0)
            continue;
        ++counts[g];
        for (int c = 0; c < columns; ++c)
            sums[g][c] += rows[r][c];
    }
    for (int g = 0; g < sums.size(); ++g)
        if (counts[g] > 0)
            for (int c = 0; c < columns; ++c)
                grouping.centres[g][c] = sums[g][c] / counts[g];
}

// Renumbers the groups in the order of their first row and drops empty ones.
void numberByFirstRow(Grouping &grouping)
{
    QVector<int> newNumber(grouping.centres.size(), -1);
    DoubleMatrix centres;
    for (int &g : grouping.groupOf) {
        if (g < 0)
            continue;
        if (newNumber[g] < 0) {
            newNumber[g] = centres.size();
            centres << grouping.centres[g];
        }
        g = newNumber[g];
    }
    grouping.centres = centres;
    grouping.groupCount = centres.size();
}

} // namespace

Grouping kMeans(const DoubleMatrix &rows, int groups, int maxPasses)
{
    Grouping grouping;
    const int columns = columnCount(rows);
    grouping.groupOf = QVector<int>(rows.size(), -1);
    QVector<int> usableRows;
    for (int r = 0; r < rows.size(); ++r)
        if (usable(rows[r], columns))
            usableRows << r;
    if (usableRows.isEmpty() || groups < 1)
        return grouping;

    grouping.centres = seedCentres(rows, usableRows, groups, columns);
    while (grouping.passes < maxPasses) {
        ++grouping.passes;
        bool moved = false;
        for (int r : usableRows) {
            const int g = nearestCentre(rows[r], grouping.centres, columns);
            moved = moved || g != grouping.groupOf[r];
            grouping.groupOf[r] = g;
        }
        grouping.converged = !moved;
        if (!moved)
            break;
        moveCentres(rows, grouping, columns);
    }
    numberByFirstRow(grouping);
    return grouping;
}

double meanSilhouette(const DoubleMatrix &rows, const Grouping &grouping, int sampleLimit)
{
    if (grouping.groupCount < 2)
        return kNaN;
    const int columns = columnCount(rows);
    QVector<int> grouped;
    for (int r = 0; r < rows.size(); ++r)
        if (grouping.groupOf.value(r, -1) >= 0)
            grouped << r;
    const int stride = std::max(1, (grouped.size() + sampleLimit - 1) / std::max(1, sampleLimit));
    QVector<int> sample;
    for (int s = 0; s < grouped.size(); s += stride)
        sample << grouped[s];

    double total = 0;
    QVector<double> distanceSum(grouping.groupCount);
    QVector<int> members(grouping.groupCount);
    for (int i : sample) {
        distanceSum.fill(0);
        members.fill(0);
        for (int j : sample) {
            if (j == i)
                continue;
            const int g = grouping.groupOf[j];
            distanceSum[g] += std::sqrt(squaredDistance(rows[i], rows[j], columns));
            ++members[g];
        }
        const int own = grouping.groupOf[i];
        if (members[own] == 0) // alone in its group: silhouette 0
            continue;
        const double a = distanceSum[own] / members[own];
        double b = std::numeric_limits<double>::infinity();
        for (int g = 0; g < grouping.groupCount; ++g)
            if (g != own && members[g] > 0)
                b = std::min(b, distanceSum[g] / members[g]);
        if (std::isfinite(b) && std::max(a, b) > 0)
            total += (b - a) / std::max(a, b);
    }
    return sample.isEmpty() ? kNaN : total / sample.size();
}

GroupCountChoice chooseGroupCount(const DoubleMatrix &rows, int maxGroups)
{
    GroupCountChoice choice;
    choice.silhouettes = QVector<double>(std::max(1, maxGroups), kNaN);
    double best = -std::numeric_limits<double>::infinity();
    for (int k = 2; k <= maxGroups; ++k) {
        const Grouping grouping = kMeans(rows, k);
        if (grouping.groupCount < k)
            break;
        const double silhouette = meanSilhouette(rows, grouping);
        choice.silhouettes[k - 1] = silhouette;
        if (silhouette > best) {
            best = silhouette;
            choice.groups = k;
        }
    }
    if (!(best >= minimumSilhouette))
        choice.groups = 1;
    return choice;
}

QVector<GroupSummary> summariseGroups(const Grouping &grouping, const DoubleMatrix &values,
                                      const QVector<double> &ssr)
{
    QVector<GroupSummary> groups(grouping.groupCount);
    QVector<QVector<int>> members(grouping.groupCount);
    for (int r = 0; r < grouping.groupOf.size(); ++r) {
        const int g = grouping.groupOf[r];
        if (g < 0)
            continue;
        members[g] << r;
        GroupSummary &group = groups[g];
        ++group.size;
        const double s = ssr.value(r, kNaN);
        if (std::isfinite(s) && (group.bestRow < 0 || s < group.bestSsr)) {
            group.bestRow = r;
            group.bestSsr = s;
        }
    }
    const int columns = columnCount(values);
    for (int g = 0; g < groups.size(); ++g) {
        if (groups[g].bestRow < 0)
            groups[g].bestSsr = kNaN;
        for (int c = 0; c < columns; ++c) {
            QVector<double> column;
            for (int r : members[g])
                column << values.value(r).value(c, kNaN);
            groups[g].median << medianOf(column);
        }
    }
    return groups;
}
