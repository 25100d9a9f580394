#include "commands/ShowCommand.h"

#include "commands/ActivityJson.h"
#include "commands/LoadTrees.h"
#include "output/TreePrinter.h"
#include "output/Units.h"

#include <cmath>
#include <map>
#include <ostream>
#include <simdjson.h>

namespace tarnview {

namespace {

using Index = ActivityForest::Index;

std::string Upper(std::string text) {
    for (char& letter : text) {
        letter = letter >= 'a' && letter <= 'f' ? static_cast<char>(letter - 'a' + 'A') : letter;
    }
    return text;
}

// Ids are written in capital letters; people may type small ones.
bool BeginsWith(std::string_view text, const std::string& beginning) {
    return text.substr(0, beginning.size()) == beginning ||
           text.substr(0, beginning.size()) == Upper(beginning);
}

class Sheet {
public:
    Sheet(const ActivityForest& forest, const Messages& messages, Context& context)
        : m_forest(forest),
          m_messages(messages),
          m_context(context) {}

    void Print(Index index) {
        const Activity& activity = m_forest[index];
        m_context.out << m_context.terminal.Paint(OnOneLine(activity.name), Colour::Bold) << '\n';
        PrintIdentity(activity);
        PrintTimes(index);
        PrintResult(activity);
        PrintFigures(activity.figures);
        PrintTable("environment", activity.environment);
        PrintTable("attributes", activity.attributes);
        PrintTable("body at begin", activity.beginBody);
        PrintTable("body at end", activity.endBody);
        PrintSupplements(activity.endBody);
        PrintMessages(index);
        PrintSponsors(index);
        PrintChildren(index);
    }

private:
    // With what ties each to the one before.
    using Relatives = std::vector<std::pair<Index, LinkKind>>;

    void PrintField(const std::string& name, const std::string& value) {
        if (!value.empty()) {
            m_context.out << "  " << FitLeft(OnOneLine(name), 16) << OnOneLine(value) << '\n';
        }
    }

    void PrintIdentity(const Activity& activity) {
        PrintField("id", activity.id);
        PrintField("root", activity.root);
        PrintField("depth", std::to_string(activity.depth));
        PrintField("host", std::string(activity.process.host));
        PrintField("process", std::to_string(activity.process.number));
        const std::string begin = std::to_string(activity.beginThread);
        const std::string end = std::to_string(activity.endThread);
        PrintField("thread", begin == end ? begin : begin + ", ended on " + end);
        PrintField("session", activity.session);
        PrintField("request", activity.request);
        PrintField("user", activity.user);
        PrintField("site", activity.site);
        PrintField("req-desc", activity.description);
    }

    void PrintTimes(Index index) {
        const Activity& activity = m_forest[index];
        const auto at = [](const Place& place) {
            return "  (" + std::string(place.file) + ":" + std::to_string(place.line) + ")";
        };
        PrintField("begin",
                   activity.hasBegin
                       ? m_context.times.Text(activity.begin) + at(activity.beginPlace)
                       : "not in the log; by its end " + m_context.times.Text(activity.begin));
        PrintField("end",
                   activity.hasEnd ? m_context.times.Text(activity.end) + at(activity.endPlace)
                                   : "never ended");
        if (activity.hasEnd) {
            PrintField("elapsed", FormatDuration(static_cast<double>(activity.Duration()) / 1e6));
            PrintField("exclusive",
                       FormatDuration(static_cast<double>(activity.ExclusiveTime()) / 1e6));
            PrintField("self", FormatDuration(static_cast<double>(m_forest.SelfTime(index)) / 1e6));
        }
    }

    void PrintResult(const Activity& activity) {
        if (!activity.hasEnd) {
            return;
        }
        const std::string outcome = OutcomeOf(activity);
        const bool isOk = activity.result == "ok";
        m_context.out << "  " << FitLeft("result", 16)
                      << (isOk ? "ok" : m_context.terminal.Paint(OnOneLine(outcome), Colour::Red))
                      << '\n';
        if (activity.failedChildren != 0) {
            PrintField("failed below", std::to_string(activity.failedChildren));
        }
        if (activity.terminatedChildren != 0) {
            PrintField("stopped below", std::to_string(activity.terminatedChildren));
        }
    }

    void PrintFigures(const Figures& figures) {
        const auto calls = [](double count) {
            return " in " + std::to_string(std::llround(count)) + (count == 1 ? " call" : " calls");
        };
        const auto pair = [](const std::string& inclusive, const std::string& exclusive) {
            return inclusive + ", exclusive " + exclusive;
        };
        if (figures.hasAllocated) {
            PrintField("allocated",
                       pair(FormatBytes(figures.ai) + calls(figures.ani),
                            FormatBytes(figures.ae) + calls(figures.ane)));
        }
        if (figures.hasReleased) {
            PrintField("released",
                       pair(FormatBytes(figures.di) + calls(figures.dni),
                            FormatBytes(figures.de) + calls(figures.dne)));
        }
        if (figures.hasPeak) {
            PrintField("most in use", FormatBytes(figures.apeak));
        }
        if (figures.hasCpu) {
            PrintField("cpu in kernel",
                       pair(FormatDuration(figures.ki / 1e6), FormatDuration(figures.ke / 1e6)));
            PrintField("cpu in program",
                       pair(FormatDuration(figures.ui / 1e6), FormatDuration(figures.ue / 1e6)));
        }
        if (figures.hasThreads) {
            PrintField("threads", std::to_string(std::llround(figures.threads)));
        }
    }

