// The functions of matrices, with what each gives when a call fails.
#include <gtest/gtest.h>
#include <random>

#include <vesk/matrix.h>
#include <vesk/matrix_compare.h>
#include <vesk/matrix_lu.h>
#include <vesk/matrix_ops.h>
#include <vesk/matrix_slices.h>
#include <vesk/telemetry_matrix.h>
#include <vesk/transposed_matrix.h>

#include "common/matrices.hpp"
#include "common/telemetry.hpp"
#include "faults/fault_loop.hpp"
#include "support/owner.hpp"

namespace
{

// The three types of matrix, all showing the same numbers, which are no trouble to any function.
const grid numbers = {{4, 1, 2}, {1, 5, 1}, {2, 1, 6}};

owned_matrix make_any(const std::string &type, const grid &rows = numbers)
{
    if (type == "regular") {
        return make_matrix(rows);
    }
    if (type == "view") {
        return make_view(rows);
    }
    const std::vector<std::string> sensors = {"a", "b", "c"};
    const std::vector<long> seconds = {1000, 1001, 1002};
    return make_telemetry(rows,
                          {sensors.begin(), sensors.begin() + static_cast<long>(rows[0].size())},
                          {seconds.begin(), seconds.begin() + static_cast<long>(rows.size())});
}

// A function of one matrix, which it leaves alone when it fails.
using matrix_function = std::function<outcome(fault &, matrix *)>;

const expectations memory_saves_time = {{call_kind::allocation, {"-22", "ok"}}};

// Makes a matrix without failures first, and once more with them.
outcome makes_equal(fault &f, const std::function<matrix *()> &make)
{
    const owned_matrix expected(make());
    const owned_matrix made(f(make));
    if (!made) {
        return fault::cell();
    }
    EXPECT_EQ(elements_of(expected.get()), elements_of(made.get()));
    return fault::success();
}

class matrix_table
{
public:
    std::vector<fault_case> release() { return std::move(cases_); }

    void add(fault_case one) { cases_.push_back(std::move(one)); }

    void add_for(const std::string &type, const std::string &function, const expectations &expected,
                 const matrix_function &call)
    {
        add({function, type, expected, [=](fault &f) {
                 const owned_matrix m = make_any(type);
                 const uint32_t type_before = m->type;
                 const outcome found = call(f, m.get());
                 if (found != "ok") {
                     EXPECT_EQ(type_before, m->type);
                     EXPECT_EQ(numbers, elements_of(m.get()));
                 }
                 return found;
             }});
    }
    void add_for_all(const std::string &function, const expectations &expected,
                     const matrix_function &call)
    {
        for (const char *type : {"regular", "view", "telemetry"}) {
            add_for(type, function, expected, call);
        }
    }

