#pragma once

#include "engine/EngineAddress.h"

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarnview {

/// The engine did not do what it was asked for.
class EngineError : public std::runtime_error {
public:
    EngineError(const std::string& text, int code) : std::runtime_error(text), m_code(code) {}

    /// The engine's own number of the error; 0 if there was no whole answer.
    int Code() const { return m_code; }

    /// Whether the same request can do no better later: the statement, the tables or the rights are
    /// wrong. All else passes, as a restart or a full disk.
    bool IsLasting() const;

    /// Whether it is the values of single rows that the engine will not have. Is lasting.
    bool IsAboutRows() const;

    /// A code that the engine has not: what is in the tables cannot be.
    static constexpr int contradiction = -1;

private:
    int m_code;
};

/// Asks an engine by HTTP. A connection is kept from question to question. Used by one thread.
class EngineClient {
public:
    using Settings = std::vector<std::pair<std::string, std::string>>;
    using OnBytes = std::function<void(std::string_view)>;
    /// Hears at least once a second that a request has no whole answer yet; false ends the request.
    /// Called by the thread that waits.
    using OnWait = std::function<bool()>;

    /// Throws `std::bad_alloc`.
    explicit EngineClient(EngineAddress address);
    ~EngineClient();
    EngineClient(const EngineClient&) = delete;
    EngineClient& operator=(const EngineClient&) = delete;

    const EngineAddress& Address() const { return m_address; }

    /// Of the requests from now on; nothing: nobody hears.
    void SetOnWait(OnWait onWait) { m_onWait = std::move(onWait); }

    /// Hands the answer on as it comes, in pieces; compressed on its way unless the engine is on
    /// this machine. Throws EngineError, also in the middle of the answer, and what `onBytes`
    /// throws.
    void Ask(const std::string& statement, const Settings& settings, const OnBytes& onBytes);

    /// A short answer, whole, without the line end behind it.
    std::string Ask(const std::string& statement, const Settings& settings = {});

    /// As Ask(), of a statement that needs no database, or makes it.
    std::string AskServer(const std::string& statement);

    /// Sends what `statement` inserts: data in the statement's format. Throws EngineError; then
    /// nobody knows whether the data are in.
    void Insert(const std::string& statement, std::string_view data, const Settings& settings);

private:
    struct Handles;
    struct Answer;

    enum class Kind { Question, Insert, CompressedInsert };

    void Perform(Kind kind,
                 const std::string& query,
                 std::string_view body,
                 const OnBytes& onBytes);
    std::string QueryOf(const Settings& settings, bool hasDatabase) const;

    const EngineAddress m_address;
    const bool m_isLocal;
    OnWait m_onWait;
    std::unique_ptr<Handles> m_handles;
};

}  // namespace tarnview
