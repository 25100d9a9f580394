#pragma once

#include "activity/Activity.h"
#include "expression/Value.h"

#include <optional>
#include <string>
#include <string_view>

namespace tarnview {

/// A field of an activity that can be asked for by its name: one that all have, as "user", or a
/// member of one of its tables, as "body.shard". A value.
class ActivityField {
public:
    /// Nothing if no field has this name.
    static std::optional<ActivityField> Find(std::string_view name);

    /// The names that Find() takes, for people; with `isWanted`, those of such types.
    static std::string KnownNames(bool (*isWanted)(ValueType type) = nullptr);

    const std::string& Name() const { return m_name; }

    ValueType Type() const;

    /// Whether lines must be parsed with their tables.
    bool NeedsTables() const { return m_common == nullptr; }

    /// Appends the value as a text, "-" for what is missing.
    void AppendTo(std::string& text, const Activity& activity) const;

    /// Missing if the activity does not have the field, as times of what never ended, or figures
    /// that were not measured. Of an attribute that begin and end have, the end's counts.
    Value Of(const Activity& activity) const;

private:
    struct Common;
    struct Table;

    ActivityField() = default;

    static const Common s_common[];
    static const Table s_tables[];

    std::string m_name;
    std::string m_member;
    const Common* m_common = nullptr;
    const Table* m_table = nullptr;
};

}  // namespace tarnview
