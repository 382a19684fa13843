#include "engine/LocalJacobian.h"

#include <algorithm>

// The product kernel is built twice where the compiler can dispatch at load
// time: for AVX2 and for the baseline. The AVX2 build has no fused
// multiply-add (that is a separate instruction set), so both give the same
// bits.
#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__) && defined(__linux__)
#define AMBREL_VECTOR_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define AMBREL_VECTOR_CLONES
#endif
// The kernel's helpers are inlined into each build of it, so that they take
// its instruction set.
#define AMBREL_KERNEL_INLINE inline __attribute__((always_inline))
// The lanes never cross a call boundary (the helpers are inlined).
#pragma GCC diagnostic ignored "-Wpsabi"

namespace {

// Four doubles side by side, loaded and stored without alignment. Sums of
// lanes are element-wise, so a lane holds the same bits as a scalar sum.
typedef double Lanes __attribute__((vector_size(32)));
typedef double UnalignedLanes __attribute__((vector_size(32), aligned(8)));

AMBREL_KERNEL_INLINE Lanes loadLanes(const double *from)
{
    return *reinterpret_cast<const UnalignedLanes *>(from);
}

AMBREL_KERNEL_INLINE void storeLanes(double *to, Lanes value)
{
    *reinterpret_cast<UnalignedLanes *>(to) = value;
}

// One register block of the product: Rows x (4 Groups) sums kept in
// registers over the whole tile.
template<std::size_t Rows, std::size_t Groups>
AMBREL_KERNEL_INLINE void productBlock(const double *left, std::size_t leftStride, const double *right,
                                       std::size_t tile, std::size_t columns, double *product)
{
    Lanes sum[Rows][Groups];
    for (std::size_t a = 0; a < Rows; ++a)
        for (std::size_t g = 0; g < Groups; ++g)
            sum[a][g] = loadLanes(product + a * columns + 4 * g);
    for (std::size_t t = 0; t < tile; ++t) {
        Lanes r[Groups];
        for (std::size_t g = 0; g < Groups; ++g)
            r[g] = loadLanes(right + t * columns + 4 * g);
        for (std::size_t a = 0; a < Rows; ++a) {
            const double x = left[a * leftStride + t];
            const Lanes xs = {x, x, x, x};
            for (std::size_t g = 0; g < Groups; ++g)
                sum[a][g] += xs * r[g];
        }
    }
    for (std::size_t a = 0; a < Rows; ++a)
        for (std::size_t g = 0; g < Groups; ++g)
            storeLanes(product + a * columns + 4 * g, sum[a][g]);
}

// The last columns (fewer than four) of a block of rows, one by one.
template<std::size_t Rows>
AMBREL_KERNEL_INLINE void productColumn(const double *left, std::size_t leftStride, const double *right,
                                        std::size_t tile, std::size_t columns, double *product)
{
    double sum[Rows];
    for (std::size_t a = 0; a < Rows; ++a)
        sum[a] = product[a * columns];
    for (std::size_t t = 0; t < tile; ++t)
        for (std::size_t a = 0; a < Rows; ++a)
            sum[a] += left[a * leftStride + t] * right[t * columns];
    for (std::size_t a = 0; a < Rows; ++a)
        product[a * columns] = sum[a];
}

// The blocks of Rows rows of the product, across all columns.
template<std::size_t Rows>
AMBREL_KERNEL_INLINE void productRows(const double *left, std::size_t leftStride, const double *right,
                                      std::size_t tile, std::size_t columns, double *product)
{
    std::size_t j = 0;
    for (; j + 8 <= columns; j += 8)
        productBlock<Rows, 2>(left, leftStride, right + j, tile, columns, product + j);
    for (; j + 4 <= columns; j += 4)
        productBlock<Rows, 1>(left, leftStride, right + j, tile, columns, product + j);
    for (; j < columns; ++j)
        productColumn<Rows>(left, leftStride, right + j, tile, columns, product + j);
}

} // namespace

AMBREL_VECTOR_CLONES
void accumulateProduct(const double *left, std::size_t leftStride, const double *right, std::size_t rows,
                       std::size_t tile, std::size_t columns, double *product)
{
    std::size_t q = 0;
    for (; q + 4 <= rows; q += 4)
        productRows<4>(left + q * leftStride, leftStride, right, tile, columns, product + q * columns);
    for (; q + 2 <= rows; q += 2)
        productRows<2>(left + q * leftStride, leftStride, right, tile, columns, product + q * columns);
    for (; q < rows; ++q)
        productRows<1>(left + q * leftStride, leftStride, right, tile, columns, product + q * columns);
}