    // A function that makes a matrix of one.
    void makes(const std::string &function, const std::function<matrix *(matrix *)> &make)
    {
        add_for_all(function, no_memory, [=](fault &f, matrix *m) {
            return f.creates(matrix_destroy, [&] { return make(m); });
        });
    }
    // The same, of two matrices of the same type.
    void makes_of_two(const std::string &function, matrix *(*make)(const matrix *, const matrix *))
    {
        for (const char *type : {"regular", "view", "telemetry"}) {
            add_for(type, function, no_memory, [=](fault &f, matrix *m) {
                const owned_matrix other = make_any(type);
                return f.creates(matrix_destroy, [&] { return make(m, other.get()); });
            });
        }
    }
    // The same where some of the memory is only to save time: without it the result is equal.
    void makes_the_same(const std::string &function, const std::string &type,
                        const std::function<matrix *(matrix *)> &make)
    {
        add_for(type, function, memory_saves_time,
                [=](fault &f, matrix *m) { return makes_equal(f, [=] { return make(m); }); });
    }
    // A function that needs no memory: it cannot fail.
    template <typename Call>
    void needs_nothing(const std::string &function, Call call)
    {
        add_for_all(function, nothing_fails,
                    [=](fault &f, matrix *m) { return f.does([&] { (void)call(m); }); });
    }

private:
    std::vector<fault_case> cases_;
};

const uint32_t two_indices[] = {2, 0};

// Two columns or rows are overwritten, first the values and then what belongs to them.
outcome sets_columns(fault &f, const std::string &type)
{
    const owned_matrix m = make_any(type);
    const owned_matrix vals = make_any(type, {{1, 2}, {3, 4}, {5, 6}});
    const outcome found =
        f.returns([&] { return matrix_set_columns(m.get(), vals.get(), two_indices); });
    EXPECT_EQ((grid{{2, 1, 1}, {4, 5, 3}, {6, 1, 5}}), elements_of(m.get()));
    return found;
}

outcome sets_rows(fault &f, const std::string &type)
{
    const owned_matrix m = make_any(type);
    const owned_matrix vals = make_any(type, {{1, 2, 3}, {4, 5, 6}});
    const outcome found =
        f.returns([&] { return matrix_set_rows(m.get(), vals.get(), two_indices); });
    EXPECT_EQ((grid{{4, 5, 6}, {1, 5, 1}, {1, 2, 3}}), elements_of(m.get()));
    return found;
}

// A telemetry matrix keeps its counts after a failure and can only be destroyed.
outcome resizes(fault &f, const std::string &type)
{
    const owned_matrix m = make_any(type);
    const outcome found = f.returns([&] { return matrix_resize(m.get(), 4, 2); });
    EXPECT_EQ(found == "ok" ? 4U : 3U, matrix_get_number_rows(m.get()));
    EXPECT_EQ(found == "ok" ? 2U : 3U, matrix_get_number_columns(m.get()));
    if (found != "ok" && type != "telemetry") {
        EXPECT_EQ(numbers, elements_of(m.get()));
    }
    return found;
}

// What a telemetry matrix is made from: it takes all of it over, or nothing.
struct parts {
    static constexpr const char *names[] = {"a", "b", "c"};

    timestamp now = make_timestamp(1000);
    owned_matrix values;
    owned<sensor_array, sensor_array_destroy> sensors;
    owned<timestamp_array, timestamp_array_destroy> timestamps;

    parts(const std::string &type, uint32_t nrows)
        : values(make_any(type, {numbers.begin(), numbers.begin() + nrows})),
          sensors(sensor_array_create_from_names(names, 3)),
          timestamps(timestamp_array_create_dummy(&now, nrows))
    {
    }

