#pragma once

#include "tarn/Export.h"

#include "cvlcoreplatform/TLogValue.h"
#include "cvlcoreplatform/TString.h"
#include "cvlmetrics/MetricsValue.h"
#include "cvlsys/IntegerTypes.h"

/// How values of metrics events read as text and numbers. Stateless; any thread.
class TARN_EXPORT TarnMetricsUtils {
public:
    /// The text of a text value, up to its first NUL. Any other kind raises `LogicException`
    /// ("Unexpected MetricsValue type").
    static TString ConvertMetricsValueToTString(const Metrics::MetricsValue& value);

    /// "-", which stands for a text that is missing.
    static TString DefaultStringAttributeValue();

    /// The integer of an integer value, 0 for every other kind.
    static int64 MetricsValueToInt(const Metrics::MetricsValue& value);

    /// The text form of any value. Doubles have six significant digits. A text that begins with
    /// an apostrophe loses all its apostrophes; one that then holds a double quote or a line feed
    /// is enclosed in double quotes, its own doubled. An unknown kind gives the empty text.
    static TString MetricsValueToString(const Metrics::MetricsValue& value);

    /// A duration in seconds: with high precision nine decimals, else three, cut off and never
    /// rounded.
    static TString NanoSecondsToString(uint64 nanoSeconds, bool highPrecision);

    /// The value of a log literal. Integers keep their low 32 bits, signed; null gives the empty
    /// text. A null pointer raises `LogicException` ("value").
    static Metrics::MetricsValue TLogLiteralToMetricsValue(const TLog::Literal* value);
};
