// Slots that a caller put into a matrix are called for what they are called for, and no element of
// a matrix without direct access is read or written more often than the operation needs.
#include <cfenv>
#include <functional>
#include <gtest/gtest.h>

#include <vesk/error.h>
#include <vesk/matrix_compare.h>
#include <vesk/matrix_lu.h>
#include <vesk/matrix_ops.h>
#include <vesk/matrix_slices.h>

#include "common/failing_calls.hpp"
#include "common/matrices.hpp"
#include "matrix/all_kernels.hpp"

namespace
{

// A caller's slots: those of the library, counted, with 100 added to what is read.
int gets;
int sets;
int copies;
double (*get_below)(void *, uint32_t, uint32_t);
void (*set_below)(void *, uint32_t, uint32_t, double);
void *(*copy_below)(void *);

double counting_get(void *object, uint32_t i, uint32_t j)
{
    ++gets;
    return 100 + get_below(object, i, j);
}

void counting_set(void *object, uint32_t i, uint32_t j, double value)
{
    ++sets;
    set_below(object, i, j, value);
}

void *counting_copy(void *object)
{
    ++copies;
    return copy_below(object);
}

// A view, or telemetry without direct access, whose slots are the caller's.
owned_matrix make_foreign(uint32_t type, const grid &rows)
{
    owned_matrix m = type == MATRIX_TYPE_TRANSPOSED
                         ? make_view(rows)
                         : make_telemetry(rows, std::vector<std::string>(rows[0].size(), "s"),
                                          std::vector<long>(rows.size(), 1000));
    get_below = m->fn_get;
    set_below = m->fn_set;
    copy_below = m->fn_copy;
    m->fn_get = counting_get;
    m->fn_set = counting_set;
    m->fn_copy = counting_copy;
    m->values = nullptr;
    gets = sets = copies = 0;
    return m;
}

struct calls {
    int gets;
    int sets;
};

bool operator==(const calls &a, const calls &b)
{
    return a.gets == b.gets && a.sets == b.sets;
}

void PrintTo(const calls &c, std::ostream *out)
{
    *out << c.gets << " reads, " << c.sets << " writes";
}

class ForeignSlots : public testing::TestWithParam<uint32_t>
{
protected:
    // What an operation on a matrix of 2 x 3 comes to, and the calls that it takes.
    static grid result_of(const std::function<matrix *(const matrix *)> &make, calls *taken)
    {
        const owned_matrix m = make_foreign(GetParam(), {{1, 2, 3}, {4, 5, 6}});
        const owned_matrix result(make(m.get()));
        *taken = {gets, sets};
        if (!result) {
            return {};
        }
        // What was made like the operand reads as the operand does.
        result->fn_get = result->fn_get == counting_get ? get_below : result->fn_get;
        return elements_of(result.get());
    }
};

INSTANTIATE_TEST_SUITE_P(Types, ForeignSlots,
                         testing::Values(MATRIX_TYPE_TRANSPOSED, MATRIX_TYPE_TELEMETRY),
                         [](const testing::TestParamInfo<uint32_t> &type) {
                             return type.param == MATRIX_TYPE_TRANSPOSED ? "view" : "telemetry";
                         });

TEST_P(ForeignSlots, AreReadOnceForEachElementOfAMapAndWrittenOnce)
{
    calls taken = {};
    EXPECT_EQ((grid{{202, 204, 206}, {208, 210, 212}}),
              result_of([](const matrix *m) { return matrix_scalar_multiply(m, 2); }, &taken));
    EXPECT_EQ((calls{6, 6}), taken);
    EXPECT_EQ((grid{{101, 102, 103}, {104, 105, 106}}),
              result_of([](const matrix *m) { return matrix_elemental_abs(m); }, &taken));
    EXPECT_EQ((calls{6, 6}), taken);
}

TEST_P(ForeignSlots, AreReadTwiceAndWrittenOnceForADifference)
{
    calls taken = {};
    EXPECT_EQ((grid{{0, 0, 0}, {0, 0, 0}}),
              result_of([](const matrix *m) { return matrix_subtract(m, m); }, &taken));
    EXPECT_EQ((calls{12, 6}), taken);
}

TEST_P(ForeignSlots, AreNotReadWhereElementsAreCleared)
{
    const owned_matrix m = make_foreign(GetParam(), {{1, 2, 3}, {4, 5, 6}});
    matrix_clear(m.get());
    EXPECT_EQ(0, gets);
    EXPECT_EQ(6, sets);
}

TEST_P(ForeignSlots, AreReadUpToTheFirstElementWithoutARoot)
{
    const owned_matrix m = make_foreign(GetParam(), {{-96, 5, -101}, {-200, 5, 6}});
    qe_set_last_error(0);
    EXPECT_EQ(nullptr, matrix_elemental_sqrt(m.get()));
    EXPECT_EQ(QE_ERROR_NEGATIVE_ROOT, qe_get_last_error());
    EXPECT_EQ(3, gets);
    EXPECT_EQ(2, sets);
}

TEST_P(ForeignSlots, AreReadForProductsAndStatistics)
{
    calls taken = {};
    const owned_matrix two = make_matrix({{1, 0}, {0, 1}, {1, 1}});
    EXPECT_EQ((grid{{204, 205}, {210, 211}}),
              result_of([&](const matrix *m) { return matrix_multiply(m, two.get()); }, &taken));
    // Each element once for each column of the product.
    EXPECT_EQ((calls{12, 0}), taken);
    EXPECT_EQ((grid{{205, 207, 209}}), result_of(matrix_column_sum, &taken));
    EXPECT_EQ((calls{6, 0}), taken);
    EXPECT_EQ((grid{{102.5, 103.5, 104.5}}), result_of(matrix_column_mean, &taken));
    EXPECT_EQ((calls{6, 0}), taken);
    EXPECT_EQ((grid{{1.5, 1.5, 1.5}}), result_of(matrix_column_std_dev, &taken));
    EXPECT_EQ((calls{6, 0}), taken);
    const double first = fma(103, 103, fma(102, 102, 101 * 101));
    const double second = fma(106, 106, fma(105, 105, 104 * 104));
    EXPECT_EQ((grid{{sqrt(first)}, {sqrt(second)}}), result_of(matrix_euclidean_length, &taken));
    EXPECT_EQ((calls{6, 0}), taken);
    const owned_matrix other = make_matrix({{98, 98, 103}, {101, 101, 106}});
    EXPECT_EQ((grid{{5}, {5}}),
              result_of([&](const matrix *m) { return matrix_euclidean_distance(m, other.get()); },
                        &taken));
    EXPECT_EQ((calls{6, 0}), taken);
    const owned_matrix row = make_matrix({{101, 101, 101}});
    EXPECT_EQ((grid{{5}, {50}}),
              result_of(
                  [&](const matrix *m) {
                      return matrix_euclidean_distance_sq_with_row_vector(m, row.get());
                  },
                  &taken));
    EXPECT_EQ((calls{6, 0}), taken);
}

TEST_P(ForeignSlots, MakeTheCopyThatIsNormalised)
{
    const owned_matrix row = make_matrix({{1, 1, 1}});
    const owned_matrix m = make_foreign(GetParam(), {{1, 2, 3}, {4, 5, 6}});
    const owned_matrix result(matrix_gaussian_normalize(m.get(), row.get(), row.get()));
    ASSERT_TRUE(result);
    EXPECT_EQ(1, copies);
}

TEST(ForeignCopySlot, IsCalledForAViewWhoseAccessIsTheLibrarys)
{
    const owned_matrix row = make_matrix({{1, 1, 1}});
    const owned_matrix m = make_foreign(MATRIX_TYPE_TRANSPOSED, {{1, 2, 3}, {4, 5, 6}});
    m->fn_get = get_below;
    m->fn_set = set_below;
    const owned_matrix result(matrix_gaussian_denormalize(m.get(), row.get(), row.get()));
    ASSERT_TRUE(result);
    EXPECT_EQ(1, copies);
    EXPECT_EQ((grid{{2, 3, 4}, {5, 6, 7}}), elements_of(result.get()));
}

TEST(ForeignSlotsOfAView, ShowInNormsComparisonsSlicesAndDirectAccess)
{
    const grid rows = {{1, 2}, {3, 4}};
    const owned_matrix m = make_foreign(MATRIX_TYPE_TRANSPOSED, rows);
    const owned_matrix shown = make_matrix({{101, 102}, {103, 104}});
    EXPECT_EQ(matrix_norm_F(shown.get()), matrix_norm_F(m.get()));
    EXPECT_EQ(matrix_norm_inf(shown.get()), matrix_norm_inf(m.get()));
    EXPECT_TRUE(matrix_is_equal(shown.get(), m.get()));
    const owned_matrix block(matrix_get_submatrix(m.get(), 0, 2, 0, 2));
    EXPECT_EQ(elements_of(shown.get()), elements_of(block.get()));
    const owned_matrix target = make_matrix({{0, 0}, {0, 0}});
    matrix_set_submatrix(target.get(), m.get(), 0, 2, 0, 2, 0, 0);
    EXPECT_EQ(elements_of(shown.get()), elements_of(target.get()));
    sets = 0;
    matrix_set_submatrix(m.get(), target.get(), 0, 2, 0, 2, 0, 0);
    EXPECT_EQ(4, sets);
    EXPECT_NE(nullptr, matrix_enable_direct_access(m.get()));
    EXPECT_EQ((grid{{201, 202}, {203, 204}}), elements_of(m.get()));
}

// ---- Views whose source was resized since -------------------------------------------------------

class StaleViews : public AllKernels
{
};
INSTANTIATE_TEST_SUITE_P(Levels, StaleViews, testing::ValuesIn(AllKernels::levels()),
                         AllKernels::name);

// The view shows `rows` still, while its source has got columns that it does not show.
owned_matrix make_stale_view(const grid &rows)
{
    owned_matrix view = make_view(rows);
    matrix *source = transposed_matrix_detach_original_matrix(view.get());
    EXPECT_EQ(0, matrix_resize(source, source->nrows + 2, source->ncols + 3));
    for (uint32_t i = 0; i < source->nrows; ++i) {
        for (uint32_t j = 0; j < source->ncols; ++j) {
            if (i >= view->ncols || j >= view->nrows) {
                matrix_set(source, i, j, 1e9);
            }
        }
    }
    matrix *again = transposed_matrix_create(source);
    again->nrows = view->nrows;
    again->ncols = view->ncols;
    return owned_matrix(again);
}

TEST(StaleView, OfAVectorGivesTheDistancesOfWhatItShows)
{
    const owned_matrix source = make_matrix({{1}, {2}, {3}});
    const owned_matrix row(transposed_matrix_create(source.get()));
    (void)transposed_matrix_detach_original_matrix(row.get());
    ASSERT_EQ(0, matrix_resize(source.get(), 3, 2));
    matrix_set(source.get(), 0, 1, 50);
    const owned_matrix m = make_matrix({{4, 5, 6}, {1, 2, 3}, {0, 0, 0}});
    const owned_matrix found(matrix_euclidean_distance_sq_with_row_vector(m.get(), row.get()));
    EXPECT_EQ((grid{{27}, {0}, {14}}), elements_of(found.get()));
}

grid some_numbers(size_t nrows, size_t ncols, double first)
{
    grid rows(nrows, std::vector<double>(ncols));
    for (auto &row : rows) {
        for (double &x : row) {
            x = first = first > 7 ? first - 6.5 : first + 0.75;
        }
    }
    return rows;
}

// Every operation gives the same for a stale view as for a matrix of the elements that it shows.
void expect_same_as_regular(const grid &a, const grid &b)
{
    SCOPED_TRACE(testing::Message() << a.size() << " x " << a[0].size());
    const owned_matrix fresh1 = make_matrix(a);
    const owned_matrix fresh2 = make_matrix(b);
    const owned_matrix fresh_row = make_matrix({b[0]});
    const owned_matrix stale1 = make_stale_view(a);
    const owned_matrix stale2 = make_stale_view(b);
    const owned_matrix stale_row = make_stale_view({b[0]});
    const auto same = [](matrix *made, matrix *expected) {
        const owned_matrix made_owner(made);
        const owned_matrix expected_owner(expected);
        EXPECT_EQ(elements_of(expected), elements_of(made));
    };
    for (const auto make :
         {matrix_column_sum, matrix_column_mean, matrix_column_std_dev, matrix_euclidean_length}) {
        same(make(stale1.get()), make(fresh1.get()));
    }
    const struct {
        const matrix *m1;
        const matrix *m2;
        const matrix *row;
    } operands[] = {{stale1.get(), stale2.get(), stale_row.get()},
                    {stale1.get(), fresh2.get(), fresh_row.get()},
                    {fresh1.get(), stale2.get(), stale_row.get()}};
    for (const auto &o : operands) {
        same(matrix_euclidean_distance(o.m1, o.m2),
             matrix_euclidean_distance(fresh1.get(), fresh2.get()));
        same(matrix_euclidean_distance_sq_with_row_vector(o.m1, o.row),
             matrix_euclidean_distance_sq_with_row_vector(fresh1.get(), fresh_row.get()));
        same(matrix_gaussian_normalize(o.m1, o.row, o.row),
             matrix_gaussian_normalize(fresh1.get(), fresh_row.get(), fresh_row.get()));
    }
    EXPECT_EQ(matrix_norm_F(fresh1.get()), matrix_norm_F(stale1.get()));
    EXPECT_EQ(matrix_norm_inf(fresh1.get()), matrix_norm_inf(stale1.get()));
    EXPECT_TRUE(matrix_is_equal(fresh1.get(), stale1.get()));
    const owned_matrix sum = make_matrix(a);
    matrix_accum(sum.get(), stale2.get());
    same(matrix_add(fresh1.get(), fresh2.get()), matrix_copy(sum.get()));
    if (a.size() == a[0].size()) {
        same(matrix_multiply(stale1.get(), stale2.get()),
             matrix_multiply(fresh1.get(), fresh2.get()));
        same(matrix_multiply(fresh1.get(), stale2.get()),
             matrix_multiply(fresh1.get(), fresh2.get()));
    }
    if (a.size() == 1) {
        // 1 x n times n x 1
        const owned_matrix column = make_matrix(some_numbers(a[0].size(), 1, 2));
        same(matrix_multiply(stale1.get(), column.get()),
             matrix_multiply(fresh1.get(), column.get()));
    }
    const owned_matrix direct = make_stale_view(a);
    EXPECT_NE(nullptr, matrix_enable_direct_access(direct.get()));
    EXPECT_EQ(a, elements_of(direct.get()));
}

TEST_P(StaleViews, CountAsTheElementsThatTheyShow)
{
    for (const auto &[nrows, ncols] : {std::pair<size_t, size_t>{1, 1},
                                       {1, 3},
                                       {3, 1},
                                       {1, 20},
                                       {20, 1},
                                       {2, 3},
                                       {5, 5},
                                       {19, 34}}) {
        expect_same_as_regular(some_numbers(nrows, ncols, 1.25), some_numbers(nrows, ncols, 3));
    }
}

// ---- Rounding -----------------------------------------------------------------------------------

class Rounding : public AllKernels
{
};
INSTANTIATE_TEST_SUITE_P(Levels, Rounding, testing::ValuesIn(AllKernels::levels()),
                         AllKernels::name);

TEST_P(Rounding, UpwardsIsThatOfTheFirstOperandMinusTheSecond)
{
    grid a(9, std::vector<double>(21));
    grid b = a;
    for (size_t i = 0; i < a.size(); ++i) {
        for (size_t j = 0; j < a[0].size(); ++j) {
            a[i][j] = 1.0 / static_cast<double>(3 + i + j);
            b[i][j] = 1e6 / static_cast<double>(7 + i * j);
        }
    }
    const owned_matrix regular1 = make_matrix(a);
    const owned_matrix regular2 = make_matrix(b);
    const owned_matrix view1 = make_view(a);
    const owned_matrix view2 = make_view(b);
    grid expected(a.size(), {0});
    ASSERT_EQ(0, fesetround(FE_UPWARD));
    for (size_t i = 0; i < a.size(); ++i) {
        volatile double sum = 0;
        for (size_t j = 0; j < a[0].size(); ++j) {
            const volatile double x = a[i][j];
            const volatile double y = b[i][j];
            const volatile double difference = x - y;
            const volatile double square = difference * difference;
            sum = sum + square;
        }
        expected[i][0] = sqrt(sum);
    }
    std::vector<grid> found;
    for (const matrix *m1 : {regular1.get(), view1.get()}) {
        for (const matrix *m2 : {regular2.get(), view2.get()}) {
            const owned_matrix distance(matrix_euclidean_distance(m1, m2));
            found.push_back(elements_of(distance.get()));
        }
    }
    fesetround(FE_TONEAREST);
    for (const grid &distances : found) {
        EXPECT_EQ(expected, distances);
    }
}

} // namespace
