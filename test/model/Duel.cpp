#include "Duel.h"

#include "Model.h"
#include "MonitorRun.h"

#include <algorithm>
#include <utility>

namespace model {
namespace {

// Wherever in the value.
bool HoldsReplacement(const Node& node) {
    const auto isOneOf = [](const std::u16string& text) {
        return text.find(u'\uFFFD') != std::u16string::npos;
    };
    return isOneOf(node.text) ||
           std::any_of(node.fields.begin(),
                       node.fields.end(),
                       [&isOneOf](const Field& field) {
                           return isOneOf(field.name) || HoldsReplacement(field.value);
                       }) ||
           std::any_of(node.items.begin(), node.items.end(), HoldsReplacement);
}

// A text that nobody owns lives as long as the process.
bool IsStaticText(const Metrics::MetricsValue& value) {
    return (value.utf8 != nullptr && value.utf8.use_count() == 0) ||
           (value.utf16 != nullptr && value.utf16.use_count() == 0);
}

bool HoldsStaticText(const Metrics::MetricsEvent& event) {
    return IsStaticText(event.name) || IsStaticText(event.value) ||
           std::any_of(event.pairs.begin(), event.pairs.end(), [](const auto& pair) {
               return IsStaticText(pair.first) || IsStaticText(pair.second);
           });
}

}  // namespace

void Sightings::Add(LogEvent event) {
    ++(event.name.substr(0, 4) == u"end-" ? endEvents : beginEvents);
    generatedRequestIds += event.requestIsGenerated ? 1U : 0U;
    constexpr std::size_t many = 16;
    if (event.body.fields.size() > many || event.attributes.fields.size() > many) {
        ++manyAttributes;
    }
    if (const Node* const depth = event.activity.Find(u"depth"); depth && depth->integer < 0) {
        ++negativeDepths;
    }
    if (HoldsReplacement(event.body) || HoldsReplacement(event.attributes)) {
        ++replacedTexts;
    }
    if (Node* const resources = event.activity.Find(u"res")) {
        processorTimes += resources->Find(u"ucpu") ? 1U : 0U;
        releasedMemory += resources->Find(u"free") ? 1U : 0U;
    }
}

void Sightings::Add(const Metrics::MetricsEvent& event, const Observation& observation) {
    ++events;
    staticTexts += HoldsStaticText(event) ? 1U : 0U;
    for (const Entry& entry : observation.journal) {
        switch (entry.kind) {
            case Entry::Kind::ActivityEvent:
                Add(entry.event);
                break;
            case Entry::Kind::DiagnosticEvent:
                ++dumps;
                break;
            case Entry::Kind::Message:
                warnings += entry.severity == 3 ? 1 : 0;
                callbackErrors += StartsWith(entry.text, u"The counter callback") ? 1U : 0U;
                missingSponsors += entry.severity == 0 ? 1 : 0;
                break;
            default:
                break;
        }
    }
    if (observation.raised) {
        const Raised& raised = *observation.raised;
        sinkErrors += raised.kind == Raised::Kind::Sink ? 1 : 0;
        if (raised.kind == Raised::Kind::Logic) {
            const int line = raised.line.value_or(0);
            ++(line == 47 ? conversionErrors : line == 110 ? textFieldErrors : figureNameErrors);
        }
    }
}

std::optional<Parting> RunStream(const Stream& stream,
                                 Sightings* sightings,
                                 const Tampering& tampering) {
    Model model(PrepareProcess(),
                stream.options,
                stream.rootContextId,
                stream.contextIds,
                stream.throughDefaultSink,
                stream.repeatingIds);
    MonitorRun run(stream.options,
                   stream.rootContextId,
                   stream.contextIds,
                   stream.throughDefaultSink,
                   stream.repeatingIds);
    Comparison comparison;
    if (auto difference = comparison.FirstDifference(model.Construct(), run.Construct())) {
        return Parting{-1, *difference};
    }
    for (std::size_t i = 0; i < stream.steps.size(); ++i) {
        const Step& step = stream.steps[i];
        if (step.options) {
            model.SetOptions(*step.options);
            run.SetOptions(*step.options);
        }
        const Observation expected = model.Handle(step.event, step.sinkThrows);
        Metrics::MetricsEvent event = step.event;
        if (tampering.event) {
            tampering.event(i, event);
        }
        Observation actual = run.Handle(event, step.sinkThrows);
        if (tampering.observation) {
            tampering.observation(i, actual);
        }
        if (auto difference = comparison.FirstDifference(expected, actual)) {
            return Parting{static_cast<int64>(i), *difference};
        }
        if (sightings) {
            sightings->Add(step.event, expected);
        }
    }
    if (auto difference = comparison.FirstDifference(model.Destroy(), run.Destroy())) {
        return Parting{static_cast<int64>(stream.steps.size()), *difference};
    }
    return std::nullopt;
}

Stream Shrink(Stream stream, const Tampering& tampering) {
    const std::optional<Parting> parting = RunStream(stream, nullptr, tampering);
    if (!parting) {
        return stream;
    }
    if (parting->step + 1 < static_cast<int64>(stream.steps.size())) {
        stream.steps.resize(static_cast<std::size_t>(parting->step + 1));
    }
    for (std::size_t chunk = stream.steps.size(); chunk > 0; chunk /= 2) {
        for (std::size_t first = 0; first < stream.steps.size();) {
            Stream shorter = stream;
            const std::size_t last = std::min(first + chunk, shorter.steps.size());
            shorter.steps.erase(shorter.steps.begin() + static_cast<std::ptrdiff_t>(first),
                                shorter.steps.begin() + static_cast<std::ptrdiff_t>(last));
            if (RunStream(shorter, nullptr, tampering)) {
                stream = std::move(shorter);
            } else {
                first += chunk;
            }
        }
    }
    return stream;
}

std::string Describe(const Stream& stream, const Parting& parting, const Tampering& tampering) {
    const std::string seed = std::to_string(stream.seed);
    const std::string number = std::to_string(stream.number);
    const bool atEvent =
        parting.step >= 0 && parting.step < static_cast<int64>(stream.steps.size());
    std::string text = "Model and library differ.\n  seed " + seed + ", stream " + number +
                       ", event " + std::to_string(parting.step) + " of " +
                       std::to_string(stream.steps.size()) + "\n  event:   " +
                       (atEvent ? Print(stream.steps[static_cast<std::size_t>(parting.step)].event)
                        : parting.step < 0 ? "the monitor's construction"
                                           : "the monitor's destruction") +
                       "\n  field:   " + parting.difference.field +
                       "\n  model:   " + parting.difference.expected +
                       "\n  library: " + parting.difference.actual +
                       "\n  To replay it, run this test with TARN_MODEL_SEED=" + seed +
                       " TARN_MODEL_STREAM=" + number + "\n  The same in fewer events:";
    const Stream shrunken = Shrink(stream, tampering);
    text += "\n    root context " + std::to_string(shrunken.rootContextId) +
            (shrunken.throughDefaultSink ? ", default sink" : "") +
            (shrunken.repeatingIds ? ", repeating ids" : "") + "\n    " + Print(shrunken.options);
    for (const Step& step : shrunken.steps) {
        if (step.options) {
            text += "\n    " + Print(*step.options);
        }
        text += "\n    " + Print(step.event) + (step.sinkThrows ? " (the sink throws)" : "");
    }
    if (const auto last = RunStream(shrunken, nullptr, tampering)) {
        text += "\n    there the field " + last->difference.field +
                "\n      model:   " + last->difference.expected +
                "\n      library: " + last->difference.actual;
    }
    return text + "\n";
}

}  // namespace model
