#include "AttributeGenerator.h"

#include "Names.h"
#include "StaticTexts.h"

#include "cvlcoreplatform/TString.h"

#include <initializer_list>
#include <limits>
#include <memory>
#include <string>

namespace model {
namespace {

using Metrics::MetricsValue;
using Metrics::NameValueList;
using Metrics::NameValuePair;
using namespace std::string_literals;
using namespace std::string_view_literals;

// Lone surrogates have no narrow form.
bool HasNarrowForm(std::u16string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isHigh = text[i] >= 0xD800 && text[i] < 0xDC00;
        const bool isLow = text[i] >= 0xDC00 && text[i] < 0xE000;
        const bool isPair =
            isHigh && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000;
        if (isLow || (isHigh && !isPair)) {
            return false;
        }
        i += isPair ? 1 : 0;
    }
    return true;
}

void AppendUtf8(std::string& utf8, uint32 codePoint) {
    const auto append = [&utf8](uint32 byte) { utf8 += static_cast<char>(byte); };
    if (codePoint < 0x80) {
        append(codePoint);
    } else if (codePoint < 0x800) {
        append(0xC0 | (codePoint >> 6));
        append(0x80 | (codePoint & 0x3F));
    } else if (codePoint < 0x10000) {
        append(0xE0 | (codePoint >> 12));
        append(0x80 | ((codePoint >> 6) & 0x3F));
        append(0x80 | (codePoint & 0x3F));
    } else {
        append(0xF0 | (codePoint >> 18));
        append(0x80 | ((codePoint >> 12) & 0x3F));
        append(0x80 | ((codePoint >> 6) & 0x3F));
        append(0x80 | (codePoint & 0x3F));
    }
}

std::string ToUtf8(std::u16string_view text) {
    std::string utf8;
    for (std::size_t i = 0; i < text.size(); ++i) {
        uint32 codePoint = text[i];
        if (codePoint >= 0xD800 && codePoint < 0xE000) {
            ++i;
            codePoint = 0x10000 + ((codePoint - 0xD800) << 10) + (uint32{text[i]} - 0xDC00);
        }
        AppendUtf8(utf8, codePoint);
    }
    return utf8;
}

MetricsValue StaticNarrowText(const std::string& utf8) {
    MetricsValue value;
    value.type = MetricsValue::MV_Utf8String;
    value.utf8 = std::shared_ptr<const std::string>(std::shared_ptr<const std::string>(),
                                                    &StaticText<char>(utf8));
    return value;
}

}  // namespace

AttributeGenerator::AttributeGenerator(Random& random, int wrongKinds)
    : m_random(random),
      m_wrongKinds(wrongKinds) {}

MetricsValue AttributeGenerator::Text(std::u16string_view text) {
    const bool isNarrow = HasNarrowForm(text) && m_random.Percent(45);
    const bool isStatic = m_random.Percent(25);
    if (isNarrow) {
        return isStatic ? StaticNarrowText(ToUtf8(text)) : MetricsValue(ToUtf8(text));
    }
    return MetricsValue(isStatic ? TString::ReferTo(StaticText(text)) : TString(text));
}

MetricsValue AttributeGenerator::IllFormedText() {
    // Bytes that are never used, that begin nothing, or begin what does not come; longer forms than
    // needed; surrogates; beyond the last character.
    return MetricsValue(
        m_random.OneOf<const char*>({"stray\xFF"
                                     "byte",
                                     "\x80",
                                     "a\xBF\xBFz",
                                     "\xC3",
                                     "\xC3(",
                                     "\xC0\x80",
                                     "\xC1\xBFz",
                                     "\xE2\x82",
                                     "\xE2\x82z",
                                     "\xE2\x28\xA1",
                                     "\xE0\x80\x80",
                                     "\xE0\x9F\xBFz",
                                     "\xED\xA0\x80",
                                     "\xED\xA0\xBD\xED\xB8\x80",
                                     "\xF0\x9F\x98",
                                     "\xF0\x9F\x98\"",
                                     "\xF0\x80\x80\x80",
                                     "\xF4\x90\x80\x80",
                                     "\xF5\x80\x80\x80",
                                     "'\xFE'",
                                     "\xE6\x97\xA5\xE6\x97"}));
}