    void PrintTable(const char* title, const std::string& table) {
        simdjson::dom::object members;
        if (table.empty() || m_parser.parse(table).get(members) != simdjson::SUCCESS) {
            return;
        }
        bool hasTitle = false;
        for (const auto member : members) {
            if (member.key == "logs") {
                continue;  // the supplements, which have a place of their own
            }
            if (!hasTitle) {
                m_context.out << title << '\n';
                hasTitle = true;
            }
            PrintField(std::string(member.key) + " ",
                       member.value.is_string() ? std::string(std::string_view(member.value))
                                                : simdjson::minify(member.value));
        }
    }

    void PrintSupplements(const std::string& body) {
        simdjson::dom::array logs;
        if (body.empty() || m_parser.parse(body)["logs"].get(logs) != simdjson::SUCCESS) {
            return;
        }
        m_context.out << "supplements\n";
        for (const simdjson::dom::element supplement : logs) {
            m_context.out << "  " << OnOneLine(PairsOf(simdjson::minify(supplement))) << '\n';
        }
    }

    void PrintMessages(Index index) {
        const std::vector<Message> messages = m_messages.Of(index);
        if (messages.empty()) {
            return;
        }
        m_context.out << "messages\n";
        for (const Message& message : messages) {
            m_context.out << "  " << OnOneLine(MessageText(message, m_context.times)) << '\n';
        }
    }

    void PrintSponsors(Index index) {
        Relatives chain;
        for (Index next = index; m_forest.ParentOf(next) != ActivityForest::none;
             next = m_forest.ParentOf(next)) {
            chain.emplace_back(m_forest.ParentOf(next), m_forest.LinkOf(next));
        }
        PrintList("sponsors, the nearest first", chain);
    }

    void PrintChildren(Index index) {
        Relatives children;
        for (const Index child : m_forest.ChildrenOf(index)) {
            children.emplace_back(child, m_forest.LinkOf(child));
        }
        PrintList("children", children);
    }

    void PrintList(const char* title, const Relatives& activities) {
        if (activities.empty()) {
            return;
        }
        m_context.out << title << '\n';
        for (const auto& [index, kind] : activities) {
            const Activity& activity = m_forest[index];
            const std::string outcome = OutcomeOf(activity);
            const std::string duration =
                activity.hasEnd ? FormatDuration(static_cast<double>(activity.Duration()) / 1e6)
                                : "?";
            const std::string link = LinkNote(kind);
            m_context.out << "  " << OnOneLine(activity.id) << FitRight(duration, 13) << "  "
                          << OnOneLine(activity.name)
                          << (outcome.empty() ? "" : "  " + OnOneLine(outcome))
                          << (link.empty() ? "" : "  " + link) << '\n';
        }
    }

    const ActivityForest& m_forest;
    const Messages& m_messages;
    Context& m_context;
    simdjson::dom::parser m_parser;
};

}  // namespace

int RunShow(const ShowOptions& options, Context& context) {
    Input input(options.input, context);
    input.AllowAnotherPass();                  // for the tree
    input.AllowAnotherPass();                  // for messages
    std::map<std::string, std::string> roots;  // by id
    const ParserOptions parsing = ParsingFor(options.filter);
    const auto take = [&](Activity&& activity) {
        if (BeginsWith(activity.id, options.id) && options.filter.Passes(activity)) {
            roots.emplace(activity.id, activity.root);
        }
    };
    if (ActivitySource* const source = input.Source()) {
        source->Read({.wantsTables = parsing.wantsTables, .id = options.id}, take);
    } else {
        ReadActivities(input, parsing, take);
    }
    if (roots.size() != 1) {
        constexpr std::size_t mostShown = 10;
        context.err << "tarnview: "
                    << (roots.empty() ? "no activity has" : "several activities have")
                    << " an id that begins with '" << OnOneLine(options.id) << "'"
                    << (options.filter.IsEmpty() ? "\n" : " and fits the condition\n");
        std::size_t shown = 0;
        for (const auto& [id, root] : roots) {
            if (++shown > mostShown) {
                context.err << "  and " << roots.size() - mostShown << " more\n";
                break;
            }
            context.err << "  " << OnOneLine(id) << '\n';
        }
        const int status = input.Finish();
        return status == exitSuccess ? exitNegative : status;
    }
    const ActivityForest forest = LoadTrees(input, {roots.begin()->second});
    const Messages messages = LoadMessages(input, forest);
    Sheet sheet(forest, messages, context);
    Json json(context.out);
    std::size_t shown = 0;
    for (Index index = 0; index < forest.Size(); ++index) {
        if (forest[index].id == roots.begin()->first) {
            ++shown;
            if (options.isJson) {
                WriteActivity(json, forest, index, std::nullopt, &messages);
                continue;
            }
            context.out << (shown == 1 ? "" : "\n");
            sheet.Print(index);
        }
    }
    SayWhatIsGuessed(forest, context);
    const int status = input.Finish();
    if (shown > 1) {
        context.err << "tarnview: " << shown << " activities have this id\n";
        return exitNegative;
    }
    return status;
}

}  // namespace tarnview
