#include "engine/ActivityRow.h"

#include "engine/StoredId.h"

#include <algorithm>

namespace tarnview {

namespace {

// What is known of an activity, as bits.
enum Flag : std::uint16_t {
    hasBegin = 1,
    hasEnd = 2,
    isForked = 4,
    hasSeveralRequests = 8,
    hasAllocated = 16,
    hasPeak = 32,
    hasReleased = 64,
    hasCpu = 128,
    hasThreads = 256,
};

struct FlagMember {
    Flag flag;
    bool Activity::*activity;
    bool Figures::*figures;
};

constexpr FlagMember flagMembers[] = {
    {hasBegin, &Activity::hasBegin, nullptr},
    {hasEnd, &Activity::hasEnd, nullptr},
    {isForked, &Activity::isForked, nullptr},
    {hasSeveralRequests, &Activity::hasSeveralRequests, nullptr},
    {hasAllocated, nullptr, &Figures::hasAllocated},
    {hasPeak, nullptr, &Figures::hasPeak},
    {hasReleased, nullptr, &Figures::hasReleased},
    {hasCpu, nullptr, &Figures::hasCpu},
    {hasThreads, nullptr, &Figures::hasThreads},
};

// Each visits the columns in their order: to write them, to read them, to name them. Neighbouring
// rows of a tree are alike in most of them, and those columns take next to nothing; so the columns
// hold differences wherever these are mostly 0.

struct Columns {
    RowOrigin origin;
    std::int64_t beginLag = 0;   // lines between the begin and the end line
    std::int64_t beginBase = 0;  // of the loader's lines, those before the file
    std::int64_t endBase = 0;
    std::uint8_t wasOpen = 0;
    std::uint16_t flags = 0;
    std::int64_t duration = 0;
    std::int64_t exclusiveTime = 0;
    std::int64_t endSkew = 0;             // of the end behind the begin and the duration
    std::int64_t childrenSkew = 0;        // of childrenTime behind duration and exclusiveTime
    std::int64_t loggedChildrenSkew = 0;  // likewise by what the log says
};

template <class Visitor>
void VisitOrigin(Visitor& visitor, RowOrigin& origin) {
    visitor.Day("day", origin.day);
    visitor.Number("loader", origin.loader);
    visitor.Number("block", origin.block);
    visitor.Number("line", origin.line);
}

template <class Visitor>
void VisitActivity(Visitor& visitor, Columns& columns, Activity& it) {
    VisitOrigin(visitor, columns.origin);
    visitor.Number("begin_lag", columns.beginLag);
    visitor.Number("begin_base", columns.beginBase);
    visitor.Number("end_base", columns.endBase);
    visitor.Number("was_open", columns.wasOpen);
    visitor.Number("flags", columns.flags);
    visitor.Id("root", "root_text", it.root);
    visitor.Id("id", "id_text", it.id);
    visitor.Id("sponsor", "sponsor_text", it.sponsor);
    visitor.Id("caller", "caller_text", it.caller);
    visitor.Text("name", it.name);
    visitor.Number("depth", it.depth);
    visitor.Number("pid", it.process.number);
    visitor.Number("begin_tid", it.beginThread);
    visitor.Number("tid", it.endThread);
    visitor.Text("session", it.session);
    visitor.Text("request", it.request);
    visitor.Text("user", it.user);
    visitor.Text("site", it.site);
    visitor.Text("req_desc", it.description);
    visitor.Number("begin_us", it.begin);
    visitor.Number("duration_us", columns.duration);
    visitor.Number("exclusive_us", columns.exclusiveTime);
    visitor.Number("end_skew_us", columns.endSkew);
    visitor.Number("children_skew_us", columns.childrenSkew);
    visitor.Number("logged_children_skew_us", columns.loggedChildrenSkew);
    visitor.Real("elapsed", it.elapsed);
    visitor.Real("exclusive", it.exclusive);
    visitor.File("begin_file", it.beginPlace.file);
    visitor.File("end_file", it.endPlace.file);
    visitor.Text("result", it.result);
    visitor.Number("failed_children", it.failedChildren);
    visitor.Number("terminated_children", it.terminatedChildren);
    visitor.Real("ai", it.figures.ai);
    visitor.Real("ae", it.figures.ae);
    visitor.Real("apeak", it.figures.apeak);
    visitor.Real("ani", it.figures.ani);
    visitor.Real("ane", it.figures.ane);
    visitor.Real("di", it.figures.di);
    visitor.Real("de", it.figures.de);
    visitor.Real("dni", it.figures.dni);
    visitor.Real("dne", it.figures.dne);
    visitor.Real("ki", it.figures.ki);
    visitor.Real("ke", it.figures.ke);
    visitor.Real("ui", it.figures.ui);
    visitor.Real("ue", it.figures.ue);
    visitor.Real("threads", it.figures.threads);
    visitor.Table("environment", it.environment);
    visitor.Table("rv", it.resultDetails);
    visitor.Table("attributes", it.attributes);
    visitor.Table("begin_body", it.beginBody);
    visitor.Table("end_body", it.endBody);
}

template <class Visitor>
void VisitMessage(Visitor& visitor, MessageRow& row) {
    std::uint8_t isDiagnostic = row.line.kind == LineKind::Diagnostic ? 1 : 0;
    std::uint64_t fileLine = row.place.line;
    VisitOrigin(visitor, row.origin);
    visitor.Number("time_us", row.line.time);
    visitor.Number("is_diagnostic", isDiagnostic);
    visitor.View("severity", row.line.severity);
    visitor.View("event", row.line.event);
    visitor.View("message", row.line.message);
    visitor.Number("pid", row.line.process.number);
    visitor.Number("tid", row.line.thread);
    visitor.File("file", row.place.file);
    visitor.Number("file_line", fileLine);
    row.line.kind = isDiagnostic != 0 ? LineKind::Diagnostic : LineKind::Message;
    row.place.line = fileLine;
}

template <class Visitor>
void VisitRejected(Visitor& visitor, RejectedRow& row) {
    VisitOrigin(visitor, row.origin);
    visitor.File("file", row.place.file);
    visitor.Number("file_line", row.place.line);
    visitor.View("reason", row.reason);
    visitor.View("text", row.text);
}

class WritingVisitor {
public:
    explicit WritingVisitor(NativeWriter& writer) : m_writer(writer) {}

