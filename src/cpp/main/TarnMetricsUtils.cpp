#include "tarn/TarnMetricsUtils.h"

#include "ActivityTokenText.h"
#include "LogicAssert.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace {

using Metrics::MetricsValue;

constexpr const char* sourceFile = "src/cpp/main/TarnMetricsUtils";

TString FromUtf8UpToNul(const MetricsValue& value) {
    return value.utf8 ? TString(value.utf8->c_str()) : TString();
}

/// Whether any of these units occurs. Nearly all texts have none: each unit is looked at once, and
/// nothing is decided before the end.
template <char16_t... units>
bool HasAnyOf(std::u16string_view text) noexcept {
    bool found = false;
    for (const char16_t unit : text) {
        found = (found | ... | (unit == units));
    }
    return found;
}

/// Shares the value's characters unless a NUL ends the text early.
TString FromUtf16UpToNul(const MetricsValue& value) {
    if (value.utf16 && HasAnyOf<u'\0'>(*value.utf16)) {
        return TString(value.utf16->c_str());
    }
    return TString(value.utf16);
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

TString TarnMetricsUtils::ConvertMetricsValueToTString(const MetricsValue& value) {
    switch (value.type) {
        case MetricsValue::MV_Utf8String:
            return FromUtf8UpToNul(value);
        case MetricsValue::MV_Utf16String:
            return FromUtf16UpToNul(value);
        default:
            tarn::RaiseLogicAssert(sourceFile, 47, "Unexpected MetricsValue type", 0xFCE7C547);
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
        case MetricsValue::MV_Utf8String:
        case MetricsValue::MV_Utf16String:
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
