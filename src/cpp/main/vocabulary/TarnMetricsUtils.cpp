#include "tarn/TarnMetricsUtils.h"

#include "ActivityTokenText.h"
#include "LogicAssert.h"
#include "ValueText.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace {

using Metrics::MetricsValue;
using Metrics::ValueView;

constexpr const char* sourceFile = "src/cpp/main/TarnMetricsUtils";

template <char16_t... units>
bool HasAnyOfOneByOne(std::u16string_view text) noexcept {
    return std::any_of(
        text.begin(), text.end(), [](char16_t unit) { return (... || (unit == units)); });
}

/// Whether any of these units occurs. Nearly all texts have nothing that is as small as these: all
/// of it is looked at, eight units at a time, and nothing is decided before the end.
template <char16_t... units>
bool HasAnyOf(std::u16string_view text) noexcept {
    constexpr std::size_t block = 8;
    if (text.size() < block) {
        return HasAnyOfOneByOne<units...>(text);
    }
    // A vector of the compiler's, which makes the best of it that the processor has.
    using Block [[gnu::vector_size(block * sizeof(std::uint16_t))]] = std::uint16_t;
    Block found{};
    const auto look = [&found](const char16_t* from) {
        Block eight;
        std::memcpy(&eight, from, sizeof eight);
        found |= reinterpret_cast<Block>(eight <= std::uint16_t{std::max({units...})});
    };
    for (std::size_t i = 0; i + block <= text.size(); i += block) {
        look(text.data() + i);
    }
    // The last block overlaps what has been looked at already.
    look(text.data() + text.size() - block);
    std::array<std::uint64_t, 2> halves{};
    static_assert(sizeof halves == sizeof found);
    std::memcpy(halves.data(), &found, sizeof halves);
    return (halves[0] | halves[1]) != 0 && HasAnyOfOneByOne<units...>(text);
}

/// Whether a text may be another one once it was read: one that ends early, or is quoted.
bool NeedsMoreThanSharing(std::u16string_view text) noexcept {
    return HasAnyOf<u'\0', u'\'', u'"', u'\n'>(text);
}

/// Up to a NUL, at which a text ends early.
std::u16string_view UpToNul(std::u16string_view text) noexcept {
    return HasAnyOf<u'\0'>(text) ? text.substr(0, text.find(u'\0')) : text;
}

[[noreturn]] void RaiseNoText() {
    tarn::RaiseLogicAssert(sourceFile, 47, "Unexpected MetricsValue type", 0xFCE7C547);
}

TString Quoted(std::u16string_view text) {
    std::u16string quoted(1, u'"');
    for (const char16_t unit : text) {
        quoted.append(unit == u'"' ? 2 : 1, unit);
    }
    quoted += u'"';
    return TString(std::move(quoted));
}

/// A text that comes in apostrophes is taken out of them; a text that would break a line or a
/// quotation is put in double quotes.
TString ApplyQuotingRule(const TString& text) {
    const std::u16string_view view = text.View();
    if (!view.empty() && view.front() == u'\'') {
        std::u16string bare(view);
        std::erase(bare, u'\'');
        return HasAnyOf<u'"', u'\n'>(bare) ? Quoted(bare) : TString(std::move(bare));
    }
    return HasAnyOf<u'"', u'\n'>(view) ? Quoted(view) : text;
}

}  // namespace

TLog::TextView tarn::ViewOfText(const MetricsValue& value) {
    switch (value.type) {
        case MetricsValue::MV_Utf8String:
            return value.utf8 ? std::string_view(value.utf8->c_str()) : std::string_view();
        case MetricsValue::MV_Utf16String:
            return value.utf16 ? UpToNul(*value.utf16) : std::u16string_view();
        default:
            RaiseNoText();
    }
}

TLog::TextView tarn::ViewOfText(const ValueView& value) {
    switch (value.GetKind()) {
        case ValueView::Kind::Utf8:
            return value.GetUtf8().substr(0, value.GetUtf8().find('\0'));
        case ValueView::Kind::Utf16:
            return UpToNul(value.GetUtf16());
        case ValueView::Kind::Static:
            return UpToNul(value.GetStatic());
        case ValueView::Kind::Shared:
            return value.GetShared() ? UpToNul(*value.GetShared()) : std::u16string_view();
        case ValueView::Kind::Value:
            return ViewOfText(value.GetValue());
        default:
            RaiseNoText();
    }
}

