#pragma once

#include "model/Matrices.h"

#include <QVector>

// Grouping of cluster points (rows of coordinates) by k-means.

struct Grouping {
    int groupCount = 0;
    // Per row its group from 0; -1 for a row with a coordinate that is not a
    // finite number. Groups are numbered in the order of their first row, so
    // with rows in SSR order group 0 holds the best point.
    QVector<int> groupOf;
    DoubleMatrix centres;
    int passes = 0;        // assignment passes made
    bool converged = true; // the last pass moved no row
};

// k-means over the usable rows (every coordinate finite). Seeds: the first
// usable row, then again and again the row farthest from every seed so far
// (the lower index on ties), so the grouping is deterministic and groups far
// apart each get a seed. The number of groups is at most the number of
// distinct usable rows. At most maxPasses passes, each assigning every row to
// its nearest centre and moving the centres to their rows' means; it stops
// after a pass that moved no row. A centre left without rows stays where it
// was.
Grouping kMeans(const DoubleMatrix &rows, int groups, int maxPasses = 100);

// The mean silhouette width of a grouping (from -1 to 1: how much closer the
// rows lie to their own group than to the nearest other one). With more than
// sampleLimit usable rows it is computed on an even stride through them. NaN
// with fewer than two groups.
double meanSilhouette(const DoubleMatrix &rows, const Grouping &grouping, int sampleLimit = 1500);

// The number of groups from 1 to maxGroups: the k from 2 up with the largest
// mean silhouette, provided it reaches minimumSilhouette (a reasonable
// structure); otherwise 1. silhouettes[k - 1] holds the value of k groups
// (NaN for k = 1 and for a k beyond the distinct rows).
struct GroupCountChoice {
    int groups = 1;
    QVector<double> silhouettes;
};
constexpr double minimumSilhouette = 0.5;
GroupCountChoice chooseGroupCount(const DoubleMatrix &rows, int maxGroups = 10);

// One group of a grouping: its size, its member with the smallest finite
// SSR (-1 when none has one) and the median of each column of values over
// its members. values and ssr are parallel to the grouped rows.
struct GroupSummary {
    int size = 0;
    int bestRow = -1;
    double bestSsr = 0;
    QVector<double> median;
};
QVector<GroupSummary> summariseGroups(const Grouping &grouping, const DoubleMatrix &values,
                                      const QVector<double> &ssr);
