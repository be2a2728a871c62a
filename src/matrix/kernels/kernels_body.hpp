// The inner loops themselves, written once over `struct simd`: the vector of a level and its
// operations. A source of a level defines it, includes this file and names the table.
//
// Nothing here may come from another header's inline functions: a level is compiled for newer
// processors, and the linker could keep its copy of such a function for all.
#ifndef VESK_MATRIX_KERNELS_KERNELS_BODY_HPP
#define VESK_MATRIX_KERNELS_KERNELS_BODY_HPP

// Every level is to have copies of its own.
// NOLINTBEGIN(misc-definitions-in-headers)
namespace
{

using std::size_t;

constexpr size_t width = simd::width;
constexpr size_t tile_columns = simd::tile_vectors * width;

constexpr size_t smaller(size_t a, size_t b)
{
    return a < b ? a : b;
}

// ---- the vectors of a row ----

struct every_lane {
};

inline simd::vector _load(const double *from, every_lane)
{
    return simd::load(from);
}

inline simd::vector _load(const double *from, simd::mask lanes)
{
    return simd::load(from, lanes);
}

inline void _store(double *to, simd::vector v, every_lane)
{
    simd::store(to, v);
}

inline void _store(double *to, simd::vector v, simd::mask lanes)
{
    simd::store(to, v, lanes);
}

// Calls visit(begin, lanes, how many) for each vector of n elements; in line, so that what the
// visit carries along stays in registers.
template <typename Visit>
[[gnu::always_inline]] inline void _visit_vectors(size_t n, Visit visit)
{
    const size_t whole = n / width * width;
    for (size_t j = 0; j < whole; j += width) {
        visit(j, every_lane{}, width);
    }
    if (whole < n) {
        visit(whole, simd::first_lanes(n - whole), n - whole);
    }
}

// The elements before the first full vector that lies on a boundary of vectors: on long rows it
// pays to step over them, because a vector across two lines of the cache costs both.
size_t _elements_before_boundary(const double *row, size_t n)
{
    constexpr size_t long_row = 64;
    const size_t misplaced = reinterpret_cast<size_t>(row) / sizeof(double) % width;
    return n < long_row || misplaced == 0 ? 0 : width - misplaced;
}

// How many of n elements come first when a row is taken by vectors that lie on boundaries.
size_t _first_elements(const double *row, size_t n)
{
    const size_t before = _elements_before_boundary(row, n);
    return before > 0 ? before : smaller(width, n);
}

// --- transposition: squares of the vectors' width, and what is left element by element ----------

template <arrival What>
inline simd::vector _arrive(simd::vector old, simd::vector x)
{
    if constexpr (What == arrival::add) {
        return simd::add(old, x);
    } else if constexpr (What == arrival::subtract) {
        return simd::subtract(old, x);
    } else {
        return x;
    }
}

// What is fetched beforehand: elements behind those read in a row, and rows behind the vectors of
// a square.
constexpr size_t fetch_ahead = 16;
constexpr size_t fetch_rows = 8;

template <arrival What, bool Fetch>
inline void _transpose_square(const double *from, size_t from_stride, double *to, size_t to_stride)
{
    simd::vector square[width];
#pragma GCC unroll 16
    for (size_t r = 0; r < width; ++r) {
        square[r] = simd::load(from + r * from_stride);
        if (Fetch) {
            __builtin_prefetch(from + r * from_stride + fetch_ahead);
        }
    }
    simd::transpose(square);
#pragma GCC unroll 16
    for (size_t r = 0; r < width; ++r) {
        double *row = to + r * to_stride;
        if (Fetch) {
            __builtin_prefetch(row + fetch_rows * to_stride, 1);
        }
        const simd::vector old = What == arrival::replace ? square[r] : simd::load(row);
        simd::store(row, _arrive<What>(old, square[r]));
    }
}

// A square of which only m columns and n rows exist.
template <arrival What>
void _transpose_part(const double *from, size_t from_stride, double *to, size_t to_stride, size_t m,
                     size_t n)
{
    const simd::mask columns = simd::first_lanes(m);
    const simd::mask rows = simd::first_lanes(n);
    simd::vector square[width];
#pragma GCC unroll 16
    for (size_t r = 0; r < width; ++r) {
        square[r] = r < n ? simd::load(from + r * from_stride, columns) : simd::fill(0.0);
    }
    simd::transpose(square);
#pragma GCC unroll 16
    for (size_t r = 0; r < width; ++r) {
        if (r < m) {
            double *row = to + r * to_stride;
            const simd::vector old = What == arrival::replace ? square[r] : simd::load(row, rows);
            simd::store(row, _arrive<What>(old, square[r]), rows);
        }
    }
}

template <arrival What, bool Fetch>
inline void _transpose_corner(const double *from, size_t from_stride, double *to, size_t to_stride,
                              size_t m, size_t n)
{
    if (m >= width && n >= width) {
        _transpose_square<What, Fetch>(from, from_stride, to, to_stride);
    } else {
        _transpose_part<What>(from, from_stride, to, to_stride, smaller(width, m),
                              smaller(width, n));
    }
}

// Of a small block, from left to right in the rows.
void _transpose_block(const double *from, size_t from_stride, double *to, size_t to_stride,
                      size_t m, size_t n)
{
    for (size_t j = 0; j < n; j += width) {
        for (size_t i = 0; i < m; i += width) {
            _transpose_corner<arrival::replace, false>(from + j * from_stride + i, from_stride,
                                                       to + i * to_stride + j, to_stride, m - i,
                                                       n - j);
        }
    }
}

// In panels of rows of `from` and, within, of elements that fill a line of the cache.
template <arrival What>
void _transpose_panels(const double *from, size_t from_stride, double *to, size_t to_stride,
                       size_t m, size_t n)
{
    constexpr size_t panel = 128;
    for (size_t j0 = 0; j0 < n; j0 += panel) {
        size_t columns = _first_elements(from, m);
        for (size_t i = 0; i < m; i += columns, columns = smaller(width, m - i)) {
            for (size_t j = j0; j < smaller(j0 + panel, n); j += width) {
                _transpose_corner<What, (width > 1)>(from + j * from_stride + i, from_stride,
                                                     to + i * to_stride + j, to_stride, columns,
                                                     n - j);
            }
        }
    }
}

void _transpose(arrival what, const double *from, size_t from_stride, double *to, size_t to_stride,
                size_t m, size_t n)
{
    if (what == arrival::replace) {
        _transpose_panels<arrival::replace>(from, from_stride, to, to_stride, m, n);
    } else if (what == arrival::add) {
        _transpose_panels<arrival::add>(from, from_stride, to, to_stride, m, n);
    } else {
        _transpose_panels<arrival::subtract>(from, from_stride, to, to_stride, m, n);
    }
}

// --- multiplication: tiles of the result stay in registers while the depth passes by -------------

struct tile_operands {
    const double *a;
    size_t a_row;
    size_t a_column;
    const double *b;
    size_t b_row;
    double *c;
    size_t c_row;
    size_t depth;
    bool resume;        // the tile holds the sums of an earlier block of the depth
    const double *next; // the tile of c to fetch meanwhile, or null
};

// A tile of Rows rows and Vectors vectors; of the last vector only the lanes of `last` exist when
// Edge is set.
template <size_t Rows, size_t Vectors, bool Edge>
void _tile(const tile_operands &t, simd::mask last)
{
    const auto load = [last](const double *from, size_t v) __attribute__((always_inline))
    {
        return Edge && v == Vectors - 1 ? simd::load(from + v * width, last)
                                        : simd::load(from + v * width);
    };
    simd::vector sum[Rows][Vectors];
#pragma GCC unroll 16
    for (size_t i = 0; i < Rows; ++i) {
#pragma GCC unroll 16
        for (size_t v = 0; v < Vectors; ++v) {
            sum[i][v] = t.resume ? load(t.c + i * t.c_row, v) : simd::fill(0.0);
        }
    }
    const double *a = t.a;
    const double *b = t.b;
    const auto step = [&]() __attribute__((always_inline))
    {
        simd::vector row[Vectors];
#pragma GCC unroll 16
        for (size_t v = 0; v < Vectors; ++v) {
            row[v] = load(b, v);
        }
#pragma GCC unroll 16
        for (size_t i = 0; i < Rows; ++i) {
            const simd::vector factor = simd::fill(a[i * t.a_row]);
#pragma GCC unroll 16
            for (size_t v = 0; v < Vectors; ++v) {
                sum[i][v] = simd::fused(factor, row[v], sum[i][v]);
            }
        }
        a += t.a_column;
        b += t.b_row;
    };
    size_t k = 0;
    if (t.next != nullptr) {
        // One line at a time: asked for all at once, they would keep the operands waiting.
        constexpr size_t line = 8;
        constexpr size_t lines = (Vectors * width + line - 1) / line + 1;
        for (; k < smaller(Rows * lines, t.depth); ++k) {
            __builtin_prefetch(t.next + k / lines * t.c_row + k % lines * line, 1);
            step();
        }
    }
    for (; k < t.depth; ++k) {
        step();
    }
#pragma GCC unroll 16
    for (size_t i = 0; i < Rows; ++i) {
#pragma GCC unroll 16
        for (size_t v = 0; v < Vectors; ++v) {
            double *to = t.c + i * t.c_row + v * width;
            if (Edge && v == Vectors - 1) {
                simd::store(to, sum[i][v], last);
            } else {
                simd::store(to, sum[i][v]);
            }
        }
    }
}

// Every shape of tile that the edges of a matrix ask for.
struct tile_table {
    using function = void (*)(const tile_operands &, simd::mask);
    function at[simd::tile_rows][simd::tile_vectors][2] = {};