bool tarn::IsText(const ValueView& value) noexcept {
    switch (value.GetKind()) {
        case ValueView::Kind::Int64:
        case ValueView::Kind::Bool:
        case ValueView::Kind::Double:
            return false;
        case ValueView::Kind::Value:
            return IsText(value.GetValue());
        default:
            return true;
    }
}

bool tarn::IsInteger(const ValueView& value) noexcept {
    return value.GetKind() == ValueView::Kind::Int64 ||
           (value.GetKind() == ValueView::Kind::Value &&
            value.GetValue().type == MetricsValue::MV_Int64);
}

int64 tarn::IntegerOf(const ValueView& value) noexcept {
    switch (value.GetKind()) {
        case ValueView::Kind::Int64:
            return value.GetInteger();
        case ValueView::Kind::Value:
            return TarnMetricsUtils::MetricsValueToInt(value.GetValue());
        default:
            return 0;
    }
}

TString tarn::TextOf(const ValueView& value) {
    TString text;
    switch (value.GetKind()) {
        case ValueView::Kind::Utf16:
            text = TString(value.GetUtf16());
            break;
        case ValueView::Kind::Static:
            text = TString(TString::Characters(TString::Characters(), &value.GetStatic()));
            break;
        case ValueView::Kind::Shared:
            text = TString(value.GetShared());
            break;
        default:
            return TarnMetricsUtils::MetricsValueToString(value.ToValue());
    }
    return NeedsMoreThanSharing(text.View()) ? TarnMetricsUtils::MetricsValueToString(text) : text;
}

TString TarnMetricsUtils::ConvertMetricsValueToTString(const MetricsValue& value) {
    switch (value.type) {
        case MetricsValue::MV_Utf8String:
            return value.utf8 ? TString(value.utf8->c_str()) : TString();
        case MetricsValue::MV_Utf16String:
            // Shares the value's characters if all of them count.
            return value.utf16 && HasAnyOf<u'\0'>(*value.utf16) ? TString(UpToNul(*value.utf16))
                                                                : TString(value.utf16);
        default:
            RaiseNoText();
    }
}

TString TarnMetricsUtils::DefaultStringAttributeValue() {
    return tarn::NoText();
}

int64 TarnMetricsUtils::MetricsValueToInt(const MetricsValue& value) {
    return value.type == MetricsValue::MV_Int64 ? value.integer : 0;
}

TString TarnMetricsUtils::MetricsValueToString(const MetricsValue& value) {
    switch (value.type) {
        case MetricsValue::MV_Int64:
            return TString::number(value.integer);
        case MetricsValue::MV_Bool:
            return value.boolean ? TString(u"true") : TString(u"false");
        case MetricsValue::MV_Double:
            return TString::number(value.real, 'g', 6);
        case MetricsValue::MV_Utf16String:
            if (value.utf16 != nullptr && !NeedsMoreThanSharing(*value.utf16)) {
                return TString(value.utf16);
            }
            [[fallthrough]];
        case MetricsValue::MV_Utf8String:
            return ApplyQuotingRule(ConvertMetricsValueToTString(value));
        default:
            return TString();
    }
}

TString TarnMetricsUtils::NanoSecondsToString(uint64 nanoSeconds, bool highPrecision) {
    if (highPrecision) {
        return TString::number(static_cast<double>(nanoSeconds) / 1'000'000'000, 'f', 9);
    }
    const uint64 milliSeconds = nanoSeconds / 1'000'000;
    return TString::number(static_cast<double>(milliSeconds) / 1000.0, 'f', 3);
}

MetricsValue TarnMetricsUtils::TLogLiteralToMetricsValue(const TLog::Literal* value) {
    if (value == nullptr) {
        tarn::RaiseLogicAssert(sourceFile, 106, "value", 0x035D1E8E);
    }
    switch (value->GetType()) {
        case TLog::LiteralType::String:
            return MetricsValue(value->GetString());
        case TLog::LiteralType::Integer:
            return MetricsValue(static_cast<int32>(static_cast<uint32>(value->GetInt())));
        case TLog::LiteralType::Double:
        case TLog::LiteralType::FixedDouble:
            return MetricsValue(value->GetDouble());
        case TLog::LiteralType::Boolean:
            return MetricsValue(value->GetBool());
        case TLog::LiteralType::Null:
            break;
    }
    return MetricsValue(u"");
}
