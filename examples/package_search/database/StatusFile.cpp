#include "StatusFile.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <simdjson.h>
#include <system_error>
#include <utility>

namespace packagesearch {

namespace {

bool IsBlank(char character) {
    return character == ' ' || character == '\t' || character == '\r';
}

std::string_view Trimmed(std::string_view text) {
    while (!text.empty() && IsBlank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && IsBlank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

bool EqualIgnoringCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char left, char right) {
        return std::tolower(static_cast<unsigned char>(left)) ==
               std::tolower(static_cast<unsigned char>(right));
    });
}

// Descriptions from before UTF-8 became the rule are Latin-1; what follows needs UTF-8.
std::string AsUtf8(std::string_view text) {
    if (simdjson::validate_utf8(text.data(), text.size())) {
        return std::string(text);
    }
    std::string utf8;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte < 0x80) {
            utf8.push_back(character);
        } else {
            utf8.push_back(static_cast<char>(0xC0 | (byte >> 6)));
            utf8.push_back(static_cast<char>(0x80 | (byte & 0x3F)));
        }
    }
    return utf8;
}

struct Field {
    std::string_view name;
    std::string_view value;                      // of the field's own line
    std::vector<std::string_view> continuation;  // of the lines that follow
    std::size_t line = 0;
};

// One paragraph of the file: the fields of one package.
struct Stanza {
    std::vector<Field> fields;
    std::size_t line = 0;

    const Field* Find(std::string_view name) const {
        const auto found = std::find_if(fields.begin(), fields.end(), [name](const Field& field) {
            return EqualIgnoringCase(field.name, name);
        });
        return found == fields.end() ? nullptr : &*found;
    }
};

class Parser {
public:
    Parser(std::string_view text, const std::string& sourceName)
        : m_rest(text),
          m_sourceName(sourceName) {}

    StatusFile Parse() {
        StatusFile result;
        result.bytes = m_rest.size();
        while (const std::optional<Stanza> stanza = NextStanza()) {
            if (IsInstalled(*stanza)) {
                result.packages.push_back(ToPackage(*stanza));
            } else {
                ++result.notInstalled;
            }
        }
        if (result.packages.empty()) {
            throw StatusFileError(m_sourceName + ": holds no installed package");
        }
        return result;
    }

private:
    [[noreturn]] void Fail(std::size_t line, const std::string& problem) const {
        throw StatusFileError(m_sourceName + ":" + std::to_string(line) + ": " + problem);
    }

    std::optional<Stanza> NextStanza() {
        Stanza stanza;
        while (!m_rest.empty()) {
            const std::string_view line = NextLine();
            if (Trimmed(line).empty()) {
                if (!stanza.fields.empty()) {
                    return stanza;
                }
            } else if (IsBlank(line.front())) {
                if (stanza.fields.empty()) {
                    Fail(m_line, "a continuation line without a field before it");
                }
                stanza.fields.back().continuation.push_back(line.substr(1));
            } else {
                AddField(stanza, line);
            }
        }
        if (stanza.fields.empty()) {
            return std::nullopt;
        }
        return stanza;
    }

    std::string_view NextLine() {
        ++m_line;
        const std::size_t end = m_rest.find('\n');
        const std::string_view line = m_rest.substr(0, end);
        m_rest.remove_prefix(end == std::string_view::npos ? m_rest.size() : end + 1);
        if (line.find('\0') != std::string_view::npos) {
            Fail(m_line, "a NUL byte");
        }
        return line;
    }

    void AddField(Stanza& stanza, std::string_view line) const {
        const std::size_t colon = line.find(':');
        const std::string_view name = line.substr(0, colon);
        const bool isName = colon != std::string_view::npos && !name.empty() &&
                            std::all_of(name.begin(), name.end(), [](char character) {
                                return character > ' ' && character < 0x7F;
                            });
        if (!isName) {
            Fail(m_line, "neither 'Field: value' nor a continuation line");
        }
        if (stanza.Find(name) != nullptr) {
            Fail(m_line, "field '" + std::string(name) + "' appears twice in one stanza");
        }
        if (stanza.fields.empty()) {
            stanza.line = m_line;
        }
        stanza.fields.push_back({name, Trimmed(line.substr(colon + 1)), {}, m_line});
    }

    // A removed package keeps its stanza while its configuration files are there.
    static bool IsInstalled(const Stanza& stanza) {
        const Field* status = stanza.Find("Status");
        if (status == nullptr) {
            return true;
        }
        const std::size_t lastBlank = status->value.rfind(' ');
        const std::string_view state = lastBlank == std::string_view::npos
                                           ? status->value
                                           : status->value.substr(lastBlank + 1);
        return state == "installed";
    }

