#pragma once

#include "engine/EngineClient.h"
#include "engine/LoadCheckpoint.h"

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace tarnview {

/// Brings blocks into the engine, each exactly once, for as long as that takes. Used by one thread.
class BlockSender {
public:
    /// Hears what goes wrong, and that it goes on.
    using OnNews = std::function<void(const std::string&)>;

    /// With replicas, `isReplicated`, the engine drops what it has already.
    BlockSender(EngineClient& client, bool isReplicated, OnNews onNews);

    /// Makes what is not there yet. Waits for the engine. Throws EngineError if it will not have
    /// it.
    void Create(const std::vector<std::string>& statements);

    /// `mayBeThere`: it was sent before, and nobody knows what became of it. Waits for the engine.
    /// Throws EngineError if it will not have the block.
    void Send(const PendingInsert& insert,
              std::uint64_t loader,
              std::uint32_t block,
              bool mayBeThere);

    /// How often something was sent again.
    std::uint64_t Repeats() const { return m_repeats; }

private:
    void Persist(const std::function<void(bool isRepeated)>& attempt);
    std::uint64_t RowsThere(const PendingInsert& insert,
                            std::uint64_t loader,
                            std::uint32_t block,
                            const std::string& queryId);

    EngineClient& m_client;
    const bool m_isReplicated;
    const OnNews m_onNews;
    std::uint64_t m_repeats = 0;
};

}  // namespace tarnview