    void Day(const char* name, std::uint16_t day) { m_writer.Date(name, day); }

    void Number(const char* name, std::uint8_t value) { m_writer.UInt8(name, value); }

    void Number(const char* name, std::uint16_t value) { m_writer.UInt16(name, value); }

    void Number(const char* name, std::uint32_t value) { m_writer.UInt32(name, value); }

    void Number(const char* name, std::uint64_t value) { m_writer.UInt64(name, value); }

    void Number(const char* name, std::int64_t value) { m_writer.Int64(name, value); }

    void Real(const char* name, double value) { m_writer.Float64(name, value); }

    void Text(const char* name, const std::string& text) { m_writer.Text(name, text); }

    void Table(const char* name, const std::string& text) { m_writer.Text(name, text); }

    void View(const char* name, std::string_view text) { m_writer.Text(name, text); }

    void File(const char* name, std::string_view file) { m_writer.Text(name, file); }

    void Id(const char* name, const char* textName, const std::string& id) {
        const StoredId stored = StoredId::Of(id);
        m_writer.Uuid(name, stored.halves);
        m_writer.Text(textName, stored.text);
    }

private:
    NativeWriter& m_writer;
};

class ReadingVisitor {
public:
    ReadingVisitor(NativeReader& reader, TextPool& files) : m_reader(reader), m_files(files) {}

    void Day(const char* name, std::uint16_t& day) { m_reader.Date(name, day); }

    void Number(const char* name, std::uint8_t& value) { m_reader.UInt8(name, value); }

    void Number(const char* name, std::uint16_t& value) { m_reader.UInt16(name, value); }