    Package ToPackage(const Stanza& stanza) const {
        Package package;
        package.name = Required(stanza, "Package");
        package.version = Required(stanza, "Version");
        package.architecture = Required(stanza, "Architecture");
        package.section = Optional(stanza, "Section");
        package.installedKib = InstalledKib(stanza);
        AddDescription(stanza, package);
        AddDependencies(stanza, "Pre-Depends", DependencyKind::PreDepends, package);
        AddDependencies(stanza, "Depends", DependencyKind::Depends, package);
        AddDependencies(stanza, "Recommends", DependencyKind::Recommends, package);
        return package;
    }

    std::string Required(const Stanza& stanza, std::string_view name) const {
        const Field* field = stanza.Find(name);
        if (field == nullptr) {
            Fail(stanza.line, "the stanza has no field '" + std::string(name) + "'");
        }
        if (field->value.empty()) {
            Fail(field->line, "field '" + std::string(name) + "' is empty");
        }
        return AsUtf8(field->value);
    }

    static std::string Optional(const Stanza& stanza, std::string_view name) {
        const Field* field = stanza.Find(name);
        return field == nullptr ? std::string() : AsUtf8(field->value);
    }

    std::int64_t InstalledKib(const Stanza& stanza) const {
        const Field* field = stanza.Find("Installed-Size");
        if (field == nullptr) {
            return 0;
        }
        std::int64_t kib = 0;
        const char* const end = field->value.data() + field->value.size();
        const auto [stop, error] = std::from_chars(field->value.data(), end, kib);
        if (error != std::errc() || stop != end || kib < 0) {
            Fail(field->line, "'Installed-Size' is no number of KiB");
        }
        return kib;
    }

    static void AddDescription(const Stanza& stanza, Package& package) {
        const Field* field = stanza.Find("Description");
        if (field == nullptr) {
            return;
        }
        package.summary = AsUtf8(field->value);
        std::string lines;
        for (const std::string_view line : field->continuation) {
            // A lone dot stands for an empty line.
            lines.append(Trimmed(line) == "." ? std::string_view() : line);
            lines.push_back('\n');
        }
        package.description = AsUtf8(lines);
    }

    void AddDependencies(const Stanza& stanza,
                         std::string_view fieldName,
                         DependencyKind kind,
                         Package& package) const {
        const Field* field = stanza.Find(fieldName);
        if (field == nullptr) {
            return;
        }
        std::string list(field->value);
        for (const std::string_view line : field->continuation) {
            list.append(" ").append(line);
        }
        int group = package.dependencies.empty() ? 0 : package.dependencies.back().group + 1;
        for (std::string_view rest = list; !rest.empty();) {
            const std::string_view alternatives = Cut(rest, ',');
            // A comma at the end of the list is allowed.
            if (!Trimmed(alternatives).empty()) {
                AddAlternatives(*field, alternatives, kind, group++, package);
            }
        }
    }

    void AddAlternatives(const Field& field,
                         std::string_view alternatives,
                         DependencyKind kind,
                         int group,
                         Package& package) const {
        do {
            const std::string_view alternative = Trimmed(Cut(alternatives, '|'));
            // Behind the name: ":any", " (>= 1.0)", " [amd64]".
            const std::string_view name =
                alternative.substr(0, alternative.find_first_of(" \t:([<"));
            if (name.empty()) {
                Fail(field.line,
                     "field '" + std::string(field.name) + "' has a dependency without a name");
            }
            package.dependencies.push_back({kind, group, AsUtf8(name)});
        } while (!alternatives.empty());
    }

    // The text before the separator, which is taken off with it.
    static std::string_view Cut(std::string_view& text, char separator) {
        const std::size_t end = text.find(separator);
        const std::string_view piece = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        return piece;
    }

    std::string_view m_rest;
    const std::string& m_sourceName;
    std::size_t m_line = 0;
};

}  // namespace

StatusFile ParseStatusFile(std::string_view text, const std::string& sourceName) {
    return Parser(text, sourceName).Parse();
}

StatusFile ReadStatusFile(const std::filesystem::path& path) {
    const std::string name = path.string();
    std::error_code error;
    // Opening a directory succeeds and reading it gives nothing, so it has to be asked for.
    if (std::filesystem::is_directory(path, error)) {
        throw StatusFileError(name + ": is a directory");
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw StatusFileError(name + ": cannot be opened: " + std::strerror(errno));
    }
    const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (file.bad()) {
        throw StatusFileError(name + ": cannot be read: " + std::strerror(errno));
    }
    return ParseStatusFile(text, name);
}

}  // namespace packagesearch
