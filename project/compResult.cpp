#include "compResult.h"

#include <algorithm>
#include <cmath>
#include <numeric>

void compResult::updateSortIndex()
{
    sortIndex.clear();
    if (SSR.isEmpty())
        return;
    const QVector<double> &newest = SSR.last();
    sortIndex.resize(newest.size());
    std::iota(sortIndex.begin(), sortIndex.end(), 0);
    std::stable_sort(sortIndex.begin(), sortIndex.end(), [&newest](int a, int b) {
        const bool aNan = std::isnan(newest[a]), bNan = std::isnan(newest[b]);
        if (aNan != bNan)
            return bNan;
        return !aNan && newest[a] < newest[b];
    });
}

void compResult::truncateHistories(int count)
{
    X.resize(std::min(count, X.size()));
    Y.resize(std::min(count, Y.size()));
    Parameter.resize(std::min(count, Parameter.size()));
    SSR.resize(std::min(count, SSR.size()));
    lambda.resize(std::min(count, lambda.size()));
}