    void Number(const char* name, std::uint32_t& value) { m_reader.UInt32(name, value); }

    void Number(const char* name, std::uint64_t& value) { m_reader.UInt64(name, value); }

    void Number(const char* name, std::int64_t& value) { m_reader.Int64(name, value); }

    void Real(const char* name, double& value) { m_reader.Float64(name, value); }

    void Text(const char* name, std::string& text) {
        std::string_view view;
        m_reader.Text(name, view);
        text = view;
    }

    void Table(const char* name, std::string& text) { Text(name, text); }

    void View(const char* name, std::string_view& text) { m_reader.Text(name, text); }

    void File(const char* name, std::string_view& file) {
        m_reader.Text(name, file);
        file = m_files.Keep(file);
    }

    void Id(const char* name, const char* textName, std::string& id) {
        StoredId stored;
        m_reader.Uuid(name, stored.halves);
        m_reader.Text(textName, stored.text);
        id = stored.Id();
    }

private:
    NativeReader& m_reader;
    TextPool& m_files;
};

// Names the columns: with their types, or as they are selected.
class NamingVisitor {
public:
    enum class Kind { Types, Selected, SelectedWithoutTables };

    explicit NamingVisitor(Kind kind) : m_kind(kind) {}

    std::string Names() const { return m_names; }

    void Day(const char* name, std::uint16_t) { Add(name, "Date"); }

    void Number(const char* name, std::uint8_t) { Add(name, "UInt8"); }

    void Number(const char* name, std::uint16_t) { Add(name, "UInt16"); }

    void Number(const char* name, std::uint32_t) { Add(name, "UInt32"); }

    void Number(const char* name, std::uint64_t) { Add(name, "UInt64"); }

    void Number(const char* name, std::int64_t) { Add(name, "Int64"); }

    void Real(const char* name, double) { Add(name, "Float64"); }

    void Text(const char* name, const std::string&) { Add(name, "String"); }

    void View(const char* name, std::string_view) { Add(name, "String"); }

    void File(const char* name, std::string_view) { Add(name, "String"); }

    void Table(const char* name, const std::string&) {
        if (m_kind == Kind::SelectedWithoutTables) {
            Add((std::string("'' AS ") + name).c_str(), "");
        } else {
            Add(name, "String");
        }
    }

    void Id(const char* name, const char* textName, const std::string&) {
        Add(name, "UUID");
        Add(textName, "String");
    }

private:
    void Add(const char* name, const char* type) {
        m_names += (m_names.empty() ? "" : ", ") + std::string(name);
        if (m_kind == Kind::Types) {
            m_names += std::string(" ") + type;
        }
    }

