#include <cstdint>
#include <math.h>

#include <vesk/matrix.h>
#include <vesk/matrix_lu.h>

#include "matrix/element_access.hpp"
#include "support/owner.hpp"
#include "support/precondition.hpp"

double matrix_norm_F(const matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(m->version == 1, "m->version == ((char) 1)");
    VESK_REQUIRE(m->type > 0, "m->type > 0");
    const element_reader elements(m);
    double norm = 0.0;
    for (uint32_t i = 0; i < m->nrows; ++i) {
        const element_row row(elements, i);
        for (uint32_t j = 0; j < m->ncols; ++j) {
            const double magnitude = fabs(row[j]);
            norm = fma(magnitude, magnitude, norm);
        }
    }
    // A NaN among the elements ends here.
    VESK_REQUIRE(norm >= 0, "norm >= 0");
    return sqrt(norm);
}

double matrix_norm_inf(const matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(m->version == 1, "m->version == ((char) 1)");
    VESK_REQUIRE(m->type > 0, "m->type > 0");
    const element_reader elements(m);
    double norm = 0.0;
    for (uint32_t i = 0; i < m->nrows; ++i) {
        const element_row row(elements, i);
        double sum = 0.0;
        for (uint32_t j = 0; j < m->ncols; ++j) {
            sum += fabs(row[j]);
        }
        if (sum > norm) {
            norm = sum;
        }
    }
    return norm;
}

double matrix_condition_number_inf(const matrix *m)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(m->version == 1, "m->version == ((char) 1)");
    VESK_REQUIRE(m->type > 0, "m->type > 0");
    const owned<matrix, matrix_destroy> inverse(matrix_inverse(m));
    return inverse ? matrix_norm_inf(m) * matrix_norm_inf(inverse.get()) : -1.0;
}