    outcome taken(const outcome &found, bool with_timestamps)
    {
        if (found == "ok") {
            (void)values.release();
            (void)sensors.release();
            if (with_timestamps) {
                (void)timestamps.release();
            }
        }
        return found;
    }
};

void add_telemetry(matrix_table *table, const std::string &type)
{
    table->add({"telemetry_matrix_init", "of_" + type, no_memory, [=](fault &f) {
                    parts p(type, 3);
                    return p.taken(f.inits<matrix>(matrix_destruct,
                                                   [&](matrix *m) {
                                                       return telemetry_matrix_init(
                                                           m, p.values.get(), p.sensors.get(),
                                                           p.timestamps.get());
                                                   }),
                                   true);
                }});
    table->add({"telemetry_matrix_create", "of_" + type, no_memory, [=](fault &f) {
                    parts p(type, 3);
                    return p.taken(f.creates(matrix_destroy,
                                             [&] {
                                                 return telemetry_matrix_create(p.values.get(),
                                                                                p.sensors.get(),
                                                                                p.timestamps.get());
                                             }),
                                   true);
                }});
    table->add({"telemetry_matrix_init_vector", "of_" + type, no_memory, [=](fault &f) {
                    parts p(type, 1);
                    return p.taken(f.inits<matrix>(matrix_destruct,
                                                   [&](matrix *m) {
                                                       return telemetry_matrix_init_vector(
                                                           m, p.values.get(), p.sensors.get(),
                                                           &p.now);
                                                   }),
                                   false);
                }});
    table->add({"telemetry_matrix_create_vector", "of_" + type, no_memory, [=](fault &f) {
                    parts p(type, 1);
                    return p.taken(f.creates(matrix_destroy,
                                             [&] {
                                                 return telemetry_matrix_create_vector(
                                                     p.values.get(), p.sensors.get(), &p.now);
                                             }),
                                   false);
                }});
    table->add({"telemetry_matrix_clone_with_values", "of_" + type, no_memory, [=](fault &f) {
                    const owned_matrix like = make_any("telemetry");
                    owned_matrix values = make_any(type);
                    const outcome found = f.creates(matrix_destroy, [&] {
                        return telemetry_matrix_clone_with_values(like.get(), values.get());
                    });
                    if (found == "ok") {
                        (void)values.release();
                    } else {
                        EXPECT_EQ(numbers, elements_of(values.get()));
                    }
                    return found;
                }});
}

owned_matrix make_row(const std::vector<double> &row)
{
    return make_matrix({row});
}

// A view of a column whose matrix got another column since.
owned_matrix make_stale_row()
{
    const owned_matrix row = make_view({{1, 2, 3}});
    matrix *source = transposed_matrix_detach_original_matrix(row.get());
    matrix_resize(source, 3, 2);
    matrix *stale = transposed_matrix_create(source);
    stale->nrows = 1;
    return owned_matrix(stale);
}

// Factorises without failures first, and once more with them.
outcome factorises_equal(fault &f, const matrix *m)
{
    using owned_lu = owned<matrix_lu, matrix_lu_destroy>;
    const owned_lu expected(matrix_lu_create(m));
    const owned_lu made(f([&] { return matrix_lu_create(m); }));
    if (!made) {
        return fault::cell();
    }
    EXPECT_EQ(elements_of(expected->matrix), elements_of(made->matrix));
    EXPECT_EQ(elements_of(expected->p), elements_of(made->p));
    EXPECT_EQ(elements_of(expected->q), elements_of(made->q));
    EXPECT_EQ(matrix_lu_get_rank(expected.get()), matrix_lu_get_rank(made.get()));
    EXPECT_EQ(matrix_lu_get_det(expected.get()), matrix_lu_get_det(made.get()));
    return fault::success();
}

// The factors are made once and belong to the record.
outcome makes_factor(fault &f, matrix *m, matrix *(*get_factor)(matrix_lu *))
{
    const owned<matrix_lu, matrix_lu_destroy> lu(matrix_lu_create(m));
    const matrix *factor = f([&] { return get_factor(lu.get()); });
    return factor != nullptr ? fault::success() : fault::cell();
}

// Numbers without an order.
grid scattered_numbers(size_t n)
{
    std::mt19937 draw(1);
    grid rows(n, std::vector<double>(n));
    for (auto &row : rows) {
        for (double &value : row) {
            value = static_cast<double>(draw()) - 2e9;
        }
    }
    return rows;
}

// Numbers in any amount.
grid many_numbers(size_t nrows, size_t ncols)
{
    grid rows(nrows, std::vector<double>(ncols));
    double next = 0;
    for (auto &row : rows) {
        for (double &element : row) {
            element = next = next > 9 ? 1 : next + 1;
        }
    }
    return rows;
}

// Large enough for the product to pack its operands, if there is memory for that.
outcome makes_large_product(fault &f, const std::string &type)
{
    const owned_matrix m1 = make_matrix(many_numbers(2, 400));
    const owned_matrix m2 = make_any(type, many_numbers(400, 400));
    const owned_matrix expected(matrix_multiply(m1.get(), m2.get()));
    const owned_matrix product(f([&] { return matrix_multiply(m1.get(), m2.get()); }));
    if (!product) {
        return fault::cell();
    }
    EXPECT_EQ(elements_of(expected.get()), elements_of(product.get()));
    return fault::success();
}

void add_records(matrix_table &table)
{
    table.add({"matrix_init", "", no_memory, [](fault &f) {
                   return f.inits<matrix>(matrix_destruct,
                                          [](matrix *m) { return matrix_init(m, 2, 3); });
               }});
    for (const auto &[name, create] : std::map<std::string, matrix *(*)()>{
             {"matrix_create", [] { return matrix_create(2, 3); }},
             {"matrix_create_with_dimensions", [] { return matrix_create_with_dimensions(2, 3); }},
             {"matrix_create_null", matrix_create_null},
             {"matrix_create_identity", [] { return matrix_create_identity(3); }},
             {"matrix_create_ones", [] { return matrix_create_ones(2, 3); }},
         }) {
        table.add({name, "", no_memory,
                   [create = create](fault &f) { return f.creates(matrix_destroy, create); }});
    }
    table.makes("matrix_create_like", [](matrix *m) { return matrix_create_like(m); });
    table.makes_of_two("matrix_create_like_binary_operands", matrix_create_like_binary_operands);
    table.makes("matrix_copy", [](matrix *m) { return matrix_copy(m); });
    for (const char *type : {"regular", "view", "telemetry"}) {
        table.add_for(type, "matrix_enable_direct_access",
                      type == std::string("view") ? no_memory : nothing_fails,
                      [](fault &f, matrix *m) {
                          double **rows = f([&] { return matrix_enable_direct_access(m); });
                          EXPECT_EQ(numbers, elements_of(m));
                          return rows != nullptr ? fault::success() : fault::cell();
                      });
        table.add({"matrix_resize", type, no_memory, [=](fault &f) { return resizes(f, type); }});
        const expectations labels = type == std::string("telemetry") ? no_memory : nothing_fails;
        table.add(
            {"matrix_set_columns", type, labels, [=](fault &f) { return sets_columns(f, type); }});
        table.add({"matrix_set_rows", type, labels, [=](fault &f) { return sets_rows(f, type); }});
        add_telemetry(&table, type);
    }
}

void add_matrix_slices(matrix_table &table)
{
    table.makes("matrix_get_columns",
                [](matrix *m) { return matrix_get_columns(m, two_indices, 2); });
    table.makes("matrix_get_rows", [](matrix *m) { return matrix_get_rows(m, two_indices, 2); });
    table.makes("matrix_get_submatrix",
                [](matrix *m) { return matrix_get_submatrix(m, 1, 2, 0, 2); });
}

void add_transposed_matrix(matrix_table &table)
{
    table.add_for_all("transposed_matrix_init", no_memory, [](fault &f, matrix *m) {
        return f.inits<matrix>(
            [](matrix *view) {
                (void)transposed_matrix_detach_original_matrix(view);
                matrix_destruct(view);
            },
            [=](matrix *view) { return transposed_matrix_init(view, m); });
    });
    table.add_for_all("transposed_matrix_create", no_memory, [](fault &f, matrix *m) {
        matrix *view = f([=] { return transposed_matrix_create(m); });
        if (view == nullptr) {
            return fault::cell();
        }
        (void)transposed_matrix_detach_original_matrix(view);
        matrix_destroy(&view);
        return fault::success();
    });
}

void add_telemetry_matrix(matrix_table &table)
{
    table.add({"telemetry_matrix_update_vector_timestamp", "", no_memory, [](fault &f) {
                   const owned_matrix vector = make_vector(1000, {{"a", 1}});
                   const timestamp later = make_timestamp(2000);
                   const outcome found = f.returns([&] {
                       return telemetry_matrix_update_vector_timestamp(vector.get(), &later);
                   });
                   EXPECT_EQ(std::vector<long>{found == "ok" ? 2000 : 1000},
                             seconds_of(vector.get()));
                   return found;
               }});
}

void add_matrix_ops(matrix_table &table)
{
    table.makes("matrix_scalar_multiply", [](matrix *m) { return matrix_scalar_multiply(m, 2); });
    table.makes("matrix_scalar_divide", [](matrix *m) { return matrix_scalar_divide(m, 2); });
    table.makes_of_two("matrix_add", matrix_add);
    table.makes_of_two("matrix_subtract", matrix_subtract);
    const auto square = [](matrix *m) { return matrix_multiply(m, m); };
    for (const char *type : {"regular", "telemetry"}) {
        table.add_for(type, "matrix_multiply", no_memory, [=](fault &f, matrix *m) {
            return f.creates(matrix_destroy, [=] { return square(m); });
        });
    }
    table.makes_the_same("matrix_multiply", "view", square);
    for (const char *type : {"regular", "view"}) {
        table.add({"matrix_multiply",
                   std::string("large_") + type,
                   {{call_kind::allocation, {"-22", "ok"}}},
                   [=](fault &f) { return makes_large_product(f, type); }});
    }
    for (const auto &[name, make] : std::map<std::string, matrix *(*)(const matrix *)>{
             {"matrix_elemental_square", matrix_elemental_square},
             {"matrix_elemental_sqrt", matrix_elemental_sqrt},
             {"matrix_elemental_exp", matrix_elemental_exp},
             {"matrix_elemental_abs", matrix_elemental_abs},
             {"matrix_column_sum", matrix_column_sum},
             {"matrix_column_mean", matrix_column_mean},
             {"matrix_euclidean_length", matrix_euclidean_length},
         }) {
        table.makes(name, make);
    }
    table.makes_of_two("matrix_euclidean_distance", matrix_euclidean_distance);
    table.add_for_all("matrix_euclidean_distance_sq_with_row_vector", no_memory,
                      [](fault &f, matrix *m) {
                          const owned_matrix row = make_row({1, 2, 3});
                          return f.creates(matrix_destroy, [&] {
                              return matrix_euclidean_distance_sq_with_row_vector(m, row.get());
                          });
                      });
    for (const char *type : {"regular", "view", "telemetry"}) {
        table.makes_the_same("matrix_column_std_dev", type, matrix_column_std_dev);
        table.makes_the_same("matrix_inverse", type, matrix_inverse);
        for (const auto &[name, make] :
             std::map<std::string, matrix *(*)(const matrix *, const matrix *, const matrix *)>{
                 {"matrix_gaussian_normalize", matrix_gaussian_normalize},
                 {"matrix_gaussian_denormalize", matrix_gaussian_denormalize},
             }) {
            table.add_for(type, name, memory_saves_time, [make = make](fault &f, const matrix *m) {
                const owned_matrix mean = make_row({1, 2, 3});
                const owned_matrix deviation = make_row({4, 5, 6});
                return makes_equal(f, [&] { return make(m, mean.get(), deviation.get()); });
            });
        }
    }
    table.add({"matrix_euclidean_distance_sq_with_row_vector", "stale_view", memory_saves_time,
               [](fault &f) {
                   const owned_matrix m = make_matrix(numbers);
                   const owned_matrix row = make_stale_row();
                   return makes_equal(f, [&] {
                       return matrix_euclidean_distance_sq_with_row_vector(m.get(), row.get());
                   });
               }});
}

void add_matrix_lu(matrix_table &table)
{
    table.add_for_all("matrix_lu_create", memory_saves_time,
                      [](fault &f, matrix *m) { return factorises_equal(f, m); });
    table.add({"matrix_lu_create", "large", memory_saves_time, [](fault &f) {
                   const owned_matrix m = make_matrix(scattered_numbers(150));
                   return factorises_equal(f, m.get());
               }});
    table.add({"matrix_lu_create", "of_low_rank", memory_saves_time, [](fault &f) {
                   const owned_matrix m = make_matrix(many_numbers(150, 150));
                   return factorises_equal(f, m.get());
               }});
    table.add_for_all("matrix_lu_get_lower", no_memory,
                      [](fault &f, matrix *m) { return makes_factor(f, m, matrix_lu_get_lower); });
    table.add_for_all("matrix_lu_get_upper", no_memory,
                      [](fault &f, matrix *m) { return makes_factor(f, m, matrix_lu_get_upper); });
    for (const char *type : {"regular", "view", "telemetry"}) {
        table.add_for(type, "matrix_lu_solve_for", memory_saves_time, [=](fault &f, matrix *m) {
            const owned_matrix b = make_any(type, {{1}, {2}, {3}});
            return makes_equal(f, [&] { return matrix_lu_solve_for(m, b.get()); });
        });
    }
    table.add_for_all("matrix_condition_number_inf", {{call_kind::allocation, {"-1", "ok"}}},
                      [](fault &f, matrix *m) {
                          const double expected = matrix_condition_number_inf(m);
                          const double number = f([=] { return matrix_condition_number_inf(m); });
                          if (number != -1) {
                              EXPECT_EQ(expected, number);
                          }
                          return number == -1 ? "-1" : fault::success();
                      });
}

void add_calls_in_place(matrix_table &table)
{
    const auto norm_stays = [](fault &f, matrix *m) {
        const double expected = matrix_norm_F(m);
        EXPECT_EQ(expected, f([=] { return matrix_norm_F(m); }));
        return fault::success();
    };
    table.needs_nothing("matrix_accum", [](matrix *m) { matrix_accum(m, m); });
    table.needs_nothing("matrix_accum_element",
                        [](matrix *m) { matrix_accum_element(m, 0, 1, 2); });
    table.needs_nothing("matrix_clear", [](matrix *m) { matrix_clear(m); });
    table.needs_nothing("matrix_get", [](matrix *m) { return matrix_get(m, 1, 2); });
    table.needs_nothing("matrix_set", [](matrix *m) { matrix_set(m, 1, 2, 3); });
    table.needs_nothing("matrix_set_submatrix",
                        [](matrix *m) { matrix_set_submatrix(m, m, 0, 2, 0, 2, 1, 1); });
    for (const char *type : {"regular", "telemetry"}) {
        table.add_for(type, "matrix_norm_F", nothing_fails, norm_stays);
    }
    // Without memory to turn a view round it is slower, and equal.
    table.add_for("view", "matrix_norm_F", {{call_kind::allocation, {"ok"}}}, norm_stays);
    table.needs_nothing("matrix_norm_inf", matrix_norm_inf);
    table.needs_nothing("matrix_is_equal", [](matrix *m) { return matrix_is_equal(m, m); });
    table.needs_nothing("matrix_is_equal_dimensions",
                        [](matrix *m) { return matrix_is_equal_dimensions(m, m); });
    table.needs_nothing("matrix_is_equal_scalar",
                        [](matrix *m) { return matrix_is_equal_scalar(m, 1); });
    table.needs_nothing("matrix_is_greater", [](matrix *m) { return matrix_is_greater(m, m); });
    table.needs_nothing("matrix_is_greater_equal",
                        [](matrix *m) { return matrix_is_greater_equal(m, m); });
    table.needs_nothing("matrix_is_greater_scalar",
                        [](matrix *m) { return matrix_is_greater_scalar(m, 0); });
    table.needs_nothing("matrix_is_greater_equal_scalar",
                        [](matrix *m) { return matrix_is_greater_equal_scalar(m, 0); });
    table.needs_nothing("matrix_is_less", [](matrix *m) { return matrix_is_less(m, m); });
    table.needs_nothing("matrix_is_less_equal",
                        [](matrix *m) { return matrix_is_less_equal(m, m); });
    table.needs_nothing("matrix_is_less_scalar",
                        [](matrix *m) { return matrix_is_less_scalar(m, 9); });
    table.needs_nothing("matrix_is_less_equal_scalar",
                        [](matrix *m) { return matrix_is_less_equal_scalar(m, 9); });
    table.needs_nothing("matrix_destruct", [](matrix *m) {
        // The owner of the matrix destroys it afterwards.
        matrix_destruct(m);
        matrix_init_null(m);
    });
}

} // namespace

std::vector<fault_case> matrix_cases()
{
    matrix_table table;
    add_records(table);
    add_matrix_slices(table);
    add_transposed_matrix(table);
    add_telemetry_matrix(table);
    add_matrix_ops(table);
    add_matrix_lu(table);
    add_calls_in_place(table);
    return table.release();
}