    Kind m_kind;
    std::string m_names;
};

using Kind = NamingVisitor::Kind;

template <class Row, class Visit>
std::string NamesOf(Kind kind, const Visit& visit) {
    NamingVisitor visitor(kind);
    Row row;
    visit(visitor, row);
    return visitor.Names();
}

std::string ActivityNames(Kind kind) {
    NamingVisitor visitor(kind);
    Columns columns;
    Activity activity;
    VisitActivity(visitor, columns, activity);
    return visitor.Names();
}

const auto visitMessage = [](auto& visitor, MessageRow& row) { VisitMessage(visitor, row); };
const auto visitRejected = [](auto& visitor, RejectedRow& row) { VisitRejected(visitor, row); };

std::int64_t Difference(std::uint64_t a, std::uint64_t b) {
    return static_cast<std::int64_t>(a - b);
}

}  // namespace

std::uint16_t DayOf(Microseconds time) {
    constexpr Microseconds dayLength = 86'400'000'000;
    constexpr Microseconds lastDay =
        49'709;  // of the year 2106, up to which old engines know dates
    return static_cast<std::uint16_t>(std::clamp<Microseconds>(time / dayLength, 0, lastDay));
}

std::string_view TextPool::Keep(std::string_view text) {
    const auto found = m_texts.find(text);
    return found != m_texts.end() ? *found : *m_texts.emplace(text).first;
}

void Write(const ActivityRow& row, NativeWriter& writer) {
    const Activity& activity = row.activity;
    Columns columns;
    columns.origin = row.origin;
    columns.beginLag = activity.hasBegin ? Difference(row.origin.line, row.beginLine) : 0;
    columns.beginBase = activity.hasBegin ? Difference(row.beginLine, activity.beginPlace.line) : 0;
    columns.endBase = activity.hasEnd ? Difference(row.origin.line, activity.endPlace.line) : 0;
    columns.wasOpen = row.wasOpen ? 1 : 0;
    for (const FlagMember& member : flagMembers) {
        const bool isSet = member.activity != nullptr ? activity.*member.activity
                                                      : activity.figures.*member.figures;
        columns.flags = static_cast<std::uint16_t>(columns.flags | (isSet ? member.flag : Flag{}));
    }
    if (activity.hasEnd) {
        columns.duration = activity.Duration();
        columns.exclusiveTime = activity.ExclusiveTime();
    }
    columns.endSkew = activity.end - activity.begin - columns.duration;
    columns.childrenSkew = activity.childrenTime - (columns.duration - columns.exclusiveTime);
    columns.loggedChildrenSkew =
        activity.childrenLoggedTime - (activity.LoggedDuration() - activity.LoggedExclusiveTime());
    WritingVisitor visitor(writer);
    writer.BeginRow();
    // The visitor that writes changes nothing.
    VisitActivity(visitor, columns, const_cast<Activity&>(activity));
}

ActivityRow ReadActivityRow(NativeReader& reader, TextPool& files) {
    ActivityRow row;
    Columns columns;
    Activity& activity = row.activity;
    ReadingVisitor visitor(reader, files);
    VisitActivity(visitor, columns, activity);
    for (const FlagMember& member : flagMembers) {
        bool& flag = member.activity != nullptr ? activity.*member.activity
                                                : activity.figures.*member.figures;
        flag = (columns.flags & member.flag) != 0;
    }
    row.origin = columns.origin;
    row.wasOpen = columns.wasOpen != 0;
    if (activity.hasBegin) {
        row.beginLine = row.origin.line - static_cast<std::uint64_t>(columns.beginLag);
        activity.beginPlace.line = row.beginLine - static_cast<std::uint64_t>(columns.beginBase);
    }
    if (activity.hasEnd) {
        activity.endPlace.line = row.origin.line - static_cast<std::uint64_t>(columns.endBase);
    }
    activity.end = activity.begin + columns.duration + columns.endSkew;
    activity.childrenTime = columns.duration - columns.exclusiveTime + columns.childrenSkew;
    activity.childrenLoggedTime =
        activity.LoggedDuration() - activity.LoggedExclusiveTime() + columns.loggedChildrenSkew;
    return row;
}

std::string ActivityColumns() {
    return ActivityNames(Kind::Types);
}

std::string ActivityColumnsToRead(bool wantsTables) {
    return ActivityNames(wantsTables ? Kind::Selected : Kind::SelectedWithoutTables);
}

void Write(const MessageRow& row, NativeWriter& writer) {
    WritingVisitor visitor(writer);
    MessageRow copy = row;
    writer.BeginRow();
    VisitMessage(visitor, copy);
}

MessageRow ReadMessageRow(NativeReader& reader, TextPool& files) {
    ReadingVisitor visitor(reader, files);
    MessageRow row;
    VisitMessage(visitor, row);
    return row;
}

std::string MessageColumns() {
    return NamesOf<MessageRow>(Kind::Types, visitMessage);
}

std::string MessageColumnsToRead() {
    return NamesOf<MessageRow>(Kind::Selected, visitMessage);
}

void Write(const RejectedRow& row, NativeWriter& writer) {
    WritingVisitor visitor(writer);
    RejectedRow copy = row;
    writer.BeginRow();
    VisitRejected(visitor, copy);
}

std::string RejectedColumns() {
    return NamesOf<RejectedRow>(Kind::Types, visitRejected);
}

}  // namespace tarnview
