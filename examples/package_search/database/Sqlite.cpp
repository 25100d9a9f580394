#include "Sqlite.h"

#include "SqliteMemory.h"

#include <sqlite3.h>

namespace packagesearch::sqlite {

namespace {

[[noreturn]] void Fail(sqlite3* connection, const std::string& action) {
    if (connection == nullptr) {
        throw SqliteError(SQLITE_NOMEM, action + ": out of memory");
    }
    throw SqliteError(sqlite3_extended_errcode(connection),
                      action + ": " + sqlite3_errmsg(connection));
}

// Often enough to end within a millisecond, and too seldom to be felt.
constexpr int instructionsBetweenChecks = 1000;

void Check(int result, sqlite3* connection, const char* action) {
    if (result != SQLITE_OK) {
        Fail(connection, action);
    }
}

}  // namespace

bool SqliteError::IsLocked() const noexcept {
    constexpr int primaryCode = 0xFF;
    const int code = m_code & primaryCode;
    return code == SQLITE_BUSY || code == SQLITE_LOCKED;
}

Connection::Connection(const std::string& name, OpenMode mode) {
    CountMemory();
    const int flags = (mode == OpenMode::ReadOnly ? SQLITE_OPEN_READONLY
                                                  : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE) |
                      SQLITE_OPEN_URI | SQLITE_OPEN_NOMUTEX;
    sqlite3* handle = nullptr;
    const int result = sqlite3_open_v2(name.c_str(), &handle, flags, nullptr);
    // A connection that failed to open still has to be closed.
    m_handle.reset(handle);
    Check(result, handle, "the database cannot be opened");
}

void Connection::Execute(const char* sql) {
    Check(sqlite3_exec(m_handle.get(), sql, nullptr, nullptr, nullptr),
          m_handle.get(),
          "a statement failed");
}

void Connection::SetLockTimeout(std::chrono::milliseconds time) noexcept {
    static_cast<void>(sqlite3_busy_timeout(m_handle.get(), static_cast<int>(time.count())));
}

void Connection::Closer::operator()(sqlite3* handle) const noexcept {
    sqlite3_close_v2(handle);
}

Statement::Statement(const Connection& connection, const std::string& sql) {
    sqlite3_stmt* handle = nullptr;
    const int result = sqlite3_prepare_v3(connection.Handle(),
                                          sql.c_str(),
                                          static_cast<int>(sql.size()),
                                          SQLITE_PREPARE_PERSISTENT,
                                          &handle,
                                          nullptr);
    m_handle.reset(handle);
    Check(result, connection.Handle(), "a query cannot be prepared");
}

void Statement::Bind(int parameter, std::string_view text) {
    Check(sqlite3_bind_text64(
              m_handle.get(), parameter, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8),
          sqlite3_db_handle(m_handle.get()),
          "a text cannot be bound");
}

void Statement::Bind(int parameter, std::int64_t value) {
    Check(sqlite3_bind_int64(m_handle.get(), parameter, value),
          sqlite3_db_handle(m_handle.get()),
          "a number cannot be bound");
}

bool Statement::Step() {
    const int result = sqlite3_step(m_handle.get());
    if (result == SQLITE_INTERRUPT) {
        throw DeadlineExceeded("in the database");
    }
    if (result != SQLITE_ROW && result != SQLITE_DONE) {
        Fail(sqlite3_db_handle(m_handle.get()), "a query failed");
    }
    return result == SQLITE_ROW;
}

void Statement::Reset() noexcept {
    // The result repeats the error of the last step, which was thrown there.
    static_cast<void>(sqlite3_reset(m_handle.get()));
}

int Statement::ColumnCount() const noexcept {
    return sqlite3_column_count(m_handle.get());
}

std::string Statement::ColumnName(int column) const {
    const char* const name = sqlite3_column_name(m_handle.get(), column);
    return name == nullptr ? std::string() : std::string(name);
}

std::string Statement::Text(int column) const {
    const unsigned char* const text = sqlite3_column_text(m_handle.get(), column);
    if (text == nullptr) {
        return {};
    }
    const int bytes = sqlite3_column_bytes(m_handle.get(), column);
    return {reinterpret_cast<const char*>(text), static_cast<std::size_t>(bytes)};
}

std::int64_t Statement::Integer(int column) const noexcept {
    return sqlite3_column_int64(m_handle.get(), column);
}

void Statement::Finalizer::operator()(sqlite3_stmt* handle) const noexcept {
    sqlite3_finalize(handle);
}

DeadlineGuard::DeadlineGuard(const Connection& connection, const Deadline& deadline)
    : m_connection(connection),
      m_deadline(deadline) {
    if (!m_deadline.IsNever()) {
        sqlite3_progress_handler(m_connection.Handle(), instructionsBetweenChecks, HasPassed, this);
    }
}

DeadlineGuard::~DeadlineGuard() {
    sqlite3_progress_handler(m_connection.Handle(), 0, nullptr, nullptr);
}

int DeadlineGuard::HasPassed(void* guard) {
    return static_cast<const DeadlineGuard*>(guard)->m_deadline.HasPassed() ? 1 : 0;
}

Transaction::Transaction(Connection& connection) : m_connection(connection) {
    m_connection.Execute("BEGIN");
}

Transaction::~Transaction() {
    if (m_open) {
        // Nobody can be told; SQLite itself has already taken the transaction back if this fails.
        static_cast<void>(
            sqlite3_exec(m_connection.Handle(), "ROLLBACK", nullptr, nullptr, nullptr));
    }
}

void Transaction::Commit() {
    m_connection.Execute("COMMIT");
    m_open = false;
}

}  // namespace packagesearch::sqlite