MetricsValue AttributeGenerator::WrongKind() {
    switch (m_random.Below(8)) {
        case 0:
            return MetricsValue(m_random.Between(-5, 5));
        case 1:
            return MetricsValue(m_random.Percent(50));
        case 2:
            return MetricsValue(m_random.OneOf({0.0, -0.0, 1.5, 1234567.0, 1e-7, -3.25e200}));
        case 3:
            return IllFormedText();
        case 5: {
            // A text without characters.
            MetricsValue value;
            value.type = m_random.OneOf<uint32>({3, 4});
            return value;
        }
        case 4: {
            // Text members that do not count.
            MetricsValue value(TString(u"hidden"));
            value.type = m_random.OneOf<uint32>({0, 1, 5, 77});
            value.integer = m_random.Between(0, 1);
            return value;
        }
        default: {
            MetricsValue value(m_random.Between(0, 9));
            value.type = m_random.OneOf<uint32>({5, 6, 255, 0xFFFFFFFFU});
            return value;
        }
    }
}

MetricsValue AttributeGenerator::Name(std::u16string_view name) {
    if (m_random.Percent(m_wrongKinds)) {
        return WrongKind();
    }
    const std::u16string text(name);
    switch (m_random.Below(40)) {
        case 0:
            return Text(u"'" + text + u"'");
        case 1:
            return Text(text + u"\0tail"s);
        case 2:
            return Text(text + u" ");
        case 3:
            return HasNarrowForm(text) ? MetricsValue(ToUtf8(text) + "\xE2\x82") : Text(text);
        default:
            return Text(text);
    }
}

MetricsValue AttributeGenerator::AnyValue() {
    switch (m_random.Below(8)) {
        case 0:
            return MetricsValue(m_random.OneOf({int64{0},
                                                int64{5},
                                                int64{-1},
                                                std::numeric_limits<int64>::max(),
                                                std::numeric_limits<int64>::min()}));
        case 1:
            return MetricsValue(m_random.Percent(50));
        case 2:
            return MetricsValue(m_random.OneOf({0.0, 1.5, -2.25, 1e300, 1234567.0, 0.1}));
        case 3:
            if (m_random.Percent(20)) {
                return IllFormedText();
            }
            [[fallthrough]];
        default:
            return Text(m_random.OneOf({u"value"sv,
                                        u""sv,
                                        u"two words"sv,
                                        u"'quoted'"sv,
                                        u"it's"sv,
                                        u"say \"yes\""sv,
                                        u"line\nfeed"sv,
                                        u"nul\0tail"sv,
                                        u"\u00E9\u65E5\U0001D11E"sv,
                                        u"\xD800"sv,
                                        u"''"sv,
                                        u"'a\"b'"sv,
                                        u"%1 %2"sv,
                                        u"-"sv}));
    }
}

MetricsValue AttributeGenerator::ValueFor(std::u16string_view name) {
    if (m_random.Percent(m_wrongKinds)) {
        return m_random.Percent(70) ? WrongKind() : AnyValue();
    }
    if (name == names::tidAttr) {
        return MetricsValue(m_random.OneOf<int64>({1, 1, 1, 2, 2, 3, 4660, -1, int64{1} << 40}));
    }
    if (name == names::pidAttr) {
        return MetricsValue(m_random.OneOf<int64>({1, 4242, -1, 0x100000007}));
    }
    if (name == names::traceDepthAttr || name == names::serviceDepthAttr) {
        return MetricsValue(m_random.OneOf<int64>({0,
                                                   0,
                                                   1,
                                                   1,
                                                   2,
                                                   3,
                                                   7,
                                                   -1,
                                                   0x100000001,
                                                   std::numeric_limits<int32>::max(),
                                                   std::numeric_limits<int32>::min()}));
    }
    if (name == names::resultKeyAttr) {
        return Text(m_random.OneOf({names::resultOk,
                                    names::resultOk,
                                    names::errorAttr,
                                    names::earlyTerminationAttr,
                                    names::failureAttr,
                                    names::canceledAttr,
                                    u"'ok'"sv,
                                    u""sv}));
    }
    if (name == names::requestDescription) {
        return Text(m_random.OneOf({u"load view"sv,
                                    u"/sessions/{sessionId}/commands"sv,
                                    u"/sessions/{sessionId}/commands/sheet"sv,
                                    u"/Sessions/{sessionId}/commands"sv,
                                    u"/sessions/{sessionId}/command"sv,
                                    u"/bootstrapSession"sv,
                                    u"/bootstrapSession/second"sv,
                                    u"/bootstrapsession"sv,
                                    u"/sessions/{sessionId}/commands\"x\""sv,
                                    u"/bootstrapSession\nx"sv,
                                    u"'/bootstrapSession'"sv,
                                    u"\0/bootstrapSession"sv,
                                    u""sv}));
    }
    if (name == names::ridAttr) {
        return Text(m_random.OneOf({u"-"sv, u"-"sv, u"R1"sv, u"R2"sv, u""sv, u"'-'"sv, u"'R'"sv}));
    }
    if (name == names::foregroundRootAttr || name == names::activityIdAttr ||
        name == names::sponsorActivityIdAttr) {
        return Text(m_random.OneOf({u"A1"sv, u"A2"sv, u"A3"sv, u"-"sv, u""sv, u"'A\"4'"sv}));
    }
    if (name == names::siteAttr || name == names::userAttr || name == names::sidAttr ||
        name == names::workbookAttr || name == names::viewAttr || name == names::cidAttr) {
        return Text(m_random.OneOf(
            {u"one"sv, u"two"sv, u"'three'"sv, u"fo\"ur"sv, u"-"sv, u""sv, u"fi\0ve"sv}));
    }
    return AnyValue();
}

