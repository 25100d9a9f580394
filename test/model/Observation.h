#pragma once

#include "cvlsys/IntegerTypes.h"

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What can be seen of a monitor from outside, as plain data. The model produces it by thinking,
/// the run of the library by watching; the comparison knows nothing else. All records are values
/// without owner.
namespace model {

struct Field;

/// A structured value. `Nothing` stands for a missing one.
struct Node {
    enum class Kind { Nothing, Text, Integer, Real, FixedReal, Boolean, Null, Object, Array };

    Kind kind = Kind::Nothing;
    std::u16string text;
    int64 integer = 0;  ///< of `Integer`; 0 or 1 of `Boolean`
    double real = 0;
    std::vector<Field> fields;  ///< of `Object`, sorted by name
    std::vector<Node> items;    ///< of `Array`

    static Node Text(std::u16string_view text);
    static Node Integer(int64 value);
    static Node Real(double value);
    static Node Boolean(bool value);
    static Node Object();
    static Node Array();

    /// Writes a field of an object; a field of that name is replaced.
    void Set(std::u16string_view name, Node value);

    /// Null when there is no such field.
    Node* Find(std::u16string_view name);
};

struct Field {
    std::u16string name;
    Node value;
};

/// One finished activity log event.
struct LogEvent {
    std::u16string name;
    int64 time = 0;  ///< ticks of 100 ns
    uint32 processId = 0;
    uint64 threadId = 0;
    std::u16string session;
    std::u16string request;
    bool requestIsGenerated = false;  ///< expected side only: any fresh id will do
    std::u16string user;
    std::u16string site;
    Node environment;
    Node activity;
    Node attributes;
    Node body;
};

enum class Counter : std::size_t {
    ContextsCreated,
    ContextsClosed,
    RequestContextsCreated,
    RequestContextsClosed,
    ScopesOpened,
    ScopesClosed,
};

inline constexpr std::size_t numberOfCounters = 6;

using Counters = std::array<int64, numberOfCounters>;

/// One thing that happened while an event was handled. Everything is in one list, so that
/// the order among different kinds is compared too.
struct Entry {
    enum class Kind {
        CounterCall,      ///< the host's counter callback: `counterName`, `amount`, `counters`
        Message,          ///< a line in the host's log: `severity`, `text`
        DiagnosticEvent,  ///< an event without activity in the host's log: `severity`, `text`,
                          ///< `body`
        ActivityEvent,    ///< an event handed to the sink: `event`; `severity` by the default sink
        IdTaken,          ///< a call of the id generator
    };

    Kind kind = Kind::Message;
    std::string counterName;
    uint64 amount = 0;
    Counters counters{};  ///< at the time of the callback
    int32 severity = -1;
    std::u16string text;
    Node body;
    LogEvent event;
    std::string lineDifference;  ///< of both kinds of events: what their JSON line says otherwise
};

/// What came out of a call instead of a normal return.
struct Raised {
    enum class Kind { Logic, Sink, Other };

    Kind kind = Kind::Other;
    std::string file;
    std::string text;
    std::optional<int> line;     ///< expected side: empty when any will do
    std::optional<uint32> code;  ///< expected side: empty when any will do
    std::string errorText;       ///< expected side: empty when it follows from the code
};

/// Everything that one call did and left behind.
struct Observation {
    std::vector<Entry> journal;
    std::optional<Raised> raised;
    Counters counters{};
    uint64 openContexts = 0;
    uint64 openScopes = 0;
    std::vector<uint64> openScopesOfContext;  ///< in the order of the stream's context ids
};

/// Readable forms for failure messages: printable ASCII stands for itself, everything else is
/// escaped.
std::string Print(std::u16string_view text);
std::string Print(const Node& node);
std::string Print(const Entry& entry);
std::string Print(const std::optional<Raised>& raised);

}  // namespace model