// The weights of neighbours start .. start + count - 1 of valid point i, as
// neighbourWeight gives them. The difference X_i - X_k has the same square as
// X_k - X_i, bit for bit, so the order of the pair does not matter here.
AMBREL_VECTOR_CLONES
void neighbourWeights(const LocalFitInputs &in, std::size_t i, std::size_t start, std::size_t count,
                      double *weights)
{
    if (in.uniformNeighbourhood) {
        std::fill(weights, weights + count, 1.0);
    } else {
        std::fill(weights, weights + count, 0.0);
        for (std::size_t q = 0; q < in.p; ++q) {
            const double xq = in.X[i * in.p + q];
            const double range = in.range[q];
            const double *column = in.columns.data() + q * in.n + start;
            for (std::size_t t = 0; t < count; ++t) {
                const double scaled = (xq - column[t]) / range;
                weights[t] += scaled * scaled;
            }
        }
        for (std::size_t t = 0; t < count; ++t)
            weights[t] = 1.0 / weights[t];
    }
    for (std::size_t t = 0; t < count; ++t)
        if (!in.valid[start + t])
            weights[t] = 0.0;
    if (i >= start && i < start + count)
        weights[i - start] = 0.0;
}

AMBREL_VECTOR_CLONES
std::size_t gatherNeighbours(const double *__restrict joined, const double *__restrict own,
                             const double *__restrict weights, std::size_t count, std::size_t columns,
                             std::size_t p, double *__restrict right, double *__restrict left,
                             std::size_t leftStride)
{
    std::size_t used = 0;
    for (std::size_t t = 0; t < count; ++t) {
        const double w = weights[t];
        if (w == 0.0)
            continue;
        const double *neighbour = joined + t * columns;
        double *row = right + used * columns;
        for (std::size_t c = 0; c < columns; ++c)
            row[c] = neighbour[c] - own[c];
        for (std::size_t q = 0; q < p; ++q)
            left[q * leftStride + used] = w * row[q];
        ++used;
    }
    return used;
}

double neighbourWeight(const LocalFitInputs &in, std::size_t i, std::size_t k)
{
    if (k == i || !in.valid[i] || !in.valid[k])
        return 0.0;
    if (in.uniformNeighbourhood)
        return 1.0;
    const double *low = in.X + std::min(i, k) * in.p;
    const double *high = in.X + std::max(i, k) * in.p;
    double distance = 0.0;
    for (std::size_t q = 0; q < in.p; ++q) {
        const double scaled = (low[q] - high[q]) / in.range[q];
        distance += scaled * scaled;
    }
    return 1.0 / distance;
}

LocalFitWorkspace::LocalFitWorkspace(const LocalFitInputs &in)
    : m_columns(in.p + in.m)
    , m_weights(kTile)
    , m_left(in.p * kTile)
    , m_right(kTile * m_columns)
    , m_sums(kBlock * in.p * m_columns)
    , m_normal(in.p * in.p)
    , m_cross(in.p * in.m)
    , m_solution(in.p * in.m)
{
    m_cg.resize(in.p, in.m);
}

void LocalFitWorkspace::addTile(const LocalFitInputs &in, std::size_t i, std::size_t start, std::size_t count,
                                double *sums)
{
    neighbourWeights(in, i, start, count, m_weights.data());
    const std::size_t used =
            gatherNeighbours(&in.joined[start * m_columns], &in.joined[i * m_columns], m_weights.data(),
                             count, m_columns, in.p, m_right.data(), m_left.data(), kTile);
    accumulateProduct(m_left.data(), kTile, m_right.data(), in.p, used, m_columns, sums);
}

void LocalFitWorkspace::solve(const LocalFitInputs &in, const double *sums, double *jacobian)
{
    const std::size_t p = in.p, m = in.m;
    // dX^T W dX from its upper triangle, which sums w dx_q dx_s in that
    // order; dX^T W dY beside it.
    for (std::size_t q = 0; q < p; ++q) {
        for (std::size_t s = q; s < p; ++s)
            m_normal[q * p + s] = m_normal[s * p + q] = sums[q * m_columns + s];
        std::copy_n(&sums[q * m_columns + p], m, &m_cross[q * m]);
    }
    conjugateGradientsColumns(m_normal.data(), m_cross.data(), p, m, in.n, m_solution.data(), m_cg);
    for (std::size_t j = 0; j < m; ++j)
        for (std::size_t q = 0; q < p; ++q)
            jacobian[j * p + q] = m_solution[q * m + j];
}

void LocalFitWorkspace::fit(const LocalFitInputs &in, const std::size_t *points, std::size_t count,
                            double *jacobians)
{
    const std::size_t sumsSize = in.p * m_columns;
    for (std::size_t first = 0; first < count; first += kBlock) {
        const std::size_t block = std::min(kBlock, count - first);
        std::fill(m_sums.begin(), m_sums.end(), 0.0);
        // The points of the block take their turns on each tile of
        // neighbours while it is in the cache.
        for (std::size_t start = 0; start < in.n; start += kTile)
            for (std::size_t b = 0; b < block; ++b)
                addTile(in, points[first + b], start, std::min(kTile, in.n - start), &m_sums[b * sumsSize]);
        for (std::size_t b = 0; b < block; ++b)
            solve(in, &m_sums[b * sumsSize], jacobians + (first + b) * in.m * in.p);
    }
}