MetricsValue AttributeGenerator::ScopeName() {
    if (m_random.Percent(m_wrongKinds)) {
        return WrongKind();
    }
    if (m_random.Percent(55)) {
        return Text(m_random.OneOf({u"load"sv, u"parse"sv, u"index"sv, u"search"sv}));
    }
    return Text(m_random.OneOf({names::requestScopeName,
                                names::requestScopeName,
                                names::requestScopeName,
                                u"qp"sv,
                                u"qp-optimize"sv,
                                u"'qp'-x"sv,
                                u"Qp"sv,
                                u"query"sv,
                                u"it's"sv,
                                u"'quoted'"sv,
                                u"two \"words\""sv,
                                u"line\nfeed"sv,
                                u"nul\0tail"sv,
                                u"%1 of %2"sv,
                                u"\u00E9\u65E5\U0001D11E"sv,
                                u"\xDC00"sv,
                                u"requests"sv,
                                u"Request"sv,
                                u"'request'"sv,
                                u"request\0x"sv,
                                u""sv}));
}

MetricsValue AttributeGenerator::HostScopeName() {
    return m_random.Percent(70) ? Name(names::requestScopeName) : ScopeName();
}

std::u16string_view AttributeGenerator::OrdinaryName() {
    return m_random.OneOf({u"path"sv,
                           u"rows"sv,
                           u"workbook"sv,
                           u"query"sv,
                           u"abstract-query"sv,
                           u"query-trunc"sv,
                           names::nameAttr,
                           names::depthAttr,
                           names::rootAttr,
                           names::logSupplementsAttr,
                           names::beginAttr,
                           u"5"sv,
                           u"a b"sv,
                           u"x\"y"sv,
                           u"l\nf"sv,
                           u"\u00E9\u65E5"sv,
                           u""sv});
}

NameValuePair AttributeGenerator::PairOf(std::u16string_view name) {
    return {Name(name), ValueFor(name)};
}

NameValuePair AttributeGenerator::ScopePair() {
    if (m_random.Percent(45)) {
        return PairOf(OrdinaryName());
    }
    return PairOf(m_random.OneOf({names::tidAttr,
                                  names::tidAttr,
                                  names::cmdNameAttr,
                                  names::cmdNameAttr,
                                  names::resultKeyAttr,
                                  names::traceDepthAttr,
                                  names::serviceDepthAttr,
                                  names::foregroundRootAttr,
                                  names::activityIdAttr,
                                  names::sponsorActivityIdAttr,
                                  names::ridAttr,
                                  names::siteAttr,
                                  names::workbookAttr,
                                  names::viewAttr,
                                  names::allocatedInclusiveAttr,
                                  names::requestDescription}));
}

NameValueList AttributeGenerator::ManyPairs() {
    NameValueList pairs;
    for (int64 left = m_random.Between(12, 60); left > 0; --left) {
        const char16_t letter = static_cast<char16_t>(u'a' + m_random.Below(40));
        pairs.emplace_back(Name(std::u16string(u"many ") + letter), AnyValue());
    }
    return pairs;
}

