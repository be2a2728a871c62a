// Opens and writes a database through SQLite. Every call is checked; a failure has the words of
// SQLite, and the file that was begun is deleted by its owner.
#include "export/database.hpp"

#include <cmath>
#include <sqlite3.h>

#include "process/failure.hpp"

namespace cli
{

void database::closer::operator()(sqlite3 *what) const
{
    (void)sqlite3_close(what);
}

database::database(const std::string &path, const std::string &name) : name_(name)
{
    sqlite3 *handle = nullptr;
    constexpr int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOFOLLOW;
    const int result = sqlite3_open_v2(path.c_str(), &handle, flags, nullptr);
    handle_.reset(handle);
    require(result, SQLITE_OK);
    // Nobody else knows the file, and it is deleted when anything fails: no journal is needed. The
    // owner of the file brings it onto the medium in the end.
    run("PRAGMA journal_mode = OFF; PRAGMA synchronous = OFF; PRAGMA locking_mode = EXCLUSIVE;");
}

void database::fail() const
{
    throw failure(exit_failed,
                  name_ + ": " +
                      (handle_ ? sqlite3_errmsg(handle_.get()) : sqlite3_errstr(SQLITE_NOMEM)));
}

void database::require(int result, int wanted) const
{
    if (result != wanted) {
        fail();
    }
}

void database::run(const char *sql)
{
    require(sqlite3_exec(handle_.get(), sql, nullptr, nullptr, nullptr), SQLITE_OK);
}

void database::close()
{
    require(sqlite3_close(handle_.get()), SQLITE_OK);
    (void)handle_.release();
}

void statement::finalizer::operator()(sqlite3_stmt *what) const
{
    (void)sqlite3_finalize(what);
}

statement::statement(const database &where, const char *sql) : where_(where)
{
    sqlite3_stmt *handle = nullptr;
    const int result = sqlite3_prepare_v2(where.handle_.get(), sql, -1, &handle, nullptr);
    handle_.reset(handle);
    where.require(result, SQLITE_OK);
}

statement &statement::integer(int64_t value)
{
    where_.require(sqlite3_bind_int64(handle_.get(), ++bound_, value), SQLITE_OK);
    return *this;
}

statement &statement::real(double value)
{
    if (std::isnan(value)) {
        return null();
    }
    where_.require(sqlite3_bind_double(handle_.get(), ++bound_, value), SQLITE_OK);
    return *this;
}

statement &statement::text(std::string_view value)
{
    where_.require(sqlite3_bind_text64(handle_.get(), ++bound_, value.data(), value.size(),
                                       SQLITE_TRANSIENT, SQLITE_UTF8),
                   SQLITE_OK);
    return *this;
}

statement &statement::text_or_null(std::string_view value)
{
    return value.empty() ? null() : text(value);
}

statement &statement::null()
{
    where_.require(sqlite3_bind_null(handle_.get(), ++bound_), SQLITE_OK);
    return *this;
}

void statement::run()
{
    where_.require(sqlite3_step(handle_.get()), SQLITE_DONE);
    where_.require(sqlite3_reset(handle_.get()), SQLITE_OK);
    bound_ = 0;
}

} // namespace cli
