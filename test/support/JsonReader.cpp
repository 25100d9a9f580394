#include "JsonReader.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace tarn::test {

namespace {

using nlohmann::json;

[[noreturn]] void Refuse(const std::string& reason, std::string_view line) {
    throw std::invalid_argument(reason + ": " + std::string(line));
}

/// The names of the objects that the parser is in, outermost first.
class SeenNames {
public:
    bool On(json::parse_event_t event, const json& parsed) {
        switch (event) {
            case json::parse_event_t::object_start:
                m_names.emplace_back();
                break;
            case json::parse_event_t::object_end:
                m_names.pop_back();
                break;
            case json::parse_event_t::key:
                if (!m_names.back().insert(parsed.get<std::string>()).second) {
                    throw std::invalid_argument("two fields are named " + parsed.dump());
                }
                break;
            default:
                break;
        }
        return true;
    }

private:
    std::vector<std::set<std::string>> m_names;
};

}  // namespace

json ReadJsonLine(std::string_view line) {
    if (line.empty() || line.front() != '{' || line.back() != '}') {
        Refuse("not an object alone", line);
    }
    if (std::any_of(line.begin(), line.end(), [](char unit) {
            return static_cast<unsigned char>(unit) < 0x20;
        })) {
        Refuse("a control character", line);
    }
    SeenNames names;
    try {
        return json::parse(line,
                           [&names](int /*depth*/, json::parse_event_t event, const json& parsed) {
                               return names.On(event, parsed);
                           });
    } catch (const json::exception& error) {
        Refuse(error.what(), line);
    } catch (const std::invalid_argument& error) {
        Refuse(error.what(), line);
    }
}

}  // namespace tarn::test
