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
// registers over the whole tile. The right-hand factor is formed on the fly:
// the used neighbour's [X | Y] row minus the point's own.
template<std::size_t Rows, std::size_t Groups>
AMBREL_KERNEL_INLINE void differenceBlock(const NeighbourTile &tile, std::size_t j, double *product)
{
    Lanes sum[Rows][Groups], own[Groups];
    for (std::size_t g = 0; g < Groups; ++g)
        own[g] = loadLanes(tile.own + j + 4 * g);
    for (std::size_t a = 0; a < Rows; ++a)
        for (std::size_t g = 0; g < Groups; ++g)
            sum[a][g] = loadLanes(product + a * tile.columns + 4 * g);
    for (std::size_t u = 0; u < tile.used; ++u) {
        const double *neighbour = tile.joined + tile.index[u] * tile.columns + j;
        Lanes r[Groups];
        for (std::size_t g = 0; g < Groups; ++g)
            r[g] = loadLanes(neighbour + 4 * g) - own[g];
        for (std::size_t a = 0; a < Rows; ++a) {
            const double x = tile.left[a * tile.leftStride + u];
            const Lanes xs = {x, x, x, x};
            for (std::size_t g = 0; g < Groups; ++g)
                sum[a][g] += xs * r[g];
        }
    }
    for (std::size_t a = 0; a < Rows; ++a)
        for (std::size_t g = 0; g < Groups; ++g)
            storeLanes(product + a * tile.columns + 4 * g, sum[a][g]);
}

// The last columns (fewer than four) of a block of rows, one by one.
template<std::size_t Rows>
AMBREL_KERNEL_INLINE void differenceColumn(const NeighbourTile &tile, std::size_t j, double *product)
{
    double sum[Rows];
    for (std::size_t a = 0; a < Rows; ++a)
        sum[a] = product[a * tile.columns];
    for (std::size_t u = 0; u < tile.used; ++u) {
        const double r = tile.joined[tile.index[u] * tile.columns + j] - tile.own[j];
        for (std::size_t a = 0; a < Rows; ++a)
            sum[a] += tile.left[a * tile.leftStride + u] * r;
    }
    for (std::size_t a = 0; a < Rows; ++a)
        product[a * tile.columns] = sum[a];
}

// The blocks of Rows rows of the product (rows first .. first + Rows - 1 of
// left), across all columns.
template<std::size_t Rows>
AMBREL_KERNEL_INLINE void differenceRows(NeighbourTile tile, std::size_t first, double *product)
{
    tile.left += first * tile.leftStride;
    product += first * tile.columns;
    std::size_t j = 0;
    for (; j + 8 <= tile.columns; j += 8)
        differenceBlock<Rows, 2>(tile, j, product + j);
    for (; j + 4 <= tile.columns; j += 4)
        differenceBlock<Rows, 1>(tile, j, product + j);
    for (; j < tile.columns; ++j)
        differenceColumn<Rows>(tile, j, product + j);
}

} // namespace

AMBREL_VECTOR_CLONES
void accumulateDifferenceProduct(const NeighbourTile &tile, std::size_t rows, double *product)
{
    std::size_t q = 0;
    for (; q + 4 <= rows; q += 4)
        differenceRows<4>(tile, q, product);
    for (; q + 2 <= rows; q += 2)
        differenceRows<2>(tile, q, product);
    for (; q < rows; ++q)
        differenceRows<1>(tile, q, product);
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

std::size_t compactNeighbours(const double *__restrict joined, const double *__restrict own,
                              const double *__restrict weights, std::size_t count, std::size_t columns,
                              std::size_t p, std::size_t *__restrict index, double *__restrict left,
                              std::size_t leftStride)
{
    std::size_t used = 0;
    for (std::size_t t = 0; t < count; ++t) {
        const double w = weights[t];
        if (w == 0.0)
            continue;
        const double *neighbour = joined + t * columns;
        for (std::size_t q = 0; q < p; ++q)
            left[q * leftStride + used] = w * (neighbour[q] - own[q]);
        index[used++] = t;
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
    , m_index(kTile)
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
    NeighbourTile tile;
    tile.joined = &in.joined[start * m_columns];
    tile.own = &in.joined[i * m_columns];
    tile.columns = m_columns;
    tile.index = m_index.data();
    tile.left = m_left.data();
    tile.leftStride = kTile;
    tile.used = compactNeighbours(tile.joined, tile.own, m_weights.data(), count, m_columns, in.p,
                                  m_index.data(), m_left.data(), kTile);
    accumulateDifferenceProduct(tile, in.p, sums);
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
