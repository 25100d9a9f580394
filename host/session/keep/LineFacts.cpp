#include "LineFacts.h"

#include "tarn/ActivityTokens.h"

#include "cvlcoreplatform/TString.h"

#include <array>
#include <string_view>
#include <vector>

namespace tarn {
namespace {

using TLog::EventPart;
using TLog::ReadField;

enum Asked : std::size_t { Id, Root, Name, Type, Result, Elapsed, Exclusive, Sampled, count };

std::vector<TLog::EventReader::Field> AllFields() {
    return {{EventPart::Activity, TString(ActivityTokens::idAttr)},
            {EventPart::Activity, TString(ActivityTokens::rootAttr)},
            {EventPart::Activity, TString(ActivityTokens::nameAttr)},
            {EventPart::Activity, TString(ActivityTokens::phaseAttr)},
            {EventPart::Activity, TString(ActivityTokens::resultKeyAttr)},
            {EventPart::Activity, TString(ActivityTokens::elapsedAttr)},
            {EventPart::Activity, TString(ActivityTokens::exclusiveTimeAttr)},
            {EventPart::Body, TString(u"sampled")}};
}

/// Into a text that keeps its memory.
void Assign(std::string& to, const ReadField& field) {
    if (field.kind != ReadField::Kind::Text) {
        to.clear();
    } else if (field.text.IsUtf8()) {
        to.assign(field.text.GetUtf8());
    } else {
        to = TString(field.text.GetUtf16()).ToUtf8();
    }
}

bool Is(const ReadField& field, std::string_view text) {
    return field.kind == ReadField::Kind::Text &&
           (field.text.IsUtf8() ? field.text.GetUtf8() == text
                                : TString(field.text.GetUtf16()).ToUtf8() == text);
}

LineFacts::Phase PhaseOf(const ReadField& type) {
    if (Is(type, "begin")) {
        return LineFacts::Phase::Begin;
    }
    return Is(type, "end") ? LineFacts::Phase::End : LineFacts::Phase::Other;
}

}  // namespace

LineReader::LineReader() : m_reader(AllFields()) {}

bool LineReader::Read(const TLog::Event& event, LineFacts& facts) {
    std::array<ReadField, Asked::count> fields;
    TLog::ReadHead head;
    if (!m_reader.Read(event, fields.data(), head) || fields[Id].kind != ReadField::Kind::Text) {
        return false;
    }
    facts.phase = PhaseOf(fields[Type]);
    Assign(facts.id, fields[Id]);
    Assign(facts.root, fields[Root]);
    if (facts.root.empty()) {
        facts.root = facts.id;
    }
    Assign(facts.name, fields[Name]);
    facts.isSampled =
        fields[Sampled].kind == ReadField::Kind::Integer && fields[Sampled].integer != 0;
    facts.isFailure = facts.phase == LineFacts::Phase::End && !Is(fields[Result], "ok") &&
                      !Is(fields[Result], "early-termination");
    facts.elapsed = fields[Elapsed].real;
    facts.exclusive = fields[Exclusive].real;
    facts.time = head.time;
    facts.bytes = head.bytes;
    return true;
}

}  // namespace tarn
