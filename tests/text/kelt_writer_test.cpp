// The writer that remembers which sensors its last header named.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <vesk/error.h>
#include <vesk/kelt_writer.h>
#include <vesk/zlib_writer.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "common/memory_streams.hpp"
#include "support/owner.hpp"

namespace
{

using owned_sensors = owned<sensor_array, sensor_array_destroy>;

owned_sensors sensors_of(const char *first, const char *second)
{
    const char *names[] = {first, second};
    return owned_sensors(sensor_array_create_from_names(names, 2));
}

} // namespace

TEST(KeltWriter, PassesOnBytesAndFlushes)
{
    memory_writer target;
    writer *w = kelt_writer_create(target.lend());
    EXPECT_EQ(1, w->version);
    EXPECT_EQ(uint32_t{WRITER_TYPE_KELT}, w->type);
    EXPECT_EQ(3, writer_write_bytes(w, "abc", 3));
    EXPECT_EQ("abc", target.bytes());
    EXPECT_EQ(0, target.flushes());
    EXPECT_EQ(0, writer_flush(w));
    EXPECT_EQ(1, target.flushes());
    writer_destroy(&w);
}

TEST(KeltWriter, FlushesAndDestroysItsTarget)
{
    memory_writer target;
    writer base;
    EXPECT_EQ(0, kelt_writer_init(&base, target.lend()));
    writer_destruct(&base);
    EXPECT_EQ(0, base.version);
    EXPECT_EQ(1, target.flushes());
    EXPECT_EQ(1, target.destroyed());
}

TEST(KeltWriter, PassesOnResults)
{
    memory_writer full(0, -42);
    writer *w = kelt_writer_create(full.lend());
    EXPECT_EQ(-42, writer_write_bytes(w, "abc", 3));
    writer_destroy(&w);
    // A compressing writer reports what it put out, which is nothing yet.
    memory_writer target;
    w = kelt_writer_create(zlib_writer_create(target.lend()));
    EXPECT_EQ(0, writer_write_bytes(w, "abc", 3));
    EXPECT_LT(0, writer_flush(w));
    writer_destroy(&w);
    EXPECT_EQ(1, target.destroyed());
}

TEST(KeltWriter, RemembersTheSensorsItIsAskedAbout)
{
    memory_writer target;
    writer *w = kelt_writer_create(target.lend());
    owned_sensors first = sensors_of("a", "b");
    const owned_sensors same = sensors_of("a", "b");
    const owned_sensors other = sensors_of("b", "a");
    EXPECT_EQ(1, kelt_writer_have_sensors_changed(w, first.get()));
    EXPECT_EQ(2, *first->ref_count);
    EXPECT_EQ(0, kelt_writer_have_sensors_changed(w, first.get()));
    // It keeps a copy, which outlives the caller's.
    first.reset();
    EXPECT_EQ(0, kelt_writer_have_sensors_changed(w, same.get()));
    EXPECT_EQ(1, kelt_writer_have_sensors_changed(w, other.get()));
    EXPECT_EQ(1, kelt_writer_have_sensors_changed(w, same.get()));
    writer_destroy(&w);
    EXPECT_EQ(1, *same->ref_count);
    EXPECT_EQ(1, *other->ref_count);
}

TEST(KeltWriter, ForgetsSensorsThatItCannotCopy)
{
    memory_writer target;
    writer *w = kelt_writer_create(target.lend());
    const owned_sensors first = sensors_of("a", "b");
    const owned_sensors second = sensors_of("c", "d");
    EXPECT_EQ(1, kelt_writer_have_sensors_changed(w, first.get()));
    {
        const failing_allocation fails(1);
        EXPECT_EQ(-22, kelt_writer_have_sensors_changed(w, second.get()));
    }
    EXPECT_EQ(1, kelt_writer_have_sensors_changed(w, first.get()));
    writer_destroy(&w);
}

TEST(KeltWriter, LeavesItsTargetWithTheCallerWithoutMemory)
{
    memory_writer target;
    writer base = {};
    {
        const failing_allocation fails(1);
        EXPECT_EQ(-22, kelt_writer_init(&base, target.get()));
        EXPECT_EQ(0, base.version);
    }
    for (const int n : {1, 2}) {
        const failing_allocation fails(n);
        qe_set_last_error(0);
        EXPECT_EQ(nullptr, kelt_writer_create(target.get()));
        EXPECT_EQ(-22, qe_get_last_error());
    }
    EXPECT_EQ(0, target.destroyed());
}

TEST(KeltWriter, RefusesOtherWriters)
{
    memory_writer target;
    const owned_sensors sensors = sensors_of("a", "b");
    EXPECT_ABORTS(kelt_writer_have_sensors_changed(target.get(), sensors.get()),
                  "writer->type == WRITER_TYPE_KELT");
    target.get()->version = 0;
    EXPECT_ABORTS(kelt_writer_have_sensors_changed(target.get(), sensors.get()),
                  "writer->version == ((char) 1)");
}

TEST(KeltWriter, RefusesStateThatIsGone)
{
    memory_writer target;
    writer *w = kelt_writer_create(target.lend());
    auto *version = static_cast<char *>(w->writer);
    EXPECT_ABORTS(w->fn_flush(nullptr), "cwriter != ((void *)0)");
    EXPECT_ABORTS(w->fn_write_bytes(nullptr, "a", 1), "cwriter != ((void *)0)");
    EXPECT_ABORTS(w->fn_destruct(nullptr), "cwriter != ((void *)0)");
    *version = 0;
    EXPECT_ABORTS(writer_flush(w), "cwriter->version == ((char) 1)");
    EXPECT_ABORTS(writer_write_bytes(w, "a", 1), "cwriter->version == ((char) 1)");
    EXPECT_ABORTS(writer_destroy(&w), "cwriter->version == ((char) 1)");
    *version = 1;
    // The wrapped writer is the first pointer of the state.
    auto **inner = reinterpret_cast<writer **>(static_cast<char *>(w->writer) + sizeof(void *));
    writer *kept = *inner;
    *inner = nullptr;
    EXPECT_ABORTS(writer_flush(w), "cwriter->writer != ((void *)0)");
    EXPECT_ABORTS(writer_write_bytes(w, "a", 1), "cwriter->writer != ((void *)0)");
    EXPECT_ABORTS(writer_destroy(&w), "cwriter->writer != ((void *)0)");
    *inner = kept;
    writer_destroy(&w);
}

TEST(KeltWriter, RefusesNull)
{
    memory_writer target;
    writer *w = kelt_writer_create(target.lend());
    const owned_sensors sensors = sensors_of("a", "b");
    EXPECT_ABORTS(kelt_writer_init(nullptr, w), "writer_base != ((void *)0)");
    EXPECT_ABORTS(kelt_writer_init(w, nullptr), "inner != ((void *)0)");
    EXPECT_ABORTS(kelt_writer_create(nullptr), "inner != ((void *)0)");
    EXPECT_ABORTS(kelt_writer_have_sensors_changed(nullptr, sensors.get()),
                  "writer != ((void *)0)");
    EXPECT_ABORTS(kelt_writer_have_sensors_changed(w, nullptr), "sensors != ((void *)0)");
    writer_destroy(&w);
}
