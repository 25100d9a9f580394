#include "LineChecker.h"

#include "ScopeWorkload.h"

#include "cvlcoreplatform/TLogValue.h"
#include "cvlcoreplatform/TString.h"

#include <algorithm>
#include <utility>

namespace stress {
namespace {

const TLog::Literal* Find(const TLog::Value* table, const TString& field) {
    if (table == nullptr || table->GetKind() != TLog::ValueKind::Object) {
        return nullptr;
    }
    const TLog::NameTable& fields = static_cast<const TLog::Object*>(table)->GetFields();
    const auto found = fields.find(field);
    return found == fields.end() ? nullptr : static_cast<const TLog::Literal*>(found->second.get());
}

TString Text(const TLog::Event& event, const TString& field) {
    const TLog::Literal* const value = Find(event.GetActivityInfo()->GetActivity().get(), field);
    return value != nullptr ? value->GetString() : TString();
}

/// A number in the body; -1 when there is none.
int64 Number(const TLog::Event& event, const TString& field) {
    const TLog::Literal* const value = Find(event.GetBody().get(), field);
    return value != nullptr && value->GetType() == TLog::LiteralType::Integer ? value->GetInt()
                                                                              : -1;
}

const TString s_id(u"id");
const TString s_sponsor(u"sponsor");
const TString s_type(u"type");
const TString s_begin(u"begin");
const TString s_number(u"n");
const TString s_under(u"under");
const TString s_layer(u"layer");
const TString s_thread(u"thread");

}  // namespace

void LineChecker::Take(const TLog::Event& event) {
    const int64 number = Number(event, s_number);
    if (number < 0) {
        Complain(number, "a line without its number");
        return;
    }
    const bool begins = Text(event, s_type) == s_begin;
    Tree& tree = m_trees[ScopeWorkload::TreeOf(number)];
    if (begins) {
        TakeBegin(event, number, tree);
    } else {
        TakeEnd(event, number, tree);
    }
    if (tree.open.empty()) {
        m_trees.erase(ScopeWorkload::TreeOf(number));
    }
}

void LineChecker::TakeBegin(const TLog::Event& event, int64 number, Tree& tree) {
    ++m_begins;
    if (number <= tree.last) {
        Complain(number, "begins after a later scope, or twice");
    }
    CheckSponsor(event, number, tree);
    CheckLayer(event, number);
    if (static_cast<uint64>(Number(event, s_thread)) != event.GetActivityInfo()->GetThreadId()) {
        Complain(number, "has another thread's id");
    }
    tree.last = number;
    tree.open.push_back({number, Text(event, s_id)});
    m_deepest = std::max<uint64>(m_deepest, tree.open.size());
}

void LineChecker::TakeEnd(const TLog::Event& event, int64 number, Tree& tree) {
    ++m_ends;
    if (tree.open.empty() || tree.open.back().number != number) {
        Complain(number, "ends though it is not the innermost open scope");
        return;
    }
    if (Text(event, s_id) != tree.open.back().id) {
        Complain(number, "ends with another id than it began with");
    }
    tree.open.pop_back();
}

void LineChecker::CheckSponsor(const TLog::Event& event, int64 number, const Tree& tree) {
    const TString sponsor = Text(event, s_sponsor);
    const int64 under = Number(event, s_under);
    if (tree.open.empty()) {
        ++m_roots;
        if (!sponsor.IsEmpty()) {
            Complain(number, "has a sponsor though nothing is open");
        }
        return;
    }
    if (sponsor != tree.open.back().id) {
        Complain(number, "has another sponsor than the scope that encloses it");
    }
    // A smaller number is that of an enclosing scope whose inner ones were refused.
    if (tree.open.back().number > under) {
        Complain(number, "is under a scope that should have ended");
    }
}

void LineChecker::CheckLayer(const TLog::Event& event, int64 number) {
    const TLog::Literal* const layer =
        Find(event.GetActivityInfo()->GetAttributes().get(), s_layer);
    const int64 expected = Number(event, s_layer);
    const int64 found = layer != nullptr ? layer->GetInt() : -1;
    if (found != expected) {
        Complain(number,
                 "has the context attributes of another scope: of " + std::to_string(found) +
                     " instead of " + std::to_string(expected));
    }
}

void LineChecker::Complain(int64 number, std::string_view what) {
    constexpr uint64 kept = 10;
    if (++m_errors <= kept) {
        m_errorTexts.push_back(std::to_string(ScopeWorkload::TreeOf(number)) + "/" +
                               std::to_string(ScopeWorkload::PlaceOf(number)) + " " +
                               std::string(what));
    }
}

CheckingSink::CheckingSink(std::shared_ptr<LineChecker> checker, std::function<void()> before)
    : m_checker(std::move(checker)),
      m_before(std::move(before)) {}

CheckingSink::~CheckingSink() = default;

void CheckingSink::Log(const TLog::Event& event) {
    if (m_before) {
        m_before();
    }
    m_checker->Take(event);
}

}  // namespace stress
