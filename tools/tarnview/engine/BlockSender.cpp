#include "engine/BlockSender.h"

#include "engine/ActivityRow.h"
#include "engine/EngineFilter.h"
#include "engine/EngineTables.h"

#include <algorithm>
#include <sstream>
#include <thread>

namespace tarnview {

namespace {

// An insert with the same name is still going on.
constexpr int codeOfRunning = 216;

// Where in the logs the only row of a block comes from.
std::pair<std::string, std::uint64_t> PlaceOf(const std::string& table, const std::string& block) {
    TextPool files;
    std::pair<std::string, std::uint64_t> place;
    NativeReader reader([&](NativeReader& row) {
        Place it;
        if (table == tables::messages) {
            it = ReadMessageRow(row, files).place;
        } else {
            const Activity activity = ReadActivityRow(row, files).activity;
            it = activity.hasEnd ? activity.endPlace : activity.beginPlace;
        }
        place = {std::string(it.file), it.line};
    });
    reader.Take(block);
    reader.Finish();
    return place;
}

}  // namespace

BlockSender::BlockSender(EngineClient& client, const Options& options, OnNews onNews)
    : m_client(client),
      m_options(options),
      m_onNews(std::move(onNews)) {
    m_client.SetOnWait([this] {
        if (Clock::now() >= m_toldAt + m_options.newsInterval) {
            TellWait("no answer yet");
        }
        return !IsOver();
    });
}

BlockSender::~BlockSender() {
    m_client.SetOnWait({});
}

void BlockSender::Create(const std::vector<std::string>& statements) {
    for (const std::string& statement : statements) {
        // "CREATE TABLE IF NOT EXISTS logs.activities", without the columns.
        Persist(statement.substr(0, statement.find(" (")),
                [&](bool) { m_client.AskServer(statement); });
    }
}

bool BlockSender::IsOver() const {
    return m_options.timeout && Clock::now() - m_begin >= *m_options.timeout;
}

void BlockSender::TellWait(const std::string& reason) {
    const auto now = Clock::now();
    const auto waited = std::chrono::duration_cast<std::chrono::seconds>(now - m_begin);
    m_onNews(reason + ", for " + std::to_string(waited.count()) + " s now: " + m_what);
    m_hasTold = true;
    m_toldAt = now;
}

// Until it is done, or hopeless, or the time is over.
void BlockSender::Persist(const std::string& what,
                          const std::function<void(bool isRepeated)>& attempt) {
    constexpr std::chrono::milliseconds firstWait{50};
    constexpr std::chrono::milliseconds longestWait{5'000};
    std::chrono::milliseconds wait = firstWait;
    m_what = what;
    m_begin = m_toldAt = Clock::now();
    m_hasTold = false;
    std::optional<int> toldCode;
    std::string reason;
    for (bool isRepeated = false;; isRepeated = true) {
        try {
            attempt(isRepeated);
            if (m_hasTold) {
                m_onNews("goes on");
            }
            return;
        } catch (const EngineError& error) {
            if (error.IsLasting()) {
                throw;
            }
            // A request that the end of the time has broken off says nothing.
            if (reason.empty() || !IsOver()) {
                reason = error.what();
            }
            if (IsOver()) {
                const auto seconds =
                    std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - m_begin);
                throw EngineError("gave up after " + std::to_string(seconds.count()) +
                                      " s: " + what + ": " + reason,
                                  error.Code());
            }
            if (toldCode != error.Code() || Clock::now() >= m_toldAt + m_options.newsInterval) {
                toldCode = error.Code();
                TellWait(error.what() + std::string("; trying again"));
            }
            ++m_repeats;
        }
        std::chrono::milliseconds pause = wait;
        if (m_options.timeout) {
            pause = std::min(pause,
                             std::chrono::duration_cast<std::chrono::milliseconds>(
                                 m_begin + *m_options.timeout - Clock::now()));
        }
        std::this_thread::sleep_for(pause);
        wait = std::min(2 * wait, longestWait);
    }
}

BlockSender::Sending::Sending(const PendingInsert& it, std::uint64_t ofLoader, std::uint32_t number)
    : insert(it),
      loader(ofLoader),
      block(number),
      what("block " + std::to_string(block) + ", " + std::to_string(insert.rows) + " rows of " +
           insert.table),
      queryId("tarnview-" + std::to_string(loader) + "-" + std::to_string(block) + "-" +
              insert.table + "-" + std::to_string(insert.day)),
      statement("INSERT INTO " + insert.table + " (" + insert.columns + ") FORMAT Native"),
      rowsOfBlock(" FROM " + insert.table + " WHERE day = toDate(" + std::to_string(insert.day) +
                  ") AND loader = " + std::to_string(loader) +
                  " AND block = " + std::to_string(block)) {}

std::uint64_t BlockSender::Send(const PendingInsert& insert,
                                std::uint64_t loader,
                                std::uint32_t block,
                                bool mayBeThere) {
    const Sending sending(insert, loader, block);
    // Of what shards have taken their part of, nobody knows which rows there are while a replica is
    // behind.
    const bool mayPart = !m_options.isReplicated && insert.table != tables::rejected;
    try {
        if (SendWhole(sending, mayBeThere)) {
            return 0;
        }
        if (!mayPart) {
            throw EngineError(sending.what + ": some of them are there",
                              EngineError::contradiction);
        }
    } catch (const EngineError& error) {
        if (!error.IsAboutRows() || !mayPart) {
            throw;
        }
    }
    return SendInParts(sending);
}

// False if some of its rows are there: sent in parts before.
bool BlockSender::SendWhole(const Sending& sending, bool mayBeThere) {
    const std::uint64_t rows = sending.insert.rows;
    bool isWhole = true;
    Persist(sending.what, [&](bool isRepeated) {
        if (mayBeThere || isRepeated) {
            const std::uint64_t there =
                std::stoull(AskWhenQuiet(sending, "SELECT count()" + sending.rowsOfBlock));
            if (there > rows) {
                throw EngineError(sending.what + ": there are " + std::to_string(there) +
                                      " of loader " + std::to_string(sending.loader),
                                  EngineError::contradiction);
            }
            // One server takes all of a request or nothing. On several shards those that have their
            // part drop it now.
            if (there == rows || (there != 0 && !m_options.isReplicated)) {
                isWhole = there == rows;
                return;
            }
        }
        m_client.Insert(sending.statement,
                        sending.insert.data,
                        {{"query_id", sending.queryId}, {"insert_distributed_sync", "1"}});
    });
    return isWhole;
}

// Halves what is refused, until only single rows are.
std::uint64_t BlockSender::SendInParts(const Sending& sending) {
    // If more are refused, the table is wrong rather than the rows.
    constexpr std::size_t mostRefused = 100;
    using Rows = std::vector<std::size_t>;
    const NativeBlock block(sending.insert.data);
    const auto keyOf = [&](std::size_t row) {
        return Key(block.Number("line", row), static_cast<std::int64_t>(block.Number("pid", row)));
    };
    std::vector<Rows> parts(1);  // the next one is the last
    Persist(sending.what, [&](bool) {
        const std::set<Key> there = KeysThere(sending);
        parts.front().clear();
        for (std::size_t row = 0; row < block.Rows(); ++row) {
            if (there.count(keyOf(row)) == 0) {
                parts.front().push_back(row);
            }
        }
    });
    std::vector<std::pair<std::size_t, std::string>> refused;
    while (!parts.empty()) {
        const Rows part = std::move(parts.back());
        parts.pop_back();
        if (part.empty()) {
            continue;
        }
        const std::string queryId = sending.queryId + "-" + std::to_string(part.front()) + "-" +
                                    std::to_string(part.size());
        try {
            Persist(sending.what, [&](bool isRepeated) {
                if (!isRepeated || KeysThere(sending).count(keyOf(part.front())) == 0) {
                    m_client.Insert(sending.statement, block.Part(part), {{"query_id", queryId}});
                }
            });
        } catch (const EngineError& error) {
            if (!error.IsAboutRows() || refused.size() == mostRefused) {
                throw;
            }
            if (part.size() == 1) {
                refused.emplace_back(part.front(), error.what());
                continue;
            }
            const auto middle = part.begin() + static_cast<std::ptrdiff_t>(part.size() / 2);
            parts.emplace_back(middle, part.end());
            parts.emplace_back(part.begin(), middle);
        }
    }
    for (const auto& [row, reason] : refused) {
        Reject(sending, block, row, reason);
    }
    return refused.size();
}

void BlockSender::Reject(const Sending& sending,
                         const NativeBlock& rows,
                         std::size_t row,
                         const std::string& reason) {
    constexpr std::size_t mostText = std::size_t{64} << 10;
    const auto place = PlaceOf(sending.insert.table, rows.Part({row}));
    const std::string text = rows.Json(row).substr(0, mostText);
    const std::uint64_t line = rows.Number("line", row);
    NativeWriter writer;
    // Of no block: the lines that the block itself rejects are counted by its number.
    Write(RejectedRow{{0, sending.loader, 0, line}, {place.first, place.second}, reason, text},
          writer);
    const std::string columns = writer.Names();
    const std::string data = writer.Take();
    Persist(sending.what, [&](bool) {
        const std::string there = AskWhenQuiet(
            sending,
            std::string("SELECT count() FROM ") + tables::rejected +
                " WHERE day = toDate(0) AND loader = " + std::to_string(sending.loader) +
                " AND line = " + std::to_string(line) + " AND text = " + Quoted(text));
        if (there == "0") {
            m_client.Insert(
                std::string("INSERT INTO ") + tables::rejected + " (" + columns + ") FORMAT Native",
                data,
                {{"query_id", sending.queryId + "-rejected"}});
        }
    });
    m_onNews(place.first + ":" + std::to_string(place.second) + ": refused, and kept in " +
             tables::rejected + ": " + reason);
}

// Nothing may be added to what is counted while it is counted.
std::string BlockSender::AskWhenQuiet(const Sending& sending, const std::string& question) {
    const std::string running = m_client.Ask(
        "SELECT count() FROM system.processes WHERE query_id LIKE '" + sending.queryId + "%'");
    if (running != "0") {
        throw EngineError("an insert that broke off is still going on", codeOfRunning);
    }
    return m_client.Ask(question);
}

std::set<BlockSender::Key> BlockSender::KeysThere(const Sending& sending) {
    std::istringstream text(AskWhenQuiet(sending, "SELECT line, pid" + sending.rowsOfBlock));
    std::set<Key> keys;
    for (Key key; text >> key.first >> key.second;) {
        keys.insert(key);
    }
    return keys;
}

}  // namespace tarnview
