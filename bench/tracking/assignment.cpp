#include "assignment.h"

#include <limits>

namespace {

// rows <= cols: the classic O(rows^2 * cols) shortest augmenting paths.
std::vector<int> assign_wide(const std::vector<double>& cost, int rows, int cols)
{
    const double inf = std::numeric_limits<double>::infinity();
    std::vector<double> u(rows + 1, 0.0), v(cols + 1, 0.0);
    std::vector<int> owner(cols + 1, 0), way(cols + 1, 0);  // owner[j]: row (1-based) holding column j
    for (int i = 1; i <= rows; ++i) {
        owner[0] = i;
        int j0 = 0;
        std::vector<double> minv(cols + 1, inf);
        std::vector<char> used(cols + 1, 0);
        do {
            used[j0] = 1;
            const int i0 = owner[j0];
            double delta = inf;
            int j1 = 0;
            for (int j = 1; j <= cols; ++j) {
                if (used[j]) continue;
                const double cur = cost[(i0 - 1) * cols + (j - 1)] - u[i0] - v[j];
                if (cur < minv[j]) {
                    minv[j] = cur;
                    way[j] = j0;
                }
                if (minv[j] < delta) {
                    delta = minv[j];
                    j1 = j;
                }
            }
            for (int j = 0; j <= cols; ++j) {
                if (used[j]) {
                    u[owner[j]] += delta;
                    v[j] -= delta;
                } else {
                    minv[j] -= delta;
                }
            }
            j0 = j1;
        } while (owner[j0] != 0);
        do {
            const int j1 = way[j0];
            owner[j0] = owner[j1];
            j0 = j1;
        } while (j0);
    }
    std::vector<int> column(rows, -1);
    for (int j = 1; j <= cols; ++j)
        if (owner[j]) column[owner[j] - 1] = j - 1;
    return column;
}

}  // namespace

std::vector<int> min_cost_assignment(const std::vector<double>& cost, int rows, int cols)
{
    if (rows == 0 || cols == 0) return std::vector<int>(rows, -1);
    if (rows <= cols) return assign_wide(cost, rows, cols);
    std::vector<double> transposed(cost.size());
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c) transposed[c * rows + r] = cost[r * cols + c];
    const std::vector<int> row_of_column = assign_wide(transposed, cols, rows);
    std::vector<int> column(rows, -1);
    for (int c = 0; c < cols; ++c) column[row_of_column[c]] = c;
    return column;
}
