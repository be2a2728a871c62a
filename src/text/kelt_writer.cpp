// A writer for telemetry as text: it passes on what it is given and remembers which sensors the
// latest header named, so that a header is written only where they change.
#include <vesk/error.h>
#include <vesk/kelt_writer.h>

#include "io/writer_internal.hpp"
#include "support/object.hpp"
#include "support/precondition.hpp"

namespace
{
struct kelt_writer {
    char version;
    struct writer *writer; // what is written goes there unchanged
    sensor_array *sensors; // those of the latest header, null before the first one
};
} // namespace

static kelt_writer *_live(void *implementation)
{
    auto *cwriter = static_cast<kelt_writer *>(implementation);
    VESK_REQUIRE(cwriter != nullptr, "cwriter != ((void *)0)");
    VESK_REQUIRE(cwriter->version == 1, "cwriter->version == ((char) 1)");
    VESK_REQUIRE(cwriter->writer != nullptr, "cwriter->writer != ((void *)0)");
    return cwriter;
}

static int _kelt_writer_write_bytes(void *cwriter, const void *buffer, uint32_t n)
{
    return writer_write_bytes(_live(cwriter)->writer, buffer, n);
}

static int _kelt_writer_flush(void *cwriter)
{
    return writer_flush(_live(cwriter)->writer);
}

static void _forget_sensors(kelt_writer *cwriter)
{
    if (cwriter->sensors != nullptr) {
        sensor_array_destroy(&cwriter->sensors);
    }
}

static int _kelt_writer_destruct(void *implementation)
{
    kelt_writer *cwriter = _live(implementation);
    _forget_sensors(cwriter);
    (void)writer_flush(cwriter->writer);
    writer_destroy(&cwriter->writer);
    cwriter->version = 0;
    return 0;
}

int kelt_writer_init(writer *writer_base, writer *inner)
{
    VESK_REQUIRE(writer_base != nullptr, "writer_base != ((void *)0)");
    VESK_REQUIRE(inner != nullptr, "inner != ((void *)0)");
    _writer_init(writer_base, WRITER_TYPE_KELT);
    auto *cwriter = allocate<kelt_writer>();
    if (cwriter == nullptr) {
        _writer_destruct(writer_base);
        return QE_ERROR_NO_MEMORY;
    }
    *cwriter = {1, inner, nullptr};
    writer_base->writer = cwriter;
    writer_base->fn_destruct = _kelt_writer_destruct;
    writer_base->fn_write_bytes = _kelt_writer_write_bytes;
    writer_base->fn_flush = _kelt_writer_flush;
    return 0;
}

writer *kelt_writer_create(writer *inner)
{
    VESK_REQUIRE(inner != nullptr, "inner != ((void *)0)");
    return create_object<writer>([inner](writer *w) { return kelt_writer_init(w, inner); });
}

int kelt_writer_have_sensors_changed(writer *w, const sensor_array *sensors)
{
    VESK_REQUIRE(w != nullptr, "writer != ((void *)0)");
    VESK_REQUIRE(w->version == 1, "writer->version == ((char) 1)");
    VESK_REQUIRE(w->type == WRITER_TYPE_KELT, "writer->type == WRITER_TYPE_KELT");
    VESK_REQUIRE(sensors != nullptr, "sensors != ((void *)0)");
    kelt_writer *cwriter = _live(w->writer);
    if (cwriter->sensors != nullptr && sensor_array_is_equal(cwriter->sensors, sensors)) {
        return 0;
    }
    _forget_sensors(cwriter);
    cwriter->sensors = sensor_array_copy(sensors);
    return cwriter->sensors != nullptr ? 1 : qe_get_last_error();
}