NameValueList AttributeGenerator::ScopePairs() {
    if (m_random.Percent(4)) {
        return ManyPairs();
    }
    NameValueList pairs;
    for (uint64 left = m_random.Below(5); left > 0; --left) {
        pairs.push_back(ScopePair());
    }
    return pairs;
}

NameValueList AttributeGenerator::OpeningPairs(bool carriesContext) {
    NameValueList pairs = m_random.Percent(3) ? ManyPairs() : NameValueList();
    for (uint64 left = m_random.Below(3); left > 0; --left) {
        pairs.push_back(ScopePair());
    }
    if (carriesContext) {
        for (const std::u16string_view name : {names::activityIdAttr,
                                               names::foregroundRootAttr,
                                               names::ridAttr,
                                               names::sponsorActivityIdAttr,
                                               names::traceDepthAttr,
                                               names::serviceDepthAttr}) {
            if (m_random.Percent(95)) {
                pairs.push_back(PairOf(name));
            }
        }
    }
    if (m_random.Percent(5)) {
        pairs.push_back(ScopePair());
    }
    return pairs;
}

NameValuePair AttributeGenerator::ContextPair() {
    if (m_random.Percent(20)) {
        return PairOf(OrdinaryName());
    }
    return PairOf(m_random.OneOf({names::tidAttr,
                                  names::tidAttr,
                                  names::cidAttr,
                                  names::pidAttr,
                                  names::ridAttr,
                                  names::requestDescription,
                                  names::requestDescription,
                                  names::requestDescription,
                                  names::requestDescription,
                                  names::sidAttr,
                                  names::siteAttr,
                                  names::userAttr,
                                  names::workbookAttr,
                                  names::viewAttr}));
}

NameValueList AttributeGenerator::ContextPairs() {
    if (m_random.Percent(3)) {
        return ManyPairs();
    }
    NameValueList pairs;
    for (uint64 left = m_random.Below(4); left > 0; --left) {
        pairs.push_back(ContextPair());
    }
    return pairs;
}

NameValueList AttributeGenerator::ResultPairs() {
    if (m_random.Percent(3)) {
        return ManyPairs();
    }
    NameValueList pairs;
    for (uint64 left = m_random.Below(4); left > 0; --left) {
        pairs.push_back(m_random.Percent(50) ? PairOf(names::resultKeyAttr)
                        : m_random.Percent(60)
                            ? PairOf(m_random.OneOf({names::messageAttr, names::errorCodeAttr}))
                            : ScopePair());
    }
    return pairs;
}

NameValueList AttributeGenerator::FigurePairs() {
    NameValueList pairs;
    for (uint64 left = m_random.Below(7); left > 0; --left) {
        const std::u16string_view name = m_random.OneOf({names::allocatedInclusiveAttr,
                                                         names::allocatedCountInclusiveAttr,
                                                         names::allocatedPeakAttr,
                                                         names::deallocatedInclusiveAttr,
                                                         names::deallocatedCountInclusiveAttr,
                                                         names::cpuTimeUserInclusiveAttr,
                                                         names::cpuTimeKernelInclusiveAttr,
                                                         names::allocatedExclusiveAttr});
        MetricsValue figure(m_random.OneOf({m_random.Between(0, 5000),
                                            m_random.Between(0, int64{1} << 40),
                                            m_random.Between(-300, -1),
                                            int64{0}}));
        if (m_random.Percent(m_wrongKinds + 2)) {
            figure = AnyValue();
        }
        pairs.emplace_back(Name(name), figure);
    }
    return pairs;
}

MetricsValue AttributeGenerator::ListName(std::u16string_view name) {
    return Name(name);
}

std::u16string_view AttributeGenerator::AnyListName() {
    return m_random.OneOf({names::cpuAttrsName,
                           names::memoryAttrsName,
                           names::requestScopeName,
                           names::resultAttrs,
                           names::requestContextAttributes,
                           names::addMappableContextAttributes,
                           names::addContextAttributes,
                           names::activityAttributes,
                           names::logSupplementsAttr,
                           names::miscAttr,
                           u""sv});
}

MetricsValue AttributeGenerator::CloseAction() {
    switch (m_random.Below(6)) {
        case 0:
            return MetricsValue(1);
        case 1:
            return MetricsValue(int64{0x100000000});
        case 2:
            return MetricsValue(int64{0x100000001});
        case 3:
            return MetricsValue(false);
        case 4:
            return MetricsValue(std::numeric_limits<int64>::min());
        default:
            return WrongKind();
    }
}

}  // namespace model