    template <size_t Rows, size_t Vectors>
    constexpr void add()
    {
        at[Rows - 1][Vectors - 1][0] = _tile<Rows, Vectors, false>;
        at[Rows - 1][Vectors - 1][1] = _tile<Rows, Vectors, true>;
        if constexpr (Vectors > 1) {
            add<Rows, Vectors - 1>();
        } else if constexpr (Rows > 1) {
            add<Rows - 1, simd::tile_vectors>();
        }
    }
    constexpr tile_table() { add<simd::tile_rows, simd::tile_vectors>(); }
};

constexpr tile_table tiles;

void _run_tile(const tile_operands &t, size_t rows, size_t columns)
{
    const size_t vectors = (columns + width - 1) / width;
    const size_t last = columns - (vectors - 1) * width;
    tiles.at[rows - 1][vectors - 1][last == width ? 0 : 1](t, simd::first_lanes(last));
}

// Operands as they lie; b must have its columns side by side.
void _multiply_unpacked(const matrix_view &a, const matrix_view &b, double *c, size_t c_row,
                        size_t m, size_t n, size_t depth)
{
    for (size_t j = 0; j < n; j += tile_columns) {
        for (size_t i = 0; i < m; i += simd::tile_rows) {
            _run_tile({a.base + i * a.row, a.row, a.column, b.base + j, b.row, c + i * c_row + j,
                       c_row, depth, false, nullptr},
                      smaller(simd::tile_rows, m - i), smaller(tile_columns, n - j));
        }
    }
}

// Rows of `columns` elements, one after the other.
void _copy_rows(const double *from, size_t from_stride, double *to, size_t to_stride, size_t rows,
                size_t columns)
{
    for (size_t r = 0; r < rows; ++r, from += from_stride, to += to_stride) {
        const auto copy = [&](size_t j, auto lanes, size_t) __attribute__((always_inline))
        {
            _store(to + j, _load(from + j, lanes), lanes);
        };
        _visit_vectors(columns, copy);
    }
}

// `rows` x `columns` elements of a view, packed.
void _pack(const matrix_view &from, size_t rows, size_t columns, double *to, size_t to_stride)
{
    if (from.column == 1) {
        _copy_rows(from.base, from.row, to, to_stride, rows, columns);
    } else {
        _transpose_block(from.base, from.column, to, to_stride, rows, columns);
    }
}

// b in slivers of tile_columns columns, row after row, so that a tile reads memory in one run.
void _pack_columns(const matrix_view &b, size_t depth, size_t n, double *to)
{
    for (size_t j = 0; j < n; j += tile_columns) {
        _pack({b.base + j * b.column, b.row, b.column}, depth, smaller(tile_columns, n - j), to,
              tile_columns);
        to += tile_columns * depth;
    }
}

// a in slivers of tile_rows rows, column after column.
void _pack_rows(const matrix_view &a, size_t m, size_t depth, double *to)
{
    for (size_t i = 0; i < m; i += simd::tile_rows) {
        _pack({a.base + i * a.row, a.column, a.row}, depth, smaller(simd::tile_rows, m - i), to,
              simd::tile_rows);
        to += simd::tile_rows * depth;
    }
}

// Blocks of a stay in the second-level cache, slivers of b in the first; the sums of a block of the
// depth are carried in c to the next one.
void _multiply_packed(const matrix_view &a, const matrix_view &b, double *c, size_t c_row, size_t m,
                      size_t n, size_t depth, double *scratch)
{
    double *rows = scratch;
    double *columns = scratch + simd::block_rows * smaller(depth, simd::block_depth);
    for (size_t j0 = 0; j0 < n; j0 += simd::block_columns) {
        const size_t nj = smaller(simd::block_columns, n - j0);
        for (size_t k0 = 0; k0 < depth; k0 += simd::block_depth) {
            const size_t nk = smaller(simd::block_depth, depth - k0);
            _pack_columns({b.base + k0 * b.row + j0 * b.column, b.row, b.column}, nk, nj, columns);
            for (size_t i0 = 0; i0 < m; i0 += simd::block_rows) {
                const size_t ni = smaller(simd::block_rows, m - i0);
                _pack_rows({a.base + i0 * a.row + k0 * a.column, a.row, a.column}, ni, nk, rows);
                for (size_t j = 0; j < nj; j += tile_columns) {
                    for (size_t i = 0; i < ni; i += simd::tile_rows) {
                        double *tile = c + (i0 + i) * c_row + j0 + j;
                        const bool last = ni - i <= simd::tile_rows;
                        _run_tile({rows + i * nk, 1, simd::tile_rows, columns + j * nk,
                                   tile_columns, tile, c_row, nk, k0 > 0,
                                   last ? nullptr : tile + simd::tile_rows * c_row},
                                  smaller(simd::tile_rows, ni - i), smaller(tile_columns, nj - j));
                    }
                }
            }
        }
    }
}

// Below this many elements b stays in the second-level cache as it lies, and packing costs more
// than it brings.
constexpr size_t unpacked_elements = size_t(1) << 17;

size_t _multiply_scratch(size_t, size_t n, size_t depth)
{
    if (n * depth < unpacked_elements) {
        return 0;
    }
    const size_t columns = smaller(n + tile_columns - 1, simd::block_columns);
    return smaller(depth, simd::block_depth) * (simd::block_rows + columns);
}

void _multiply_slowly(const matrix_view &a, const matrix_view &b, double *c, size_t c_row, size_t m,
                      size_t n, size_t depth)
{
    for (size_t i = 0; i < m; ++i) {
        for (size_t j = 0; j < n; ++j) {
            double sum = 0.0;
            for (size_t k = 0; k < depth; ++k) {
                sum = __builtin_fma(a.base[i * a.row + k * a.column],
                                    b.base[k * b.row + j * b.column], sum);
            }
            c[i * c_row + j] = sum;
        }
    }
}

void _multiply(const matrix_view &a, const matrix_view &b, double *c, size_t c_row, size_t m,
               size_t n, size_t depth, double *scratch)
{
    if (scratch != nullptr) {
        _multiply_packed(a, b, c, c_row, m, n, depth, scratch);
    } else if (b.column == 1) {
        _multiply_unpacked(a, b, c, c_row, m, n, depth);
    } else {
        _multiply_slowly(a, b, c, c_row, m, n, depth);
    }
}

// ---- elimination ----

// One vector of each row: the step of the elimination and the magnitudes that it leaves.
template <size_t Rows, bool Edge>
inline void _eliminate_vector(double *rows, size_t stride, const simd::vector *factor,
                              const double *pivot, simd::mask lanes, simd::vector *largest)
{
    const simd::vector p = Edge ? simd::load(pivot, lanes) : simd::load(pivot);
#pragma GCC unroll 4
    for (size_t r = 0; r < Rows; ++r) {
        double *at = rows + r * stride;
        const simd::vector x = simd::subtract(Edge ? simd::load(at, lanes) : simd::load(at),
                                              simd::multiply(factor[r], p));
        const simd::vector grown = simd::larger(simd::magnitude(x), largest[r]);
        if (Edge) {
            simd::store(at, x, lanes);
            largest[r] = simd::choose(lanes, grown, largest[r]);
        } else {
            simd::store(at, x);
            largest[r] = grown;
        }
    }
}

template <size_t Rows>
void _eliminate_in(double *rows, size_t stride, const double *factor, const double *pivot, size_t n,
                   double *largest)
{
    simd::vector factors[Rows];
    simd::vector magnitudes[Rows];
#pragma GCC unroll 4
    for (size_t r = 0; r < Rows; ++r) {
        factors[r] = simd::fill(factor[r]);
        magnitudes[r] = simd::fill(-1.0);
    }
    const simd::mask all = simd::first_lanes(width);
    size_t j = _elements_before_boundary(rows, n);
    if (j > 0) {
        _eliminate_vector<Rows, true>(rows, stride, factors, pivot, simd::first_lanes(j),
                                      magnitudes);
    }
    for (; j + width <= n; j += width) {
        _eliminate_vector<Rows, false>(rows + j, stride, factors, pivot + j, all, magnitudes);
    }
    if (j < n) {
        _eliminate_vector<Rows, true>(rows + j, stride, factors, pivot + j,
                                      simd::first_lanes(n - j), magnitudes);
    }
    for (size_t r = 0; r < Rows; ++r) {
        largest[r] = simd::largest_lane(magnitudes[r]);
    }
}

void _eliminate(double *rows, size_t stride, size_t count, const double *factor,
                const double *pivot, size_t n, double *largest)
{
    if (count == eliminate_rows) {
        _eliminate_in<eliminate_rows>(rows, stride, factor, pivot, n, largest);
        return;
    }
    for (size_t r = 0; r < count; ++r) {
        _eliminate_in<1>(rows + r * stride, stride, factor + r, pivot, n, largest + r);
    }
}

double _largest_magnitude(const double *row, size_t n)
{
    simd::vector largest = simd::fill(-1.0);
    size_t j = 0;
    for (; j + width <= n; j += width) {
        largest = simd::larger(simd::magnitude(simd::load(row + j)), largest);
    }
    if (j < n) {
        const simd::mask lanes = simd::first_lanes(n - j);
        largest = simd::choose(
            lanes, simd::larger(simd::magnitude(simd::load(row + j, lanes)), largest), largest);
    }
    return simd::largest_lane(largest);
}

// ---- triangular inverses ----

// The lanes of vector `v` of a group of columns among its first `columns` columns.
inline simd::mask _lanes_before(size_t columns, size_t v)
{
    const size_t passed = v * width;
    return simd::first_lanes(columns <= passed ? 0 : smaller(columns - passed, width));
}

// Rows i .. i + Rows - 1 of the inverse of a lower triangle, in a group of columns that begins at
// the diagonal of row 0. Column j takes part from row j on.
template <size_t Rows, size_t Vectors>
void _invert_lower_rows(const double *triangle, size_t stride, double *panel, size_t panel_stride,
                        size_t i)
{
    constexpr size_t columns = Vectors * width;
    const double *factor = triangle + i * stride;
    simd::vector sum[Rows][Vectors];
#pragma GCC unroll 16
    for (size_t r = 0; r < Rows; ++r) {
#pragma GCC unroll 16
        for (size_t v = 0; v < Vectors; ++v) {
            sum[r][v] = simd::fill(0.0);
        }
    }
    size_t k = 0;
    for (; k < smaller(columns, i); ++k) {
        const double *row = panel + k * panel_stride;
#pragma GCC unroll 16
        for (size_t v = 0; v < Vectors; ++v) {
            const simd::mask lanes = _lanes_before(k + 1, v);
            const simd::vector x = simd::load(row + v * width);
#pragma GCC unroll 16
            for (size_t r = 0; r < Rows; ++r) {
                const simd::vector product = simd::multiply(simd::fill(factor[r * stride + k]), x);
                sum[r][v] = simd::choose(lanes, simd::add(sum[r][v], product), sum[r][v]);
            }
        }
    }
    for (; k < i; ++k) {
        const double *row = panel + k * panel_stride;
#pragma GCC unroll 16
        for (size_t r = 0; r < Rows; ++r) {
            const simd::vector f = simd::fill(factor[r * stride + k]);
#pragma GCC unroll 16
            for (size_t v = 0; v < Vectors; ++v) {
                sum[r][v] = simd::add(sum[r][v], simd::multiply(f, simd::load(row + v * width)));
            }
        }
    }
    // Each row that is done goes into those below it.
#pragma GCC unroll 16
    for (size_t r = 0; r < Rows; ++r) {
        const size_t begun = i + r;
#pragma GCC unroll 16
        for (size_t v = 0; v < Vectors; ++v) {
            const simd::mask lanes = _lanes_before(begun + 1, v);
            const simd::vector edge = simd::choose(lanes, simd::fill(1.0), simd::fill(0.0));
            const simd::vector done =
                simd::choose(_lanes_before(begun, v), simd::negate(sum[r][v]), edge);
            simd::store(panel + begun * panel_stride + v * width, done);
#pragma GCC unroll 16
            for (size_t s = r + 1; s < Rows; ++s) {
                const simd::vector f = simd::fill(factor[s * stride + begun]);
                sum[s][v] =
                    simd::choose(lanes, simd::add(sum[s][v], simd::multiply(f, done)), sum[s][v]);
            }
        }
    }
}

// As many rows at a time as there are, from row i to row n - 1.
template <size_t Rows, size_t Vectors>
void _invert_lower_group(const double *triangle, size_t stride, size_t n, double *panel,
                         size_t panel_stride, size_t i)
{
    for (; i + Rows <= n; i += Rows) {
        _invert_lower_rows<Rows, Vectors>(triangle, stride, panel, panel_stride, i);
    }
    if constexpr (Rows > 1) {
        _invert_lower_group<Rows / 2, Vectors>(triangle, stride, n, panel, panel_stride, i);
    }
}

// As many vectors of columns at a time as there are, from column j to column end - 1.
template <size_t Vectors>
void _invert_lower_columns(const double *triangle, size_t stride, size_t n, double *panel,
                           size_t panel_stride, size_t j, size_t end)
{
    constexpr size_t columns = Vectors * width;
    for (; j < end && end - j > columns - width; j += columns) {
        _invert_lower_group<simd::triangle_rows, Vectors>(triangle + j * stride + j, stride, n - j,
                                                          panel + j * panel_stride + j,
                                                          panel_stride, 0);
    }
    if constexpr (Vectors > 1) {
        _invert_lower_columns<Vectors / 2>(triangle, stride, n, panel, panel_stride, j, end);
    }
}

void _invert_lower(const double *factors, size_t stride, size_t n, size_t first, size_t columns,
                   double *panel, size_t panel_stride)
{
    _invert_lower_columns<simd::triangle_vectors>(factors + first * stride + first, stride,
                                                  n - first, panel + first * panel_stride,
                                                  panel_stride, 0, columns);
}

// What rows k .. of an upper triangle add to the sums of row i in a group of columns that begins at
// `first`. From vector `Begin` on all columns are still beside the diagonal of row k.
template <size_t Vectors, size_t Begin>
[[gnu::always_inline]] inline void _add_upper_rows(simd::vector *sum, const double *factor,
                                                   const double *panel, size_t panel_stride,
                                                   size_t k, size_t first, size_t end)
{
    const size_t whole_end = smaller(first + Begin * width + 1, end);
    for (; k < whole_end; ++k) {
        const simd::vector f = simd::fill(factor[k]);
        const double *row = panel + k * panel_stride;
#pragma GCC unroll 16
        for (size_t v = Begin; v < Vectors; ++v) {
            sum[v] = simd::add(sum[v], simd::multiply(f, simd::load(row + v * width)));
        }
    }
    const size_t part_end = smaller(first + (Begin + 1) * width, end);
    for (; k < part_end; ++k) {
        const simd::vector f = simd::fill(factor[k]);
        const double *row = panel + k * panel_stride;
        const simd::mask ended = simd::first_lanes(k - first - Begin * width);
        sum[Begin] =
            simd::choose(ended, sum[Begin],
                         simd::add(sum[Begin], simd::multiply(f, simd::load(row + Begin * width))));
#pragma GCC unroll 16
        for (size_t v = Begin + 1; v < Vectors; ++v) {
            sum[v] = simd::add(sum[v], simd::multiply(f, simd::load(row + v * width)));
        }
    }
    if constexpr (Begin + 1 < Vectors) {
        _add_upper_rows<Vectors, Begin + 1>(sum, factor, panel, panel_stride, k, first, end);
    }
}

// Each row of the inverse of an upper triangle begins its sums with the row below it, so rows come
// one by one, from the last.
template <size_t Vectors>
void _invert_upper_group(const double *factors, size_t stride, size_t first, size_t end,
                         double *panel, size_t panel_stride)
{
    for (size_t i = end; i-- > 0;) {
        const double *factor = factors + i * stride;
        simd::vector sum[Vectors];
#pragma GCC unroll 16
        for (size_t v = 0; v < Vectors; ++v) {
            sum[v] = simd::fill(0.0);
        }
        _add_upper_rows<Vectors, 0>(sum, factor, panel, panel_stride, i + 1, first, end);
        const simd::vector diagonal = simd::fill(factor[i]);
        const simd::vector edge = simd::divide(simd::fill(1.0), diagonal);
        const size_t before = i < first ? 0 : i - first;
        const size_t passed = i < first ? 0 : before + 1;
#pragma GCC unroll 16
        for (size_t v = 0; v < Vectors; ++v) {
            const simd::vector to_diagonal =
                simd::choose(_lanes_before(before, v), simd::fill(0.0), edge);
            simd::store(panel + i * panel_stride + v * width,
                        simd::choose(_lanes_before(passed, v), to_diagonal,
                                     simd::divide(simd::negate(sum[v]), diagonal)));
        }
    }
}

template <size_t Vectors>
void _invert_upper_columns(const double *factors, size_t stride, size_t n, size_t first,
                           double *panel, size_t panel_stride, size_t j, size_t end)
{
    constexpr size_t columns = Vectors * width;
    for (; j < end && end - j > columns - width; j += columns) {
        _invert_upper_group<Vectors>(factors, stride, first + j, smaller(first + j + columns, n),
                                     panel + j, panel_stride);
    }
    if constexpr (Vectors > 1) {
        _invert_upper_columns<Vectors / 2>(factors, stride, n, first, panel, panel_stride, j, end);
    }
}

void _invert_upper(const double *factors, size_t stride, size_t n, size_t first, size_t columns,
                   double *panel, size_t panel_stride)
{
    _invert_upper_columns<8>(factors, stride, n, first, panel, panel_stride, 0, columns);
}

// ---- folds ----

// Whether a fold has x only.
template <fold What>
constexpr bool alone = What != fold::squared_differences;

// What each element gives to the sum, and how it comes to it.
template <fold What>
inline simd::vector _fold_term(simd::vector x, simd::vector y)
{
    if constexpr (What == fold::magnitudes) {
        return simd::magnitude(x);
    } else if constexpr (What == fold::squared_differences) {
        const simd::vector difference = simd::subtract(x, y);
        return simd::multiply(difference, difference);
    } else {
        return x;
    }
}

template <fold What>
inline simd::vector _fold_step(simd::vector sum, simd::vector term)
{
    if constexpr (What == fold::squares) {
        return simd::fused(term, term, sum);
    } else {
        return simd::add(sum, term);
    }
}

template <size_t N>
struct vectors {
    static constexpr size_t count = N;
};

// Calls visit(vectors, begin, n) for groups of lines: the most vectors of them first, and what does
// not fill a vector last.
template <size_t Vectors, typename Visit>
inline void _visit_groups(size_t lines, size_t begin, Visit visit)
{
    constexpr size_t group = Vectors * width;
    for (; begin + group <= lines || (Vectors == 1 && begin < lines); begin += group) {
        visit(vectors<Vectors>{}, begin, smaller(group, lines - begin));
    }
    if constexpr (Vectors > 1) {
        _visit_groups<Vectors / 2>(lines, begin, visit);
    }
}

// terms[c] becomes what element c of so many lines of x (and of y) gives, a line in each lane. Of
// lines that are not there nothing is read.
template <fold What, typename Lanes>
inline void _load_terms(const double *x, size_t x_line, const double *y, size_t y_line,
                        size_t lines, Lanes lanes, simd::vector *terms)
{
#pragma GCC unroll 16
    for (size_t l = 0; l < width; ++l) {
        const size_t line = smaller(l, lines - 1);
        __builtin_prefetch(x + line * x_line + fetch_ahead);
        const simd::vector from_x = _load(x + line * x_line, lanes);
        terms[l] = _fold_term<What>(from_x, alone<What> ? from_x : _load(y + line * y_line, lanes));
    }
    simd::transpose(terms);
}

// Lines side by side, because each waits for its last sum: vectors of them, turned round on the
// way.
template <fold What, size_t Vectors>
void _fold_group(const fold_operands &o, size_t begin, size_t lines, double *sum)
{
    const simd::mask some = simd::first_lanes(smaller(width, lines));
    simd::vector total[Vectors];
#pragma GCC unroll 16
    for (size_t v = 0; v < Vectors; ++v) {
        total[v] = simd::load(sum + begin + v * width, some);
    }
    const auto add_elements = [&](size_t j, auto lanes, size_t n) __attribute__((always_inline))
    {
        simd::vector terms[Vectors][width];
#pragma GCC unroll 16
        for (size_t v = 0; v < Vectors; ++v) {
            const size_t line = begin + v * width;
            const double *y = alone<What> ? nullptr : o.y + line * o.y_line + j;
            _load_terms<What>(o.x + line * o.x_line + j, o.x_line, y, o.y_line, lines - v * width,
                              lanes, terms[v]);
        }
        for (size_t c = 0; c < n; ++c) {
#pragma GCC unroll 16
            for (size_t v = 0; v < Vectors; ++v) {
                total[v] = _fold_step<What>(total[v], terms[v][c]);
            }
        }
    };
    _visit_vectors(o.n, add_elements);
#pragma GCC unroll 16
    for (size_t v = 0; v < Vectors; ++v) {
        simd::store(sum + begin + v * width, total[v], some);
    }
}

constexpr size_t fold_lines = 8;

template <fold What>
void _fold_lines(const fold_operands &o, double *sum)
{
    const auto fold_group = [&](auto group, size_t begin, size_t lines) {
        _fold_group<What, decltype(group)::count>(o, begin, lines, sum);
    };
    _visit_groups<fold_lines / width>(o.lines, 0, fold_group);
}

// So many columns of sums stay in the first-level cache.
constexpr size_t statistics_columns = 1024;

// Several lines on each visit of the sums. With Same, y has one element for all of a line.
template <fold What, size_t Lines, bool Same>
void _fold_into(const fold_operands &o, size_t line, size_t begin, size_t columns, double *sum)
{
    for (; line + Lines <= o.lines; line += Lines) {
        const double *x = o.x + line * o.x_line + begin;
        const double *y = alone<What> ? nullptr : o.y + line * o.y_line + (Same ? 0 : begin);
        const auto add_lines = [&](size_t j, auto lanes, size_t) __attribute__((always_inline))
        {
            simd::vector total = _load(sum + begin + j, lanes);
#pragma GCC unroll 8
            for (size_t l = 0; l < Lines; ++l) {
                const simd::vector from_x = _load(x + l * o.x_line + j, lanes);
                const simd::vector from_y = alone<What> ? from_x
                                            : Same      ? simd::fill(y[l * o.y_line])
                                                        : _load(y + l * o.y_line + j, lanes);
                total = _fold_step<What>(total, _fold_term<What>(from_x, from_y));
            }
            _store(sum + begin + j, total, lanes);
        };
        _visit_vectors(columns, add_lines);
    }
    if constexpr (Lines > 1) {
        _fold_into<What, Lines / 2, Same>(o, line, begin, columns, sum);
    }
}

template <fold What>
void _fold_columns(const fold_operands &o, double *sum)
{
    for (size_t j = 0; j < o.n; j += statistics_columns) {
        const size_t columns = smaller(statistics_columns, o.n - j);
        if (!alone<What> && o.y_step == 0) {
            _fold_into<What, 4, true>(o, 0, j, columns, sum);
        } else {
            _fold_into<What, 4, false>(o, 0, j, columns, sum);
        }
    }
}

template <fold... All>
void _fold_any_along(fold what, const fold_operands &o, double *sum)
{
    ((what == All ? _fold_lines<All>(o, sum) : void()), ...);
}

template <fold... All>
void _fold_any_across(fold what, const fold_operands &o, double *sum)
{
    ((what == All ? _fold_columns<All>(o, sum) : void()), ...);
}

void _fold_along(fold what, const fold_operands &o, double *sum)
{
    _fold_any_along<fold::elements, fold::magnitudes, fold::squares, fold::squared_differences>(
        what, o, sum);
}

void _fold_across(fold what, const fold_operands &o, double *sum)
{
    _fold_any_across<fold::elements, fold::magnitudes, fold::squares, fold::squared_differences>(
        what, o, sum);
}

// The rows of y are turned round in squares, so that a vector holds the same column of several rows
// of both.
template <bool FromY>
void _fold_differences_of(const matrix_view &x, const matrix_view &y, size_t nrows, size_t ncols,
                          double *sum)
{
    constexpr size_t panel = 128;
    for (size_t j0 = 0; j0 < ncols; j0 += panel) {
        const size_t end = smaller(j0 + panel, ncols);
        size_t rows = _first_elements(x.base, nrows);
        for (size_t i = 0; i < nrows; i += rows, rows = smaller(width, nrows - i)) {
            const simd::mask lanes = simd::first_lanes(rows);
            simd::vector total = simd::load(sum + i, lanes);
            for (size_t j = j0; j < end; j += width) {
                const size_t columns = smaller(width, end - j);
                simd::vector square[width];
#pragma GCC unroll 16
                for (size_t r = 0; r < width; ++r) {
                    const double *row = y.base + (i + r) * y.row + j;
                    square[r] = simd::fill(0.0);
                    if (r < rows) {
                        square[r] = simd::load(row, simd::first_lanes(columns));
                        __builtin_prefetch(row + fetch_rows * y.row);
                    }
                }
                simd::transpose(square);
#pragma GCC unroll 16
                for (size_t c = 0; c < width; ++c) {
                    if (c < columns) {
                        const double *column = x.base + (j + c) * x.column + i;
                        __builtin_prefetch(column + fetch_ahead);
                        const simd::vector from_x = simd::load(column, lanes);
                        total = _fold_step<fold::squared_differences>(
                            total, FromY
                                       ? _fold_term<fold::squared_differences>(square[c], from_x)
                                       : _fold_term<fold::squared_differences>(from_x, square[c]));
                    }
                }
            }
            simd::store(sum + i, total, lanes);
        }
    }
}

void _fold_differences(const matrix_view &x, const matrix_view &y, bool from_y, size_t nrows,
                       size_t ncols, double *sum)
{
    if (from_y) {
        _fold_differences_of<true>(x, y, nrows, ncols, sum);
    } else {
        _fold_differences_of<false>(x, y, nrows, ncols, sum);
    }
}

// ---- moments of columns, columns in vectors ----

// The next element of each column comes to the mean and to the squares around it.
inline void _add_to_moments(simd::vector x, simd::vector count, simd::vector *mean,
                            simd::vector *m2)
{
    const simd::vector difference = simd::subtract(x, *mean);
    *mean = simd::add(*mean, simd::divide(difference, count));
    *m2 = simd::fused(difference, simd::subtract(x, *mean), *m2);
}

// Rows outside: each of them lies in one piece.
void _moments_across(const double *base, size_t stride, size_t m, size_t n, double *mean,
                     double *m2)
{
    double count = 0.0;
    for (size_t i = 0; i < m; ++i) {
        const double *row = base + i * stride;
        count += 1.0;
        const auto add_row = [&](size_t j, auto lanes, size_t) __attribute__((always_inline))
        {
            simd::vector means = _load(mean + j, lanes);
            simd::vector squares = _load(m2 + j, lanes);
            _add_to_moments(_load(row + j, lanes), simd::fill(count), &means, &squares);
            _store(mean + j, means, lanes);
            _store(m2 + j, squares, lanes);
        };
        _visit_vectors(n, add_row);
    }
}

// So many rows are turned round at a time, few columns after few: the distance of columns may be
// one that the cache has few places for.
constexpr size_t moment_rows = 64;

// Columns outside: each of them lies in one piece, and waits for its last mean.
template <size_t Vectors>
void _moments_along(const double *base, size_t stride, size_t m, size_t n, double *mean, double *m2)
{
    simd::vector means[Vectors];
    simd::vector squares[Vectors];
#pragma GCC unroll 16
    for (size_t v = 0; v < Vectors; ++v) {
        means[v] = squares[v] = simd::fill(0.0);
    }
    double count = 0.0;
    for (size_t i = 0; i < m; i += moment_rows) {
        const size_t rows = smaller(moment_rows, m - i);
        simd::vector elements[Vectors][moment_rows];
#pragma GCC unroll 16
        for (size_t v = 0; v < Vectors; ++v) {
            const auto turn_round = [&](size_t r, auto lanes, size_t) __attribute__((always_inline))
            {
                _load_terms<fold::elements>(base + v * width * stride + i + r, stride, nullptr, 0,
                                            n - v * width, lanes, elements[v] + r);
            };
            _visit_vectors(rows, turn_round);
        }
        for (size_t r = 0; r < rows; ++r) {
            count += 1.0;
#pragma GCC unroll 16
            for (size_t v = 0; v < Vectors; ++v) {
                _add_to_moments(elements[v][r], simd::fill(count), &means[v], &squares[v]);
            }
        }
    }
    const simd::mask some = simd::first_lanes(smaller(width, n));
#pragma GCC unroll 16
    for (size_t v = 0; v < Vectors; ++v) {
        simd::store(mean + v * width, means[v], some);
        simd::store(m2 + v * width, squares[v], some);
    }
}

void _moments(const matrix_view &x, size_t m, size_t n, double *mean, double *m2)
{
    if (x.column != 1) {
        const auto add_group = [&](auto group, size_t j, size_t columns) {
            _moments_along<decltype(group)::count>(x.base + j * x.column, x.column, m, columns,
                                                   mean + j, m2 + j);
        };
        _visit_groups<simd::moment_vectors>(n, 0, add_group);
        return;
    }
    for (size_t j = 0; j < n; j += statistics_columns) {
        _moments_across(x.base + j, x.row, m, smaller(statistics_columns, n - j), mean + j, m2 + j);
    }
}

constexpr matrix_kernels level = {
    simd::name,    _multiply_scratch, _multiply,    _eliminate, _largest_magnitude, _invert_lower,
    _invert_upper, _fold_along,       _fold_across, _moments,   _fold_differences,  _transpose};

} // namespace
// NOLINTEND(misc-definitions-in-headers)

#endif
