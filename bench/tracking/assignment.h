#pragma once

#include <vector>

// Minimum-cost assignment (Hungarian method with potentials) on a dense
// rows x cols matrix, row-major. Returns, for each row, the column it takes,
// or -1 when there are more rows than columns and the row got none. Every
// row gets a column when rows <= cols (and every column a row otherwise):
// callers forbid a pair by giving it a cost above any useful one and drop
// such pairs afterwards.
std::vector<int> min_cost_assignment(const std::vector<double>& cost, int rows, int cols);
