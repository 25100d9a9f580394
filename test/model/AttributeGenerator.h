#pragma once

#include "Random.h"

#include "cvlmetrics/MetricsValue.h"

#include <string>
#include <string_view>
#include <vector>

namespace model {

/// Makes names, values and lists: mostly what the library's own senders emit, in narrow and wide
/// kinds, and now and then what nobody should. Refers to the stream's source of choices.
class AttributeGenerator {
public:
    /// `wrongKinds` in percent: how often a name or a value is of a kind that does not belong.
    AttributeGenerator(Random& random, int wrongKinds);

    /// The name as it is, or disguised: in apostrophes, with a tail behind a NUL.
    Metrics::MetricsValue Name(std::u16string_view name);

    /// A value that a sender would give to this name, or one of a wrong kind.
    Metrics::MetricsValue ValueFor(std::u16string_view name);

    Metrics::MetricsValue ScopeName();
    Metrics::MetricsValue HostScopeName();

    Metrics::NameValuePair ScopePair();
    Metrics::NameValueList ScopePairs();

    /// With `carriesContext`, the six pairs by which a scope carries its context are among them.
    Metrics::NameValueList OpeningPairs(bool carriesContext);

    Metrics::NameValuePair ContextPair();
    Metrics::NameValueList ContextPairs();
    Metrics::NameValueList ResultPairs();
    Metrics::NameValueList FigurePairs();

    Metrics::MetricsValue ListName(std::u16string_view name);
    std::u16string_view AnyListName();

    /// So many that they are not looked for one by one any more, some of them twice.
    Metrics::NameValueList ManyPairs();

    /// A post-close action that may or may not mean "take a layer off".
    Metrics::MetricsValue CloseAction();

private:
    /// Narrow or wide; owned, or one that lives as long as the process.
    Metrics::MetricsValue Text(std::u16string_view text);
    Metrics::MetricsValue IllFormedText();
    Metrics::MetricsValue WrongKind();
    Metrics::MetricsValue AnyValue();
    Metrics::NameValuePair PairOf(std::u16string_view name);
    std::u16string_view OrdinaryName();

    Random& m_random;
    int m_wrongKinds;
};

}  // namespace model
