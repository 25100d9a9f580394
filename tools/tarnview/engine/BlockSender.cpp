#include "engine/BlockSender.h"

#include <algorithm>
#include <thread>

namespace tarnview {

namespace {

// An insert with the same name is still going on.
constexpr int codeOfRunning = 216;

}  // namespace

BlockSender::BlockSender(EngineClient& client, bool isReplicated, OnNews onNews)
    : m_client(client),
      m_isReplicated(isReplicated),
      m_onNews(std::move(onNews)) {}

void BlockSender::Create(const std::vector<std::string>& statements) {
    for (const std::string& statement : statements) {
        Persist([&](bool) { m_client.AskServer(statement); });
    }
}

// Until it is done, or hopeless.
void BlockSender::Persist(const std::function<void(bool isRepeated)>& attempt) {
    constexpr std::chrono::milliseconds firstWait{50};
    constexpr std::chrono::milliseconds longestWait{5'000};
    constexpr std::chrono::seconds betweenNews{60};
    std::chrono::milliseconds wait = firstWait;
    std::string said;
    std::chrono::steady_clock::time_point saidAt;
    for (bool isRepeated = false;; isRepeated = true) {
        try {
            attempt(isRepeated);
            if (!said.empty()) {
                m_onNews("goes on");
            }
            return;
        } catch (const EngineError& error) {
            if (error.IsLasting()) {
                throw;
            }
            const auto now = std::chrono::steady_clock::now();
            if (said != error.what() || now > saidAt + betweenNews) {
                said = error.what();
                saidAt = now;
                m_onNews(said + "; trying again");
            }
            ++m_repeats;
        }
        std::this_thread::sleep_for(wait);
        wait = std::min(2 * wait, longestWait);
    }
}

void BlockSender::Send(const PendingInsert& insert,
                       std::uint64_t loader,
                       std::uint32_t block,
                       bool mayBeThere) {
    const std::string queryId = "tarnview-" + std::to_string(loader) + "-" + std::to_string(block) +
                                "-" + insert.table + "-" + std::to_string(insert.day);
    const std::string statement =
        "INSERT INTO " + insert.table + " (" + insert.columns + ") FORMAT Native";
    EngineClient::Settings settings{{"query_id", queryId}, {"insert_distributed_sync", "1"}};
    Persist([&](bool isRepeated) {
        if (mayBeThere || isRepeated) {
            const std::uint64_t there = RowsThere(insert, loader, block, queryId);
            if (there == insert.rows) {
                return;
            }
            // One server takes all of a block or nothing. On several shards those that have their
            // part drop it now.
            if (there > insert.rows || (there != 0 && !m_isReplicated)) {
                constexpr int lasting = 27;
                throw EngineError("block " + std::to_string(block) + " of loader " +
                                      std::to_string(loader) + " has " + std::to_string(there) +
                                      " rows of " + std::to_string(insert.rows) + " in " +
                                      insert.table,
                                  lasting);
            }
        }
        m_client.Insert(statement, insert.data, settings);
    });
}

// Nothing may be added to what is counted while it is counted.
std::uint64_t BlockSender::RowsThere(const PendingInsert& insert,
                                     std::uint64_t loader,
                                     std::uint32_t block,
                                     const std::string& queryId) {
    const std::string running =
        m_client.Ask("SELECT count() FROM system.processes WHERE query_id = '" + queryId + "'");
    if (running != "0") {
        throw EngineError("an insert that broke off is still going on", codeOfRunning);
    }
    return std::stoull(m_client.Ask("SELECT count() FROM " + insert.table + " WHERE day = toDate(" +
                                    std::to_string(insert.day) +
                                    ") AND loader = " + std::to_string(loader) +
                                    " AND block = " + std::to_string(block)));
}

}  // namespace tarnview
