// The little of SQLite that an export needs: a database that is written once, and statements whose
// values are bound, so that no text from a box is ever part of SQL.
#ifndef VESK_CLI_EXPORT_DATABASE_HPP
#define VESK_CLI_EXPORT_DATABASE_HPP

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace cli
{

class database
{
public:
    // Opens the empty file @p path, which must not be a link. Failures call it @p name.
    database(const std::string &path, const std::string &name);

    // Runs statements without results.
    void run(const char *sql);
    // Closes the database. A failure to write what was still in memory is thrown here.
    void close();

private:
    friend class statement;
    struct closer {
        void operator()(sqlite3 *what) const;
    };

    [[noreturn]] void fail() const;
    void require(int result, int wanted) const;

    std::string name_;
    std::unique_ptr<sqlite3, closer> handle_;
};

// An insertion that is done many times. The values are bound from left to right.
class statement
{
public:
    statement(const database &where, const char *sql);

    statement &integer(int64_t value);
    // Nothing for NaN.
    statement &real(double value);
    statement &text(std::string_view value);
    // Nothing for an empty text.
    statement &text_or_null(std::string_view value);
    statement &null();
    void run();

private:
    struct finalizer {
        void operator()(sqlite3_stmt *what) const;
    };

    const database &where_;
    std::unique_ptr<sqlite3_stmt, finalizer> handle_;
    int bound_ = 0;
};

} // namespace cli

#endif
