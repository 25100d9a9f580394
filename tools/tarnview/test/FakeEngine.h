#pragma once

#include "FaultyServer.h"
#include "engine/EngineAddress.h"

#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace tarnview {

/// As much of an engine as loading needs: it keeps the blocks that are inserted, says how many rows
/// of them there are, and does what a test wants instead.
class FakeEngine {
public:
    using Reaction = FaultyServer::Reaction;
    /// `statement` is the insert; `block` its data, or nothing of other statements. Without a
    /// status 200, or when the connection breaks, the block is not kept.
    using Fault = std::function<Reaction(const std::string& statement, const std::string& block)>;

    /// `fault` is called by one thread at a time.
    explicit FakeEngine(Fault fault);

    EngineAddress Address() const { return EngineAddress::Parse(m_server.Url() + "/logs"); }

    /// Breaks the connection behind this insert, counted from 0, that is kept all the same.
    void BreakBehind(std::size_t insert) { m_breakBehind = insert; }

    std::vector<std::string> Blocks(const std::string& table) const;

    /// How often something was inserted, kept or not.
    std::size_t Inserts() const;

private:
    Reaction Answer(const FaultyServer::Request& request);

    const Fault m_fault;
    mutable std::mutex m_mutex;
    std::map<std::string, std::vector<std::string>> m_blocks;
    std::size_t m_inserts = 0;
    std::size_t m_breakBehind = static_cast<std::size_t>(-1);
    FaultyServer m_server;  // its threads use what is above
};

/// As an engine answers that cannot do it.
FakeEngine::Reaction Refused(int code, const std::string& text);

}  // namespace tarnview
