#include "ImmortalNames.h"

#include "ActivityTokenText.h"
#include "NeverDestroyed.h"

#include <cstddef>
#include <mutex>
#include <string>
#include <unordered_set>

namespace tarn {
namespace {

constexpr std::size_t mostNames = 4096;
constexpr std::size_t longestName = 64;

class Names {
public:
    TString Find(const TString& name) {
        const std::lock_guard guard(m_mutex);
        const std::u16string text(name.View());
        auto known = m_names.find(text);
        if (known == m_names.end()) {
            if (m_names.size() == mostNames) {
                return name;
            }
            known = m_names.insert(text).first;
        }
        return TString::ReferTo(*known);
    }

private:
    std::mutex m_mutex;
    // Its elements stay where they are.
    std::unordered_set<std::u16string> m_names;
};

}  // namespace

TString MakeImmortal(const TString& name) {
    static NeverDestroyed<Names> names;
    if (name.IsEmpty() || name.Length() > longestName || name.SharedCharacters().use_count() == 0) {
        return name;
    }
    return names.Get().Find(name);
}

}  // namespace tarn
