#include "FakeEngine.h"

#include "engine/NativeBlock.h"

#include <charconv>

namespace tarnview {

namespace {

std::string Unescaped(const std::string& text) {
    std::string plain;
    for (std::size_t place = 0; place < text.size(); ++place) {
        unsigned letter = static_cast<unsigned char>(text[place]);
        if (letter == '%') {
            std::from_chars(&text[place + 1], &text[place + 3], letter, 16);
            place += 2;
        }
        plain.push_back(static_cast<char>(letter));
    }
    return plain;
}

std::string Between(const std::string& text, const std::string& begin, const std::string& end) {
    const std::size_t place = text.find(begin);
    if (place == std::string::npos) {
        return "";
    }
    const std::size_t first = place + begin.size();
    return text.substr(first, text.find(end, first) - first);
}

// Of the questions that a loader asks.
std::string AnswerFrom(const std::vector<std::string>& blocks, const std::string& question) {
    const std::string line = Between(question, " AND line = ", " ");
    const std::string ofBlock = Between(question, " AND block = ", " ");
    std::uint64_t rows = 0;
    std::string keys;
    for (const std::string& bytes : blocks) {
        const NativeBlock block(bytes);
        for (std::size_t row = 0; row < block.Rows(); ++row) {
            const std::string number = std::to_string(block.Number("line", row));
            const bool isAsked =
                (line.empty() || line == number) &&
                (ofBlock.empty() || ofBlock == std::to_string(block.Number("block", row)));
            rows += isAsked ? 1U : 0U;
            if (question.rfind("SELECT line, pid", 0) == 0) {
                keys += number + "\t" + std::to_string(block.Number("pid", row)) + "\n";
            }
        }
    }
    return question.rfind("SELECT count()", 0) == 0 ? std::to_string(rows) : keys;
}

}  // namespace

FakeEngine::FakeEngine(Fault fault)
    : m_fault(std::move(fault)),
      m_server(
          [this](const FaultyServer::Request& request, std::size_t) { return Answer(request); }) {}

FakeEngine::Reaction FakeEngine::Answer(const FaultyServer::Request& request) {
    const std::string insert = Unescaped(Between(request.target, "&query=", "&"));
    Reaction reaction = insert.empty() ? m_fault(request.body, "") : m_fault(insert, request.body);
    const std::lock_guard lock(m_mutex);
    if (!insert.empty()) {
        const std::size_t number = m_inserts++;
        if (reaction.kind == Reaction::Kind::Answer && reaction.status == 200) {
            m_blocks[Between(insert, "INSERT INTO ", " ")].push_back(request.body);
        }
        if (number == m_breakBehind) {
            reaction.kind = Reaction::Kind::Reset;
        }
    } else if (reaction.status == 200 && reaction.body.empty()) {
        reaction.body = AnswerFrom(m_blocks[Between(request.body, " FROM ", " ")], request.body);
    }
    return reaction;
}

std::vector<std::string> FakeEngine::Blocks(const std::string& table) const {
    const std::lock_guard lock(m_mutex);
    const auto found = m_blocks.find(table);
    return found == m_blocks.end() ? std::vector<std::string>() : found->second;
}

std::size_t FakeEngine::Inserts() const {
    const std::lock_guard lock(m_mutex);
    return m_inserts;
}

FakeEngine::Reaction Refused(int code, const std::string& text) {
    return {.status = 500,
            .body = "Code: " + std::to_string(code) + ", e.displayText() = DB::Exception: " + text};
}

}  // namespace tarnview
