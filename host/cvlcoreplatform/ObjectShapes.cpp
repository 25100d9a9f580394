#include "ObjectShapes.h"

#include "LineText.h"

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <utility>

namespace cvlcoreplatform {

namespace {

constexpr std::size_t mostFields = 32;

bool IsImmortal(const TString& name) noexcept {
    return name.SharedCharacters() != nullptr && name.SharedCharacters().use_count() == 0;
}

std::size_t Mix(std::size_t sum, const TString& name) noexcept {
    constexpr std::size_t multiplier = 31;
    const auto address = reinterpret_cast<std::uintptr_t>(name.SharedCharacters().get());
    return sum * multiplier + address / sizeof(std::u16string);
}

std::shared_ptr<const ObjectShape> MakeShape(const TLog::FieldList& fields) {
    std::vector<const void*> names;
    names.reserve(fields.size());
    for (const TLog::Field& field : fields) {
        names.push_back(field.name.SharedCharacters().get());
    }
    std::vector<uint32> order(fields.size());
    std::iota(order.begin(), order.end(), 0U);
    std::sort(order.begin(), order.end(), [&fields](uint32 a, uint32 b) {
        return fields[a].name < fields[b].name;
    });
    std::vector<ObjectShape::Member> members;
    members.reserve(fields.size());
    for (const uint32 field : order) {
        LineText opening;
        if (!members.empty()) {
            opening.Append(',');
        }
        opening.AppendText(fields[field].name.View());
        opening.Append(':');
        members.push_back({.field = field, .opening = std::string(opening.View())});
    }
    return std::make_shared<const ObjectShape>(std::move(names), std::move(members));
}

}  // namespace

std::shared_ptr<const ObjectShape> ObjectShapes::Find(const TLog::FieldList& fields) {
    if (fields.empty() || fields.size() > mostFields) {
        return nullptr;
    }
    const std::size_t ends = Mix(Mix(fields.size(), fields.front().name), fields.back().name);
    std::shared_ptr<const ObjectShape>& slot = m_shapes[ends % slots];
    if (slot != nullptr && slot->Fits(fields)) {
        return slot;
    }
    if (!std::all_of(fields.begin(), fields.end(), [](const TLog::Field& field) {
            return IsImmortal(field.name);
        })) {
        return nullptr;
    }
    slot = MakeShape(fields);
    return slot;
}

}  // namespace cvlcoreplatform
