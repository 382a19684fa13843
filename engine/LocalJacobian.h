// The local Jacobian of one point of the cluster: a weighted linear
// regression of the other points' output changes on their parameter changes.
// The neighbourhood weights of the point are formed on the fly, one tile of
// neighbours at a time, so no n x n matrix is ever held.
#pragma once

#include "engine/LinearSolves.h"

#include <vector>

// What every local fit of one step computation reads; shared by all threads.
struct LocalFitInputs {
    const double *X = nullptr;   // n x p, row-major
    const double *Y = nullptr;   // n x m, row-major
    std::vector<double> columns; // X transposed (p x n), for the weights
    std::vector<double> joined;  // [X | Y] (n x (p + m)), for the differences
    const bool *valid = nullptr;
    std::vector<double> range; // domain upper - lower, per parameter
    bool uniformNeighbourhood = false;
    std::size_t n = 0, p = 0, m = 0;
};

// The weight of neighbour k in point i's fit: 1 / D with D the squared
// distance in domain-range units (1 with the uniform switch), 0 for k == i and
// for an invalid point. The differences are taken from the lower index to the
// higher one, so W(i, k) and W(k, i) are the same bits.
double neighbourWeight(const LocalFitInputs &in, std::size_t i, std::size_t k);

// The weights of neighbours start .. start + count - 1 of point i, as
// neighbourWeight gives them, a tile at a time.
void neighbourWeights(const LocalFitInputs &in, std::size_t i, std::size_t start, std::size_t count,
                      double *weights);

// The neighbours of a tile with nonzero weight, compacted: joined and own
// hold [X | Y] rows of `columns` entries; each used neighbour t adds its
// offset to index and its weighted parameter differences w (X_t - X_i) to
// the p rows of left (which lie leftStride apart). Returns the number used.
std::size_t compactNeighbours(const double *joined, const double *own, const double *weights,
                              std::size_t count, std::size_t columns, std::size_t p, std::size_t *index,
                              double *left, std::size_t leftStride);

// The used neighbours of one tile, as compactNeighbours leaves them.
struct NeighbourTile {
    const double *joined = nullptr; // the tile's first [X | Y] row
    const double *own = nullptr;    // the point's [X | Y] row
    std::size_t columns = 0;        // p + m
    const std::size_t *index = nullptr;
    std::size_t used = 0;
    const double *left = nullptr; // w (X_k - X_i), by parameter
    std::size_t leftStride = 0;
};

// Scratch storage of the local fits of one thread, sized once.
class LocalFitWorkspace {
public:
    explicit LocalFitWorkspace(const LocalFitInputs &in);

    // The local Jacobians of the points (count of them; m x p each,
    // row-major, one after the other in jacobians). Point i's: for each
    // output j the weighted least-squares fit dX a ~ dY_j with row weights
    // W(i, k). This is CGNE on the weighted design matrix sqrt(W) dX (n rows,
    // hence the cap n); its normal matrix dX^T W dX is shared by the m
    // outputs, whose solves run side by side. Rows of weight 0 are skipped,
    // so the NaN outputs of invalid points never enter the sums. Each sum
    // runs over the neighbours in ascending order, as a plain loop would.
    // A few points are fitted side by side, so that each tile of neighbours
    // is read from memory once for all of them.
    void fit(const LocalFitInputs &in, const std::size_t *points, std::size_t count, double *jacobians);

private:
    static constexpr std::size_t kTile = 128; // neighbours per pass over the product
    static constexpr std::size_t kBlock = 8;  // points fitted side by side

    // Adds the used neighbours start .. start + count - 1 of point i to its
    // sums: (W dX)^T times [dX | dY], one blocked product.
    void addTile(const LocalFitInputs &in, std::size_t i, std::size_t start, std::size_t count, double *sums);
    // The Jacobian from the sums of a point.
    void solve(const LocalFitInputs &in, const double *sums, double *jacobian);

    std::size_t m_columns;            // p + m: [dX | dY] side by side
    std::vector<double> m_weights;    // kTile: W(i, k) of the neighbours of a tile
    std::vector<double> m_left;       // p x kTile: w_k (X_k - X_i), by parameter
    std::vector<std::size_t> m_index; // kTile: the used neighbours' offsets in the tile
    std::vector<double> m_sums;       // kBlock x p x (p + m): [dX^T W dX | dX^T W dY]
    std::vector<double> m_normal;     // p x p
    std::vector<double> m_cross;      // p x m
    std::vector<double> m_solution;
    ConjugateGradientColumnsWorkspace m_cg;
};

// product (rows x columns) += left (rows x used) * right (used x columns),
// where right's row u is the used neighbour's [X | Y] row minus the point's
// own, formed as it is read (no tile of differences is stored); product is
// row-major, the rows of left lie leftStride apart. Each entry adds its terms
// one by one in ascending order of u onto its current value, so that a sum
// split into consecutive tiles is bit-identical to one plain loop over all
// terms.
void accumulateDifferenceProduct(const NeighbourTile &tile, std::size_t rows, double *product);
