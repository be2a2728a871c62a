// Access to the elements of any matrix without asking its type each time: the same values, bounds
// and aborts as matrix_get() and matrix_set() have.
#include <cstdint>

#include "common/aborts.hpp"
#include "common/matrices.hpp"
#include "matrix/element_access.hpp"
#include "matrix/transposed_matrix_internal.hpp"

static void expect_elements(const grid &expected, const matrix *m)
{
    const element_reader elements(m);
    grid read(m->nrows, std::vector<double>(m->ncols));
    grid by_row = read;
    grid copied = read;
    for (uint32_t i = 0; i < m->nrows; ++i) {
        const element_row row(elements, i);
        for (uint32_t j = 0; j < m->ncols; ++j) {
            read[i][j] = elements.get(i, j);
            by_row[i][j] = row[j];
        }
        elements.copy_run(i, 0, m->ncols, copied[i].data());
    }
    EXPECT_EQ(expected, read);
    EXPECT_EQ(expected, by_row);
    EXPECT_EQ(expected, copied);
}

TEST(ElementAccess, ReadsEveryTypeOfMatrix)
{
    const owned_matrix m = make_matrix(two_by_three);
    expect_elements(two_by_three, m.get());
    const owned_matrix telemetry = make_telemetry(two_by_three, {"a", "b", "c"}, {10, 20});
    expect_elements(two_by_three, telemetry.get());
    const owned_matrix view = make_view(two_by_three);
    expect_elements(two_by_three, view.get());
    const owned_matrix twice(transposed_matrix_create(make_view(two_by_three).release()));
    expect_elements({{1, 4}, {2, 5}, {3, 6}}, twice.get());
    const owned_matrix of_telemetry(transposed_matrix_create(
        make_telemetry(two_by_three, {"a", "b", "c"}, {10, 20}).release()));
    expect_elements({{1, 4}, {2, 5}, {3, 6}}, of_telemetry.get());
}

TEST(ElementAccess, FindsRowsInPlaceThroughTwoViews)
{
    matrix *source = make_matrix(two_by_three).release();
    const owned_matrix twice(transposed_matrix_create(transposed_matrix_create(source)));
    EXPECT_EQ(source->values[1], element_reader(twice.get()).find_row(1));
    EXPECT_EQ(nullptr, element_reader(twice.get()).find_row(2));
    const owned_matrix view = make_view(two_by_three);
    EXPECT_EQ(nullptr, element_reader(view.get()).find_row(1));
}

TEST(ElementAccess, WritesEveryTypeOfMatrix)
{
    const owned_matrix m = make_matrix(two_by_three);
    const owned_matrix view = make_view(two_by_three);
    const owned_matrix telemetry = make_telemetry(two_by_three, {"a", "b", "c"}, {10, 20});
    for (matrix *to : {m.get(), view.get(), telemetry.get()}) {
        element_writer(to).set(1, 2, 60);
        EXPECT_EQ((grid{{1, 2, 3}, {4, 5, 60}}), elements_of(to));
    }
}

TEST(ElementAccess, GoesThroughTheSlotsOfForeignTypes)
{
    static double stored = 0;
    matrix m = {};
    m.version = 1;
    m.type = 9;
    m.nrows = m.ncols = 2;
    m.matrix = &stored;
    m.fn_get = [](void *, uint32_t i, uint32_t j) { return 10.0 * i + j; };
    m.fn_set = [](void *object, uint32_t, uint32_t, double value) {
        *static_cast<double *>(object) = value;
    };
    expect_elements({{0, 1}, {10, 11}}, &m);
    element_writer(&m).set(1, 1, 5);
    EXPECT_EQ(5, stored);
    EXPECT_EQ(9u, m.type);
}

TEST(ElementAccess, AbortsAsMatrixGetAndSetDo)
{
    const owned_matrix m = make_matrix(two_by_three);
    const owned_matrix view = make_view(two_by_three);
    double run[3];
    EXPECT_ABORTS(element_reader(m.get()).get(2, 0), "i < m->nrows");
    EXPECT_ABORTS(element_reader(m.get()).get(0, 3), "j < m->ncols");
    EXPECT_ABORTS(element_reader(m.get()).copy_run(0, 1, 3, run), "j < m->ncols");
    EXPECT_ABORTS(element_reader(view.get()).get(2, 0), "j < m->ncols");
    EXPECT_ABORTS(element_writer(m.get()).set(0, 3, 0), "j < m->ncols");
    EXPECT_ABORTS(element_writer(view.get()).set(0, 3, 0), "i < m->nrows");
    const owned_matrix null_record(matrix_create_null());
    EXPECT_ABORTS(element_reader(null_record.get()).get(0, 0), "m->type > 0");
    EXPECT_ABORTS(
        {
            m->version = 0;
            element_reader(m.get()).get(0, 0);
        },
        "m->version == ((char) 1)");
    EXPECT_ABORTS(
        {
            view->fn_get = nullptr;
            element_reader(view.get()).get(0, 0);
        },
        "m->fn_get != ((void *)0)");
    EXPECT_ABORTS(
        {
            static_cast<transposed_matrix *>(view->matrix)->version = 0;
            element_reader(view.get()).get(0, 0);
        },
        "tmatrix->version == ((char) 1)");
}

TEST(ElementAccess, FollowsASourceThatGrewBehindTheView)
{
    matrix *source = make_matrix(two_by_three).release();
    const owned_matrix view(transposed_matrix_create(source));
    ASSERT_EQ(0, matrix_resize(source, 4, 4));
    expect_elements({{1, 4}, {2, 5}, {3, 6}}, view.get());
}

TEST(ElementAccess, AbortsOnlyAtWhatASmallerSourceLacks)
{
    matrix *source = make_matrix(two_by_three).release();
    const owned_matrix view(transposed_matrix_create(source));
    ASSERT_EQ(0, matrix_resize(source, 2, 2));
    const element_reader elements(view.get());
    EXPECT_EQ(5, elements.get(1, 1));
    EXPECT_ABORTS(elements.get(2, 0), "j < m->ncols");
}
