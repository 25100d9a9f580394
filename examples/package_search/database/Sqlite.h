#pragma once

#include "Deadline.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

/// Owners of SQLite's handles. An object and what was made from it belong to one thread at a
/// time; two connections to one database may be used by two threads. Every operation throws
/// `SqliteError` when SQLite refuses it.
namespace packagesearch::sqlite {

class SqliteError : public std::runtime_error {
public:
    SqliteError(int code, const std::string& message) : std::runtime_error(message), m_code(code) {}

    /// SQLite's extended result code.
    int Code() const noexcept { return m_code; }

    /// Somebody else has the database for the moment.
    bool IsLocked() const noexcept;

private:
    int m_code;
};

enum class OpenMode { ReadOnly, Create };

class Connection {
public:
    /// `name` is a path or a URI.
    Connection(const std::string& name, OpenMode mode);

    /// Runs statements that return no rows.
    void Execute(const char* sql);

    /// How long a statement waits for somebody else's lock.
    void SetLockTimeout(std::chrono::milliseconds time) noexcept;

    sqlite3* Handle() const noexcept { return m_handle.get(); }

private:
    struct Closer {
        void operator()(sqlite3* handle) const noexcept;
    };

    std::unique_ptr<sqlite3, Closer> m_handle;
};

/// A prepared statement. The connection must outlive it. Parameters and columns are counted as in
/// SQLite: parameters from 1, columns from 0.
class Statement {
public:
    Statement(const Connection& connection, const std::string& sql);

    /// The text is copied.
    void Bind(int parameter, std::string_view text);
    void Bind(int parameter, std::int64_t value);

    /// To the next row; false when there is none left. Throws `DeadlineExceeded` when the
    /// connection's `DeadlineGuard` ended it.
    bool Step();

    /// Back to the start, as after preparing; bound values stay.
    void Reset() noexcept;

    int ColumnCount() const noexcept;
    std::string ColumnName(int column) const;

    /// Of the current row; any value as text, null as empty text.
    std::string Text(int column) const;
    std::int64_t Integer(int column) const noexcept;

private:
    struct Finalizer {
        void operator()(sqlite3_stmt* handle) const noexcept;
    };

    std::unique_ptr<sqlite3_stmt, Finalizer> m_handle;
};

/// Ends the statements of a connection once a deadline has passed, for as long as it lives. One at
/// a time.
class DeadlineGuard {
public:
    DeadlineGuard(const Connection& connection, const Deadline& deadline);
    ~DeadlineGuard();
    DeadlineGuard(const DeadlineGuard&) = delete;
    DeadlineGuard& operator=(const DeadlineGuard&) = delete;

private:
    static int HasPassed(void* guard);

    const Connection& m_connection;
    Deadline m_deadline;
};

/// Takes back what was done since its construction, unless `Commit` was called.
class Transaction {
public:
    explicit Transaction(Connection& connection);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    void Commit();

private:
    Connection& m_connection;
    bool m_open = true;
};

}  // namespace packagesearch::sqlite
