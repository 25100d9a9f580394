#pragma once

#include "engine/EngineClient.h"
#include "engine/LoadCheckpoint.h"
#include "engine/NativeBlock.h"

#include <chrono>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace tarnview {

/// Brings blocks into the engine, each exactly once. Waits for an engine that is away, restarts or
/// is full, and says so. Used by one thread at a time.
class BlockSender {
public:
    /// Hears what goes wrong, and that it goes on.
    using OnNews = std::function<void(const std::string&)>;

    struct Options {
        /// The engine drops what it has already.
        bool isReplicated = false;
        /// How long to wait for one statement or block; nothing: for ever.
        std::optional<std::chrono::milliseconds> timeout{};
        /// Between two news of one wait.
        std::chrono::milliseconds newsInterval{10'000};
    };

    /// `client` must live as long; it is for this alone.
    BlockSender(EngineClient& client, const Options& options, OnNews onNews);
    ~BlockSender();
    BlockSender(const BlockSender&) = delete;
    BlockSender& operator=(const BlockSender&) = delete;

    /// Makes what is not there yet. Throws EngineError if the engine will not have it, or did not
    /// within the timeout.
    void Create(const std::vector<std::string>& statements);

    /// `mayBeThere`: it was sent before, and nobody knows what became of it. A row that the engine
    /// will not have is kept in the table of rejected lines instead, and named; returns how many.
    /// Throws as Create(), and if the engine refuses more than a few rows; then nobody knows
    /// whether the block is in. Replicas refuse all of it.
    std::uint64_t Send(const PendingInsert& insert,
                       std::uint64_t loader,
                       std::uint32_t block,
                       bool mayBeThere);

    /// How often something was sent again.
    std::uint64_t Repeats() const { return m_repeats; }

private:
    using Clock = std::chrono::steady_clock;

    void Persist(const std::string& what, const std::function<void(bool isRepeated)>& attempt);
    bool IsOver() const;
    void TellWait(const std::string& reason);

    // An insert under way, and what it says of itself.
    struct Sending {
        const PendingInsert& insert;
        std::uint64_t loader;
        std::uint32_t block;
        std::string what;
        std::string queryId;
        std::string statement;
        std::string rowsOfBlock;  // a condition

        Sending(const PendingInsert& it, std::uint64_t ofLoader, std::uint32_t number);
    };

    using Key = std::pair<std::uint64_t, std::int64_t>;  // line and process

    bool SendWhole(const Sending& sending, bool mayBeThere);
    std::uint64_t SendInParts(const Sending& sending);
    void Reject(const Sending& sending,
                const NativeBlock& rows,
                std::size_t row,
                const std::string& reason);
    std::string AskWhenQuiet(const Sending& sending, const std::string& question);
    std::set<Key> KeysThere(const Sending& sending);

    EngineClient& m_client;
    const Options m_options;
    const OnNews m_onNews;
    // Of what is waited for now.
    std::string m_what;
    Clock::time_point m_begin;
    Clock::time_point m_toldAt;  // or the begin
    bool m_hasTold = false;
    std::uint64_t m_repeats = 0;
};

}  // namespace tarnview
