// What holds for writers of every type, with one that the tests bring.
#include <stdlib.h>

#include <vesk/writer.h>

#include "common/aborts.hpp"
#include "common/memory_streams.hpp"
#include "io/writer_internal.hpp"

TEST(Writer, StartsLiveWithoutAnImplementation)
{
    int something = 0;
    writer w = {};
    w.writer = &something;
    EXPECT_EQ(0, _writer_init(&w, 7));
    EXPECT_EQ(1, w.version);
    EXPECT_EQ(7U, w.type);
    EXPECT_EQ(nullptr, w.writer);
}

TEST(Writer, NeedsATypeTag)
{
    writer w = {};
    EXPECT_ABORTS(_writer_init(&w, 0), "type > 0");
    EXPECT_ABORTS(_writer_init(nullptr, 1), "writer != ((void *)0)");
}

TEST(Writer, PassesWritesAndFlushesToItsImplementation)
{
    memory_writer target(4, -77);
    EXPECT_EQ(3, writer_write_bytes(target.get(), "abc", 3));
    EXPECT_EQ(-77, writer_write_bytes(target.get(), "de", 2));
    EXPECT_EQ("abc", target.bytes());
    EXPECT_EQ(0, writer_flush(target.get()));
    EXPECT_EQ(1, target.flushes());
}

static writer *writer_witness = nullptr;

TEST(Writer, IsMarkedDeadBeforeItsImplementationGoes)
{
    writer w = {};
    _writer_init(&w, 7);
    w.writer = malloc(1);
    w.fn_destruct = [](void *implementation) {
        // The implementation object itself is freed afterwards, with the sanitizers as
        // writer_witness.
        EXPECT_EQ(writer_witness->writer, implementation);
        EXPECT_EQ(0, writer_witness->version);
        EXPECT_EQ(0U, writer_witness->type);
        return 0;
    };
    writer_witness = &w;
    writer_destruct(&w);
    EXPECT_EQ(0, w.version);
    EXPECT_EQ(nullptr, w.writer);
}

TEST(Writer, DestroyClearsThePointer)
{
    memory_writer target;
    writer *w = target.lend();
    writer_destroy(&w);
    EXPECT_EQ(nullptr, w);
    EXPECT_EQ(1, target.destroyed());
}

TEST(Writer, AbortsWhenDead)
{
    writer w = {};
    const char *text = "writer->version == ((char) 1)";
    EXPECT_ABORTS(writer_write_bytes(&w, "a", 1), text);
    EXPECT_ABORTS(writer_flush(&w), text);
    EXPECT_ABORTS(writer_destruct(&w), text);
    EXPECT_ABORTS(_writer_destruct(&w), text);
}

TEST(Writer, AbortsWithoutItsFunctions)
{
    writer w = {};
    _writer_init(&w, 7);
    EXPECT_ABORTS(writer_write_bytes(&w, "a", 1), "writer->fn_write_bytes != ((void *)0)");
    EXPECT_ABORTS(writer_flush(&w), "writer->fn_flush != ((void *)0)");
    EXPECT_ABORTS(writer_destruct(&w), "writer->fn_destruct != ((void *)0)");
}

TEST(Writer, AbortsWithoutAnImplementation)
{
    memory_writer target;
    writer w = *target.get();
    w.writer = nullptr;
    const char *text = "writer->writer != ((void *)0)";
    EXPECT_ABORTS(writer_write_bytes(&w, "a", 1), text);
    EXPECT_ABORTS(writer_flush(&w), text);
    EXPECT_ABORTS(writer_destruct(&w), text);
}

TEST(Writer, RefusesNull)
{
    memory_writer target;
    writer *none = nullptr;
    EXPECT_ABORTS(writer_write_bytes(target.get(), nullptr, 1), "buf != ((void *)0)");
    EXPECT_ABORTS(writer_write_bytes(nullptr, "a", 1), "writer != ((void *)0)");
    EXPECT_ABORTS(writer_flush(nullptr), "writer != ((void *)0)");
    EXPECT_ABORTS(writer_destruct(nullptr), "writer != ((void *)0)");
    EXPECT_ABORTS(_writer_destruct(nullptr), "writer != ((void *)0)");
    EXPECT_ABORTS(writer_destroy(nullptr), "writer != ((void *)0)");
    EXPECT_ABORTS(writer_destroy(&none), "*writer != ((void *)0)");
}
