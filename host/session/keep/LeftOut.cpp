#include "LeftOut.h"

#include "cvlcoreplatform/TLogValue.h"
#include "cvlcoreplatform/TString.h"

#include <memory>
#include <utility>

namespace tarn {
namespace {

using TLog::Literal;

std::shared_ptr<Literal> ToLiteral(uint64 number) {
    return Literal::Int(static_cast<int64>(number));
}

}  // namespace

void LeftOut::CountLine(const LineFacts& line) {
    ++m_lines;
    if (line.phase != LineFacts::Phase::End) {
        return;
    }
    const auto known = m_names.find(line.name);
    Sums* sums = &m_others;
    if (known != m_names.end()) {
        sums = &known->second;
    } else if (m_names.size() < mostNames) {
        sums = &m_names[line.name];
    }
    ++sums->ended;
    sums->failed += line.isFailure ? 1 : 0;
    sums->elapsed += line.elapsed;
    sums->exclusive += line.exclusive;
}

TLog::Event LeftOut::ToEvent(double lateness) const {
    const auto toObject = [](const Sums& sums) {
        TLog::NameTable table;
        table.emplace(u"count", ToLiteral(sums.ended));
        table.emplace(u"elapsed", Literal::Double(sums.elapsed, 0));
        table.emplace(u"exclusive", Literal::Double(sums.exclusive, 0));
        if (sums.failed != 0) {
            table.emplace(u"failed", ToLiteral(sums.failed));
        }
        return TLog::Object::Make(std::move(table));
    };
    TLog::NameTable activities;
    for (const auto& [name, sums] : m_names) {
        activities.emplace(TString::FromUtf8(name), toObject(sums));
    }
    TLog::NameTable body;
    body.emplace(u"lines", ToLiteral(m_lines));
    body.emplace(u"trees", ToLiteral(m_trees));
    body.emplace(u"late", Literal::Double(lateness, 0));
    body.emplace(u"activities", TLog::Object::Make(std::move(activities)));
    if (m_others.ended != 0) {
        body.emplace(u"others", toObject(m_others));
    }
    if (m_unjudged != 0) {
        body.emplace(u"unjudged", ToLiteral(m_unjudged));
    }
    return {TString(u"tarn-left-out"), TLog::Object::Make(std::move(body))};
}

}  // namespace tarn
