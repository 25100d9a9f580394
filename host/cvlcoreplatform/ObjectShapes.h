#pragma once

#include "cvlcoreplatform/TLogValue.h"
#include "cvlsys/IntegerTypes.h"

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace cvlcoreplatform {

/// The names of an object's fields as one line after another has them: in which order they are
/// written, and how each of them begins its field.
class ObjectShape {
public:
    struct Member {
        uint32 field;         ///< its place in the list
        std::string opening;  ///< a comma unless it is the first, the quoted name, a colon
    };

    /// `names` are known by their addresses, which therefore must stay what they are.
    ObjectShape(std::vector<const void*> names, std::vector<Member> members)
        : m_names(std::move(names)),
          m_members(std::move(members)) {}

    bool Fits(const TLog::FieldList& fields) const noexcept {
        if (fields.size() != m_names.size()) {
            return false;
        }
        for (std::size_t i = 0; i < m_names.size(); ++i) {
            if (fields[i].name.SharedCharacters().get() != m_names[i]) {
                return false;
            }
        }
        return true;
    }

    /// As they are to be written.
    const std::vector<Member>& GetMembers() const noexcept { return m_members; }

private:
    std::vector<const void*> m_names;
    std::vector<Member> m_members;
};

/// The shapes that came lately, of objects all of whose names live as long as the process. There
/// are few, as such names are a library's own. One thread at a time.
class ObjectShapes {
public:
    /// Null for a list that has no shape that could come again. The caller holds on to the shape:
    /// an object inside of its object may take its place here.
    std::shared_ptr<const ObjectShape> Find(const TLog::FieldList& fields);

private:
    static constexpr std::size_t slots = 64;

    std::array<std::shared_ptr<const ObjectShape>, slots> m_shapes;
};

}  // namespace cvlcoreplatform
