// How values read as text and numbers, against the rules of the header said once more.
#include "Input.h"
#include "Utf.h"

#include "tarn/TarnMetricsUtils.h"

#include "cvlcoreplatform/TLogValue.h"
#include "cvlsys/CorvalaException.h"

#include <cmath>
#include <cstdlib>
#include <memory>
#include <string>

namespace {

using Metrics::MetricsValue;

std::string UpToNul(const std::string& text) {
    return text.c_str();
}

/// The text of a text value.
std::string PlainText(const MetricsValue& value) {
    if (value.type == MetricsValue::MV_Utf8String) {
        // Ill-formed sequences are replaced on the way; that is for another fuzzer.
        return value.utf8 ? TString(UpToNul(*value.utf8)).ToUtf8() : "";
    }
    return value.utf16 ? UpToNul(fuzz::ReferenceUtf8(*value.utf16)) : "";
}

std::string Quoted(std::string text) {
    if (!text.empty() && text.front() == '\'') {
        std::string bare;
        for (const char unit : text) {
            if (unit != '\'') {
                bare += unit;
            }
        }
        text = bare;
    }
    if (text.find_first_of("\"\n") == std::string::npos) {
        return text;
    }
    std::string quoted = "\"";
    for (const char unit : text) {
        quoted += unit;
        if (unit == '"') {
            quoted += unit;
        }
    }
    return quoted + "\"";
}

void CheckNumberText(const MetricsValue& value, const std::string& text) {
    if (value.type == MetricsValue::MV_Int64) {
        fuzz::Require(text == std::to_string(value.integer), "an integer reads in decimal");
    } else if (value.type == MetricsValue::MV_Bool) {
        fuzz::Require(text == "true" || text == "false", "a truth value reads as a word");
    } else if (value.type == MetricsValue::MV_Double && std::isfinite(value.real)) {
        const double back = std::strtod(text.c_str(), nullptr);
        // Six digits may round beyond the largest number.
        fuzz::Require(std::isinf(back) ||
                          std::fabs(back - value.real) <= std::fabs(value.real) * 1e-5 + 1e-320,
                      "a double reads with six digits");
    }
}

void CheckValue(const MetricsValue& value) {
    const bool isText =
        value.type == MetricsValue::MV_Utf8String || value.type == MetricsValue::MV_Utf16String;
    const std::string text = TarnMetricsUtils::MetricsValueToString(value).ToUtf8();
    if (isText) {
        fuzz::Require(
            TarnMetricsUtils::ConvertMetricsValueToTString(value).ToUtf8() == PlainText(value),
            "a text value reads as its text");
        fuzz::Require(text == Quoted(PlainText(value)), "texts are quoted where they need it");
    } else {
        try {
            TarnMetricsUtils::ConvertMetricsValueToTString(value);
            fuzz::Require(false, "only texts are texts");
        } catch (const LogicException&) {
        }
        CheckNumberText(value, text);
        fuzz::Require(value.type <= MetricsValue::MV_Double || text.empty(),
                      "unknown kinds read as nothing");
    }
    fuzz::Require(TarnMetricsUtils::MetricsValueToInt(value) ==
                      (value.type == MetricsValue::MV_Int64 ? value.integer : 0),
                  "only integers are numbers");
}

void CheckDuration(uint64 nanoseconds) {
    const std::string exact = TarnMetricsUtils::NanoSecondsToString(nanoseconds, true).ToUtf8();
    const std::string cut = TarnMetricsUtils::NanoSecondsToString(nanoseconds, false).ToUtf8();
    fuzz::Require(exact.size() > 10 && exact[exact.size() - 10] == '.', "nine decimals");
    fuzz::Require(cut.size() > 4 && cut[cut.size() - 4] == '.', "three decimals");
    if (nanoseconds < uint64{1} << 52) {  // beyond, a double does not know every nanosecond
        const uint64 milliseconds = nanoseconds / 1'000'000;
        std::string fraction = std::to_string(milliseconds % 1000);
        fraction.insert(0, 3 - fraction.size(), '0');
        fuzz::Require(cut == std::to_string(milliseconds / 1000) + "." + fraction,
                      "a duration is cut off and not rounded");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    fuzz::Input input(data, size);
    CheckDuration(input.Number<uint64>());
    const int64 integer = input.Number<int64>();
    const MetricsValue low =
        TarnMetricsUtils::TLogLiteralToMetricsValue(TLog::Literal::Int(integer).get());
    fuzz::Require(low.type == MetricsValue::MV_Int64 &&
                      static_cast<uint32>(low.integer) == static_cast<uint32>(integer) &&
                      low.integer == static_cast<int32>(low.integer),
                  "a literal keeps its low half");
    while (!input.IsAtEnd()) {
        CheckValue(input.Value());
    }
    return 0;
}
