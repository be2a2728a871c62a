// What holds for readers of every type, with one that the tests bring.
#include <stdlib.h>
#include <string>

#include <vesk/reader.h>

#include "common/aborts.hpp"
#include "common/memory_streams.hpp"
#include "io/reader_internal.hpp"

TEST(Reader, StartsLiveWithoutAnImplementation)
{
    int something = 0;
    reader r = {};
    r.reader = &something;
    EXPECT_EQ(0, _reader_init(&r, 7));
    EXPECT_EQ(1, r.version);
    EXPECT_EQ(7U, r.type);
    EXPECT_EQ(nullptr, r.reader);
}

TEST(Reader, NeedsATypeTag)
{
    reader r = {};
    EXPECT_ABORTS(_reader_init(&r, 0), "type > 0");
    EXPECT_ABORTS(_reader_init(nullptr, 1), "reader != ((void *)0)");
}

TEST(Reader, PassesReadsToItsImplementation)
{
    memory_reader source("abc");
    char buffer[4] = {};
    EXPECT_EQ(2, reader_read_bytes(source.get(), buffer, 2));
    EXPECT_STREQ("ab", buffer);
    EXPECT_EQ(0, reader_eof(source.get()));
    EXPECT_EQ(1, reader_read_bytes(source.get(), buffer, 2));
    EXPECT_EQ(1, reader_eof(source.get()));
    EXPECT_EQ(0, reader_read_bytes(source.get(), buffer, 2));
}

TEST(Reader, PassesErrorsOn)
{
    memory_reader source("", -77);
    char byte = 0;
    EXPECT_EQ(-77, reader_read_bytes(source.get(), &byte, 1));
}

static reader *witness = nullptr;

TEST(Reader, IsMarkedDeadBeforeItsImplementationGoes)
{
    reader r = {};
    _reader_init(&r, 7);
    r.reader = malloc(1);
    r.fn_destruct = [](void *implementation) {
        // The implementation object itself is freed afterwards, with the sanitizers as witness.
        EXPECT_EQ(witness->reader, implementation);
        EXPECT_EQ(0, witness->version);
        EXPECT_EQ(0U, witness->type);
        return 0;
    };
    witness = &r;
    reader_destruct(&r);
    EXPECT_EQ(0, r.version);
    EXPECT_EQ(nullptr, r.reader);
}

TEST(Reader, DestroyClearsThePointer)
{
    memory_reader source("abc");
    reader *r = source.lend();
    reader_destroy(&r);
    EXPECT_EQ(nullptr, r);
    EXPECT_EQ(1, source.destroyed());
}

TEST(Reader, AbortsWhenDead)
{
    reader r = {};
    char byte = 0;
    const char *text = "reader->version == ((char) 1)";
    EXPECT_ABORTS(reader_read_bytes(&r, &byte, 1), text);
    EXPECT_ABORTS(reader_eof(&r), text);
    EXPECT_ABORTS(reader_destruct(&r), text);
    EXPECT_ABORTS(_reader_destruct(&r), text);
}

TEST(Reader, AbortsWithoutItsFunctions)
{
    reader r = {};
    _reader_init(&r, 7);
    char byte = 0;
    EXPECT_ABORTS(reader_read_bytes(&r, &byte, 1), "reader->fn_read_bytes != ((void *)0)");
    EXPECT_ABORTS(reader_eof(&r), "reader->fn_eof != ((void *)0)");
    EXPECT_ABORTS(reader_destruct(&r), "reader->fn_destruct != ((void *)0)");
}

TEST(Reader, RefusesNull)
{
    memory_reader source("abc");
    reader *none = nullptr;
    char byte = 0;
    EXPECT_ABORTS(reader_read_bytes(source.get(), nullptr, 1), "buf != ((void *)0)");
    EXPECT_ABORTS(reader_read_bytes(nullptr, &byte, 1), "reader != ((void *)0)");
    EXPECT_ABORTS(reader_eof(nullptr), "reader != ((void *)0)");
    EXPECT_ABORTS(reader_destruct(nullptr), "reader != ((void *)0)");
    EXPECT_ABORTS(_reader_destruct(nullptr), "reader != ((void *)0)");
    EXPECT_ABORTS(reader_destroy(nullptr), "reader != ((void *)0)");
    EXPECT_ABORTS(reader_destroy(&none), "*reader != ((void *)0)");
}
